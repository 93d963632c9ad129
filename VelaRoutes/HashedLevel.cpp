#include "VelaRoutes/HashedLevel.h"

#include <utility>

namespace VelaRoutes {

using VelaSwitchApi::KeyRecord;
using VelaSwitchTable::EntryCellIndex;
using VelaSwitchTable::EntryCellResult;
using VelaSwitchTable::LpmResult;

HashedLevel::HashedLevel(LpmTable& routes, RoutesListener disowned,
                         Orb::Ptr<VelaSwitchTable::LpmBaseTable> table, const Staging& staging)
    : RouteLevel(routes, std::move(disowned)), table_(std::move(table)), staging_(staging) {
  table_->tableStatusIs()->entryStatuses().observerIs(this);
  table_->claimObserverIs(&claims_);
}

HashedLevel::~HashedLevel() {
  table_->claimObserverDel(&claims_);
  table_->tableStatusIs()->entryStatuses().observerDel(this);
}

RouteLevel::Routes HashedLevel::routesAt(const RouteKey& key) const {
  Routes all;
  if (const LpmRoutes* shared = routes().routesOf(key)) {
    shared->tree.forEachRoute([&](U32 node) { all.push_back(shared->routeOf(node)); });
  }
  return all;
}

void HashedLevel::handleRoute(LpmRoutes& shared, U32, RouteChange change) {
  if (change == RouteChange::desired) shared.written = true;
  if (shared.tree.empty()) return withdraw(shared, change);
  if (shared.written && change != RouteChange::guessed) program(shared);
}

/// The last route of the key is gone.
void HashedLevel::withdraw(LpmRoutes& shared, RouteChange change) {
  const RouteKey key = shared.key;
  LpmRoutes* now = &shared;
  if (batch_ && staged(shared)) {
    // Whoever hears of a route may withdraw it while its row is staged, or announce it once more.
    batch_->flush();
    now = routes().routesOf(key);
    if (!now || !now->tree.empty()) return;
  }
  const bool written = std::exchange(now->written, false);
  if (change == RouteChange::guessed) return;
  if (!written && !table_->unclaimed(key)) return;
  // Held on to: it is to outlive its last flag.
  const Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> item = now->item;
  if (item && item->known()) {
    table_->entryDel(static_cast<Record&>(*item));
  } else {
    table_->entryDel(key);
  }
}

/// The status of a key changed. Of a new one its routes learn the record first, which is asked for
/// what became of each.
void HashedLevel::handleKey(const RouteKey& key) {
  LpmRoutes* shared = routes().routesOf(key);
  if (!shared || shared->tree.empty()) return;
  if (!known(*shared)) shared->item = table_->cachedItem(key, shared->tag);
  routes().handleStatuses(*shared);
}

void HashedLevel::tryAgain(LpmRoutes& shared, U32) {
  shared.written = true;
  program(shared);
}

/// What the routes of a key make of its cells.
LpmResult HashedLevel::resultOf(const RouteKey& key, const Tree& tree) {
  LpmResult result;
  const std::array<U8, Tree::cells>& owners = tree.owners();
  for (U32 i = 0; i < Tree::cells; ++i) {
    const U32 owner = owners[i];
    if (owner == Tree::none) continue;
    const auto length = static_cast<U8>(key.prefix().len() + Tree::extra(owner));
    result.cells.value[i] = cellOf(tree.nexthop(owner), length);
  }
  return result;
}

void HashedLevel::batchIs(bool on) {
  if (on) {
    batch_.emplace(*table_, unheard_);
  } else {
    batch_.reset();
  }
}

bool HashedLevel::staged(const LpmRoutes& shared) const {
  const Record* record = recordOf(shared);
  return record && record->has(KeyRecord::staged);
}

/// What the level knows of the key, or null.
const HashedLevel::Record* HashedLevel::recordOf(const LpmRoutes& shared) const {
  if (known(shared)) return static_cast<const Record*>(shared.item.get());
  return table_->find(shared.key, shared.tag);
}

const VelaSwitchApi::HashBaseCuckooEntry* HashedLevel::itemOf(const LpmRoutes& shared) const {
  const Record* record = recordOf(shared);
  return record && record->has(KeyRecord::cached) ? record : nullptr;
}

bool HashedLevel::inHardware(const LpmRoutes& shared) const {
  const Record* record = recordOf(shared);
  return record && record->has(KeyRecord::stated) &&
         record->recordedStatus() == Status::programmed && !record->has(KeyRecord::marked);
}

void HashedLevel::stateRoute(const LpmRoutes& shared, U32, LpmStatus& status) const {
  const Record* record = recordOf(shared);
  if (!record || !record->has(KeyRecord::stated)) return;
  status.status = record->recordedStatus();
  status.lastHit = record->recordedHit();
}

void HashedLevel::program(LpmRoutes& shared) {
  const RouteKey key = shared.key;
  const LpmResult result = resultOf(key, shared.tree);
  // Held on to: the record may be dropped on the way.
  const Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> item = known(shared) ? shared.item : nullptr;
  const Writing writing(*this);
  const U32 tag = shared.tag;
  const bool changed = batch_ && staging_.on ? batch_->entryIs(staging_.number, key, result, tag)
                       : item                ? table_->entryIs(static_cast<Record&>(*item), result)
                                             : table_->entryIs(key, result, tag);
  // Whoever heard of it may have withdrawn all of them.
  LpmRoutes* const now = routes().routesOf(key);
  if (!now) return;
  if (!known(*now)) now->item = table_->cachedItem(key, tag);
  if (!changed && !inHardware(*now)) table_->handleEntry(key);
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
      guess.is(Tree::node(extra, i >> (LpmRoutes::range - extra)), cell.nexthopIndexes());
    }
    if (resultOf(key, guess) != result) continue;
    guess.forEachRoute(
        [&](U32 node) { visit(LpmRoutes::routeOf(key, node), guess.nexthop(node)); });
  }
}

RouteLevel::Routes HashedLevel::disownedBy(const RouteKey& key) const {
  const LpmRoutes* shared = routes().routesOf(key);
  return shared && !shared->written ? routesAt(key) : Routes{};
}

}  // namespace VelaRoutes
