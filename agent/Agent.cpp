#include "agent/Agent.h"

#include <algorithm>

#include "agent/Registry.h"
#include "agent/RouteAdapter.h"

namespace VelaAgent {

Agent::Agent(Orb::PtrConst<VelaSwitch::ProfileInfo> profile, VelaDevice::SimulatedSwitch& chip)
    : profile_(std::move(profile)),
      chip_(chip),
      recorder_(chip),
      dataPath_(chip, *profile_),
      switch_(Orb::make<VelaSwitchApi::SwTableTypes>(profile_, recorder_)) {
  for (auto& path : makePaths(*this)) {
    paths_.push_back(std::make_unique<TableAdapter>(std::move(path)));
  }
}

Agent::~Agent() = default;

void Agent::make(const std::vector<std::string>& only) {
  chip_.modelIs(profile_->name());
  for (const FamilyRegistration& family : families()) {
    if (!only.empty() && std::find(only.begin(), only.end(), family.name) == only.end()) continue;
    for (U32 instance = 0; instance < family.instances(profile_->pipelines()); ++instance) {
      tables_.push_back(std::make_unique<HwTableAdapter>(family.make(instance)));
    }
  }
  for (const auto& adapter : tables_) switch_.tableIs(&adapter->table());
  switch_.make();
  std::vector<const VelaSwitchApi::SwTable*> swTables;
  swTables.reserve(tables_.size());
  for (const auto& adapter : tables_) {
    checkControlWords(adapter->table());
    swTables.push_back(&adapter->table());
  }
  checkSelectors(swTables);
  if (only.empty() || std::find(only.begin(), only.end(), "Route") != only.end()) {
    makeRoutes();
    announced_.push_back(routes_.get());
  }
  for (const auto& adapter : tables_) announced_.push_back(adapter.get());
}

void Agent::makeRoutes() {
  using namespace VelaSwitchTable;
  VelaRoutes::Ladder ladder{lpmTableFactory("Route"), nullptr, {}};
  std::vector<TableEntries*> entries;
  for (const auto& adapter : tables_) {
    auto* first = dynamic_cast<Lpm11Table*>(&adapter->table());
    auto* level = dynamic_cast<LpmBaseTable*>(&adapter->table());
    if (!first && !level) continue;
    if (first) ladder.firstLevel = first;
    if (level) ladder.levels.emplace_back(level);
    entries.push_back(&adapter->typed());
  }
  routeWriter_ = std::make_unique<VelaRoutes::RouteWriter>(std::move(ladder));
  routes_ = std::make_unique<RouteAdapter>(
      std::make_unique<RouteEntries>(*routeWriter_, *profile_, std::move(entries)));
}

void Agent::start(Start how) {
  const bool restart = how == Start::restart;
  if (restart) decode();
  switch_.start(!restart);
}

void Agent::complete() {
  if (routeWriter_) routeWriter_->complete();
  switch_.complete();
}

void Agent::decode() {
  switch_.rebuild();
  if (routeWriter_) routeWriter_->rebuild();
}

void Agent::desireBegin() {
  recorder_.mutedIs(true);
  start(Start::fresh);
}

void Agent::desireEnd() {
  recorder_.mutedIs(false);
  for (const auto& adapter : tables_) adapter->convertor().takePlacement();
}

TableAdapter& Agent::table(std::string_view name, U32 instance) const {
  bool known = false;
  for (TableAdapter* adapter : announced_) {
    if (adapter->name() != name) continue;
    known = true;
    if (adapter->instance() == instance) return *adapter;
  }
  for (const auto& path : paths_) {
    if (path->name() == name) return *path;
  }
  if (known) {
    throw InputException(Orb::text("table ", name, " has no instance ", instance));
  }
  std::vector<std::string> names;
  for (const TableAdapter* adapter : announced_) names.push_back(adapter->name());
  for (const auto& path : paths_) names.push_back(path->name());
  throw InputException("unknown table " + quoted(Json(name)) + suggestion(name, names));
}

Entries& Agent::entriesOf(std::string_view name, U32 instance) const {
  return table(name, instance).typed();
}

HwTableAdapter& Agent::adapterOf(const VelaSwitchApi::SwTable& table) const {
  const auto adapter = std::find_if(tables_.begin(), tables_.end(),
                                    [&](const auto& each) { return &each->table() == &table; });
  return **adapter;
}

U64 Agent::announcedEntries() const {
  U64 count = 0;
  for (const TableAdapter* table : announced_) count += table->entries();
  return count;
}

U64 Agent::programmed() const {
  U64 count = 0;
  for (const TableAdapter* table : announced_) count += table->programmed();
  return count - programmedCells();
}

U64 Agent::programmedCells() const { return routeWriter_ ? routeWriter_->programmedCells() : 0; }

void Agent::reconcile(const RemovalListener& removing) {
  for (TableAdapter* adapter : announced_) {
    adapter->reconcile([&](const Json& key) {
      if (removing) removing(*adapter, key);
    });
  }
  settle();
}

/// Whether whole routes become entries of the table.
bool Agent::isLevel(const TableAdapter& table) const {
  const auto* hardware = table.hardware();
  return routes_ && hardware && routes_->fills(hardware->table());
}

std::vector<VelaRoutes::RouteKey> Agent::routesOf(const TableAdapter& table,
                                                  const VelaRoutes::RouteKey& key) const {
  return routeWriter_->routesAt(table.hardware()->table(), key);
}

std::vector<Json> Agent::routesAt(const TableAdapter& table, const Json& key) const {
  std::vector<Json> keys;
  if (!isLevel(table)) return keys;
  for (const auto& route : routesOf(table, fromJson<VelaSwitch::LpmKey>(key))) {
    keys.push_back(toJson(route));
  }
  return keys;
}

bool Agent::standsForRoutes(const TableAdapter& table, AnyRef key) const {
  return isLevel(table) && !routesOf(table, key.as<VelaSwitch::LpmKey>()).empty();
}

}  // namespace VelaAgent
