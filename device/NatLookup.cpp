#include <optional>

#include "device/Search.h"

// Address translation and the tables of layer-3 results.

namespace VelaDevice {
namespace {

using VelaSwitch::NatMatchKey;

constexpr U32 polynomials10[] = {0x06f, 0x0f3, 0x197, 0x1e5};
constexpr U32 polynomials11[] = {0x065, 0x1d9};
constexpr U32 polynomials12[] = {0x0eb, 0x161, 0x34d};

}  // namespace

std::optional<NatHit> DataPath::natMatch(U32 instance, const NatMatchKey& key) {
  const U32 kind = key.natType() & 3;
  const U32 address = (kind < 2 ? key.srcIp() : key.dstIp()).number();
  const U32 port = kind == 1 ? key.sport() : kind == 3 ? key.dport() : 0;
  const U32 proto = key.proto() & 7;
  const U32 qualifier = key.qualifier() & 63;
  Bits hashed;
  hashed.append(0, 5);
  hashed.append(address, 32);
  hashed.append(port, 16);
  hashed.append(kind, 2);
  hashed.append(proto, 3);
  hashed.append(qualifier, 6);
  NatHit hit;
  const auto match = [&](Bits row) {
    if (row.next(20) != address >> 12 || row.next(16) != port || row.next(2) != kind ||
        row.next(3) != proto || row.next(6) != qualifier || !row.flag()) {
      return false;
    }
    hit.valid = true;
    hit.proto = static_cast<U8>(row.next(2));
    hit.natRewriteId = static_cast<U16>(row.next(12));
    hit.useAcl = row.flag();
    row.skip(1);
    hit.trapToCpu = row.flag();
    hit.rewriteIndex = static_cast<U8>(row.next(6));
    hit.l3LagIndex = static_cast<U16>(row.next(6));
    return true;
  };
  SimulatedSwitch::Table* table = chip_.find("NatMatch", instance / 2 * 2, 0);
  const auto index = search("NatMatch", table, polynomials12, 12, hashed, match);
  if (!index) return std::nullopt;
  table->hit(*index) = 1;
  return hit;
}

std::optional<NatHit> DataPath::natDynMatch(U32 instance, const NatMatchKey& key) {
  Bits hashed;
  hashed.append(0, 5);
  hashed.append(key.srcIp().number(), 32);
  hashed.append(key.dstIp().number(), 32);
  hashed.append(key.sport(), 16);
  hashed.append(key.dport(), 16);
  hashed.append(key.proto() & 7u, 3);
  NatHit hit;
  const auto match = [&](Bits row) {
    if (row.next(22) != key.srcIp().number() >> 10 || row.next(32) != key.dstIp().number() ||
        row.next(16) != key.sport() || row.next(16) != key.dport() ||
        row.next(3) != (key.proto() & 7u) || !row.flag()) {
      return false;
    }
    hit.valid = true;
    hit.proto = static_cast<U8>(row.next(2));
    row.skip(2);
    hit.natRewriteId = static_cast<U16>(row.next(12));
    row.skip(1);
    hit.trapToCpu = row.flag();
    hit.rewriteIndex = static_cast<U8>(row.next(6));
    hit.l3LagIndex = static_cast<U16>(row.next(6));
    return true;
  };
  SimulatedSwitch::Table* table = chip_.find("NatDynMatch", instance, 0);
  const auto index = search("NatDynMatch", table, polynomials10, 10, hashed, match);
  if (!index) return std::nullopt;
  table->hit(*index) = 1;
  return hit;
}

/// Connections come before addresses; of the static kinds, those with a port before those without,
/// and the source before the destination.
std::optional<FlowHit> DataPath::flow(const Flow& flow) {
  NatMatchKey key;
  key.proto = flow.protoClass();
  key.srcIp = flow.srcIp();
  key.dstIp = flow.dstIp();
  key.sport = flow.sport();
  key.dport = flow.dport();
  key.qualifier = flow.qualifier();
  std::optional<NatHit> match;
  FlowHit hit;
  for (U32 instance = 0; !match && chip_.find("NatDynMatch", instance, 0); ++instance) {
    match = natDynMatch(instance, key);
    hit.matchedBy = "NatDynMatch";
  }
  for (const U8 kind : {U8{1}, U8{0}, U8{3}, U8{2}}) {
    if (match) break;
    key.natType = kind;
    match = natMatch(0, key);
    hit.matchedBy = "NatMatch";
  }
  if (!match) return std::nullopt;
  hit.match = *match;
  // A row without an entry holds zeros, and there is no flow that is to get those.
  const auto rewrite = natRewrite(flow.egressPort() & ~1u, match->natRewriteId());
  if (rewrite && *rewrite != NatRewriteHit{}) {
    hit.rewrite = rewrite;
  } else {
    refuse("the row of the port's pair holds no rewrite");
  }
  return hit;
}

std::optional<NatRewriteHit> DataPath::natRewrite(U32 basePort, U32 index) {
  const U32* words = rowAt("NatRewrite", 0, basePort / 2 * 4096 + index);
  if (!words) return std::nullopt;
  return NatRewriteHit{Ipnet::IpAddr(words[0]), static_cast<U16>(words[1] & 0xffff),
                       static_cast<U16>(words[1] >> 16)};
}

std::optional<CounterHit> DataPath::aclCounter(U32 pipeline, U16 key) {
  Bits hashed;
  hashed.append(key, 16);
  CounterHit hit;
  const auto match = [&](Bits row) {
    // There is no valid bit: a row that is all zero holds nothing.
    if (Bits(row).next(18) == 0 || row.next(5) != key >> 11) return false;
    hit.counterIndex = static_cast<U16>(row.next(12));
    return true;
  };
  const SimulatedSwitch::Table* table = chip_.find("AclIndirectCounterHash", pipeline, 0);
  if (!search("AclIndirectCounterHash", table, polynomials11, 11, hashed, match)) {
    return std::nullopt;
  }
  return hit;
}

std::optional<FloodArpHit> DataPath::l3FloodArp(U32 floodId) {
  // The lookup memory of the first egress processor: each pair of words filled one of its rows.
  const U32* words = rowAt("L3FloodArp", 0, floodId);
  if (!words) return std::nullopt;
  const auto memory = [&](U32 row) -> std::optional<U32> {
    for (int pair = 0; pair < 4; ++pair) {
      const U32 control = words[2 * pair + 1];
      if ((control >> 14 & 1) != 0 && (control >> 4 & 1023) == row % 1024) return words[2 * pair];
    }
    return std::nullopt;
  };
  const auto head = memory(2 * floodId + 128);
  const auto tail = memory(2 * floodId + 129);
  if (!head || !tail || memory(2 * floodId + 640) != head || memory(2 * floodId + 641) != tail) {
    return std::nullopt;
  }
  return FloodArpHit{Bridging::EthAddr(U64{*head} << 16 | *tail >> 16),
                     static_cast<U16>(*tail & 0xffff)};
}

std::optional<PortMaskHit> DataPath::l3FloodBitmap(U32 floodId) {
  const U32* words = rowAt("L3FloodBitmap", 0, floodId);
  if (!words) return std::nullopt;
  return PortMaskHit{VelaSwitch::IngressPortMask(Bits(words, 2).next(profile_.ports()))};
}

std::optional<L3LagHit> DataPath::l3Lag(U32 index) {
  const U32* words = rowAt("L3Lag", 0, index);
  if (!words) return std::nullopt;
  Bits row(words, 2);
  const VelaSwitch::IngressPortMask mask(row.next(profile_.ports() + 1));
  return L3LagHit{mask, row.flag()};
}

}  // namespace VelaDevice
