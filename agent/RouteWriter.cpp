#include "agent/RouteWriter.h"

#include <algorithm>

namespace VelaAgent {

using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using VelaSwitch::NexthopIndexes;
using VelaSwitchApi::HwIndex;
using VelaSwitchTable::EntryCellIndex;
using VelaSwitchTable::EntryCellResult;
using VelaSwitchTable::LpmBaseTable;
using VelaSwitchTable::LpmLevel;
using VelaSwitchTable::LpmResult;
using VelaSwitchTable::MaskLength;

namespace {

constexpr U8 firstKeyLength = VelaSwitchTable::Lpm11Family::keyLength;
/// Where whole routes keep their next hop.
const EntryCellIndex routeCell(0);

/// The bits of the route's address from `from` on, up to its length.
U32 bitsBehind(const IpPrefix& prefix, U8 from) {
  if (prefix.len() == from) return 0;
  const U32 behind = from == 0 ? prefix.address().number() : prefix.address().number() << from;
  return behind >> (32 - (prefix.len() - from));
}

/// The prefix of `base`, made longer by `extra` bits.
IpPrefix longer(const IpPrefix& base, U8 extra, U32 bits) {
  const U8 len = static_cast<U8>(base.len() + extra);
  const U32 behind = len == 0 ? 0 : bits << (32 - len);
  return {IpAddr(base.address().number() | behind), len};
}

/// The node of a route that the first level holds.
U32 firstNode(const VelaSwitch::LpmKey& route) {
  return RouteTree<firstKeyLength>::node(route.prefix().len(), bitsBehind(route.prefix(), 0));
}

VelaSwitch::LpmKey firstKey(U8 vrf, U32 cell) {
  return {vrf, IpPrefix(IpAddr(cell << (32 - firstKeyLength)), firstKeyLength)};
}

EntryCellResult cellOf(NexthopIndexes nexthop, U8 realPrefixLen) {
  EntryCellResult cell;
  cell.nexthopIndexes = nexthop;
  cell.realPrefixLen = realPrefixLen;
  return cell;
}

}  // namespace

RouteWriter::RouteWriter(Orb::Ptr<VelaSwitchTable::LpmTable> routes,
                         Orb::Ptr<VelaSwitchTable::Lpm11Table> firstLevel,
                         std::vector<Orb::Ptr<LpmBaseTable>> levels)
    : routes_(std::move(routes)), first_(std::move(firstLevel)) {
  firstGroups_.resize(first_->profile().vrfs());
  for (auto& table : levels) {
    auto level = std::make_unique<Level>(*this, std::move(table));
    level->table->tableStatusIs()->entryStatuses().observerIs(level.get());
    level->table->claimObserverIs(&level->claims);
    levels_.push_back(std::move(level));
  }
  first_->claimObserverIs(&firstClaims_);
  routes_->entries().observerIs(this);
}

RouteWriter::~RouteWriter() {
  routes_->entries().observerDel(this);
  first_->claimObserverDel(&firstClaims_);
  for (const auto& level : levels_) {
    level->table->claimObserverDel(&level->claims);
    level->table->tableStatusIs()->entryStatuses().observerDel(level.get());
  }
}

LpmResult RouteWriter::resultOf(NexthopIndexes nexthop, U8 prefixLen) {
  LpmResult result;
  result.cellResultIs(routeCell, cellOf(nexthop, prefixLen));
  return result;
}

NexthopIndexes RouteWriter::nexthopOf(const LpmResult& result) {
  return result.cellResult(routeCell).nexthopIndexes();
}

RouteWriter::Level& RouteWriter::levelFor(U8 prefixLen) const {
  constexpr U8 step = LpmLevel::prefixRange + 1;
  return *levels_[static_cast<std::size_t>(prefixLen - firstKeyLength - 1) / step];
}

LpmBaseTable* RouteWriter::levelOf(U8 prefixLen) const {
  return prefixLen <= firstKeyLength ? nullptr : levelFor(prefixLen).table.get();
}

VelaSwitchApi::SwTable& RouteWriter::tableOf(U8 prefixLen) const {
  if (LpmBaseTable* level = levelOf(prefixLen)) return *level;
  return *first_;
}

std::vector<RouteWriter::Key> RouteWriter::routesAt(const VelaSwitchApi::SwTable& level,
                                                    const Key& key) const {
  if (&level == first_.get()) {
    const FirstTree& tree = firstGroups_[key.vrf()].tree;
    const U32 owner = tree.ownerOfCell(key.prefix().address().number() >> (32 - firstKeyLength));
    if (owner == FirstTree::none) return {};
    return {firstRoute(key.vrf(), owner)};
  }
  for (const auto& each : levels_) {
    if (each->table.get() != &level) continue;
    const Group* group = each->groups.find(key);
    return group ? routesOf(key, *group) : std::vector<Key>{};
  }
  return {};
}

/// The route of a node of the first level.
RouteWriter::Key RouteWriter::firstRoute(U8 vrf, U32 node) {
  return {vrf, longer(IpPrefix(), FirstTree::extra(node), FirstTree::bits(node))};
}

/// The routes of a key of a hashed level.
std::vector<RouteWriter::Key> RouteWriter::routesOf(const Key& key, const Group& group) {
  std::vector<Key> routes;
  group.tree.forEachRoute([&](U32 node) {
    routes.push_back({key.vrf(), longer(key.prefix(), Tree::extra(node), Tree::bits(node))});
  });
  return routes;
}

RouteWriter::Key RouteWriter::levelKey(const Key& route) {
  constexpr U8 step = LpmLevel::prefixRange + 1;
  const U8 len = route.prefix().len();
  const U8 base = static_cast<U8>(len - len % step);
  return {route.vrf(), IpPrefix(route.prefix().address(), base)};
}

void RouteWriter::handleKey(const Key& route) {
  const LpmResult* announced = routes_->entry(route);
  const bool trap = announced && announced->cpuTrap();
  const LpmResult* result = trap ? nullptr : announced;
  if (route.prefix().len() <= firstKeyLength) {
    writeFirst(route, result);
  } else {
    writeHashed(levelFor(route.prefix().len()), route, result);
  }
  if (!announced) {
    unclaimed_.erase(route);
    routes_->entryStatusDel(route);
  }
  if (!trap) return;
  // A key of a level holds several routes, and has one flag for them all.
  VelaSwitchTable::LpmTable::trace(3, "not programming a route with cpuTrap: ", route);
  routes_->entryStatusIs(VelaSwitchTable::LpmStatus(route));
}

void RouteWriter::handleRoute(const Key& route) {
  const LpmResult* result = routes_->entry(route);
  if (!result || result->cpuTrap()) return;
  const U8 len = route.prefix().len();
  if (len > firstKeyLength) {
    Level& level = levelFor(len);
    const Key key = levelKey(route);
    Group& group = *level.groups.find(key);
    group.claimed = true;
    programGroup(level, key, group);
    return;
  }
  writeFirst(route, result);
  // What was desired before and is not in hardware changes no entry: it takes another try.
  const FirstGroup& group = firstGroups_[route.vrf()];
  group.tree.forEachCell(firstNode(route), [&](U32 cell) {
    const Key key = firstKey(route.vrf(), cell);
    if (first_->hwInconsistentEntry(key)) first_->handleEntry(key);
  });
  refreshFirst(route);
}

// The first level.

void RouteWriter::writeFirst(const Key& route, const LpmResult* result) {
  const U32 node = firstNode(route);
  FirstTree& tree = firstGroups_[route.vrf()].tree;
  if (result) {
    tree.is(node, result->cellResult(routeCell).nexthopIndexes());
  } else {
    tree.del(node);
  }
  if (!taking_) writeFirstCells(route.vrf(), node);
  if (result) refreshFirst(route);
}

void RouteWriter::writeFirstCells(U8 vrf, U32 node) {
  FirstGroup& group = firstGroups_[vrf];
  const U32 owner = group.tree.owner(node);
  VelaSwitchTable::Lpm11Result result;
  if (owner != FirstTree::none) {
    const U8 length = FirstTree::extra(owner);
    EntryCellResult cell = cellOf(group.tree.nexthop(owner), length);
    cell.maskLength = MaskLength(length);
    result.cellResult = cell;
  }
  bool good = true;
  writing_ = true;
  group.tree.forEachCell(node, [&](U32 cell) {
    const Key key = firstKey(vrf, cell);
    const bool ours = !releasing_ || group.claimed[cell] || first_->unclaimed(key);
    if (!ours && owner == FirstTree::none) return;
    group.claimed[cell] = true;
    if (owner == FirstTree::none) {
      first_->entryDel(key);
    } else {
      first_->entryIs(key, result);
      good = good && !first_->hwInconsistentEntry(key);
    }
  });
  writing_ = false;
  if (good || owner == FirstTree::none) return;
  refreshFirst(firstRoute(vrf, owner));
}

RouteWriter::Status RouteWriter::firstStatus(const Key& route) const {
  bool good = true;
  const U32 node = firstNode(route);
  firstGroups_[route.vrf()].tree.forEachCell(node, [&](U32 cell) {
    const Key key = firstKey(route.vrf(), cell);
    good = good && first_->entry(key) && !first_->hwInconsistentEntry(key);
  });
  return good ? Status::programmed : Status::hardwareError;
}

void RouteWriter::refreshFirst(const Key& route) {
  VelaSwitchTable::LpmStatus status(route);
  status.status = firstStatus(route);
  const auto at = std::find(troubled_.begin(), troubled_.end(), route);
  if (status.status == Status::programmed) {
    if (at != troubled_.end()) troubled_.erase(at);
  } else if (at == troubled_.end()) {
    troubled_.push_back(route);
  }
  routes_->entryStatusIs(status);
}

// The hashed levels.

void RouteWriter::writeHashed(Level& level, const Key& route, const LpmResult* result) {
  const Key key = levelKey(route);
  Group& group = *level.groups.insert(key).first;
  const U8 base = key.prefix().len();
  const U32 node =
      Tree::node(static_cast<U8>(route.prefix().len() - base), bitsBehind(route.prefix(), base));
  if (result) {
    group.tree.is(node, result->cellResult(routeCell).nexthopIndexes());
  } else {
    group.tree.del(node);
  }
  if (taking_) {
    if (!group.tree.empty()) return statusIs(level, key, group);
    level.groups.erase(key);
    return;
  }
  if (!releasing_) group.claimed = true;
  const bool claimed = group.claimed;
  if (!group.tree.empty()) {
    if (claimed) programGroup(level, key, group);
    return;
  }
  level.groups.erase(key);
  if (claimed || level.table->unclaimed(key)) level.table->entryDel(key);
}

/// What the routes of a key make of its cells.
LpmResult RouteWriter::resultOf(const Key& key, const Group& group) {
  LpmResult result;
  for (U8 cell = 0; cell < EntryCellIndex::count; ++cell) {
    const U32 owner = group.tree.ownerOfCell(cell);
    if (owner == Tree::none) continue;
    const U8 realLength = static_cast<U8>(key.prefix().len() + Tree::extra(owner));
    result.cellResultIs(EntryCellIndex(cell), cellOf(group.tree.nexthop(owner), realLength));
  }
  return result;
}

void RouteWriter::programGroup(Level& level, const Key& key, const Group& group) {
  const LpmResult result = resultOf(key, group);
  statusSeen_ = false;
  writing_ = true;
  if (!level.table->entryIs(key, result)) {
    const auto* status = level.table->tableStatusIs()->entryStatus(key);
    if (!status || status->status() != Status::programmed ||
        level.table->hwInconsistentEntry(key)) {
      level.table->handleEntry(key);
    }
  }
  writing_ = false;
  if (!statusSeen_) statusIs(level, key, group);
}

void RouteWriter::statusChanged(Level& level, const Key& key) {
  const Group* group = level.groups.find(key);
  if (!group) return;
  statusSeen_ = true;
  statusIs(level, key, *group);
}

/// Gives the routes of a key the status that the key has in its level.
void RouteWriter::statusIs(Level& level, const Key& key, const Group& group) {
  const auto* entryStatus = level.table->tableStatusIs()->entryStatus(key);
  VelaSwitchTable::LpmStatus status;
  if (entryStatus) {
    status.status = entryStatus->status();
    status.lastHit = entryStatus->lastHit();
  }
  group.tree.forEachRoute([&](U32 node) {
    status.key = {key.vrf(), longer(key.prefix(), Tree::extra(node), Tree::bits(node))};
    routes_->entryStatusIs(status);
  });
}

void RouteWriter::retry() {
  if (troubled_.empty()) return;
  const std::vector<Key> troubled = troubled_;
  for (const Key& route : troubled) {
    if (routes_->entry(route)) refreshFirst(route);
  }
  std::erase_if(troubled_, [&](const Key& route) { return !routes_->entry(route); });
}

bool RouteWriter::marked(const Key& route) const {
  if (const LpmBaseTable* level = levelOf(route.prefix().len())) {
    return level->hwInconsistentEntry(levelKey(route));
  }
  return firstStatus(route) != Status::programmed;
}

// After a restart.

void RouteWriter::take(const Key& route, NexthopIndexes nexthop) {
  *unclaimed_.insert(route).first = true;
  routes_->entryIs(route, resultOf(nexthop, route.prefix().len()));
}

void RouteWriter::rebuild() {
  taking_ = true;
  rebuildFirst();
  for (const auto& level : levels_) rebuildHashed(*level);
  taking_ = false;
}

/// A row is the trace of a route of its mask length only when all rows of that route that no longer
/// route owns say the same: other rows were announced on their own.
void RouteWriter::rebuildFirst() {
  std::vector<FirstTree> guesses(firstGroups_.size());
  const auto node = [&](const Key& key, const EntryCellResult& cell) {
    const U8 mask = cell.maskLength().value();
    const U8 length = mask <= firstKeyLength ? mask : firstKeyLength;
    return firstNode({key.vrf(), IpPrefix(key.prefix().address(), length)});
  };
  /// What the row says of a route, or null.
  const auto said = [&](const Key& key) -> const EntryCellResult* {
    const VelaSwitchTable::Lpm11Result* row = first_->entry(key);
    return row && row->cellResult().valid() && !row->cpuTrap() ? &row->cellResult() : nullptr;
  };
  for (const Key& key : first_->entries().keys()) {
    const EntryCellResult* cell = said(key);
    if (cell) guesses[key.vrf()].is(node(key, *cell), cell->nexthopIndexes());
  }
  for (std::size_t vrf = 0; vrf < guesses.size(); ++vrf) {
    FirstTree& tree = guesses[vrf];
    // From the longest on: what turns out to be none is no excuse for a shorter one.
    for (U32 guess = 2 * FirstTree::cells - 1; guess != FirstTree::none; --guess) {
      if (!tree.has(guess)) continue;
      bool agreed = true;
      tree.forEachCell(guess, [&](U32 at) {
        const Key key = firstKey(static_cast<U8>(vrf), at);
        const EntryCellResult* cell = said(key);
        agreed = agreed && cell && node(key, *cell) == guess &&
                 cell->nexthopIndexes() == tree.nexthop(guess);
      });
      if (!agreed) tree.del(guess);
    }
    tree.forEachRoute(
        [&](U32 guess) { take(firstRoute(static_cast<U8>(vrf), guess), tree.nexthop(guess)); });
  }
}

/// The cells of a key are the trace of routes only when those routes would make the same cells.
void RouteWriter::rebuildHashed(Level& level) {
  for (const Key& key : level.table->entries().keys()) {
    const LpmResult result = *level.table->entry(key);
    if (result.cpuTrap()) continue;
    const U8 base = key.prefix().len();
    Group guess;
    for (U32 i = 0; i < EntryCellIndex::count; ++i) {
      const EntryCellResult& cell = result.cells()[i];
      if (!cell.valid()) continue;
      const U8 extra = static_cast<U8>(cell.realPrefixLen() - base);
      guess.tree.is(Tree::node(extra, i >> (cellBits - extra)), cell.nexthopIndexes());
    }
    if (resultOf(key, guess) != result) continue;
    guess.tree.forEachRoute([&](U32 node) {
      take({key.vrf(), longer(key.prefix(), Tree::extra(node), Tree::bits(node))},
           guess.tree.nexthop(node));
    });
  }
}

void RouteWriter::claim(const Key& route) {
  if (unclaimed_.empty() || !unclaimed_.erase(route)) return;
  handleRoute(route);
}

/// Where registers do not tell a route's length, each of its rows was taken for a route of its own.
/// Those that lead where the route around them does were this one. Not known before all routes are:
/// one between the two may have another next hop.
void RouteWriter::complete() {
  std::vector<Key> explained;
  unclaimed_.forEach([&](const Key& key, bool) {
    if (key.prefix().len() != firstKeyLength) return;
    const VelaSwitchTable::Lpm11Result* row = first_->entry(key);
    if (!row || row->cellResult().maskLength().value() != MaskLength::null) return;
    const FirstTree& tree = firstGroups_[key.vrf()].tree;
    const U32 around = tree.owner(firstNode(key) >> 1);
    if (around != FirstTree::none && tree.nexthop(around) == row->cellResult().nexthopIndexes()) {
      explained.push_back(key);
    }
  });
  forget(explained);
  for (const Key& key : explained) writeFirstCells(key.vrf(), firstNode(key));
}

U32 RouteWriter::releaseUnclaimed(const std::function<void(const Key&)>& removing) {
  std::vector<Key> released;
  unclaimed_.forEach([&](const Key& route, bool) { released.push_back(route); });
  std::sort(released.begin(), released.end());
  unclaimed_.clear();
  releasing_ = true;
  for (const Key& route : released) {
    if (removing) removing(route);
    routes_->entryDel(route);
  }
  releasing_ = false;
  return static_cast<U32>(released.size());
}

/// A key was announced that routes had been guessed from: it is not theirs.
void RouteWriter::keyClaimed(Level& level, const Key& key) {
  const Group* group = level.groups.find(key);
  if (writing_ || !group || group->claimed) return;
  forget(routesOf(key, *group));
}

/// A route of the first level stays as long as one of its keys is nobody else's.
void RouteWriter::firstKeyClaimed(const Key& key) {
  const FirstGroup& group = firstGroups_[key.vrf()];
  const U32 cell = key.prefix().address().number() >> (32 - firstKeyLength);
  const U32 owner = group.tree.ownerOfCell(cell);
  if (writing_ || owner == FirstTree::none || group.claimed[cell]) return;
  bool left = false;
  group.tree.forEachCell(
      owner, [&](U32 each) { left = left || first_->unclaimed(firstKey(key.vrf(), each)); });
  if (left) return;
  forget({firstRoute(key.vrf(), owner)});
}

/// Routes that nobody announced go, and their keys stay as they are.
void RouteWriter::forget(const std::vector<Key>& routes) {
  taking_ = true;
  for (const Key& route : routes) {
    if (unclaimed_.erase(route)) routes_->entryDel(route);
  }
  taking_ = false;
}

U64 RouteWriter::programmedCells() const {
  U64 count = 0;
  for (std::size_t vrf = 0; vrf < firstGroups_.size(); ++vrf) {
    const FirstGroup& group = firstGroups_[vrf];
    for (U32 cell = 0; cell < FirstTree::cells; ++cell) {
      if (!group.claimed[cell] || group.tree.ownerOfCell(cell) == FirstTree::none) continue;
      const Key key = firstKey(static_cast<U8>(vrf), cell);
      if (first_->entry(key) && !first_->hwInconsistentEntry(key)) ++count;
    }
  }
  for (const auto& level : levels_) {
    level->groups.forEach([&](const Key& key, const Group& group) {
      const auto* status = level->table->tableStatusIs()->entryStatus(key);
      if (group.claimed && status && status->status() == Status::programmed &&
          !level->table->hwInconsistentEntry(key)) {
        ++count;
      }
    });
  }
  return count;
}

}  // namespace VelaAgent
