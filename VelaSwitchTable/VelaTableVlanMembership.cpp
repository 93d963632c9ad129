#include "VelaSwitchTable/VelaTableVlanMembership.h"

#include <cstdio>
#include <limits>
#include <ostream>

#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/family/VlanTables.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::RegisterFormatVersion;
using VelaSwitch::TableKind;
using VelaSwitchApi::RowField;
using VelaSwitchApi::RowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowWriter;

enum class Row : U8 {
  valid,
  permitMask,
  learnToCpu,
  unknownMulticastToCpu,
  multicastJoinToCpu,
  broadcastToCpu,
  unknownDaToCpu,
  multicastJoinToEgress,
  parity,
  vrfBits,
  unicastRoute,
  multicastRoute,
  zeros,
  one,
  aclId,  ///< Of the table's first pipe; the second's follows. So do all below.
  aclEnable = aclId + 2,
  aclDefaultPermit = aclEnable + 2,
  natId = aclDefaultPermit + 2,
  natEnable = natId + 2,
  vlan = natEnable + 2,
  commit,
};

/// The field of the table's second pipe.
constexpr Row ofPipe(Row first, U8 pipe) { return static_cast<Row>(static_cast<U8>(first) + pipe); }

constexpr U8 pipesPerRow = 2;

/// Words of a row: the data words and the control word.
U8 rowWords(RegisterFormatVersion version) { return version.major() < 3 ? 3 : 4; }
U8 controlWord(RegisterFormatVersion version) { return static_cast<U8>(rowWords(version) - 1); }
U8 dataWords(RegisterFormatVersion version) { return controlWord(version); }

/// Appends fields one behind the other.
class FieldList {
 public:
  void add(const char* name, U32 width) {
    fields_.push_back({name, static_cast<U16>(next_), static_cast<U16>(width)});
    next_ += width;
  }
  void seek(U32 bit) { next_ = bit; }
  std::vector<RowField> take() { return std::move(fields_); }

 private:
  std::vector<RowField> fields_;
  U32 next_ = 0;
};

/// The fields stand in the order of the enumeration. Format 2 has a valid bit and a row of three
/// words, format 3 a constant behind the routing flags, format 4 as many VRF bits as the profile
/// and the pipes' ACL and NAT fields; what a format lacks has width 0.
RowLayout makeLayout(U32 portBits, U32 vrfBits, RegisterFormatVersion version) {
  const U32 format = std::clamp(version.major(), U32{2}, U32{4});
  FieldList row;
  row.add("valid", format == 2 ? 1 : 0);
  row.add("permitMask", portBits);
  row.add("learnToCpu", 1);
  row.add("unknownMulticastToCpu", 1);
  row.add("multicastJoinToCpu", 1);
  row.add("broadcastToCpu", 1);
  row.add("unknownDaToCpu", 1);
  row.add("multicastJoinToEgress", 1);
  row.add("parity", 1);
  row.add("vrfBits", format >= 4 ? vrfBits : 2);
  row.add("unicastRoute", 1);
  row.add("multicastRoute", 1);
  row.add("zeros", format == 3 ? 8 : 0);
  row.add("one", format == 3 ? 1 : 0);
  const auto perPipe = [&](const char* first, const char* second, U32 width) {
    row.add(first, format >= 4 ? width : 0);
    row.add(second, format >= 4 ? width : 0);
  };
  perPipe("aclId[0]", "aclId[1]", 4);
  perPipe("aclEnable[0]", "aclEnable[1]", 1);
  perPipe("aclDefaultPermit[0]", "aclDefaultPermit[1]", 1);
  perPipe("natId[0]", "natId[1]", 3);
  perPipe("natEnable[0]", "natEnable[1]", 1);
  row.seek(controlWord(version) * 32u);
  row.add("vlan", 12);
  row.seek(controlWord(version) * 32u + 15);
  row.add("commit", 1);
  return {row.take(), rowWords(version)};
}

void packCommon(const RowLayout& layout, U8 pipe, const VlanMembershipResult& result, HwIndex index,
                U32* words) {
  RowWriter row(layout, reinterpret_cast<U8*>(words), VlanMembershipFamily::trace,
                "setBaseHwBuffer");
  row.set(Row::valid, 1);
  row.set(Row::learnToCpu, result.learnToCpu());
  row.set(Row::unknownMulticastToCpu, result.unknownMulticastToCpu());
  row.set(Row::multicastJoinToCpu, result.multicastJoinToCpu());
  row.set(Row::broadcastToCpu, result.broadcastToCpu());
  row.set(Row::unknownDaToCpu, result.unknownDaToCpu());
  row.set(Row::multicastJoinToEgress, result.multicastJoinToEgress());
  row.set(Row::vrfBits, result.vrfBits());
  row.set(Row::unicastRoute, result.unicastRoute());
  row.set(Row::multicastRoute, result.multicastRoute());
  row.set(Row::zeros, 0);
  row.set(Row::one, 1);
  if (layout[Row::aclId].width != 0) {
    const auto orElse = [](const auto* value, auto absent) { return value ? *value : absent; };
    for (U8 i = 0; i < pipesPerRow; ++i) {
      const VelaSwitch::PipeId id(U64{pipe} * pipesPerRow + i);
      const auto aclId = orElse(result.aclId(id), VelaSwitch::HwAclId{});
      const auto natId = orElse(result.natId(id), VelaSwitch::NatId{});
      row.set(ofPipe(Row::aclId, i), aclId.value());
      row.set(ofPipe(Row::aclEnable, i), orElse(result.aclEnable(id), U8{0}));
      row.set(ofPipe(Row::aclDefaultPermit, i), orElse(result.aclDefaultPermit(id), false));
      row.set(ofPipe(Row::natId, i), natId.value());
      row.set(ofPipe(Row::natEnable, i), orElse(result.natEnable(id), U8{0}));
    }
  }
  row.set(Row::vlan, index);
  row.set(Row::commit, 1);
}

/// Takes the pipes' fields over where they differ from what an absent one is packed as.
void unpackPipes(const RowReader& row, U8 pipe, VlanMembershipResult& result) {
  const U64 noAclId = VelaSwitch::HwAclId{}.value() & 0xf;
  const U64 noNatId = VelaSwitch::NatId{}.value() & 0x7;
  for (U8 i = 0; i < pipesPerRow; ++i) {
    const VelaSwitch::PipeId id(U64{pipe} * pipesPerRow + i);
    const U64 aclId = row.get(ofPipe(Row::aclId, i));
    const U64 natId = row.get(ofPipe(Row::natId, i));
    if (aclId != noAclId) result.aclIdIs(id, VelaSwitch::HwAclId(aclId));
    if (natId != noNatId) result.natIdIs(id, VelaSwitch::NatId(natId));
    if (row.flag(ofPipe(Row::aclEnable, i))) result.aclEnableIs(id, 1);
    if (row.flag(ofPipe(Row::aclDefaultPermit, i))) result.aclDefaultPermitIs(id, true);
    if (row.flag(ofPipe(Row::natEnable, i))) result.natEnableIs(id, 1);
  }
}

/// The ports that a table serves: a slice of them, or in the CPU's all.
VelaSwitch::PortRange portsOfTable(const VelaSwitch::ProfileInfo& profile, U32 table) {
  if (table < profile.numTables(TableKind::vlan)) return portRangeOfVlanTable(&profile, table);
  return {0, profile.ports() - 1};
}

const VlanMembershipConvertorLayer2All& convertorOf(const PlainRowContext& at) {
  return static_cast<const VlanMembershipConvertorLayer2All&>(*at.swTable.profileConvertorPtr());
}

}  // namespace

std::string VlanMembershipResult::resultString() const {
  const auto text = [](bool flag) { return flag ? "true" : "false"; };
  char buffer[400];
  std::snprintf(buffer, sizeof buffer,
                "permitMask:0x%012llx learnToCpu:%s unknownMcastToCpu:%s mcastJoinToCpu:%s "
                "bcastToCpu:%s unknownDaToCpu:%s mcastJoinToEgress:%s vrfBits:0x%x "
                "unicastRoute:%s multicastRoute:%s",
                static_cast<unsigned long long>(permitMask()), text(learnToCpu()),
                text(unknownMulticastToCpu()), text(multicastJoinToCpu()), text(broadcastToCpu()),
                text(unknownDaToCpu()), text(multicastJoinToEgress()), vrfBits(),
                text(unicastRoute()), text(multicastRoute()));
  return buffer;
}

std::ostream& operator<<(std::ostream& out, const VlanMembershipResult& result) {
  out << result.resultString();
  const auto print = [&](const char* label, const auto& map, const char* format, auto toArgument) {
    if (map.empty()) return;
    out << label;
    map.forEach([&](VelaSwitch::PipeId pipe, const auto& value) {
      char buffer[40];
      std::snprintf(buffer, sizeof buffer, format, pipe.value(), toArgument(value));
      out << buffer;
    });
  };
  const auto number = [](const auto& id) { return int{id.value()}; };
  const auto flag = [](const auto& on) { return on ? "true" : "false"; };
  print(" AclId: ", result.aclId(), " (%2d, %2d)", number);
  print(" AclEnable: ", result.aclEnable(), " (%2d, %s)", flag);
  print(" AclDefaultPermit: ", result.aclDefaultPermit(), " (%2d, %s)", flag);
  print(" NatId: ", result.natId(), " (%2d, %2d)", number);
  print(" NatEnable: ", result.natEnable(), " (%2d, %s)", flag);
  return out;
}

std::vector<PlainHwTable> VlanMembershipFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  std::vector<std::string> registers{"vlan_data0", "vlan_data1"};
  if (profile.registerFormat().major() >= 3) registers.push_back("vlan_data2");
  registers.push_back("vlan_ctl");
  return vlanTables(profile, registers);
}

RowLayout VlanMembershipFamily::layout(const VelaSwitch::ProfileInfo& profile, U32 table) {
  const VelaSwitch::PortRange ports = portsOfTable(profile, table);
  return makeLayout(ports.last + 1 - ports.first, profile.numVrfBits(), profile.registerFormat());
}

void setBaseHwBuffer(U8 pipe, U8 portBits, U32 vrfBits, const VlanMembershipResult& result,
                     HwIndex index, U32* words, RegisterFormatVersion version) {
  VlanMembershipFamily::trace(7, "vlanRegVer ", version.major(), ".", version.minor(),
                              " num vrf bits = ", vrfBits);
  packCommon(makeLayout(portBits, vrfBits, version), pipe, result, index, words);
}

VlanMembershipConvertorLayer2All::VlanMembershipConvertorLayer2All() {
  hwStaticWordIs(3, 0xFFFFFFFF);
}

bool VlanMembershipConvertorLayer2All::isCpuPipeline(U32 tableIndex, U32 numTables) const {
  return profile().cpuPipeline() && tableIndex == numTables - 1;
}

const VlanTablePortRange* VlanMembershipConvertorLayer2All::portRangeOfTable(U32 tableId) const {
  const auto range = ranges_.find(tableId);
  return range == ranges_.end() ? nullptr : &range->second;
}

U8 VlanMembershipConvertorLayer2All::numPortsOfTable(U32 tableId) const {
  const VlanTablePortRange* range = portRangeOfTable(tableId);
  const U32 ports = range ? range->max() + 1 - range->min() : 1;
  ORB_ASSERT_TEXT(ports <= std::numeric_limits<U8>::max(),
                  "ports <= std::numeric_limits< U8 >::max()");
  return static_cast<U8>(ports);
}

void VlanMembershipConvertorLayer2All::doCreateHwTables(VelaSwitchApi::TableState state) {
  if (profile().registerFormat().major() < 3) {
    hwStaticWordDel(3);
    hwStaticWordIs(2, 0xFFFFFFFF);
  }
  const U32 slices = profile().numTables(TableKind::vlan);
  for (U32 t = 0; t < slices + (profile().cpuPipeline() ? 1 : 0); ++t) {
    const VelaSwitch::PortRange ports = portsOfTable(profile(), t);
    portRangeOfTableIs(VlanTablePortRange{t, ports.first, ports.last});
    const U32 ppp = numPortsOfTable(t);
    ORB_ASSERT(ppp <= 48);
  }
  PlainFamilyLayerConvertor::doCreateHwTables(state);
}

void VlanMembershipFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                                RowWriter& row) {
  trace(7, "vlanRegVer ", at.profile.registerFormat().major(), ".",
        at.profile.registerFormat().minor(), " num vrf bits = ", at.profile.numVrfBits());
  const auto& convertor = convertorOf(at);
  packCommon(convertor.rowLayout(at.table.id, 0), static_cast<U8>(at.table.id), result,
             key.vid().value(), row.words());
  const VlanTablePortRange* range = convertor.portRangeOfTable(at.table.id);
  row.set(Row::permitMask, result.permitMask() >> (range ? range->min() : 0));
  row.set(Row::parity,
          VelaSwitch::parityU32Array(row.words(), dataWords(at.profile.registerFormat())));
}

RowSays VlanMembershipFamily::unpack(const PlainRowContext& at, const Key& key,
                                     const RowReader& row, Result& result) {
  if (!row.flag(Row::commit) || row.get(Row::vlan) != key.vid().value() ||
      VelaSwitch::parityU32Array(row.words(), dataWords(at.profile.registerFormat())) != 0) {
    return RowSays::unsound;
  }
  const auto& convertor = convertorOf(at);
  const VlanTablePortRange* range = convertor.portRangeOfTable(at.table.id);
  result.permitMask = row.get(Row::permitMask) << (range ? range->min() : 0);
  result.learnToCpu = row.flag(Row::learnToCpu);
  result.unknownMulticastToCpu = row.flag(Row::unknownMulticastToCpu);
  result.multicastJoinToCpu = row.flag(Row::multicastJoinToCpu);
  result.broadcastToCpu = row.flag(Row::broadcastToCpu);
  result.unknownDaToCpu = row.flag(Row::unknownDaToCpu);
  result.multicastJoinToEgress = row.flag(Row::multicastJoinToEgress);
  result.vrfBits = static_cast<U8>(row.get(Row::vrfBits));
  result.unicastRoute = row.flag(Row::unicastRoute);
  result.multicastRoute = row.flag(Row::multicastRoute);
  if (convertor.rowLayout(at.table.id, 0)[Row::aclId].width != 0) {
    unpackPipes(row, static_cast<U8>(at.table.id), result);
  }
  return RowSays::result;
}

void VlanMembershipFamily::joinRow(const PlainRowContext& at, const Result& row, Result& into) {
  if (at.table.cpu) return;
  into.permitMask = into.permitMask() | row.permitMask();
  const auto join = [](const auto& from, auto& map) {
    from().forEach([&](VelaSwitch::PipeId pipe, const auto& value) { map.value.is(pipe, value); });
  };
  join(row.aclId, into.aclId);
  join(row.aclEnable, into.aclEnable);
  join(row.aclDefaultPermit, into.aclDefaultPermit);
  join(row.natId, into.natId);
  join(row.natEnable, into.natEnable);
}

VELA_PLAIN_FAMILY_DEFINE(VlanMembershipFamily, VlanMembershipTable, VlanMembershipConvertor,
                         VlanMembershipConvertorLayer2All)

}  // namespace VelaSwitchTable
