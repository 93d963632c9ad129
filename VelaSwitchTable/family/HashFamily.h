#pragma once

#include "VelaSwitchTable/VelaHitBitUtil.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/HashEntries.h"
#include "VelaSwitchTable/family/HashRow.h"

/// What all exact-match hash families share. A family is a struct F, derived from Family, that says
/// what is its own:
///
///   traits                    a HashFamilyTraits
///   keyFields                 the fields of the key that are hashed, from the lowest bit on
///   hash(buffer, way, bits)   the row in a way; best one of VelaSwitch/Crc.h
///   fields                    the row's; see Row.h
///
/// Rows begin with the packed key, without the bits that their place implies (rowImpliesKey). The
/// fields of the result are found by name, and so are `valid`, `parity`, `row` and `way`.
///
/// A family whose keys or rows are not just that says in addition
///
///   crc(bits)                 the hash of keys of so many bits, where that is one of Crc.h
///   completeKey(row, key)     what of a key stands elsewhere in the row
///   packKey(key, bits)        instead of keyFields, with
///   unpackKey(bits, row, key) the key of a row; false for a row that holds none
///   packMore(helper, key, result, valid, location, row)   before the parity is worked out; what
///                             fields of the result it packs is said by handPacked, see Row.h
///   unpackMore(helper, row, result)
///   isEntry(row, location)    whether the row holds an entry; else its `valid` bit says it
///   sample(helper, bits, key, result)   makes an entry of the table of a key and a result with the
///                             bits in their fields, for the checks when the table is made; without
///                             it, a key with packKey is the null key there
///   check(helper, key, result)   asserts what must hold of an entry before anything moves
///   notCompared               the field of the key that rows do not tell, if any
///   dataWords(profile)        data registers, where the traits do not say it
namespace VelaSwitchTable {

template <class F>
class VELA_EXPORT HashFamilyProperties : public VelaSwitchApi::PhysicalHashProperties {
 public:
  explicit HashFamilyProperties(U32 tableId = F::traits.tableId(0),
                                U8 hashBits = F::traits.hashBits)
      : PhysicalHashProperties({.tableId = tableId,
                                .rowWords = F::traits.rowWords,
                                .rowsPerWay = 1u << hashBits,
                                .hashBits = hashBits,
                                .ways = F::traits.ways,
                                .banks = 1,
                                .hitBits = F::traits.hitBits,
                                .hitBitsClearOnRead = F::traits.hitBits}) {}
};

/// The helper of a family whose physical tables differ by their number alone.
template <class F>
class VELA_EXPORT HashFamilyHelper : public HashFamilyHelperBase<F> {
 public:
  using HashFamilyHelperBase<F>::HashFamilyHelperBase;

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<typename ClassesOf<F>::PhysicalHashProperties>(
        F::traits.tableId(this->tableIdx()));
  }
};

/// The table of a family whose tables all have one convertor, helper and entry class.
template <class F>
class VELA_EXPORT HashFamilyTable : public HashFamilyTableBase<F> {
 public:
  using HashFamilyTableBase<F>::HashFamilyTableBase;

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<F>::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename ClassesOf<F>::Helper>(this->tableIdx());
  }

 protected:
  [[gnu::flatten]] HashFamilyEntry<F>* newRecord(const typename F::Key& key, U32 tag) override {
    return new (this->slab()) typename ClassesOf<F>::CuckooEntry(this, key, tag);
  }
  [[gnu::flatten]] void groupRecords(
      std::span<const std::pair<typename F::Key, typename F::Result>> entries, const U32* tags,
      VelaSwitchApi::KeyRecord** records, std::size_t& count) override {
    this->groupRecordsOf(entries, tags, records, count, [&](const auto& key, U32 tag) {
      return new (this->slab()) typename ClassesOf<F>::CuckooEntry(this, key, tag);
    });
  }
};

template <class F>
class VELA_EXPORT HashFamilyConvertor : public HashTableConvertor {
 public:
  HashFamilyConvertor() : HashTableConvertor(F::traits) {}

 protected:
  VelaSwitchApi::HwAddressColl registers(U32 processor) const override {
    U8 dataWords = F::traits.dataWords;
    if constexpr (requires { &F::dataWords; }) dataWords = F::dataWords(profile());
    return regAddresses(regPrefix(F::traits.prefix, processor), hashRegisters(dataWords));
  }
  Orb::PtrConst<VelaSwitchApi::HitBitReadInfoWrapper> hitBits(U32 processor, U32 rows,
                                                              U32 bitsPerRead) const override {
    return getHitBitMapping(regPrefix(F::traits.prefix, processor), rows, bitsPerRead,
                            hitTableOffset());
  }
};

}  // namespace VelaSwitchTable

// A hash family's classes are named after it: of the family Xxx, the struct XxxFamily,
//
//   VELA_HASH_FAMILY(Xxx);         in the header, behind the struct
//   VELA_HASH_FAMILY_DEFINE(Xxx)   in the source file
//
// make XxxTable, XxxConvertor, XxxHelper, XxxTableCuckooEntry, XxxPhysicalHashProperties,
// XxxTableStatus, XxxEntryStatus, the templates behind them, which are compiled in that source file
// alone, and the factories
//
//   XxxTableIs(name, tableIdx)      `tableIdx` where the family has several
//   XxxConvertorIs()
//   XxxHelperIs(tableIdx)
//   XxxTableCuckooEntryIs(key)      an entry of no table
//   XxxPhysicalHashPropertiesIs(tableId)
//   XxxTableStatusIs()
//
// A family of other names writes VELA_HASH_FAMILY_NAMED with all of them, and …_NAMED_DEFINE; one
// that adds something to the table, the helper or the convertor writes VELA_HASH_CLASSES, that
// class, and VELA_CLASS for the others of these.

#define VELA_HASH_LIST(Do, Or, Family, Table_, Helper_, Entry_, Properties_, TableStatus_) \
  Do(Family, Table, Table_, HashFamilyTable, (const std::string& name, U8 tableIdx Or(0)), \
     (name, tableIdx, tableIdx));                                                          \
  Do(Family, Helper, Helper_, HashFamilyHelper, (U8 tableIdx Or(0)), (tableIdx));          \
  VELA_HASH_RECORDS(Do, Or, Family, Entry_, Properties_, TableStatus_)

/// Those that no family adds to.
#define VELA_HASH_RECORDS(Do, Or, Family, Entry_, Properties_, TableStatus_)         \
  Do(Family, CuckooEntry, Entry_, HashFamilyEntry, (const Family::Key& key), (key)); \
  Do(Family, PhysicalHashProperties, Properties_, HashFamilyProperties,              \
     (U32 tableId Or(Family::traits.tableId(0))), (tableId));                        \
  Do(Family, TableStatus, TableStatus_, HashFamilyTableStatus, (), ())

/// Apart from the others: families that share rows may share the convertor of one of them.
#define VELA_HASH_CONVERTOR(Do, Family, Convertor_) \
  Do(Family, Convertor, Convertor_, HashFamilyConvertor, (), ())

#define VELA_HASH_MORE(Convertor_, EntryStatus_) \
  using Convertor = Convertor_;                  \
  using EntryStatus = EntryStatus_;

#define VELA_HASH_NAMES(Family, Table_, Convertor_, Helper_, Entry_, Properties_, TableStatus_, \
                        EntryStatus_)                                                           \
  class Convertor_;                                                                             \
  using EntryStatus_ = EntryStatusOf<Family::Key, "VelaSwitchTable::" #EntryStatus_>;           \
  VELA_NAMES(Family, VELA_HASH_MORE(Convertor_, EntryStatus_), VELA_HASH_LIST, VELA_OR, Family, \
             Table_, Helper_, Entry_, Properties_, TableStatus_)

#define VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,       \
                          EntryStatus)                                                            \
  VELA_HASH_NAMES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, EntryStatus); \
  extern template class HashFamilyTableBase<Family>;                                              \
  extern template class HashFamilyHelperBase<Family>;                                             \
  VELA_HASH_LIST(VELA_DECLARE, VELA_OR, Family, Table, Helper, Entry, Properties, TableStatus);   \
  VELA_HASH_RECORDS(VELA_WHOLE, VELA_OR, Family, Entry, Properties, TableStatus)

#define VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, Entry, Properties, TableStatus) \
  static const TableRegistration Family##Registration{Family::traits.table};            \
  template class HashFamilyTableBase<Family>;                                           \
  template class HashFamilyHelperBase<Family>;                                          \
  VELA_HASH_LIST(VELA_DEFINE, VELA_OR_NOT, Family, Table, Helper, Entry, Properties, TableStatus)

#define VELA_HASH_FAMILY_NAMED(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, \
                               EntryStatus)                                                      \
  VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,            \
                    EntryStatus);                                                                \
  VELA_CLASS(Family, Table, HashFamilyTable);                                                    \
  VELA_CLASS(Family, Helper, HashFamilyHelper);                                                  \
  VELA_HASH_CONVERTOR(VELA_DECLARE, Family, Convertor);                                          \
  VELA_HASH_CONVERTOR(VELA_WHOLE, Family, Convertor)

#define VELA_HASH_FAMILY_NAMED_DEFINE(Family, Table, Convertor, Helper, Entry, Properties, \
                                      TableStatus)                                         \
  VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, Entry, Properties, TableStatus)          \
  VELA_HASH_CONVERTOR(VELA_DEFINE, Family, Convertor)

#define VELA_HASH_FAMILY(Xxx)                                                                  \
  VELA_HASH_FAMILY_NAMED(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Helper,                 \
                         Xxx##TableCuckooEntry, Xxx##PhysicalHashProperties, Xxx##TableStatus, \
                         Xxx##EntryStatus)

#define VELA_HASH_FAMILY_DEFINE(Xxx)                                                  \
  VELA_HASH_FAMILY_NAMED_DEFINE(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Helper, \
                                Xxx##TableCuckooEntry, Xxx##PhysicalHashProperties,   \
                                Xxx##TableStatus)
