#include "agent/HashedLevel.h"

namespace VelaAgent {

using Ipnet::IpPrefix;
using VelaSwitchTable::EntryCellIndex;
using VelaSwitchTable::EntryCellResult;
using VelaSwitchTable::LpmResult;

HashedLevel::HashedLevel(VelaSwitchTable::LpmTable& routes, RoutesListener disowned,
                         Orb::Ptr<VelaSwitchTable::LpmBaseTable> table)
    : RouteLevel(routes, std::move(disowned)), table_(std::move(table)) {
  table_->tableStatusIs()->entryStatuses().observerIs(this);
  table_->claimObserverIs(&claims_);
}

HashedLevel::~HashedLevel() {
  table_->claimObserverDel(&claims_);
  table_->tableStatusIs()->entryStatuses().observerDel(this);
}

RouteKey HashedLevel::keyOf(const RouteKey& route) {
  constexpr U8 step = VelaSwitchTable::LpmLevel::prefixRange + 1;
  const U8 len = route.prefix().len();
  const U8 base = static_cast<U8>(len - len % step);
  return {route.vrf(), IpPrefix(route.prefix().address(), base)};
}

RouteKey HashedLevel::routeOf(const RouteKey& key, U32 node) {
  return {key.vrf(), longer(key.prefix(), Tree::extra(node), Tree::bits(node))};
}

RouteLevel::Routes HashedLevel::routesAt(const RouteKey& key) const {
  Routes routes;
  if (const Group* group = groups_.find(key)) {
    group->tree.forEachRoute([&](U32 node) { routes.push_back(routeOf(key, node)); });
  }
  return routes;
}

void HashedLevel::routeIs(const RouteKey& route, const LpmResult* result, RouteChange change) {
  const RouteKey key = keyOf(route);
  Group& group = *groups_.insert(key).first;
  const U8 base = key.prefix().len();
  const U32 node =
      Tree::node(static_cast<U8>(route.prefix().len() - base), bitsBehind(route.prefix(), base));
  if (result) {
    group.tree.is(node, routeNexthop(*result));
  } else {
    group.tree.del(node);
  }
  if (change == RouteChange::guessed) {
    if (!group.tree.empty()) return giveStatus(key, group);
    groups_.erase(key);
    return;
  }
  if (change == RouteChange::desired) group.claimed = true;
  const bool claimed = group.claimed;
  if (!group.tree.empty()) {
    if (claimed) program(key, group);
    return;
  }
  groups_.erase(key);
  if (claimed || table_->unclaimed(key)) table_->entryDel(key);
}

void HashedLevel::tryAgain(const RouteKey& route, const LpmResult&) {
  const RouteKey key = keyOf(route);
  Group& group = *groups_.find(key);
  group.claimed = true;
  program(key, group);
}

/// What the routes of a key make of its cells.
LpmResult HashedLevel::resultOf(const RouteKey& key, const Tree& tree) {
  LpmResult result;
  for (U8 cell = 0; cell < EntryCellIndex::count; ++cell) {
    const U32 owner = tree.ownerOfCell(cell);
    if (owner == Tree::none) continue;
    const U8 realLength = static_cast<U8>(key.prefix().len() + Tree::extra(owner));
    result.cellResultIs(EntryCellIndex(cell), cellOf(tree.nexthop(owner), realLength));
  }
  return result;
}

bool HashedLevel::inHardware(const RouteKey& key) const {
  const auto status = table_->tableStatusIs()->entryStatus(key);
  return status && status->status() == Status::programmed && !table_->hwInconsistentEntry(key);
}

void HashedLevel::program(const RouteKey& key, const Group& group) {
  const LpmResult result = resultOf(key, group.tree);
  statusSeen_ = false;
  {
    const Writing writing(*this);
    if (!table_->entryIs(key, result) && !inHardware(key)) table_->handleEntry(key);
  }
  if (!statusSeen_) giveStatus(key, group);
}

void HashedLevel::handleKey(const RouteKey& key) {
  const Group* group = groups_.find(key);
  if (!group) return;
  statusSeen_ = true;
  giveStatus(key, *group);
}

/// Gives the routes of a key the status that the key has in the table.
void HashedLevel::giveStatus(const RouteKey& key, const Group& group) {
  const auto entryStatus = table_->tableStatusIs()->entryStatus(key);
  VelaSwitchTable::LpmStatus status;
  if (entryStatus) {
    status.status = entryStatus->status();
    status.lastHit = entryStatus->lastHit();
  }
  group.tree.forEachRoute([&](U32 node) {
    status.key = routeOf(key, node);
    routes().entryStatusIs(status);
  });
}

/// The cells of a key are the trace of routes only when those routes would make the same cells.
void HashedLevel::forEachGuess(const Guess& visit) const {
  for (const RouteKey& key : table_->entries().keys()) {
    const LpmResult result = *table_->entry(key);
    if (result.cpuTrap()) continue;
    Tree guess;
    for (U32 i = 0; i < EntryCellIndex::count; ++i) {
      const EntryCellResult& cell = result.cells()[i];
      if (!cell.valid()) continue;
      const U8 extra = static_cast<U8>(cell.realPrefixLen() - key.prefix().len());
      guess.is(Tree::node(extra, i >> (cellBits - extra)), cell.nexthopIndexes());
    }
    if (resultOf(key, guess) != result) continue;
    guess.forEachRoute([&](U32 node) { visit(routeOf(key, node), guess.nexthop(node)); });
  }
}

RouteLevel::Routes HashedLevel::disownedBy(const RouteKey& key) const {
  const Group* group = groups_.find(key);
  return group && !group->claimed ? routesAt(key) : Routes{};
}

U64 HashedLevel::programmedCells() const {
  U64 count = 0;
  groups_.forEach([&](const RouteKey& key, const Group& group) {
    if (group.claimed && inHardware(key)) ++count;
  });
  return count;
}

}  // namespace VelaAgent
