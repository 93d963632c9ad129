#include <thread>

#include "Support.h"
#include "VelaRoutes/Routes.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "device/AclLookup.h"
#include "device/RouteLookup.h"

// Several switches in one process, each a thread's own, share nothing that matters. Built for the
// thread sanitizer as well.

namespace {

using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaSwitchApi::EntryProgrammedStatus;

/// Announces and withdraws routes and ACLs at random, then starts again from the registers, and
/// asks the data path for what should be there all the while.
class Owner {
 public:
  Owner(const char* profile, U32 seed) : chip_(profile), random_(seed) {}

  void work() {
    std::map<LpmKey, NexthopIndexes> routes;
    for (const bool restart : {false, true}) {
      VelaSwitchApi::SwitchTables tables(
          Orb::make<VelaSwitchApi::SwTableTypes>(chip_.profile, chip_.chip));
      const auto acls = VelaSwitchTable::AclHashTableIs("AclHash", 0, 0);
      tables.tableIs(acls);
      const VelaRoutes::Ladder ladder = VelaRoutes::makeLadder(tables);
      tables.make();
      VelaRoutes::RouteWriter writer(ladder);
      if (restart) {
        tables.rebuild();
        writer.rebuild();
      }
      tables.start(!restart);
      VelaRoutes::Routes whole(writer);
      for (const auto& [key, to] : routes) whole.announce(key, to);
      writer.complete();
      whole.reconcile();
      for (int round = 0; round < 400; ++round) change(whole, *acls, routes);
      for (const auto& [key, to] : routes) check(whole, key);
      EXPECT_EQ(whole.size(), routes.size());
      EXPECT_TRUE(tables.pollHitBits(Orb::Seconds(1)));
    }
  }

 private:
  void change(VelaRoutes::Routes& whole, VelaSwitchTable::AclHashTable& acls,
              std::map<LpmKey, NexthopIndexes>& routes) {
    const LpmKey key{static_cast<U8>(random_.below(chip_.profile->vrfs())),
                     Ipnet::IpPrefix(Ipnet::IpAddr(0x0A000000 | random_.below(1u << 20)),
                                     static_cast<U8>(8 + random_.below(25)))};
    const NexthopIndexes to{VelaSwitch::L3LagIndex(random_.below(57)), 0};
    if (random_.below(4) == 0) {
      EXPECT_EQ(whole.withdraw(key), routes.erase(key) != 0);
    } else {
      routes[key] = to;
      EXPECT_EQ(whole.announce(key, to), EntryProgrammedStatus::programmed);
    }
    VelaSwitch::AclHashKey acl;
    acl.dstIp = Ipnet::IpAddr(1 + random_.below(500));
    acl.l4Port = 80;
    if (random_.below(3) == 0) {
      acls.entryDel(acl);
    } else {
      acls.entryIs(acl, {});
    }
    EXPECT_EQ(VelaDevice::acl(chip_.path, 0, acl).has_value(),
              acls.status(acl) == EntryProgrammedStatus::programmed);
  }
  /// A route that no longer one covers is what a packet to it takes.
  void check(const VelaRoutes::Routes& whole, const LpmKey& key) {
    const auto hit = VelaDevice::route(chip_.path, key.vrf(), key.prefix().address());
    ASSERT_TRUE(hit);
    if (hit->realPrefixLen() != key.prefix().len()) return;
    EXPECT_EQ(hit->l3LagIndex(), whole.nexthop(key)->l3LagIndex().value());
  }

  VelaTest::Chip chip_;
  VelaTest::Random random_;
};

/// Counts lines; nothing of it is guarded, as threads come to it one at a time.
struct Counter final : Twinlog::Sink {
  U64 lines = 0;
  void line(std::string_view, U8, std::string_view) override { ++lines; }
};

TEST(Threads, everySwitchHasItsOwn) {
  static Counter counter;  // Of all repetitions, as messages are counted.
  Twinlog::sinkIs(&counter);
  Spoor::recordsDelAll();
  for (Trace::Handle* handle : Trace::Handle::all()) {
    handle->spoorLevelIs(8);
    handle->twinlogLevelIs(8);
  }
  std::vector<std::thread> threads;
  U32 seed = 1;
  for (const char* profile : {"vela-48-5.1", "vela-24-4.0", "vela-48-32vrf"}) {
    threads.emplace_back([=, number = seed++] { Owner(profile, number).work(); });
  }
  for (std::thread& thread : threads) thread.join();
  for (Trace::Handle* handle : Trace::Handle::all()) {
    handle->spoorLevelIs(-1);
    handle->twinlogLevelIs(-1);
  }
  Twinlog::sinkIs(nullptr);
  // No message is lost, and none has another's place.
  const std::vector<Spoor::Record> records = Spoor::records();
  ASSERT_EQ(records.size(), Spoor::ringSize);
  for (const Spoor::Record& each : records) {
    EXPECT_EQ(each.sequence, counter.lines - (&records.back() - &each));
  }
}

}  // namespace
