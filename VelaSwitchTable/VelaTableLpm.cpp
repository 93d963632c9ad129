#include "VelaSwitchTable/VelaTableLpm.h"

#include <algorithm>

namespace VelaSwitchTable {

using VelaSwitchApi::EntryProgrammedStatus;

EntryCellResult EntryCellResult::fromHwEncoding(U32 encoding, bool direct, U8 width,
                                                VelaSwitch::ProfileHwApi) {
  EntryCellResult cell;
  const U32 shorter = encoding >> nexthopBits & noNexthop;
  if (!direct && shorter == noNexthop) return cell;
  cell.nexthopIndexes = VelaSwitch::NexthopIndexes::fromRaw(encoding & ((1u << nexthopBits) - 1));
  if (!direct && cell.valid()) cell.realPrefixLen = static_cast<U8>(width - shorter);
  return cell;
}

const Orb::Type& LpmTable::fwkType() const { return Orb::registeredType<LpmTable>; }

LpmTable::~LpmTable() {
  index_.forEach([](void* routes) { delete static_cast<LpmRoutes*>(routes); });
}

LpmRoutes* LpmTable::lookUp(const Key& key, U32 tag) const {
  const auto isIt = [&](const void* each) {
    return static_cast<const LpmRoutes*>(each)->key == key;
  };
  lastKey_ = key;
  last_ = static_cast<LpmRoutes*>(index_.find(tag, isIt));
  if (last_) last_->entrySoon();
  return last_;
}

LpmRoutes& LpmTable::routesIs(const Key& key) {
  if (last_ && key == lastKey_) return *last_;
  const U32 tag = VelaSwitchApi::entryTag(key);
  if (LpmRoutes* routes = lookUp(key, tag)) return *routes;
  if (levels_) levels_->keySoon(key, tag);
  last_ = new (slab_) LpmRoutes(key, tag);
  index_.add(tag, last_);
  return *last_;
}

/// Nothing is known of the routes of the key any more, perhaps.
void LpmTable::dropUnknown(LpmRoutes& routes) {
  if (routes.nodes != decltype(routes.nodes){}) return;
  index_.remove(routes.tag, &routes);
  if (last_ == &routes) last_ = nullptr;
  ++dropped_;
  delete &routes;
}

LpmTable::Place LpmTable::find(Flag flag, const Key& route) const {
  LpmRoutes* routes = count(flag) == 0 ? nullptr : routesOf(LpmRoutes::keyOf(route));
  if (!routes) return {nullptr, LpmRoutes::Tree::none};
  const U32 node = routes->nodeOf(route);
  return {routes->has(flag, node) ? routes : nullptr, node};
}

void LpmTable::set(LpmRoutes& routes, U32 node, Flag flag, bool set) {
  if (routes.has(flag, node) == set) return;
  routes.nodes[flag] = static_cast<U8>(routes.nodes[flag] ^ 1 << node);
  counts_[flag] += set ? 1 : ~U32{0};
}

bool LpmTable::flagIs(const Key& route, Flag flag, bool set) {
  const Place at = find(set ? LpmRoutes::desired : flag, route);
  if (!at.routes || at.routes->has(flag, at.node) == set) return false;
  this->set(*at.routes, at.node, flag, set);
  return true;
}

std::vector<LpmTable::Key> LpmTable::keys(Flag flag) const {
  std::vector<Key> keys;
  keys.reserve(count(flag));
  forEachRoute(flag, [&](const LpmRoutes& at, U32 node) { keys.push_back(at.routeOf(node)); });
  std::sort(keys.begin(), keys.end());
  return keys;
}

LpmResult LpmTable::resultOf(const LpmRoutes& routes, U32 node) const {
  const Key route = routes.routeOf(node);
  if (routes.has(LpmRoutes::odd, node)) return *oddResults_.find(route);
  return routeResult(routes.tree.nexthop(node), route.prefix().len());
}

inline void LpmTable::state(const LpmRoutes& routes, U32 node, LpmStatus& status) const {
  if (levels_ && routes.tree.has(node)) levels_->stateRoute(routes, node, status);
}

LpmStatus LpmTable::statusOf(const LpmRoutes& routes, U32 node) const {
  LpmStatus status(routes.routeOf(node));
  state(routes, node, status);
  return status;
}

bool LpmTable::holds(const LpmRoutes& routes, U32 node, const LpmResult& result, bool odd) const {
  if (!routes.has(LpmRoutes::desired, node) || routes.has(LpmRoutes::odd, node) != odd)
    return false;
  return odd ? *oddResults_.find(routes.routeOf(node)) == result
             : routes.tree.nexthop(node) == routeNexthop(result);
}

/// What is but a next hop lies in the tree alone.
void LpmTable::store(LpmRoutes& routes, U32 node, const LpmResult& result, bool odd) {
  if (odd) {
    *oddResults_.insert(routes.routeOf(node)).first = result;
  } else if (routes.has(LpmRoutes::odd, node)) {
    oddResults_.erase(routes.routeOf(node));
  }
  set(routes, node, LpmRoutes::odd, odd);
  set(routes, node, LpmRoutes::desired, true);
  routes.tree.is(node, routeNexthop(result));
  // A key of a level holds several routes, and has one flag for them all.
  if (result.cpuTrap()) routes.tree.del(node);
}

bool LpmTable::entryIs(const Key& route, const LpmResult& result) {
  if (levels_) levels_->checkRoute(route);
  const Key key = LpmRoutes::keyOf(route);
  LpmRoutes& routes = routesIs(key);
  const U32 node = routes.nodeOf(route);
  const bool odd = result != routeResult(routeNexthop(result), route.prefix().len());
  if (holds(routes, node, result, odd)) return false;
  const bool trapped = routes.has(LpmRoutes::desired, node) && !routes.tree.has(node);
  store(routes, node, result, odd);
  // Its status is that of the levels' entry from now on, or is not any more: told anew.
  if (trapped != result.cpuTrap()) statedIs(routes, node, false);
  if (levels_) {
    const U32 dropped = dropped_;
    levels_->handleRoute(routes, node);
    // Whoever heard of statuses may have withdrawn it.
    LpmRoutes* now = dropped == dropped_ ? &routes : routesOf(key);
    if (now && now->has(LpmRoutes::desired, node) && !now->has(LpmRoutes::stated, node) &&
        !levels_->staged(*now))
      handleStatus(route);
  }
  observers_.handleKey(route);
  return true;
}

bool LpmTable::entryDel(const Key& given) {
  const Place at = find(LpmRoutes::desired, given);
  if (!at.routes) return false;
  // The caller may have handed over the very key that lies there.
  const Key route = given;
  if (at.routes->has(LpmRoutes::odd, at.node)) oddResults_.erase(route);
  for (const Flag flag :
       {LpmRoutes::desired, LpmRoutes::unclaimed, LpmRoutes::noted, LpmRoutes::odd})
    set(*at.routes, at.node, flag, false);
  at.routes->tree.del(at.node);
  LpmRoutes* now = at.routes;
  if (levels_) {
    const U32 dropped = dropped_;
    levels_->handleRoute(*at.routes, at.node);
    if (dropped != dropped_) now = routesOf(LpmRoutes::keyOf(route));
  }
  if (now && levels_ && !now->has(LpmRoutes::desired, at.node) &&
      now->has(LpmRoutes::stated, at.node)) {
    statusDel(*now, at.node);
  } else if (now) {
    dropUnknown(*now);
  }
  observers_.handleKey(route);
  return true;
}

void LpmTable::entryDelAll() {
  for (const Key& route : keys(LpmRoutes::desired)) entryDel(route);
}

LpmStatus LpmTable::entryStatusIs(const Key& route) {
  if (!has(LpmRoutes::stated, route)) handleStatus(route);
  return entryStatus(route).value_or(LpmStatus(route));
}

void LpmTable::entryStatusDel(const Key& given) {
  const Place at = find(LpmRoutes::stated, given);
  if (at.routes) statusDel(*at.routes, at.node);
}

/// What the flags say of a status is as it was told last.
void LpmTable::statedIs(LpmRoutes& routes, U32 node, bool stated) {
  LpmStatus told;  // Without its key, which nobody asks for here.
  if (stated) state(routes, node, told);
  const auto status = told.status;
  set(routes, node, LpmRoutes::stated, stated);
  set(routes, node, LpmRoutes::held, status == EntryProgrammedStatus::programmed);
  set(routes, node, LpmRoutes::waits, status == EntryProgrammedStatus::tableFull);
}

void LpmTable::statusDel(LpmRoutes& routes, U32 node) {
  const Key route = routes.routeOf(node);
  statedIs(routes, node, false);
  dropUnknown(routes);
  statusObservers_.handleKey(route);
}

void LpmTable::entryStatusDelAll() {
  for (const Key& route : keys(LpmRoutes::stated)) entryStatusDel(route);
}

void LpmTable::handleStatus(const Key& route) {
  LpmRoutes& routes = routesIs(LpmRoutes::keyOf(route));
  statedIs(routes, routes.nodeOf(route), true);
  statusObservers_.handleKey(route);
}

void LpmTable::handleStatuses(LpmRoutes& routes) {
  const U8 nodes = routes.tree.nodes();
  LpmRoutes::forEachNode(nodes, [&](U32 node) { statedIs(routes, node, true); });
  if (statusObservers_.empty()) return;
  const Key key = routes.key;
  LpmRoutes::forEachNode(
      nodes, [&](U32 node) { statusObservers_.handleKey(LpmRoutes::routeOf(key, node)); });
}

Orb::Ptr<LpmTable> LpmTableIs(const std::string& name) { return Orb::make<LpmTable>(name); }
Orb::Ptr<LpmTable> lpmTableFactory(const std::string& name) { return LpmTableIs(name); }

}  // namespace VelaSwitchTable
