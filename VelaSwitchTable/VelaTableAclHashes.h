#pragma once

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/ProcessorTraits.h"

namespace VelaSwitchTable {

/// Exact-match ACLs: the first stage of a pipeline's ingress ACL processor.
///
/// Hardware has one spelling for "any": an address or port of 0 is packed as all ones. An address
/// of all ones read back is therefore 0, and so is port 65535; the desired entry that was spelled
/// with the ones has the same hardware key and takes the row over without a write.
struct VELA_EXPORT AclHashFamily
    : Family<"VelaTableAclHash", VelaSwitch::AclHashKey, VelaSwitch::AclHashResult> {
  static constexpr HashFamilyTraits traits =
      aclTraits({.table = {46, "AclHash"}, .parityWords = 4});
  /// Wide rows: the control word is word 5, not 4.
  static bool otherFormat(const VelaSwitch::ProfileInfo& profile) {
    return profile.fields().aclWideRows();
  }
  static U8 dataWords(const VelaSwitch::ProfileInfo& profile) {
    return otherFormat(profile) ? 5 : 4;
  }
  static constexpr U32 sameBits = 128;
  static constexpr auto fields(const RowShape& shape) {
    const U32 control = shape.other ? 160 : 128;
    return std::to_array<RowField>({{"key", 0, 90},
                                    {"variant", 90, 2},
                                    {"valid", 92, 1},
                                    {"priority", 93, 8},
                                    {"counterIndex", 101, 12},
                                    {"parity", 113, 1},
                                    {"row", control, 11},
                                    {"way", control + 11, 1},
                                    {"one", control + 15, 1, 1},
                                    // 0 here, 1 in the processor's counter table
                                    {"counter", control + 18, 1, 0}});
  }

  static void checkKeyBuffer(U8 bufSize) { ORB_ASSERT(bufSize >= 13); }
  static void sample(const VelaTableHashHelper&, U64 bits, Key& key, Result&);
  static void packKey(const Key& key, KeyBits& bits);
  static constexpr auto hash = &VelaSwitch::crc11Hash;
  static bool unpackKey(KeyBits bits, const RowReaderOf<AclHashFamily>& row, Key& key);
  static void packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                       CuckooLocation, RowWriterOf<AclHashFamily>& row);
};

VELA_HASH_CLASSES(AclHashFamily, AclHashTable, AclHashConvertor, AclHashHelper,
                  AclHashTableCuckooEntry, AclPhysicalHashProperties, AclHashTableStatus,
                  AclHashEntryStatus);

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
  Store& store() { return *this; }
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
  void doInit() override;
  void setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry, CuckooLocation location,
                   U8* image) const override;

 private:
  bool isTable() const;

  U8 tableIndex_;
  bool packs_ = false;  ///< It was found to be one of the family's.
};

VELA_HASH_CONVERTOR(VELA_DECLARE, AclHashFamily, AclHashConvertor);
// Factories with another parameter, and all of them by their other names.
#define VELA_ACL_FACTORIES(Do)                                                                     \
  Do(AclHashTable, AclHashTableIs, (const std::string& name, U8 tableIdx, U8 pipeline),            \
     (name, tableIdx, pipeline));                                                                  \
  Do(AclHashTable, aclHashTableFactory, (const std::string& name, U8 tableIdx, U8 pipeline),       \
     (name, tableIdx, pipeline));                                                                  \
  Do(AclHashConvertor, aclHashConvertorFactory, (), ());                                           \
  Do(AclHashHelper, aclHashHelperFactory, (TableIndex index), (index));                            \
  Do(AclPhysicalHashProperties, aclPhysicalHashPropertiesFactory, (U32 tableId), (tableId));       \
  Do(AclHashTableCuckooEntry, aclHashTableCuckooEntryFactory, (const VelaSwitch::AclHashKey& key), \
     (key));                                                                                       \
  Do(AclHashTableStatus, aclHashTableStatusFactory, (), ())
VELA_ACL_FACTORIES(VELA_FACTORY);

}  // namespace VelaSwitchTable
