#include "VelaRoutes/FirstLevel.h"

#include <algorithm>

namespace VelaRoutes {

using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using VelaSwitchTable::EntryCellResult;
using VelaSwitchTable::Lpm11Result;
using VelaSwitchTable::MaskLength;

namespace {

using Tree = VelaSwitch::RouteTree<FirstLevel::keyLength>;

U32 nodeOf(const RouteKey& route) { return Tree::nodeOf(route.prefix(), 0); }

RouteKey routeOf(U8 vrf, U32 node) { return {vrf, Tree::prefixOf(IpPrefix(), node)}; }

U32 cellOfKey(const RouteKey& key) {
  return key.prefix().address().number() >> (32 - FirstLevel::keyLength);
}

RouteKey keyOf(U8 vrf, U32 cell) {
  return {vrf, IpPrefix(IpAddr(cell << (32 - FirstLevel::keyLength)), FirstLevel::keyLength)};
}

/// The node of the route that a row says it belongs to.
U32 nodeSaid(const RouteKey& key, const EntryCellResult& cell) {
  const U8 mask = cell.maskLength().value();
  const U8 length = std::min(mask, FirstLevel::keyLength);
  return nodeOf({key.vrf(), IpPrefix(key.prefix().address(), length)});
}

}  // namespace

FirstLevel::FirstLevel(LpmTable& routes, RoutesListener disowned,
                       Orb::Ptr<VelaSwitchTable::Lpm11Table> table)
    : RouteLevel(routes, std::move(disowned)), table_(std::move(table)) {
  groups_.resize(table_->profile().vrfs());
  table_->claimObserverIs(&claims_);
}

FirstLevel::~FirstLevel() { table_->claimObserverDel(&claims_); }

RouteLevel::Routes FirstLevel::routesAt(const RouteKey& key) const {
  const U32 owner = groups_[key.vrf()].tree.ownerOfCell(cellOfKey(key));
  if (owner == Tree::none) return {};
  return {routeOf(key.vrf(), owner)};
}

void FirstLevel::handleRoute(LpmRoutes& shared, U32 node, RouteChange change) {
  const RouteKey route = shared.routeOf(node);
  const bool there = shared.tree.has(node);
  Tree& tree = groups_[route.vrf()].tree;
  if (there) {
    tree.is(nodeOf(route), shared.tree.nexthop(node));
  } else {
    tree.del(nodeOf(route));
  }
  if (change != RouteChange::guessed) writeCellsOf(route, change);
  if (there) refresh(route);
}

void FirstLevel::tryAgain(LpmRoutes& shared, U32 node) {
  const RouteKey route = shared.routeOf(node);
  handleRoute(shared, node, RouteChange::desired);
  // What was desired before and is not in hardware changes no entry: it takes another try.
  groups_[route.vrf()].tree.forEachCell(nodeOf(route), [&](U32 cell) {
    const RouteKey key = keyOf(route.vrf(), cell);
    if (table_->hwInconsistentEntry(key)) table_->handleEntry(key);
  });
  refresh(route);
}

/// The row of each cell that the node owns.
Lpm11Result FirstLevel::rowOf(const Tree& tree, U32 owner) const {
  Lpm11Result result;
  if (owner == Tree::none) return result;
  const U8 length = Tree::extra(owner);
  EntryCellResult cell = cellOf(tree.nexthop(owner), length);
  cell.maskLength = MaskLength(length);
  result.cellResult = cell;
  return result;
}

void FirstLevel::writeCellsOf(const RouteKey& route, RouteChange change) {
  Group& group = groups_[route.vrf()];
  const U32 owner = group.tree.owner(nodeOf(route));
  const Lpm11Result result = rowOf(group.tree, owner);
  bool good = true;
  {
    const Writing writing(*this);
    group.tree.forEachCell(nodeOf(route), [&](U32 cell) {
      const RouteKey key = keyOf(route.vrf(), cell);
      const bool ours =
          change != RouteChange::released || group.claimed[cell] || table_->unclaimed(key);
      if (!ours && owner == Tree::none) return;
      group.claimed[cell] = true;
      if (owner == Tree::none) {
        table_->entryDel(key);
      } else {
        table_->entryIs(key, result);
        good = good && !table_->hwInconsistentEntry(key);
      }
    });
  }
  if (good || owner == Tree::none) return;
  refresh(routeOf(route.vrf(), owner));
}

RouteLevel::Status FirstLevel::status(const RouteKey& route) const {
  bool good = true;
  groups_[route.vrf()].tree.forEachCell(nodeOf(route), [&](U32 cell) {
    const RouteKey key = keyOf(route.vrf(), cell);
    good = good && table_->entry(key) && !table_->hwInconsistentEntry(key);
  });
  return good ? Status::programmed : Status::hardwareError;
}

bool FirstLevel::troubled(const RouteKey& route) const {
  return std::find(troubled_.begin(), troubled_.end(), route) != troubled_.end();
}

void FirstLevel::stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const {
  status.status = troubled(shared.routeOf(node)) ? Status::hardwareError : Status::programmed;
}

void FirstLevel::refresh(const RouteKey& route) {
  const bool good = status(route) == Status::programmed;
  if (good != troubled(route)) return;
  if (good) {
    std::erase(troubled_, route);
  } else {
    troubled_.push_back(route);
  }
  routes().handleStatus(route);
}

void FirstLevel::retryTroubled() {
  std::erase_if(troubled_,
                [&](const RouteKey& route) { return !routes().has(LpmRoutes::desired, route); });
  for (const RouteKey& route : Routes(troubled_)) refresh(route);
}

/// What the row says of a route, or null.
const EntryCellResult* FirstLevel::said(const RouteKey& key) const {
  const Lpm11Result* row = table_->entry(key);
  return row && row->cellResult().valid() && !row->cpuTrap() ? &row->cellResult() : nullptr;
}

/// Whether all rows of the route that no longer one owns say the same.
bool FirstLevel::agreed(const Tree& guesses, U8 vrf, U32 guess) const {
  bool agreed = true;
  guesses.forEachCell(guess, [&](U32 at) {
    const RouteKey key = keyOf(vrf, at);
    const EntryCellResult* cell = said(key);
    agreed = agreed && cell && nodeSaid(key, *cell) == guess &&
             cell->nexthopIndexes() == guesses.nexthop(guess);
  });
  return agreed;
}

/// A row is the trace of a route of its mask length only when all rows of that route agree: other
/// rows were announced on their own.
void FirstLevel::forEachGuess(const Guess& visit) const {
  std::vector<Tree> guesses(groups_.size());
  for (const RouteKey& key : table_->entries().keys()) {
    const EntryCellResult* cell = said(key);
    if (cell) guesses[key.vrf()].is(nodeSaid(key, *cell), cell->nexthopIndexes());
  }
  for (std::size_t i = 0; i < guesses.size(); ++i) {
    Tree& tree = guesses[i];
    const auto vrf = static_cast<U8>(i);
    // From the longest on: what turns out to be none is no excuse for a shorter one.
    for (U32 guess = 2 * Tree::cells - 1; guess != Tree::none; --guess) {
      if (tree.has(guess) && !agreed(tree, vrf, guess)) tree.del(guess);
    }
    tree.forEachRoute([&](U32 guess) { visit(routeOf(vrf, guess), tree.nexthop(guess)); });
  }
}

bool FirstLevel::partOfRouteAround(const RouteKey& route) const {
  if (route.prefix().len() != keyLength) return false;
  const Lpm11Result* row = table_->entry(route);
  if (!row || row->cellResult().maskLength().value() != MaskLength::null) return false;
  const Tree& tree = groups_[route.vrf()].tree;
  const U32 around = tree.owner(nodeOf(route) >> 1);
  return around != Tree::none && tree.nexthop(around) == row->cellResult().nexthopIndexes();
}

/// A route stays as long as one of its keys is nobody else's.
RouteLevel::Routes FirstLevel::disownedBy(const RouteKey& key) const {
  const Group& group = groups_[key.vrf()];
  const U32 cell = cellOfKey(key);
  const U32 owner = group.tree.ownerOfCell(cell);
  if (owner == Tree::none || group.claimed[cell]) return {};
  bool left = false;
  group.tree.forEachCell(
      owner, [&](U32 each) { left = left || table_->unclaimed(keyOf(key.vrf(), each)); });
  if (left) return {};
  return {routeOf(key.vrf(), owner)};
}

U64 FirstLevel::programmedCells() const {
  U64 count = 0;
  for (std::size_t vrf = 0; vrf < groups_.size(); ++vrf) {
    const Group& group = groups_[vrf];
    for (U32 cell = 0; cell < Tree::cells; ++cell) {
      if (!group.claimed[cell] || group.tree.ownerOfCell(cell) == Tree::none) continue;
      const RouteKey key = keyOf(static_cast<U8>(vrf), cell);
      if (table_->entry(key) && !table_->hwInconsistentEntry(key)) ++count;
    }
  }
  return count;
}

}  // namespace VelaRoutes
