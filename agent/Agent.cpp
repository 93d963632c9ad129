#include "agent/Agent.h"

namespace VelaAgent {

Agent::Agent(Orb::PtrConst<VelaSwitch::ProfileInfo> profile, VelaDevice::SimulatedSwitch& chip)
    : profile_(std::move(profile)),
      chip_(chip),
      recorder_(chip),
      dataPath_(chip, *profile_),
      types_(Orb::make<VelaSwitchApi::SwTableTypes>(profile_, recorder_)) {}

Agent::~Agent() = default;

void Agent::make() {
  chip_.modelIs(profile_->name());
  for (const FamilyRegistration& family : families()) {
    for (U32 instance = 0; instance < family.instances(*profile_); ++instance) {
      tables_.push_back(family.make(instance));
    }
  }
  for (const auto& adapter : tables_) adapter->table().doSetProfileConvertor(types_);
  for (const auto& adapter : tables_) adapter->table().doCreateHwTable();
}

void Agent::start(Start how) {
  const bool restart = how == Start::restart;
  // Every table is rebuilt before any row is written: tables may share rows.
  if (restart) {
    for (const auto& adapter : tables_) adapter->table().syncEntries();
  }
  for (const auto& adapter : tables_) adapter->table().initHwEntries(!restart);
  for (const auto& adapter : tables_) {
    adapter->table().initializedIs(true);
    adapter->table().doInitComplete();
  }
}

TableAdapter& Agent::table(const std::string& family, U32 instance) const {
  bool known = false;
  for (const auto& adapter : tables_) {
    if (adapter->name() != family) continue;
    known = true;
    if (adapter->instance() == instance) return *adapter;
  }
  if (known) {
    throw InputException("table " + family + " has no instance " + std::to_string(instance));
  }
  throw InputException("unknown table \"" + family + "\"");
}

U32 Agent::reconcile() {
  U32 removed = 0;
  for (const auto& adapter : tables_) removed += adapter->reconcile();
  return removed;
}

}  // namespace VelaAgent
