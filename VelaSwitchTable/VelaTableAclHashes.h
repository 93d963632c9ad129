#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

using AclHashEntryStatus =
    EntryStatusOf<VelaSwitch::AclHashKey, "VelaSwitchTable::AclHashEntryStatus">;

/// Exact-match ACLs: the first stage of a pipeline's ingress ACL processor.
///
/// Hardware has one spelling for "any": an address or port of 0 is packed as all ones. An address
/// of all ones read back is therefore 0, and so is port 65535; the desired entry that was spelled
/// with the ones has the same hardware key and takes the row over without a write.
struct VELA_EXPORT AclHashFamily
    : HashFamilyTypes<VelaSwitch::AclHashKey, VelaSwitch::AclHashResult, class AclHashTable,
                      class AclHashConvertor, class AclHashHelper, class AclHashTableCuckooEntry,
                      class AclPhysicalHashProperties, class AclHashTableStatus,
                      AclHashEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableAclHash";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded Entry: ";
  static constexpr HashFamilyTraits traits{.index = TableIndex::aclHash,
                                           .placement = HashPlacement::ownPipeline,
                                           .prefix = "ingress/processor_acl[%d]/",
                                           .rowWords = 7,
                                           .hashBits = 11,
                                           .ways = 2,
                                           .keyBytes = 13,
                                           .hitBits = false,
                                           .staticWord = 5,
                                           .parityWords = 4};

  static U32 tableId(U8 tableIdx) { return TableConstants::aclHashTableId(tableIdx); }
  static U8 dataWords(const VelaSwitch::ProfileInfo& profile);
  static U8 copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static RowLayout layout(const Helper& helper);
  static void pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                   CuckooLocation location, RowWriter& row);
  static void packStatic(const Helper& helper, CuckooLocation location, RowWriter& row);
  static std::optional<std::pair<Key, Result>> unpack(const Helper& helper, const RowReader& row,
                                                      CuckooLocation location);
};

VELA_HASH_TEMPLATES(extern, AclHashFamily);
extern template class HashFamilyConvertor<AclHashFamily>;

/// Constructed with (name, tableIdx, pipeline): `tableIdx` names the ACL processor.
class VELA_EXPORT AclHashTable final : public HashFamilyTable<AclHashFamily> {
 public:
  VELA_REGISTERED(AclHashFamily, AclHashTable);
  using HashFamilyTable::HashFamilyTable;

  /// Which of the processors' ACL tables this is.
  U8 aclTableId() const { return tableIdx(); }
  /// The number of the physical table.
  U8 physTableIdx() const { return TableConstants::aclHashTableId(tableIdx()); }
  /// The desired entries.
  EntryStore<Key, Result>& store() { return *this; }
};

class VELA_EXPORT AclHashConvertor final : public HashFamilyConvertor<AclHashFamily> {
 public:
  VELA_REGISTERED(AclHashFamily, AclHashConvertor);
  /// An ACL table shares its rows with no other.
  void doCreateHwTables(VelaSwitchApi::TableState state) override;
};

class VELA_EXPORT AclHashHelper final : public HashFamilyHelper<AclHashFamily> {
 public:
  VELA_REGISTERED(AclHashFamily, AclHashHelper);
  explicit AclHashHelper(U8 tableIdx)
      : HashFamilyHelper(tableIdx), tableIndex_(TableConstants::aclHashTableId(tableIdx)) {}
  /// The helper of a table by its number; one that is not an ACL hash table packs no rows.
  explicit AclHashHelper(TableIndex index)
      : HashFamilyHelper(TableConstants::aclTableIdx(static_cast<U8>(index))),
        tableIndex_(static_cast<U8>(index)) {}

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;

  void setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry, CuckooLocation location,
                   U8* image) const override;

 private:
  U8 tableIndex_;
};

VELA_CLASS(AclHashFamily, AclHashTableCuckooEntry, HashFamilyEntry);
VELA_CLASS(AclHashFamily, AclPhysicalHashProperties, HashFamilyProperties);
VELA_CLASS(AclHashFamily, AclHashTableStatus, HashFamilyTableStatus);

VELA_FACTORY(AclHashConvertor, AclHashConvertorIs, ());
VELA_HASH_FACTORIES(AclHashFamily, AclHashTable, AclHashHelper, AclHashTableCuckooEntry,
                    AclPhysicalHashProperties, AclHashTableStatus);
VELA_FACTORY(AclHashTable, AclHashTableIs, (const std::string& name, U8 tableIdx, U8 pipeline));

// The same by their other names.
VELA_FACTORY(AclHashTable, aclHashTableFactory,
             (const std::string& name, U8 tableIdx, U8 pipeline));
VELA_FACTORY(AclHashConvertor, aclHashConvertorFactory, ());
VELA_FACTORY(AclHashHelper, aclHashHelperFactory, (TableIndex index));
VELA_FACTORY(AclPhysicalHashProperties, aclPhysicalHashPropertiesFactory, (U32 tableId));
VELA_FACTORY(AclHashTableCuckooEntry, aclHashTableCuckooEntryFactory,
             (const VelaSwitch::AclHashKey& key));
VELA_FACTORY(AclHashTableStatus, aclHashTableStatusFactory, ());

}  // namespace VelaSwitchTable
