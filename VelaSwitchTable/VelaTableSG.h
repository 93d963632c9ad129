#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// Who gets a copy of a multicast packet.
struct SGResult {
  static constexpr const char* typeName = "VelaSwitchTable::SGResult";
  Orb::Field<"vlanGroupId", U8, 4> vlanGroupId;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const SGResult&) const = default;
};

using SGEntryStatus = EntryStatusOf<VelaSwitch::MrouteKey, "VelaSwitchTable::SGEntryStatus">;

/// Multicast routes of one source: source, group and VLAN. Of the group its low 28 bits count.
struct VELA_EXPORT SGFamily
    : HashFamilyTypes<VelaSwitch::MrouteKey, SGResult, class SGTable, class SGConvertor,
                      class SGHelper, class SGTableCuckooEntry, class SGPhysicalHashProperties,
                      class SGTableStatus, SGEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableSG";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded valid entry is ";
  static constexpr HashFamilyTraits traits{.index = TableIndex::sg,
                                           .placement = HashPlacement::everyPipeline,
                                           .prefix = "ingress/processor_l3[%d]/",
                                           .rowWords = 6,
                                           .hashBits = 13,
                                           .ways = 3,
                                           .keyBytes = 9,
                                           .hitBits = true,
                                           .hitTableOffset = static_cast<U32>(TableIndex::sg),
                                           .staticWord = 4,
                                           .parityWords = 4};

  static U32 tableId(U8) { return static_cast<U32>(TableIndex::sg); }
  static U8 dataWords(const VelaSwitch::ProfileInfo&) { return 4; }
  static U8 copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize);
  /// The key without the bits that the row implies.
  static U64 compareEncoding(const Key& key);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static RowLayout layout(const Helper& helper);
  static void pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                   CuckooLocation location, RowWriter& row);
  static void packStatic(const Helper& helper, CuckooLocation location, RowWriter& row);
  static std::optional<std::pair<Key, Result>> unpack(const Helper& helper, const RowReader& row,
                                                      CuckooLocation location);
  static std::vector<U8> impliedBits(const Helper& helper);
  static U8 keyBits(const Helper& helper);
  static void impliedBitsAre(Key& key, U32 bits);
};

VELA_HASH_FAMILY(SGFamily, SGTable, SGConvertor, SGHelper, SGTableCuckooEntry,
                 SGPhysicalHashProperties, SGTableStatus);

// The same by their other names.
VELA_FACTORY(SGTable, sGTableFactory, (const std::string& name));
VELA_FACTORY(SGConvertor, sGConvertorFactory, ());
VELA_FACTORY(SGHelper, sGHelperFactory, ());
VELA_FACTORY(SGPhysicalHashProperties, sGPhysicalHashPropertiesFactory, ());
VELA_FACTORY(SGTableCuckooEntry, sGTableCuckooEntryFactory, (const VelaSwitch::MrouteKey& key));
VELA_FACTORY(SGTableStatus, sGTableStatusFactory, ());

}  // namespace VelaSwitchTable
