#include "device/PortLookup.h"

#include <algorithm>

#include "device/Bits.h"

namespace VelaDevice {
namespace {

constexpr U32 commit = 1u << 31;

/// The layer-2 processor that serves the port.
U32 layer2Table(const DataPath& path, U32 port) {
  return path.profile().portToIngressPipeId(port) / path.profile().fields().pipesPerL2Table();
}

/// The port's row in its own layer-2 processor, if its control word selects the port.
const U32* selectedRow(DataPath& path, const char* family, U32 port, U32 controlWord,
                       U32 fixedBits) {
  const U32 table = layer2Table(path, port);
  const U32* words = path.rowAt(family, table, port);
  if (!words) return nullptr;
  U32 first = port;
  for (const auto& pipe : path.profile().ingressPipeRangeInfos()) {
    if (pipe.pipe() / path.profile().fields().pipesPerL2Table() == table) {
      first = std::min(first, pipe.firstPort());
    }
  }
  if (words[controlWord] == (fixedBits | 1u << (port - first) % 32)) return words;
  path.refuse("its control word selects another port");
  return nullptr;
}

}  // namespace

std::optional<NativeVlanHit> nativeVlan(DataPath& path, U32 port) {
  const U32* egress = path.rowAt("NativeVlan", 0, port);
  const U32* ingress = path.rowAt("NativeVlan", 1, port);
  if (!egress || !ingress || *egress != *ingress) return std::nullopt;
  Bits row(egress, 1);
  const auto vid = static_cast<U16>(row.next(12));
  const auto dei = static_cast<U8>(row.next(1));
  return NativeVlanHit{vid, dei, static_cast<U8>(row.next(3))};
}

std::optional<PortConfigHit> portConfig(DataPath& path, U32 port) {
  static constexpr const char* modes[] = {"trunk", "access", "qinq", "?"};
  const U32* words = path.rowAt("PortConfig", 0, port);
  if (!words) return std::nullopt;
  Bits row(words, 1);
  const std::string mode = modes[row.next(2)];
  const bool txDisabled = row.flag();
  return PortConfigHit{mode, txDisabled, row.flag()};
}

std::optional<L2ControlHit> l2Control(DataPath& path, U32 port) {
  const U32* words = path.rowAt("L2Control", 0, port);
  if (!words) return std::nullopt;
  return L2ControlHit{(*words & 1) != 0, (*words & 2) != 0, (*words & 4) != 0};
}

std::optional<LagHashControlHit> lagHashControl(DataPath& path, U32 port) {
  const U32* words = path.rowAt("LagHashControl", 0, port);
  if (!words) return std::nullopt;
  return LagHashControlHit{(*words & 1) != 0, (*words & 2) != 0, (*words & 4) != 0,
                           static_cast<U8>(*words >> 3 & 63)};
}

std::optional<RxPortMirrorHit> rxPortMirror(DataPath& path, U32 port) {
  const U32* words = selectedRow(path, "RxPortMirror", port, 2, commit);
  if (!words) return std::nullopt;
  Bits row(words, 2);
  const VelaSwitch::IngressPortMask mask(row.next(path.profile().ports()));
  return RxPortMirrorHit{mask, row.flag()};
}

std::optional<LagGroupHit> lagGroup(DataPath& path, U32 port) {
  const U32* words = selectedRow(path, "LagGroup", port, 1, commit);
  if (!words) return std::nullopt;
  return LagGroupHit{*words & 63};
}

std::optional<LagLookUpHit> lagLookUp(DataPath& path, U32 port) {
  const U32* words = path.rowAt("LagLookUp", path.profile().portToIngressPipeId(port), port);
  if (!words) return std::nullopt;
  return LagLookUpHit{*words};
}

std::optional<LagMembershipHit> lagMembership(DataPath& path, U32 port) {
  const U32* words = selectedRow(path, "LagMembership", port, 2, 0);
  if (!words) return std::nullopt;
  LagMembershipHit hit;
  Bits row(words, 2);
  for (U32 member = 0; member < 64; ++member) {
    if (row.flag()) hit.port.value.push_back(member);
  }
  return hit;
}

/// The pipeline that the frame came in by asks its own copy of every port's buckets.
std::optional<LagMemberHit> lagMember(DataPath& path, U32 ingressPort, U32 lagGroupId, U32 bucket) {
  const U32 pipeline = path.profile().portToIngressPipeId(ingressPort);
  bool members = false;
  for (U32 port = 0; port < path.profile().ports(); ++port) {
    const auto group = lagGroup(path, port);
    if (!group || group->lagGroupId() != lagGroupId) {
      path.refuse("the port is in another group");
      continue;
    }
    members = true;
    const U32* words = path.rowAt("LagLookUp", pipeline, port);
    if (words && (words[0] >> bucket & 1) != 0) return LagMemberHit{port};
    if (words) path.refuse("the member does not take the bucket");
  }
  const char* last = members ? "LagLookUp" : "LagGroup";
  path.note(last, path.table(last), std::nullopt,
            members ? "no member of the group takes the bucket" : "no port is in the group");
  return std::nullopt;
}

std::optional<CoppHit> copp(DataPath& path, U32 table, U32 index) {
  const U32* interval = path.rowAt("Copp", table, 0);
  const U32* words = path.rowAt("Copp", table, index);
  if (!words || !interval) return std::nullopt;
  if (path.profile().hwApi() < path.profile().fields().scaleFactorVersion()) {
    return CoppHit{*words, *interval, *words, 0u};
  }
  return CoppHit{*words, *interval, *words & 0x3FFFF, *words >> 20 & 7};
}

}  // namespace VelaDevice
