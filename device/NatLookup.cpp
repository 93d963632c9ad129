#include "device/NatLookup.h"

#include "device/Search.h"

namespace VelaDevice {
namespace {

/// What the row of a match says. Static ones also say whether an ACL applies.
std::optional<NatHit> natHit(std::optional<FoundRow> found, bool isStatic) {
  if (!found) return std::nullopt;
  found->hit();
  Bits& row = found->rest;
  NatHit hit;
  hit.valid = true;
  hit.proto = static_cast<U8>(row.next(2));
  row.skip(isStatic ? 0 : 2);
  hit.natRewriteId = static_cast<U16>(row.next(12));
  if (isStatic) hit.useAcl = row.flag();
  row.skip(1);
  hit.trapToCpu = row.flag();
  hit.rewriteIndex = static_cast<U8>(row.next(6));
  hit.l3LagIndex = static_cast<U16>(row.next(6));
  return hit;
}

}  // namespace

std::optional<NatHit> natMatch(DataPath& path, U32 instance, const NatMatchKey& key) {
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
  const auto match = [&](Bits& row) {
    return row.next(20) == address >> 12 && row.next(16) == port && row.next(2) == kind &&
           row.next(3) == proto && row.next(6) == qualifier && row.flag();
  };
  DataPath::Table* table = path.table("NatMatch", instance / 2 * 2);
  return natHit(search(path, "NatMatch", table, {12, 3}, hashed, match), true);
}

std::optional<NatHit> natDynMatch(DataPath& path, U32 instance, const NatMatchKey& key) {
  const U32 proto = key.proto() & 7;
  Bits hashed;
  hashed.append(0, 5);
  hashed.append(key.srcIp().number(), 32);
  hashed.append(key.dstIp().number(), 32);
  hashed.append(key.sport(), 16);
  hashed.append(key.dport(), 16);
  hashed.append(proto, 3);
  const auto match = [&](Bits& row) {
    return row.next(22) == key.srcIp().number() >> 10 && row.next(32) == key.dstIp().number() &&
           row.next(16) == key.sport() && row.next(16) == key.dport() && row.next(3) == proto &&
           row.flag();
  };
  DataPath::Table* table = path.table("NatDynMatch", instance);
  return natHit(search(path, "NatDynMatch", table, {10, 4}, hashed, match), false);
}

/// Connections come before addresses; of the static kinds, those with a port before those without,
/// and the source before the destination.
std::optional<FlowHit> flow(DataPath& path, const Flow& flow) {
  NatMatchKey key{U8{0},        flow.protoClass(), flow.dstIp(),    flow.srcIp(),
                  flow.dport(), flow.sport(),      flow.qualifier()};
  std::optional<NatHit> match;
  FlowHit hit;
  for (U32 instance = 0; !match && path.table("NatDynMatch", instance); ++instance) {
    match = natDynMatch(path, instance, key);
    hit.matchedBy = "NatDynMatch";
  }
  for (const U8 kind : {U8{1}, U8{0}, U8{3}, U8{2}}) {
    if (match) break;
    key.natType = kind;
    match = natMatch(path, 0, key);
    hit.matchedBy = "NatMatch";
  }
  if (!match) return std::nullopt;
  hit.match = *match;
  // A row without an entry holds zeros, and there is no flow that is to get those.
  const auto rewrite = natRewrite(path, flow.egressPort() & ~1u, match->natRewriteId());
  if (rewrite && *rewrite != NatRewriteHit{}) {
    hit.rewrite = rewrite;
  } else {
    path.refuse("the row of the port's pair holds no rewrite");
  }
  return hit;
}

std::optional<NatRewriteHit> natRewrite(DataPath& path, U32 basePort, U32 index) {
  const U32* words = path.rowAt("NatRewrite", 0, basePort / 2 * 4096 + index);
  if (!words) return std::nullopt;
  return NatRewriteHit{Ipnet::IpAddr(words[0]), static_cast<U16>(words[1] & 0xffff),
                       static_cast<U16>(words[1] >> 16)};
}

}  // namespace VelaDevice
