// An agent that owns a switch: it programs routes and ACLs in batches, watches what becomes of
// them, and is started again on the registers that it left. Its bus prints what it would write.

#include <cstdio>
#include <map>
#include <vector>

#include "VelaRoutes/Routes.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"

namespace {

using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaSwitchApi::EntryOutcome;
using VelaSwitchApi::EntryProgrammedStatus;

/// Registers that are a map. A real bus has the device's file here.
class PrintingBus final : public VelaSwitchApi::RegisterBus {
 public:
  bool printing = false;
  unsigned rowWrites = 0;

  RegisterHandle registerIs(std::string_view path) override { return numbered(registers_, path); }
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity,
                      VelaSwitchApi::HwIndex) override {
    return numbered(tables_, identity.name);
  }
  bool rowIs(TableHandle table, VelaSwitchApi::HwIndex index,
             std::span<const RegisterValue> writes) override {
    ++rowWrites;
    if (printing) std::printf("  %s row %u:", names_[table].c_str(), index);
    auto& row = rows_[{table, index}];
    for (const auto& [reg, value] : writes) {
      row[reg] = value;
      if (printing) std::printf(" %08x", value);
    }
    if (printing) std::puts("");
    return true;
  }
  Read row(TableHandle table, VelaSwitchApi::HwIndex index,
           std::span<RegisterValue> values) override {
    const auto row = rows_.find({table, index});
    if (row == rows_.end()) return Read::absent;
    for (auto& [reg, value] : values) value = row->second[reg];
    return Read::held;
  }
  bool hitBits(TableHandle, VelaSwitchApi::HwIndex, std::span<RegisterValue> values) override {
    for (auto& [reg, value] : values) value = 0;
    return true;
  }

 private:
  using Numbers = std::map<std::string, std::uint32_t, std::less<>>;
  std::uint32_t numbered(Numbers& numbers, std::string_view name) {
    const auto [at, added] = numbers.try_emplace(std::string(name), numbers.size());
    if (added && &numbers == &tables_) names_.emplace_back(name);
    return at->second;
  }

  Numbers registers_;
  Numbers tables_;
  std::vector<std::string> names_;
  std::map<std::pair<TableHandle, VelaSwitchApi::HwIndex>, std::map<RegisterHandle, std::uint32_t>>
      rows_;
};

/// The tables of this agent. An agent that is started again makes them anew, on the same bus.
class Agent : private Orb::KeyObserver<AclHashKey> {
 public:
  Agent(PrintingBus& bus, bool restart) : tables_(makeTypes(bus)) {
    bus.printing = false;
    bus.rowWrites = 0;
    tables_.tableIs(acls_);
    const VelaRoutes::Ladder ladder = VelaRoutes::makeLadder(tables_);
    tables_.make();
    writer_.emplace(ladder);
    if (restart) {
      tables_.rebuild();
      writer_->rebuild();
    }
    tables_.start(!restart);
    acls_->tableStatusIs()->observerIs(this);
    routes_.emplace(*writer_);
    bus.printing = true;
  }
  ~Agent() { acls_->tableStatus()->observerDel(this); }

  void announce() {
    std::puts("routes:");
    const std::vector<std::pair<LpmKey, NexthopIndexes>> routes{{route("10.0.0.0/8"), nexthop(1)},
                                                                {route("10.1.0.0/16"), nexthop(2)},
                                                                {route("10.1.2.0/24"), nexthop(3)}};
    tell(routes_->announceAll(routes));

    std::puts("ACLs:");
    std::vector<std::pair<AclHashKey, AclHashResult>> rules(2);
    rules[0].first.dstIp = Orb::fromText<Ipnet::IpAddr>("192.0.2.1");
    rules[0].first.l4Port = 443;
    rules[1].first.dstIp = Orb::fromText<Ipnet::IpAddr>("192.0.2.2");
    tell(acls_->entriesAre(rules));
  }
  /// All that is desired was announced: what nobody wants any more goes.
  void complete() {
    writer_->complete();
    routes_->reconcile();
    for (const AclHashKey& key : acls_->unclaimedKeys()) acls_->entryDel(key);
    tables_.complete();
  }

 private:
  static Orb::Ptr<VelaSwitchApi::SwTableTypes> makeTypes(PrintingBus& bus) {
    return Orb::make<VelaSwitchApi::SwTableTypes>(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"),
                                                  bus);
  }
  static LpmKey route(const char* prefix) { return {0, Orb::fromText<Ipnet::IpPrefix>(prefix)}; }
  static NexthopIndexes nexthop(std::uint8_t lag) { return {VelaSwitch::L3LagIndex(lag), 0}; }

  void tell(const std::vector<EntryOutcome>& outcomes) const {
    for (const EntryOutcome& outcome : outcomes) {
      std::printf("%s%s\n", nameOf(outcome.status), outcome.changed ? "" : ", as it was");
    }
  }
  /// The status of an ACL changed; its rows are written. Nothing may be withdrawn from here that is
  /// part of the batch under way.
  void handleKey(const AclHashKey& key) override {
    std::printf("  %s: %s\n", Orb::text(key).c_str(), nameOf(acls_->status(key)));
  }

  VelaSwitchApi::SwitchTables tables_;
  Orb::Ptr<VelaSwitchTable::AclHashTable> acls_ = VelaSwitchTable::AclHashTableIs("AclHash", 0, 0);
  std::optional<VelaRoutes::RouteWriter> writer_;
  std::optional<VelaRoutes::Routes> routes_;
};

}  // namespace

int main() {
  PrintingBus bus;
  {
    Agent agent(bus, false);
    const unsigned cleared = bus.rowWrites;
    agent.announce();
    std::printf("%u rows cleared at the start, %u written since\n", cleared,
                bus.rowWrites - cleared);
  }
  std::puts("the agent is started again:");
  Agent agent(bus, true);
  agent.announce();
  agent.complete();
  std::printf("%u rows written\n", bus.rowWrites);
  return bus.rowWrites == 0 ? 0 : 1;
}
