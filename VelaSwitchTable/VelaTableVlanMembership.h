#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitch/PipeMap.h"
#include "VelaSwitchApi/RowLayout.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

struct VlanMembershipKey {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipKey";
  static constexpr bool scalar = true;
  static constexpr bool bareText = true;
  Orb::Field<"vid", Bridging::VlanId> vid;
  auto operator<=>(const VlanMembershipKey&) const = default;
};

/// What a VLAN is: its ports, what of it goes to the CPU, its VRF and, per pipe, its ACL and NAT.
struct VELA_EXPORT VlanMembershipResult {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipResult";
  static constexpr const char* noTextReason =
      "No String constructor for VlanMembershipResult - has collection";

  Orb::Field<"permitMask", U64> permitMask;  ///< Bit n: port n is a member; low 48 bits used.
  Orb::Field<"learnToCpu", bool> learnToCpu{true};
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress{true};
  Orb::Field<"vrfBits", U8> vrfBits;  ///< As many low bits as the profile has VRF bits.
  Orb::Field<"unicastRoute", bool> unicastRoute;
  Orb::Field<"multicastRoute", bool> multicastRoute;
  Orb::Field<"aclId", VelaSwitch::PipeMap<VelaSwitch::HwAclId>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<VelaSwitch::NatId>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;
  auto operator<=>(const VlanMembershipResult&) const = default;

  /// Whether anything differs from the default.
  explicit operator bool() const { return *this != VlanMembershipResult{}; }

  using PipeId = VelaSwitch::PipeId;
  void aclIdIs(PipeId pipe, VelaSwitch::HwAclId id) { aclId.value.is(pipe, id); }
  void aclIdDel(PipeId pipe) { aclId.value.del(pipe); }
  void aclIdDelAll() { aclId.value.delAll(); }
  void aclEnableIs(PipeId pipe, U8 enable) { aclEnable.value.is(pipe, enable); }
  void aclEnableDel(PipeId pipe) { aclEnable.value.del(pipe); }
  void aclEnableDelAll() { aclEnable.value.delAll(); }
  void aclDefaultPermitIs(PipeId pipe, bool permit) { aclDefaultPermit.value.is(pipe, permit); }
  void aclDefaultPermitDel(PipeId pipe) { aclDefaultPermit.value.del(pipe); }
  void aclDefaultPermitDelAll() { aclDefaultPermit.value.delAll(); }
  void natIdIs(PipeId pipe, VelaSwitch::NatId id) { natId.value.is(pipe, id); }
  void natIdDel(PipeId pipe) { natId.value.del(pipe); }
  void natIdDelAll() { natId.value.delAll(); }
  void natEnableIs(PipeId pipe, U8 enable) { natEnable.value.is(pipe, enable); }
  void natEnableDel(PipeId pipe) { natEnable.value.del(pipe); }
  void natEnableDelAll() { natEnable.value.delAll(); }

  /// The fields that are not per pipe, for people.
  std::string resultString() const;
};

/// The form for people: resultString() and, for each map that is not empty, its pipes.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const VlanMembershipResult& result);

/// The ports that one hardware table serves, both included.
struct VlanTablePortRange {
  static constexpr const char* typeName = "VelaSwitchTable::VlanTablePortRange";
  Orb::Field<"tableId", U32> tableId;
  Orb::Field<"min", U32> min;
  Orb::Field<"max", U32> max;
  auto operator<=>(const VlanTablePortRange&) const = default;
};

/// VLANs: one row per VLAN id in every hardware table, each with its own slice of the ports. A
/// VLAN without an entry has the default row; rows are never deleted.
struct VELA_EXPORT VlanMembershipFamily
    : PlainFamilyTypes<VlanMembershipKey, VlanMembershipResult, class VlanMembershipTable,
                       class VlanMembershipConvertor, class VlanMembershipConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTableVlanMembership";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::vlanMembership,
                                            .absentTrace = AbsentTrace::byKey,
                                            .tableText = "hwTable"};
  static HwIndex hwIndex(const Key& key) { return key.vid().value(); }
  /// A row that is no VLAN id raises the VLAN range exception.
  static Key keyOf(HwIndex row) { return Key{Bridging::VlanId(row)}; }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  /// The row of one hardware table of the profile.
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
  /// The ports of an ingress table's slice, and its pipes, are in no other ingress table.
  static void joinRow(const PlainRowContext& at, const Result& row, Result& into);
};

VELA_CLASS(VlanMembershipFamily, VlanMembershipTable, PlainFamilyTable);
VELA_BASE_CLASS(VlanMembershipFamily, VlanMembershipConvertor, PlainFamilyConvertor);
VELA_PLAIN_TEMPLATES(extern, VlanMembershipFamily);

class VELA_EXPORT VlanMembershipConvertorLayer2All final
    : public PlainFamilyLayerConvertor<VlanMembershipFamily> {
 public:
  VELA_REGISTERED(VlanMembershipFamily, VlanMembershipConvertorLayer2All);

  VlanMembershipConvertorLayer2All();
  void doCreateHwTables(VelaSwitchApi::TableState state) override;

  /// Whether the table is the CPU pipeline's: the last one, on profiles that have it.
  bool isCpuPipeline(U32 tableIndex, U32 numTables) const;
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
/// @param index     the VLAN id
/// @param words     the row, four words
VELA_EXPORT void setBaseHwBuffer(U8 pipe, U8 portBits, U32 vrfBits,
                                 const VlanMembershipResult& result, HwIndex index, U32* words,
                                 VelaSwitch::RegisterFormatVersion version);

VELA_PLAIN_FACTORIES(VlanMembershipTable, VlanMembershipConvertorLayer2All);

}  // namespace VelaSwitchTable
