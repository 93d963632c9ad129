#pragma once

#include "VelaSwitchTable/VelaTableVlanMembershipResult.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

/// The ports that one hardware table serves, both included.
struct VlanTablePortRange {
  static constexpr const char* typeName = "VelaSwitchTable::VlanTablePortRange";
  Orb::Field<"tableId", U32> tableId;  ///< Number of the hardware table.
  Orb::Field<"min", U32> min;          ///< The first port.
  Orb::Field<"max", U32> max;          ///< The last one.
  auto operator<=>(const VlanTablePortRange&) const = default;
};

/// VLANs: one row per VLAN id in every hardware table, each with its own slice of the ports. A
/// VLAN without an entry has the default row; rows are never deleted.
struct VELA_EXPORT VlanMembershipFamily
    : IndexedFamily<"VelaTableVlanMembership", VlanMembershipKey, VlanMembershipResult> {
  static constexpr PlainFamilyTraits traits{.table = {100, "VlanMembership"},
                                            .rowWords = 4,
                                            .absentTrace = AbsentTrace::byKey,
                                            .tableText = "hwTable"};
  struct Shape {
    U32 portBits = 48;
    U32 vrfBits = 5;
    U32 format = 4;  ///< The register format's major version.
  };
  static constexpr Shape shapes[] = {{48, 5, 4}, {48, 2, 4}, {48, 2, 3}, {48, 2, 2}};
  static Shape shape(const VelaSwitch::ProfileInfo& profile, const PlainHwTable& table);
  /// Format 2 has a valid bit and a row of three words, format 3 a constant behind the routing
  /// flags, format 4 as many VRF bits as the profile and the pipes' ACL and NAT fields.
  static constexpr auto fields(const Shape& shape) {
    const U32 b = shape.portBits + (shape.format < 3);
    const U32 vrfBits = shape.format < 4 ? 2 : shape.vrfBits;
    const U32 routes = b + 7 + vrfBits;
    const U32 pipes = routes + 2;
    const U32 control = shape.format < 3 ? 64 : 96;
    const auto from = [&](U32 format, U32 width) { return shape.format < format ? 0 : width; };
    const U32 constants = shape.format == 3;
    const RowField list[] = {{"valid", 0, shape.format < 3, 1},
                             {"permitMask", b - shape.portBits, shape.portBits},
                             {"learnToCpu", b, 1},
                             {"unknownMulticastToCpu", b + 1, 1},
                             {"multicastJoinToCpu", b + 2, 1},
                             {"broadcastToCpu", b + 3, 1},
                             {"unknownDaToCpu", b + 4, 1},
                             {"multicastJoinToEgress", b + 5, 1},
                             {"parity", b + 6, 1},
                             {"vrfBits", b + 7, vrfBits},
                             {"unicastRoute", routes, 1},
                             {"multicastRoute", routes + 1, 1},
                             {"zeros", pipes, 8 * constants, 0},
                             {"one", pipes + 8, constants, 1},
                             {"aclId[0]", pipes, from(4, 4)},
                             {"aclId[1]", pipes + 4, from(4, 4)},
                             {"aclEnable[0]", pipes + 8, from(4, 1)},
                             {"aclEnable[1]", pipes + 9, from(4, 1)},
                             {"aclDefaultPermit[0]", pipes + 10, from(4, 1)},
                             {"aclDefaultPermit[1]", pipes + 11, from(4, 1)},
                             {"natId[0]", pipes + 12, from(4, 3)},
                             {"natId[1]", pipes + 15, from(4, 3)},
                             {"natEnable[0]", pipes + 18, from(4, 1)},
                             {"natEnable[1]", pipes + 19, from(4, 1)},
                             {"vlan", control, 12},
                             {"commit", control + 15, 1, 1}};
    return std::to_array(list);
  }
  static constexpr std::array handPacked{"aclId", "aclEnable", "aclDefaultPermit", "natId",
                                         "natEnable"};
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static void packMore(const PlainRowContext& at, const Key& key, const Result& result,
                       RowWriterOf<VlanMembershipFamily>& row);
  static RowSays unpackMore(const PlainRowContext& at, const Key& key,
                            const RowReaderOf<VlanMembershipFamily>& row, Result& result);
  /// The ports of an ingress table's slice, and its pipes, are in no other ingress table.
  static void joinRow(const PlainRowContext& at, const Result& row, Result& into);
};

VELA_PLAIN_CLASSES(VlanMembershipFamily, VlanMembershipTable, VlanMembershipConvertor,
                   VlanMembershipConvertorLayer2All);
VELA_CLASS(VlanMembershipFamily, VlanMembershipTable, PlainFamilyTable);

class VELA_EXPORT VlanMembershipConvertorLayer2All final
    : public PlainFamilyLayerConvertor<VlanMembershipFamily> {
 public:
  VELA_REGISTERED(VlanMembershipFamily, VlanMembershipConvertorLayer2All);

  VlanMembershipConvertorLayer2All();
  void doCreateHwTables(VelaSwitchApi::TableState state) override;

  /// Ports that the table serves; 1 when it has no range.
  U8 numPortsOfTable(U32 tableId) const;
  void portRangeOfTableIs(const VlanTablePortRange& range) { ranges_[range.tableId()] = range; }
  /// The table's ports, or null.
  const VlanTablePortRange* portRangeOfTable(U32 tableId) const;

 private:
  std::map<U32, VlanTablePortRange> ranges_;
};

/// Packs everything of a row but the permit mask and the parity.
///
/// @param pipe      number of the table; its rows carry the ACL and NAT of pipes 2·pipe, 2·pipe+1
/// @param portBits  port bits in front of the common fields
/// @param vrfBits   VRF bits of the profile
/// @param result    what is desired of the VLAN
/// @param index     the VLAN id
/// @param words     the row, four words
/// @param version   what rows are packed as
VELA_EXPORT void setBaseHwBuffer(U8 pipe, U8 portBits, U32 vrfBits,
                                 const VlanMembershipResult& result, HwIndex index, U32* words,
                                 VelaSwitch::RegisterFormatVersion version);

}  // namespace VelaSwitchTable
