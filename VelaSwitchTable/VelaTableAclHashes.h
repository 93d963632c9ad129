#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/HashFamily.h"

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

/// Constructed with (name, tableIdx, pipeline): `tableIdx` names the ACL processor.
class VELA_EXPORT AclHashTable final : public HashFamilyTable<AclHashFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::AclHashTable";
  using HashFamilyTable::HashFamilyTable;

  /// Which of the processors' ACL tables this is.
  U8 aclTableId() const { return tableIdx(); }
};

class VELA_EXPORT AclHashConvertor final : public HashFamilyConvertor<AclHashFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::AclHashConvertor";
  /// An ACL table shares its rows with no other.
  void doCreateHwTables(VelaSwitchApi::TableState state) override;
};

class VELA_EXPORT AclHashHelper final : public HashFamilyHelper<AclHashFamily> {
 public:
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

class VELA_EXPORT AclHashTableCuckooEntry final : public HashFamilyEntry<AclHashFamily> {
 public:
  static constexpr const char* shortName = "AclHashTableCuckooEntry";
  using HashFamilyEntry::HashFamilyEntry;
};

class VELA_EXPORT AclPhysicalHashProperties final : public HashFamilyProperties<AclHashFamily> {
 public:
  using HashFamilyProperties::HashFamilyProperties;
};

class VELA_EXPORT AclHashTableStatus final : public HashFamilyTableStatus<AclHashEntryStatus> {};

VELA_EXPORT Orb::Ptr<AclHashTable> aclHashTableFactory(const std::string& name, U8 tableIdx,
                                                       U8 pipeline);
VELA_EXPORT Orb::Ptr<AclHashConvertor> aclHashConvertorFactory();
VELA_EXPORT Orb::Ptr<AclHashHelper> aclHashHelperFactory(TableIndex index);
VELA_EXPORT Orb::Ptr<AclPhysicalHashProperties> aclPhysicalHashPropertiesFactory(U32 tableId);
VELA_EXPORT Orb::Ptr<AclHashTableCuckooEntry> aclHashTableCuckooEntryFactory(
    AclHashTable* table, const VelaSwitch::AclHashKey& key);

}  // namespace VelaSwitchTable
