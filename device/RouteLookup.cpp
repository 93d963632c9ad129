#include <bit>
#include <optional>

#include "device/Search.h"

namespace VelaDevice {

/// A stage of the route lookup that is found by hash.
struct DataPath::HashedStage {
  const char* family;
  U32 base;  ///< Address bits of the key.
  U32 hashedBits;
  U32 hashWidth;
};

namespace {

constexpr DataPath::HashedStage stages[] = {
    {"Lpm32", 30, 35, 12}, {"Lpm29", 27, 41, 12}, {"Lpm26", 24, 29, 12}, {"Lpm23", 21, 26, 10},
    {"Lpm20", 18, 23, 10}, {"Lpm17", 15, 20, 10}, {"Lpm14", 12, 17, 10},
};

constexpr U32 ways = 2;
constexpr U32 polynomials10[ways] = {0x06f, 0x0f3};
constexpr U32 polynomials12[ways] = {0x0eb, 0x161};
constexpr U32 polynomials13[] = {0x0bb, 0x13b, 0x197};

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

}  // namespace

/// The row of a hashed stage that holds the key, and where its cells begin.
struct DataPath::StageRow {
  SimulatedSwitch::Table* table;
  U32 index;
  Bits cells;
};

std::optional<DataPath::StageRow> DataPath::stageRow(const HashedStage& stage, U32 vrf,
                                                     U32 address) {
  Bits key;
  key.appendNumber(U64{vrf} << stage.base | address >> (32 - stage.base), stage.hashedBits);
  const U32 storedBits = stage.base - stage.hashWidth;
  const bool shared = stage.hashedBits == 41;
  Bits found;
  const auto match = [&](Bits row) {
    if (row.next(storedBits) != address >> (32 - storedBits)) return false;
    if (row.next(vrfBits()) != vrf) return false;
    if (shared && row.next(sharedStageWidth - storedBits - vrfBits()) != 0) return false;
    if (!row.flag()) return false;
    found = row;
    return true;
  };
  SimulatedSwitch::Table* table = chip_.find(stage.family, 0, 0);
  const auto index = stage.hashWidth == 10
                         ? search(stage.family, table, polynomials10, 10, key, match)
                         : search(stage.family, table, polynomials12, 12, key, match);
  if (!index) return std::nullopt;
  return StageRow{table, *index, found};
}

U32 DataPath::vrfBits() const { return static_cast<U32>(std::bit_width(profile_.vrfs())) - 1; }

std::optional<LpmRowHit> DataPath::lpmRow(std::string_view family, U32 vrf, Ipnet::IpAddr address) {
  for (const HashedStage& stage : stages) {
    if (family != stage.family) continue;
    auto row = stageRow(stage, vrf, address.number());
    if (!row) return std::nullopt;
    row->table->hit(row->index) = 1;
    LpmRowHit hit;
    for (int i = 0; i < 4; ++i) hit.cells.value.push_back(nextCell(row->cells, stage.base + 2));
    hit.cpuTrap = row->cells.flag();
    return hit;
  }
  return std::nullopt;
}

std::optional<Lpm11Hit> DataPath::lpm11(U32 vrf, Ipnet::IpAddr address) {
  const U32* words = rowAt("Lpm11", 0, vrf << 11 | address.number() >> 21);
  if (!words) return std::nullopt;
  Bits row(words, 1);
  const U64 nexthop = row.next(12);
  if (!row.flag()) {
    refuse("the row is empty");
    return std::nullopt;
  }
  Lpm11Hit hit;
  if (profile_.hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u}) {
    hit.cpuTrap = row.flag();
    row.skip(1);
    const U64 lacking = row.next(4);
    std::optional<U8> length;
    if (lacking != 0) length = static_cast<U8>(12 - lacking);
    hit.cellResult = routeHit(nexthop, length);
  } else {
    row.skip(2);
    hit.cpuTrap = row.flag();
    hit.cellResult = routeHit(nexthop, std::nullopt);
  }
  return hit;
}

std::optional<RouteHit> DataPath::route(U32 vrf, Ipnet::IpAddr address) {
  for (const HashedStage& stage : stages) {
    auto row = stageRow(stage, vrf, address.number());
    if (!row) continue;
    row->cells.skip(14 * (address.number() >> (30 - stage.base) & 3));
    const auto cell = nextCell(row->cells, stage.base + 2);
    if (!cell) {
      refuse("the row holds no route that covers the address");
      continue;
    }
    row->table->hit(row->index) = 1;
    return cell;
  }
  const auto first = lpm11(vrf, address);
  if (!first) return std::nullopt;
  if (first->cellResult().l3LagIndex() != noLag) return first->cellResult();
  refuse("the row has no next hop");
  return std::nullopt;
}

std::optional<MrouteHit> DataPath::sg(const VelaSwitch::MrouteKey& key) {
  SimulatedSwitch::Table* table = chip_.find("SG", 0, 0);
  const U32 group = key.group().number() & 0x0FFFFFFF;
  Bits hashed;
  hashed.append(group, 28);
  hashed.append(key.source().number(), 32);
  hashed.append(key.vlanId().value(), 12);
  const bool wide = profile_.fields().mrouteWideFlags();
  MrouteHit hit;
  const auto index = search("SG", table, polynomials13, 13, hashed, [&](Bits row) {
    if (row.next(15) != group >> 13 || row.next(32) != key.source().number()) return false;
    if (row.next(12) != key.vlanId().value()) return false;
    row.skip(wide ? 1 : 0);
    if (!row.flag()) return false;
    hit.vlanGroupId = static_cast<U8>(row.next(4));
    hit.portMask = VelaSwitch::IngressPortMask(row.next(profile_.ports() + 1));
    return true;
  });
  if (!index) return std::nullopt;
  table->hit(*index) = 1;
  return hit;
}

std::optional<MrouteHit> DataPath::starG(const VelaSwitch::MrouteKey& key) {
  SimulatedSwitch::Table* table = chip_.find("Lpm29", 0, 0);
  const U32 group = key.group().number() & 0x0FFFFFFF;
  Bits hashed;
  hashed.appendNumber(1, 1);
  hashed.appendNumber(key.vlanId().value(), 12);
  hashed.appendNumber(group, 28);
  MrouteHit hit;
  const auto index = search("StarG", table, polynomials12, 12, hashed, [&](Bits row) {
    if (row.next(16) != group >> 12 || row.next(12) != key.vlanId().value()) return false;
    const bool multicast = row.flag();
    const bool valid = row.flag();
    if (!multicast || !valid) return false;
    hit.vlanGroupId = static_cast<U8>(row.next(4));
    hit.portMask = VelaSwitch::IngressPortMask(row.next(profile_.ports() + 1));
    return true;
  });
  if (!index) return std::nullopt;
  table->hit(*index) = 1;
  return hit;
}

std::optional<MrouteHit> DataPath::multicast(const VelaSwitch::MrouteKey& key) {
  const auto hit = sg(key);
  return hit ? hit : starG(key);
}

}  // namespace VelaDevice
