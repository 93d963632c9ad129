#include "device/RouteLookup.h"

#include <bit>

#include "device/Search.h"

namespace VelaDevice {
namespace {

/// A stage of the route lookup that is found by hash.
struct HashedStage {
  const char* family;
  U32 base;  ///< Address bits of the key.
  U32 hashedBits;
  HashUnit unit;
};

constexpr HashedStage stages[] = {
    {"Lpm32", 30, 35, {12, 2}}, {"Lpm29", 27, 41, {12, 2}}, {"Lpm26", 24, 29, {12, 2}},
    {"Lpm23", 21, 26, {10, 2}}, {"Lpm20", 18, 23, {10, 2}}, {"Lpm17", 15, 20, {10, 2}},
    {"Lpm14", 12, 17, {10, 2}},
};

/// Row bits in front of the valid bit, where they do not follow from the key.
constexpr U32 sharedStageWidth = 29;

constexpr U32 noLag = 57;

RouteHit routeHit(U64 nexthop, std::optional<U8> realPrefixLen) {
  return {static_cast<U16>(nexthop & 63), static_cast<U8>(nexthop >> 6), realPrefixLen};
}

/// The cell at which the reader stands.
std::optional<RouteHit> nextCell(Bits& row, U32 longest) {
  const U64 nexthop = row.next(12);
  const U64 shorter = row.next(2);
  if (shorter == 3) return std::nullopt;
  return routeHit(nexthop, static_cast<U8>(longest - shorter));
}

/// The row of a stage that holds the key, read up to its cells.
std::optional<FoundRow> stageRow(DataPath& path, const HashedStage& stage, U32 vrf, U32 address) {
  const U32 vrfBits = static_cast<U32>(std::bit_width(path.profile().vrfs())) - 1;
  const U32 storedBits = stage.base - stage.unit.width;
  const bool shared = stage.hashedBits == 41;
  Bits key;
  key.appendNumber(U64{vrf} << stage.base | address >> (32 - stage.base), stage.hashedBits);
  return search(path, stage.family, path.table(stage.family), stage.unit, key, [&](Bits& row) {
    return row.next(storedBits) == address >> (32 - storedBits) && row.next(vrfBits) == vrf &&
           (!shared || row.next(sharedStageWidth - storedBits - vrfBits) == 0) && row.flag();
  });
}

/// What the row of a multicast route says.
std::optional<MrouteHit> mrouteHit(const DataPath& path, std::optional<FoundRow> found) {
  if (!found) return std::nullopt;
  found->hit();
  const auto vlanGroup = static_cast<U8>(found->rest.next(4));
  return MrouteHit{vlanGroup,
                   VelaSwitch::IngressPortMask(found->rest.next(path.profile().ports() + 1))};
}

U32 groupBits(const VelaSwitch::MrouteKey& key) { return key.group().number() & 0x0FFFFFFF; }

}  // namespace

std::optional<LpmRowHit> lpmRow(DataPath& path, std::string_view family, U32 vrf,
                                Ipnet::IpAddr address) {
  for (const HashedStage& stage : stages) {
    if (family != stage.family) continue;
    auto row = stageRow(path, stage, vrf, address.number());
    if (!row) return std::nullopt;
    row->hit();
    LpmRowHit hit;
    for (int i = 0; i < 4; ++i) hit.cells.value.push_back(nextCell(row->rest, stage.base + 2));
    hit.cpuTrap = row->rest.flag();
    return hit;
  }
  return std::nullopt;
}

std::optional<Lpm11Hit> lpm11(DataPath& path, U32 vrf, Ipnet::IpAddr address) {
  const U32* words = path.rowAt("Lpm11", 0, vrf << 11 | address.number() >> 21);
  if (!words) return std::nullopt;
  Bits row(words, 1);
  const U64 nexthop = row.next(12);
  if (!row.flag()) {
    path.refuse("the row is empty");
    return std::nullopt;
  }
  Lpm11Hit hit;
  if (path.profile().hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u}) {
    hit.cpuTrap = row.flag();
    row.skip(1);
    const U64 lacking = row.next(4);
    std::optional<U8> length;
    // The field can say more than any length lacks: then it tells none.
    if (lacking != 0 && lacking <= 12) length = static_cast<U8>(12 - lacking);
    hit.cellResult = routeHit(nexthop, length);
  } else {
    row.skip(2);
    hit.cpuTrap = row.flag();
    hit.cellResult = routeHit(nexthop, std::nullopt);
  }
  return hit;
}

std::optional<RouteHit> route(DataPath& path, U32 vrf, Ipnet::IpAddr address) {
  for (const HashedStage& stage : stages) {
    auto row = stageRow(path, stage, vrf, address.number());
    if (!row) continue;
    row->rest.skip(14 * (address.number() >> (30 - stage.base) & 3));
    const auto cell = nextCell(row->rest, stage.base + 2);
    if (!cell) {
      path.refuse("the row holds no route that covers the address");
      continue;
    }
    row->hit();
    return cell;
  }
  const auto first = lpm11(path, vrf, address);
  if (!first) return std::nullopt;
  if (first->cellResult().l3LagIndex() != noLag) return first->cellResult();
  path.refuse("the row has no next hop");
  return std::nullopt;
}

std::optional<MrouteHit> sg(DataPath& path, const VelaSwitch::MrouteKey& key) {
  const U32 group = groupBits(key);
  Bits hashed;
  hashed.append(group, 28);
  hashed.append(key.source().number(), 32);
  hashed.append(key.vlanId().value(), 12);
  const auto match = [&](Bits& row) {
    const bool same = row.next(15) == group >> 13 && row.next(32) == key.source().number() &&
                      row.next(12) == key.vlanId().value();
    row.skip(path.profile().fields().mrouteWideFlags() ? 1 : 0);
    return same && row.flag();
  };
  return mrouteHit(path, search(path, "SG", path.table("SG"), {13, 3}, hashed, match));
}

std::optional<MrouteHit> starG(DataPath& path, const VelaSwitch::MrouteKey& key) {
  const U32 group = groupBits(key);
  Bits hashed;
  hashed.appendNumber(1, 1);
  hashed.appendNumber(key.vlanId().value(), 12);
  hashed.appendNumber(group, 28);
  const auto match = [&](Bits& row) {
    // The row is multicast and valid.
    return row.next(16) == group >> 12 && row.next(12) == key.vlanId().value() && row.next(2) == 3;
  };
  return mrouteHit(path, search(path, "StarG", path.table("Lpm29"), {12, 2}, hashed, match));
}

std::optional<MrouteHit> multicast(DataPath& path, const VelaSwitch::MrouteKey& key) {
  const auto hit = sg(path, key);
  return hit ? hit : starG(path, key);
}

std::optional<FloodArpHit> l3FloodArp(DataPath& path, U32 floodId) {
  // The lookup memory of the first egress processor: each pair of words filled one of its rows.
  const U32* words = path.rowAt("L3FloodArp", 0, floodId);
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

std::optional<PortMaskHit> l3FloodBitmap(DataPath& path, U32 floodId) {
  const U32* words = path.rowAt("L3FloodBitmap", 0, floodId);
  if (!words) return std::nullopt;
  return PortMaskHit{VelaSwitch::IngressPortMask(Bits(words, 2).next(path.profile().ports()))};
}

std::optional<L3LagHit> l3Lag(DataPath& path, U32 index) {
  const U32* words = path.rowAt("L3Lag", 0, index);
  if (!words) return std::nullopt;
  Bits row(words, 2);
  const VelaSwitch::IngressPortMask mask(row.next(path.profile().ports() + 1));
  return L3LagHit{mask, row.flag()};
}

}  // namespace VelaDevice
