#pragma once

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
///   crc(bits)                 the hash of keys of so many bits, where that is one of
///   VelaSwitch/Crc.h completeKey(row, key)     what of a key stands elsewhere in the row
///   packKey(key, bits)        instead of keyFields, with
///   unpackKey(bits, row, key) the key of a row; false for a row that holds none
///   packMore(helper, key, result, valid, location, row)   before the parity is worked out
///   unpackMore(helper, row, result)
///   isEntry(row, location)    whether the row holds an entry; else its `valid` bit says it
///   check(helper, key, result)   asserts what must hold of an entry before anything moves
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
  Orb::Ptr<typename ClassesOf<F>::CuckooEntry> newItem(const typename F::Key& key) override {
    return this->template makeItem<typename ClassesOf<F>::CuckooEntry>(key);
  }
};

template <class F>
class VELA_EXPORT HashFamilyConvertor : public HashTableConvertor {
 public:
  HashFamilyConvertor() : HashTableConvertor(F::traits) {}

 protected:
  U8 dataWords() const override {
    if constexpr (requires { &F::dataWords; }) return F::dataWords(profile());
    return F::traits.dataWords;
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
// A family of other names writes VELA_HASH_FAMILY_NAMED with all of them; one that adds something
// to a class writes VELA_HASH_CLASSES, its own classes, and VELA_CLASS for the others.

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_HASH_TEMPLATES(instantiate, Family)           \
  instantiate template class HashFamilyTableBase<Family>;  \
  instantiate template class HashFamilyHelperBase<Family>; \
  instantiate template class HashFamilyEntry<Family>;      \
  instantiate template class HashFamilyProperties<Family>; \
  instantiate template class HashFamilyTableStatus<Family>

#define VELA_HASH_NAMES(Family, Table_, Convertor_, Helper_, Entry_, Properties_, TableStatus_, \
                        EntryStatus_)                                                           \
  class Table_;                                                                                 \
  class Convertor_;                                                                             \
  class Helper_;                                                                                \
  class Entry_;                                                                                 \
  class Properties_;                                                                            \
  class TableStatus_;                                                                           \
  using EntryStatus_ = EntryStatusOf<Family::Key, "VelaSwitchTable::" #EntryStatus_>;           \
  template <>                                                                                   \
  struct ClassesOf<Family> {                                                                    \
    using Table = Table_;                                                                       \
    using Convertor = Convertor_;                                                               \
    using Helper = Helper_;                                                                     \
    using CuckooEntry = Entry_;                                                                 \
    using PhysicalHashProperties = Properties_;                                                 \
    using TableStatus = TableStatus_;                                                           \
    using EntryStatus = EntryStatus_;                                                           \
  }

#define VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,       \
                          EntryStatus)                                                            \
  VELA_HASH_NAMES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, EntryStatus); \
  VELA_HASH_TEMPLATES(extern, Family);                                                            \
  extern template class HashFamilyTable<Family>;                                                  \
  extern template class HashFamilyHelper<Family>;                                                 \
  extern template class HashFamilyConvertor<Family>;                                              \
  VELA_FACTORY(Table, Table##Is, (const std::string& name, U8 tableIdx = 0));                     \
  VELA_FACTORY(Helper, Helper##Is, (U8 tableIdx = 0));                                            \
  VELA_FACTORY(Entry, Entry##Is, (const Family::Key& key));                                       \
  VELA_FACTORY(Properties, Properties##Is, (U32 tableId = Family::traits.tableId(0)));            \
  VELA_FACTORY(TableStatus, TableStatus##Is, ())

#define VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, Entry, Properties, TableStatus) \
  VELA_HASH_TEMPLATES(, Family);                                                        \
  template class HashFamilyTable<Family>;                                               \
  template class HashFamilyHelper<Family>;                                              \
  template class HashFamilyConvertor<Family>;                                           \
  static const TableRegistration Family##Registration{Family::traits.table};            \
  VELA_REGISTERED_DEFINE(Table)                                                         \
  VELA_REGISTERED_DEFINE(Helper)                                                        \
  VELA_REGISTERED_DEFINE(Entry)                                                         \
  VELA_REGISTERED_DEFINE(Properties)                                                    \
  VELA_REGISTERED_DEFINE(TableStatus)                                                   \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name, U8 tableIdx),         \
                      (name, tableIdx, tableIdx))                                       \
  VELA_FACTORY_DEFINE(Helper, Helper##Is, (U8 tableIdx), (tableIdx))                    \
  VELA_FACTORY_DEFINE(Entry, Entry##Is, (const Family::Key& key), (key))                \
  VELA_FACTORY_DEFINE(Properties, Properties##Is, (U32 tableId), (tableId))             \
  VELA_FACTORY_DEFINE(TableStatus, TableStatus##Is, (), ())

/// Of the convertor apart: families that share rows may share that of one of them.
#define VELA_HASH_CONVERTOR_DEFINE(Convertor) \
  VELA_REGISTERED_DEFINE(Convertor)           \
  VELA_FACTORY_DEFINE(Convertor, Convertor##Is, (), ())

#define VELA_HASH_FAMILY_NAMED(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, \
                               EntryStatus)                                                      \
  VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,            \
                    EntryStatus);                                                                \
  VELA_FACTORY(Convertor, Convertor##Is, ());                                                    \
  VELA_CLASS(Family, Entry, HashFamilyEntry);                                                    \
  VELA_CLASS(Family, Properties, HashFamilyProperties);                                          \
  VELA_CLASS(Family, TableStatus, HashFamilyTableStatus);                                        \
  VELA_CLASS(Family, Table, HashFamilyTable);                                                    \
  VELA_CLASS(Family, Convertor, HashFamilyConvertor);                                            \
  VELA_CLASS(Family, Helper, HashFamilyHelper)

#define VELA_HASH_FAMILY(Xxx)                                                                  \
  VELA_HASH_FAMILY_NAMED(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Helper,                 \
                         Xxx##TableCuckooEntry, Xxx##PhysicalHashProperties, Xxx##TableStatus, \
                         Xxx##EntryStatus)

#define VELA_HASH_FAMILY_DEFINE(Xxx)                                                    \
  VELA_HASH_CLASSES_DEFINE(Xxx##Family, Xxx##Table, Xxx##Helper, Xxx##TableCuckooEntry, \
                           Xxx##PhysicalHashProperties, Xxx##TableStatus)               \
  VELA_HASH_CONVERTOR_DEFINE(Xxx##Convertor)
