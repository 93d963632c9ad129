#include "VelaSwitchTable/VelaTableVlanMembership.h"

#include <cstdio>
#include <limits>
#include <ostream>

namespace VelaSwitchTable {
namespace {

using VelaSwitch::RegisterFormatVersion;
using VelaSwitch::TableKind;
constexpr U8 pipesPerRow = 2;

/// The data words, which the parity covers; the control word is behind them.
U8 dataWords(RegisterFormatVersion version) { return version.major() < 3 ? 2 : 3; }

/// The field of the table's first pipe; the second's follows.
template <Orb::FixedString Name>
constexpr std::size_t firstPipe = fieldNumber<VlanMembershipFamily, Name>();

/// What a VLAN may have for a pipe.
template <class Map>
struct PipeValue {
  Map VlanMembershipResult::*field;
  const char* label;
  std::size_t first;  ///< The row's field of the table's first pipe.
  U64 absent;         ///< What rows hold for a pipe that has none.
};
template <class Map>
PipeValue(Map VlanMembershipResult::*, const char*, std::size_t, U64) -> PipeValue<Map>;

template <class Visit>
void forEachPipeValue(const Visit& visit) {
  using Result = VlanMembershipResult;
  visit(PipeValue{&Result::aclId, " AclId: ", firstPipe<"aclId[0]">,
                  VelaSwitch::HwAclId{}.value() & U64{0xf}});
  visit(PipeValue{&Result::aclEnable, " AclEnable: ", firstPipe<"aclEnable[0]">, 0});
  visit(PipeValue{&Result::aclDefaultPermit,
                  " AclDefaultPermit: ", firstPipe<"aclDefaultPermit[0]">, 0});
  visit(PipeValue{&Result::natId, " NatId: ", firstPipe<"natId[0]">,
                  VelaSwitch::NatId{}.value() & U64{0x7}});
  visit(PipeValue{&Result::natEnable, " NatEnable: ", firstPipe<"natEnable[0]">, 0});
}

/// Calls `visit(pipe, i)` for the pipes of a table.
template <class Visit>
void forEachPipe(U32 table, const Visit& visit) {
  for (U8 i = 0; i < pipesPerRow; ++i) visit(VelaSwitch::PipeId(U64{table} * pipesPerRow + i), i);
}

/// Packs the VLAN id, and what the table's pipes have where the format has it.
void packBase(RegisterFormatVersion version, U32 table, const VlanMembershipResult& result,
              HwIndex vlan, RowWriterOf<VlanMembershipFamily>& row) {
  row.set<"vlan">(vlan);
  if (version.major() < 4) return;
  forEachPipe(table, [&](VelaSwitch::PipeId pipe, U8 i) {
    forEachPipeValue([&](const auto& each) {
      using Orb::hashWord;
      const auto* value = (result.*each.field)(pipe);
      row.set(each.first + i, value ? hashWord(*value) : each.absent);
    });
  });
}

/// Takes what the pipes have over where it differs from what an absent one is packed as.
void unpackPipes(const VelaSwitchApi::RowReader& row, U32 table, VlanMembershipResult& result) {
  forEachPipe(table, [&](VelaSwitch::PipeId pipe, U8 i) {
    forEachPipeValue([&](const auto& each) {
      const U64 bits = row.get(each.first + i);
      if (bits == each.absent) return;
      auto& map = (result.*each.field).value;
      typename std::remove_cvref_t<decltype(map)>::Mapped value{};
      fromRowBits(value, bits);
      map.is(pipe, value);
    });
  });
}

/// The ports that a table serves: a slice of them, or in the CPU's all.
VelaSwitch::PortRange portsOfTable(const VelaSwitch::ProfileInfo& profile, U32 table) {
  if (table < profile.numTables(TableKind::vlan)) return portRangeOfVlanTable(&profile, table);
  return {0, profile.ports() - 1};
}

/// The first port of the table's slice.
U32 firstPort(const PlainRowContext& at) {
  const auto& convertor =
      static_cast<const VlanMembershipConvertorLayer2All&>(*at.swTable.profileConvertorPtr());
  const VlanTablePortRange* range = convertor.portRangeOfTable(at.table.id);
  return range ? range->min() : 0;
}

}  // namespace

std::string VlanMembershipResult::resultString() const {
  return Orb::text(
      "permitMask:0x", Orb::Hex{permitMask(), 12}, " learnToCpu:", learnToCpu(),
      " unknownMcastToCpu:", unknownMulticastToCpu(), " mcastJoinToCpu:", multicastJoinToCpu(),
      " bcastToCpu:", broadcastToCpu(), " unknownDaToCpu:", unknownDaToCpu(),
      " mcastJoinToEgress:", multicastJoinToEgress(), " vrfBits:0x", Orb::Hex{vrfBits()},
      " unicastRoute:", unicastRoute(), " multicastRoute:", multicastRoute());
}

std::ostream& operator<<(std::ostream& out, const VlanMembershipResult& result) {
  out << result.resultString();
  forEachPipeValue([&](const auto& each) {
    const auto& map = (result.*each.field)();
    if (!map.empty()) out << each.label;
    map.forEach([&](VelaSwitch::PipeId pipe, const auto& value) {
      char buffer[40];
      if constexpr (requires { value.value(); }) {
        std::snprintf(buffer, sizeof buffer, " (%2d, %2d)", pipe.value(), int{value.value()});
      } else {
        std::snprintf(buffer, sizeof buffer, " (%2d, %s)", pipe.value(), value ? "true" : "false");
      }
      out << buffer;
    });
  });
  return out;
}

std::vector<PlainHwTable> VlanMembershipFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  std::vector<std::string> registers{"vlan_data0", "vlan_data1"};
  if (profile.registerFormat().major() >= 3) registers.emplace_back("vlan_data2");
  registers.emplace_back("vlan_ctl");
  return vlanTables(profile, registers);
}

auto VlanMembershipFamily::shape(const VelaSwitch::ProfileInfo& profile, const PlainHwTable& table)
    -> Shape {
  const VelaSwitch::PortRange ports = portsOfTable(profile, table.id);
  return {ports.last + 1 - ports.first, profile.numVrfBits(), profile.registerFormat().major()};
}

void setBaseHwBuffer(U8 pipe, U8 portBits, U32 vrfBits, const VlanMembershipResult& result,
                     HwIndex index, U32* words, RegisterFormatVersion version) {
  VlanMembershipFamily::trace(7, "vlanRegVer ", version.major(), ".", version.minor(),
                              " num vrf bits = ", vrfBits);
  const auto layout = rowLayout<VlanMembershipFamily>(
      static_cast<U8>(dataWords(version) + 1),
      VlanMembershipFamily::Shape{portBits, vrfBits, version.major()});
  RowWriterOf<VlanMembershipFamily> row(layout, words, "setBaseHwBuffer");
  row.setNamedBut<"permitMask">(result);
  packBase(version, pipe, result, index, row);
  row.setPlace(index);
}

VlanMembershipConvertorLayer2All::VlanMembershipConvertorLayer2All() {
  hwStaticWordIs(3, 0xFFFFFFFF);
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

void VlanMembershipFamily::packMore(const PlainRowContext& at, const Key& key, const Result& result,
                                    RowWriterOf<VlanMembershipFamily>& row) {
  const RegisterFormatVersion version = at.profile.registerFormat();
  trace(7, "vlanRegVer ", version.major(), ".", version.minor(),
        " num vrf bits = ", at.profile.numVrfBits());
  packBase(version, at.table.id, result, key.vid().value(), row);
  row.set<"permitMask">(result.permitMask() >> firstPort(at));
  row.setParity(dataWords(version));
}

RowSays VlanMembershipFamily::unpackMore(const PlainRowContext& at, const Key& key,
                                         const RowReaderOf<VlanMembershipFamily>& row,
                                         Result& result) {
  const RegisterFormatVersion version = at.profile.registerFormat();
  if (!row.flag<"commit">() || row.get<"vlan">() != key.vid().value() ||
      !row.paritySound(dataWords(version))) {
    return RowSays::unsound;
  }
  result.permitMask = result.permitMask() << firstPort(at);
  if (version.major() >= 4) unpackPipes(row, at.table.id, result);
  return RowSays::result;
}

void VlanMembershipFamily::joinRow(const PlainRowContext& at, const Result& row, Result& into) {
  if (at.table.cpu) return;
  into.permitMask = into.permitMask() | row.permitMask();
  forEachPipeValue([&](const auto& each) {
    (row.*each.field)().forEach([&](VelaSwitch::PipeId pipe, const auto& value) {
      (into.*each.field).value.is(pipe, value);
    });
  });
}

VELA_PLAIN_FAMILY_DEFINE(VlanMembership, Layer2All)

}  // namespace VelaSwitchTable
