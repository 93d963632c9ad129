#include "device/VlanLookup.h"

#include <algorithm>
#include <bit>

#include "device/Bits.h"

namespace VelaDevice {
namespace {

struct Slice {
  U32 first;
  U32 last;
};

/// The ports that a table's rows have bits for: those of its pipes; all where it has none.
Slice sliceOf(const VelaSwitch::ProfileInfo& profile, U32 table) {
  Slice slice{~0u, 0};
  for (const auto& pipe : profile.ingressPipeRangeInfos()) {
    if (pipe.pipe() / profile.fields().pipesPerVlanTable() != table) continue;
    slice = {std::min(slice.first, pipe.firstPort()), std::max(slice.last, pipe.lastPort())};
  }
  return slice.first <= slice.last ? slice : Slice{0, profile.ports() - 1};
}

/// What the row says of the table's two pipes, as far as the switch has them.
template <class T>
VelaSwitch::PipeMap<T> nextPipes(Bits& row, const VelaSwitch::ProfileInfo& profile, U32 table,
                                 unsigned width) {
  VelaSwitch::PipeMap<T> map;
  const auto& known = profile.ingressPipeRangeInfos();
  for (const U32 pipe : {2 * table, 2 * table + 1}) {
    const auto value = static_cast<T>(row.next(width));
    const auto isPipe = [&](const auto& each) { return each.pipe() == pipe; };
    if (std::any_of(known.begin(), known.end(), isPipe)) map.is(VelaSwitch::PipeId(pipe), value);
  }
  return map;
}

std::optional<VlanHit> vlanRow(DataPath& path, U32 table, Bridging::VlanId vid) {
  const U32* words = path.rowAt("VlanMembership", table, vid.value());
  if (!words) return std::nullopt;
  const VelaSwitch::ProfileInfo& profile = path.profile();
  const U32 format = profile.registerFormat().major();
  Bits row(words, VelaSwitchApi::maxRowWords);
  if (format < 3 && !row.flag()) {
    path.refuse("the row is not valid");
    return std::nullopt;
  }
  const Slice slice = sliceOf(profile, table);
  VlanHit hit;
  hit.permitMask = row.next(slice.last - slice.first + 1) << slice.first;
  for (auto* flag :
       {&hit.learnToCpu.value, &hit.unknownMulticastToCpu.value, &hit.multicastJoinToCpu.value,
        &hit.broadcastToCpu.value, &hit.unknownDaToCpu.value, &hit.multicastJoinToEgress.value}) {
    *flag = row.flag();
  }
  row.skip(1);
  hit.vrfBits = static_cast<U8>(row.next(format >= 4 ? std::bit_width(profile.vrfs()) - 1u : 2u));
  hit.unicastRoute = row.flag();
  hit.multicastRoute = row.flag();
  if (format < 4) return hit;
  hit.aclId = nextPipes<U8>(row, profile, table, 4);
  hit.aclEnable = nextPipes<U8>(row, profile, table, 1);
  hit.aclDefaultPermit = nextPipes<bool>(row, profile, table, 1);
  hit.natId = nextPipes<U8>(row, profile, table, 3);
  hit.natEnable = nextPipes<U8>(row, profile, table, 1);
  return hit;
}

}  // namespace

std::optional<VlanHit> vlan(DataPath& path, U32 port, Bridging::VlanId vid) {
  const VelaSwitch::ProfileInfo& profile = path.profile();
  return vlanRow(path, profile.portToIngressPipeId(port) / profile.fields().pipesPerVlanTable(),
                 vid);
}

std::optional<VlanHit> vlan(DataPath& path, Bridging::VlanId vid) {
  const auto join = [](auto& whole, const auto& slice) {
    slice().forEach([&](auto pipe, auto value) { whole.value.is(pipe, value); });
  };
  std::optional<VlanHit> whole;
  for (U32 table = 0; path.table("VlanMembership", 0, table); ++table) {
    const auto slice = vlanRow(path, table, vid);
    if (!slice) continue;
    if (!whole) whole = slice;
    whole->permitMask = whole->permitMask() | slice->permitMask();
    join(whole->aclId, slice->aclId);
    join(whole->aclEnable, slice->aclEnable);
    join(whole->aclDefaultPermit, slice->aclDefaultPermit);
    join(whole->natId, slice->natId);
    join(whole->natEnable, slice->natEnable);
  }
  return whole;
}

std::optional<FloodSetHit> floodSet(DataPath& path, Bridging::VlanId vid) {
  const U32* words = path.rowAt("FloodSet", 0, vid.value());
  if (!words) return std::nullopt;
  if (words[4] != (1u << 15 | vid.value())) {
    path.refuse("its control word selects another VLAN");
    return std::nullopt;
  }
  Bits row(words, 4);
  const U64 unicast = row.next(path.profile().ports());
  return FloodSetHit{unicast, row.next(path.profile().ports())};
}

std::optional<PortMaskHit> flood(DataPath& path, Bridging::VlanId vid, U32 port, bool multicast) {
  const auto set = floodSet(path, vid);
  const auto permitted = vlan(path, vid);
  if (!set || !permitted) return std::nullopt;
  const U64 mask = (multicast ? set->umcPortMask() : set->uucPortMask()) & permitted->permitMask();
  return PortMaskHit{VelaSwitch::IngressPortMask(mask & ~(U64{1} << port))};
}

std::optional<VlanGroupHit> vlanGroup(DataPath& path, U32 processor, U32 group) {
  const U32* words = path.rowAt("VlanGroup", 0, processor * 16 + group);
  if (!words) return std::nullopt;
  VlanGroupHit hit;
  for (U32 pair = 0; pair < 4; ++pair) {
    const U32 control = words[2 * pair + 1];
    if ((control >> 14 & 1) == 0 || (control >> 4 & 1023) != 4 * group + pair) return std::nullopt;
    hit.vlanIds.value.push_back(words[2 * pair] & 0xfff);
    hit.vlanIds.value.push_back(words[2 * pair] >> 16 & 0xfff);
  }
  return hit;
}

std::optional<MacVlanHit> macVlan(DataPath& path, U32 index) {
  const U32* words = path.rowAt("MacVlan", 0, index);
  if (!words) return std::nullopt;
  Bits row(words, 4);
  MacVlanHit hit;
  hit.vlanId = static_cast<U16>(row.next(12));
  hit.macAddr = Bridging::EthAddr(row.next(48));
  hit.portMask = VelaSwitch::IngressPortMask(row.next(path.profile().ports() + 1));
  hit.multicast = row.flag();
  hit.routed = row.flag();
  hit.valid = row.flag();
  return hit;
}

}  // namespace VelaDevice
