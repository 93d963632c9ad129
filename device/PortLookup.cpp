#include <algorithm>

#include "device/Bits.h"
#include "device/DataPath.h"

// Ports, VLANs, link aggregation and policing.

namespace VelaDevice {
namespace {

constexpr U32 commit = 1u << 31;

}  // namespace

/// The layer-2 processor that serves the port.
U32 DataPath::layer2Table(U32 port) const {
  return profile_.portToIngressPipeId(port) / profile_.fields().pipesPerL2Table();
}

/// The port's row in its own layer-2 processor, if its control word selects the port.
const U32* DataPath::selectedRow(const char* family, U32 port, U32 controlWord, U32 fixedBits) {
  const U32 table = layer2Table(port);
  const U32* words = rowAt(family, table, port);
  if (!words) return nullptr;
  U32 first = port;
  for (const auto& pipe : profile_.ingressPipeRangeInfos()) {
    if (pipe.pipe() / profile_.fields().pipesPerL2Table() == table) {
      first = std::min(first, pipe.firstPort());
    }
  }
  if (words[controlWord] == (fixedBits | 1u << (port - first) % 32)) return words;
  refuse("its control word selects another port");
  return nullptr;
}

std::optional<FloodSetHit> DataPath::floodSet(Bridging::VlanId vid) {
  const U32* words = rowAt("FloodSet", 0, vid.value());
  if (!words) return std::nullopt;
  if (words[4] != (1u << 15 | vid.value())) {
    refuse("its control word selects another VLAN");
    return std::nullopt;
  }
  Bits row(words, 4);
  const U64 unicast = row.next(profile_.ports());
  return FloodSetHit{unicast, row.next(profile_.ports())};
}

std::optional<PortMaskHit> DataPath::flood(Bridging::VlanId vid, U32 port, bool multicast) {
  const auto set = floodSet(vid);
  const auto permitted = vlan(vid);
  if (!set || !permitted) return std::nullopt;
  const U64 mask = (multicast ? set->umcPortMask() : set->uucPortMask()) & permitted->permitMask();
  return PortMaskHit{VelaSwitch::IngressPortMask(mask & ~(U64{1} << port))};
}

std::optional<NativeVlanHit> DataPath::nativeVlan(U32 port) {
  const U32* egress = rowAt("NativeVlan", 0, port);
  const U32* ingress = rowAt("NativeVlan", 1, port);
  if (!egress || !ingress || *egress != *ingress) return std::nullopt;
  Bits row(egress, 1);
  const auto vid = static_cast<U16>(row.next(12));
  const auto dei = static_cast<U8>(row.next(1));
  return NativeVlanHit{vid, dei, static_cast<U8>(row.next(3))};
}

std::optional<PortConfigHit> DataPath::portConfig(U32 port) {
  static constexpr const char* modes[] = {"trunk", "access", "qinq", "?"};
  const U32* words = rowAt("PortConfig", 0, port);
  if (!words) return std::nullopt;
  Bits row(words, 1);
  const std::string mode = modes[row.next(2)];
  const bool txDisabled = row.flag();
  return PortConfigHit{mode, txDisabled, row.flag()};
}

std::optional<L2ControlHit> DataPath::l2Control(U32 port) {
  const U32* words = rowAt("L2Control", 0, port);
  if (!words) return std::nullopt;
  return L2ControlHit{(*words & 1) != 0, (*words & 2) != 0, (*words & 4) != 0};
}

std::optional<LagHashControlHit> DataPath::lagHashControl(U32 port) {
  const U32* words = rowAt("LagHashControl", 0, port);
  if (!words) return std::nullopt;
  return LagHashControlHit{(*words & 1) != 0, (*words & 2) != 0, (*words & 4) != 0,
                           static_cast<U8>(*words >> 3 & 63)};
}

std::optional<RxPortMirrorHit> DataPath::rxPortMirror(U32 port) {
  const U32* words = selectedRow("RxPortMirror", port, 2, commit);
  if (!words) return std::nullopt;
  Bits row(words, 2);
  const VelaSwitch::IngressPortMask mask(row.next(profile_.ports()));
  return RxPortMirrorHit{mask, row.flag()};
}

std::optional<LagGroupHit> DataPath::lagGroup(U32 port) {
  const U32* words = selectedRow("LagGroup", port, 1, commit);
  if (!words) return std::nullopt;
  return LagGroupHit{*words & 63};
}

std::optional<LagLookUpHit> DataPath::lagLookUp(U32 port) {
  const U32* words = rowAt("LagLookUp", profile_.portToIngressPipeId(port), port);
  if (!words) return std::nullopt;
  return LagLookUpHit{*words};
}

std::optional<LagMembershipHit> DataPath::lagMembership(U32 port) {
  const U32* words = selectedRow("LagMembership", port, 2, 0);
  if (!words) return std::nullopt;
  LagMembershipHit hit;
  Bits row(words, 2);
  for (U32 member = 0; member < 64; ++member) {
    if (row.flag()) hit.port.value.push_back(member);
  }
  return hit;
}

/// The pipeline that the frame came in by asks its own copy of every port's buckets.
std::optional<LagMemberHit> DataPath::lagMember(U32 ingressPort, U32 lagGroupId, U32 bucket) {
  const U32 pipeline = profile_.portToIngressPipeId(ingressPort);
  bool members = false;
  for (U32 port = 0; port < profile_.ports(); ++port) {
    const auto group = lagGroup(port);
    if (!group || group->lagGroupId() != lagGroupId) {
      refuse("the port is in another group");
      continue;
    }
    members = true;
    const U32* words = rowAt("LagLookUp", pipeline, port);
    if (words && (words[0] >> bucket & 1) != 0) return LagMemberHit{port};
    if (words) refuse("the member does not take the bucket");
  }
  const char* last = members ? "LagLookUp" : "LagGroup";
  note(last, chip_.find(last, 0, 0), std::nullopt,
       members ? "no member of the group takes the bucket" : "no port is in the group");
  return std::nullopt;
}

std::optional<CoppHit> DataPath::copp(U32 table, U32 index) {
  const U32* interval = rowAt("Copp", table, 0);
  const U32* words = rowAt("Copp", table, index);
  if (!words || !interval) return std::nullopt;
  if (profile_.hwApi() < profile_.fields().scaleFactorVersion()) {
    return CoppHit{*words, *interval, *words, 0u};
  }
  return CoppHit{*words, *interval, *words & 0x3FFFF, *words >> 20 & 7};
}

std::optional<VlanGroupHit> DataPath::vlanGroup(U32 processor, U32 group) {
  const U32* words = rowAt("VlanGroup", 0, processor * 16 + group);
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

std::optional<MacVlanHit> DataPath::macVlan(U32 index) {
  const U32* words = rowAt("MacVlan", 0, index);
  if (!words) return std::nullopt;
  Bits row(words, 4);
  MacVlanHit hit;
  hit.vlanId = static_cast<U16>(row.next(12));
  hit.macAddr = Bridging::EthAddr(row.next(48));
  hit.portMask = VelaSwitch::IngressPortMask(row.next(profile_.ports() + 1));
  hit.multicast = row.flag();
  hit.routed = row.flag();
  hit.valid = row.flag();
  return hit;
}

}  // namespace VelaDevice
