#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

#include "Support.h"
#include "agent/TableAdapter.h"
#include "device/RouteLookup.h"
#include "service/Configuration.h"
#include "service/Control.h"
#include "service/Delays.h"
#include "service/Netlink.h"

namespace {

using namespace VelaService;
using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using std::chrono::seconds;
using VelaTest::Random;

/// What a source sends: netlink messages in frames, made by the library that reads them.
class Sender {
 public:
  void nexthop(const NexthopMessage& message) {
    auto* head = begin(message.withdrawn ? RTM_DELNEXTHOP : RTM_NEWNEXTHOP);
    mnl_nlmsg_put_extra_header(head, sizeof(nhmsg));
    mnl_attr_put_u32(head, NHA_ID, message.id);
    if (!message.group.empty()) {
      std::vector<nexthop_grp> group;
      for (const U32 id : message.group) group.push_back({id});
      mnl_attr_put(head, NHA_GROUP, group.size() * sizeof group[0], group.data());
    } else if (message.hop.kind == Hop::Kind::drop) {
      mnl_attr_put(head, NHA_BLACKHOLE, 0, nullptr);
    } else {
      hop(head, message.hop, NHA_OIF, NHA_GATEWAY);
    }
    end(head);
  }
  void route(const RouteMessage& message) {
    auto* head = begin(message.withdrawn ? RTM_DELROUTE : RTM_NEWROUTE);
    auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(head, sizeof(rtmsg)));
    route->rtm_family = message.route.family;
    route->rtm_dst_len = message.route.len;
    const bool drops = message.nexthop == 0 && message.hop.kind == Hop::Kind::drop;
    if (!message.withdrawn)
      route->rtm_type = static_cast<U8>(drops ? int{RTN_BLACKHOLE} : int{RTN_UNICAST});
    mnl_attr_put(head, RTA_DST, message.route.family == AF_INET ? 4 : 16,
                 message.route.address.data());
    mnl_attr_put_u32(head, RTA_TABLE, message.route.table);
    if (message.nexthop != 0) {
      mnl_attr_put_u32(head, RTA_NH_ID, message.nexthop);
    } else if (message.hop.ofSeveral) {
      nlattr* list = mnl_attr_nest_start(head, RTA_MULTIPATH);
      // The first one is of no use, since its link is down.
      for (const U32 gateway : {~U32{0}, message.hop.gateway, message.hop.gateway + 1}) {
        const auto dead = static_cast<U8>(gateway == ~U32{0} ? RTNH_F_DEAD : 0);
        rtnexthop each{sizeof(rtnexthop) + 8, dead, 0, static_cast<int>(message.hop.interface)};
        std::memcpy(mnl_nlmsg_get_payload_tail(head), &each, sizeof each);
        head->nlmsg_len += sizeof each;
        mnl_attr_put_u32(head, RTA_GATEWAY, htonl(gateway));
      }
      mnl_attr_nest_end(head, list);
    } else if (!drops) {
      hop(head, message.hop, RTA_OIF, RTA_GATEWAY);
    }
    end(head);
  }
  /// Puts what was made into a frame.
  void frame() {
    const auto length = static_cast<U16>(payload_.size() + FpmStream::headerSize);
    stream.insert(stream.end(), {1, 1, static_cast<char>(length >> 8), static_cast<char>(length)});
    stream += std::exchange(payload_, {});
  }
  std::string stream;

 private:
  nlmsghdr* begin(U16 type) {
    std::memset(buffer_.data(), 0, sizeof buffer_);
    nlmsghdr* head = mnl_nlmsg_put_header(buffer_.data());
    head->nlmsg_type = type;
    return head;
  }
  static void hop(nlmsghdr* head, const Hop& hop, U16 interface, U16 gateway) {
    mnl_attr_put_u32(head, interface, hop.interface);
    const std::array<U32, 4> wide{hop.gateway};
    if (hop.refusal == Refusal::ipv6)
      mnl_attr_put(head, gateway, sizeof wide, wide.data());
    else if (hop.kind == Hop::Kind::gateway)
      mnl_attr_put_u32(head, gateway, htonl(hop.gateway));
  }
  void end(const nlmsghdr* head) {
    payload_.append(reinterpret_cast<const char*>(head), MNL_ALIGN(head->nlmsg_len));
  }

  alignas(8) std::array<char, 4096> buffer_;
  std::string payload_;
};

RouteName nameOf(IpPrefix prefix, U32 table = RT_TABLE_MAIN) {
  RouteName name{table, AF_INET, prefix.len()};
  const U32 address = htonl(prefix.address().number());
  std::memcpy(name.address.data(), &address, sizeof address);
  return name;
}

/// The routes' statuses as a watcher knows them, who heard of nothing but changes.
class Watcher {
 public:
  Watcher(VelaAgent::Agent& agent, RouteService& service) : watch_(agent, service) {
    for (const auto& each : agent.table("Route", 0).statuses()) {
      statuses_[each.key] = VelaSwitchApi::nameOf(each.status);
    }
  }
  /// Hears on; returns how many routes are in hardware.
  U64 programmed() {
    EXPECT_FALSE(queue_.overrun());
    std::istringstream lines(queue_.take());
    for (std::string line; std::getline(lines, line);) {
      const auto told = VelaAgent::jsonFromText(line);
      EXPECT_EQ(told["sequence"], ++sequence_);
      if (told["table"] != "Route") continue;
      std::string& status = statuses_.try_emplace(told["key"], "notProgrammed").first->second;
      EXPECT_NE(status, told["status"]) << line;
      status = told["status"];
    }
    return static_cast<U64>(std::count_if(statuses_.begin(), statuses_.end(), [](const auto& each) {
      return each.second == "programmed";
    }));
  }
  Watch& watch() { return watch_; }

 private:
  Watch watch_;
  WatchQueue queue_{watch_, std::size_t{1} << 24};
  U64 sequence_ = 0;
  std::map<VelaAgent::Json, std::string> statuses_;
};

/// A switch with a service that is started again and again, and its source.
struct World {
  static constexpr U64 cpu = U64{1} << 48;
  static constexpr U8 sources = 2;

  World() {
    settings.vrfs = {{RT_TABLE_MAIN, 0}, {10, 3}};
    settings.portMasks = {{"if1", 1 << 5}, {"if2", 3 << 6}, {"if3", 1 << 5}};
    settings.sources = {{"first"}, {"second"}};
    settings.nexthopFile = file;
    settings.queueMost = 1000;
    std::filesystem::remove(file);
    start(VelaAgent::Agent::Start::fresh);
  }
  ~World() { std::filesystem::remove(file); }

  void start(VelaAgent::Agent::Start how) {
    watcher.reset();
    service.reset();
    agent = std::make_unique<VelaAgent::Agent>(profile, chip);
    agent->make();
    agent->start(how);
    service = std::make_unique<RouteService>(*agent, settings, [this](U32 number) {
      const auto named = names.find(number);
      if (named != names.end()) return named->second;
      return number == 0 ? "" : "if" + std::to_string(number);
    });
    watcher = std::make_unique<Watcher>(*agent, *service);
  }
  void restart() { start(VelaAgent::Agent::Start::restart); }
  void connect(U8 source = 0) {
    streams[source] = {};
    service->connected(source, now);
  }
  /// Hands over what was sent, in pieces of random lengths.
  void receive(Random& random) {
    for (U8 source = 0; source < sources; ++source) {
      std::string_view bytes = senders[source].stream;
      while (!bytes.empty()) {
        const std::size_t size = std::min<std::size_t>(1 + random.below(300), bytes.size());
        streams[source].received(bytes.substr(0, size), [&](const Message& message) {
          service->take(source, message, now);
        });
        bytes.remove_prefix(size);
      }
      senders[source].stream.clear();
    }
  }
  void drain() {
    while (!service->idle()) service->work(64);
  }
  /// The sources are quiet for as long as it takes.
  void quiet() { pass(settings.sources[0].quiet + seconds(sources)); }
  void pass(Clock::duration time) {
    drain();
    for (; time > seconds(0); time -= seconds(1)) {
      service->tick(now += seconds(1));
      drain();
    }
  }
  /// Where packets go: the ports of the LAG, the interface and the gateway of the rewrite.
  using Way = std::tuple<U64, std::string, U32>;
  std::optional<Way> way(U8 vrf, IpAddr address) {
    const auto hit = VelaDevice::route(path, vrf, address);
    if (!hit) return std::nullopt;
    const auto lag = VelaDevice::l3Lag(path, hit->l3LagIndex());
    Way way{lag ? lag->portMask().bits() : 0, "", 0};
    service->nexthops().forEach([&](Slot slot, const Nexthops::Owner& owner, U32) {
      if (slot == Slot{static_cast<U8>(hit->l3LagIndex()), hit->rewriteIndex()}) {
        way = {std::get<0>(way), owner.interface, owner.gateway};
      }
    });
    return way;
  }

  std::string file = testing::TempDir() + "nexthops." + std::to_string(getpid());
  RouteSettings settings;
  std::map<U32, std::string> names;  ///< Of interfaces that are called otherwise.
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1");
  VelaDevice::SimulatedSwitch chip;
  VelaDevice::DataPath path{chip, *profile};
  std::unique_ptr<VelaAgent::Agent> agent;
  std::unique_ptr<RouteService> service;
  std::unique_ptr<Watcher> watcher;
  std::array<Sender, sources> senders;
  Sender& sender = senders[0];
  std::array<FpmStream, sources> streams;
  Clock::time_point now = Clock::now();
};

/// What sources said, beside the world that heard it.
class Model {
 public:
  explicit Model(World& world, Random& random) : world_(world), random_(random) {
    for (U32 count = 0; count < 40; ++count) {
      static constexpr std::array<U8, 8> lens{0, 8, 10, 16, 19, 24, 30, 32};
      // Few bits differ, so that routes cover each other.
      const U32 bits = random_() & 0x00C08181;
      const U32 table = random_.below(4) == 0 ? 10 : U32{RT_TABLE_MAIN};
      names_.emplace_back(IpPrefix(IpAddr(0x0A000000 | bits), lens[random_.below(8)]), table);
    }
    std::sort(names_.begin(), names_.end());
    names_.erase(std::unique(names_.begin(), names_.end()), names_.end());
  }

  /// A random message or several of a source, and what they mean.
  void step() {
    sideIs(static_cast<U8>(random_.below(World::sources)));
    switch (random_.below(8)) {
      case 0:
      case 1:
        newNexthop();
        break;
      case 2: {
        const U32 id = 1 + random_.below(12);
        sender().nexthop({id, true});
        side_->objects.erase(id);
        break;
      }
      case 3:
        withdraw(anyName());
        break;
      case 4: {
        const Name name = anyName();
        if (!side_->routes.contains(name)) break;
        sender().route({nameOf(name.first, name.second), true});
        announce(name);
        break;
      }
      case 5: {
        RouteMessage alien{{RT_TABLE_MAIN, AF_INET6, 16, {0x20, 1}}, random_.flip(), 0};
        alien.hop = {Hop::Kind::local};
        sender().route(alien);
        side_->alien = !alien.withdrawn;
        break;
      }
      default:
        announce(anyName());
        break;
    }
    sender().frame();
  }
  void reconnect(U8 source, bool all) {
    sideIs(source);
    world_.connect(source);
    if (all) {
      for (const auto& [id, object] : side_->objects)
        sender().nexthop({id, false, object.hop, object.group});
    } else {
      side_->objects.clear();
    }
    // Who says nothing at all is not taken for a source.
    sender().nexthop({99, true});
    for (auto at = side_->routes.begin(); at != side_->routes.end();) {
      const auto name = at->first;
      if (!all && random_.flip()) {
        at = side_->routes.erase(at);
        changed(name);
        continue;
      }
      ++at;
      if (all) {
        // Nobody refers to a next hop that is gone, or says something else by now.
        Told& route = side_->routes.at(name);
        if (route.hop.refusal != Refusal::unknownNexthop && resolved(route.id) != route.hop) {
          route.id = 0;
        }
        tell(name, route);
      } else {
        announce(name);
      }
    }
    if (side_->alien && all) {
      RouteMessage alien{{RT_TABLE_MAIN, AF_INET6, 16, {0x20, 1}}, false, 0};
      alien.hop = {Hop::Kind::local};
      sender().route(alien);
    }
    side_->alien = side_->alien && all;
    sender().frame();
  }
  /// The service takes what was sent; then routes have the next hops that there are by now.
  void receive() {
    world_.receive(random_);
    for (U8 source = 0; source < World::sources; ++source) {
      sideIs(source);
      for (auto& [name, route] : side_->routes) {
        const Hop hop = route.id == 0 ? route.hop : resolved(route.id);
        if (hop.refusal != Refusal::unknownNexthop) hopIs(name, route, hop);
      }
    }
    world_.service->work(0);
  }
  /// Everything is as the routes that stand say. Those that are good stay so until they change.
  void check() {
    for (const Name& name : names_) {
      const U32 first = name.first.address().number();
      const U32 last =
          first | (name.first.len() == 0 ? ~U32{0} : ~(~U32{0} << (32 - name.first.len())));
      for (const U32 address : {first, last}) {
        EXPECT_EQ(world_.way(vrf(name), IpAddr(address)), longest(name.second, address))
            << Orb::text(IpAddr(address)) << " in " << name.second;
      }
    }
    U64 refused = U64{sides_[0].alien} + sides_[1].alien;
    U64 wanted = refused;
    steady_.clear();
    for (const Name& name : names_) {
      const Told* route = counting(name);
      if (!route) continue;
      ++wanted;
      way(route->hop) ? void(steady_.insert(name)) : void(++refused);
    }
    U64 counted = 0;
    for (const U64 each : world_.service->figures().refused) counted += each;
    EXPECT_EQ(counted, refused);
    EXPECT_EQ(world_.service->figures().programmed, steady_.size());
    EXPECT_EQ(world_.watcher->programmed(), steady_.size());
    EXPECT_EQ(world_.service->figures().wanted, wanted);
    for (U8 source = 0; source < World::sources; ++source) {
      EXPECT_EQ(world_.service->figuresOf(source).routes,
                sides_[source].routes.size() + sides_[source].alien);
    }
  }
  /// Routes that stand all along are found after every register that is written.
  void watch() {
    world_.chip.writeObserverIs([this](const auto&, auto) {
      for (const Name& name : steady_) {
        const auto hit = VelaDevice::route(world_.path, vrf(name), name.first.address());
        if (hit && hit->realPrefixLen().value_or(32) >= name.first.len()) continue;
        ADD_FAILURE() << Orb::text(name.first) << " is absent amid a change";
      }
    });
  }

 private:
  using Name = std::pair<IpPrefix, U32>;
  struct Object {
    Hop hop;
    std::vector<U32> group;
  };
  struct Told {
    U32 id = 0;
    Hop hop;
  };

  static U8 vrf(const Name& name) { return name.second == 10 ? 3 : 0; }
  const Name& anyName() { return names_[random_.below(static_cast<U32>(names_.size()))]; }
  Hop anyHop() {
    Hop hop{static_cast<Hop::Kind>(random_.below(3))};
    if (hop.kind == Hop::Kind::drop) return hop;
    hop.interface = 1 + random_.below(4);
    if (hop.kind == Hop::Kind::gateway) hop.gateway = 0xC0000200 + random_.below(5);
    return hop;
  }
  std::optional<World::Way> way(const Hop& hop) const {
    if (hop.refusal != Refusal::none) return std::nullopt;
    if (hop.kind == Hop::Kind::drop) return World::Way{0, "", 0};
    if (hop.kind == Hop::Kind::local) return World::Way{World::cpu, "", 0};
    const std::string name = "if" + std::to_string(hop.interface);
    const auto ports = world_.settings.portMasks.find(name);
    if (ports == world_.settings.portMasks.end()) return std::nullopt;
    return World::Way{ports->second, name, hop.gateway};
  }
  std::optional<World::Way> longest(U32 table, U32 address) const {
    std::optional<World::Way> best;
    int len = -1;
    for (const Name& name : names_) {
      const Told* route = counting(name);
      const auto found = route ? way(route->hop) : std::nullopt;
      if (name.second != table || name.first.len() <= len || !found ||
          IpPrefix(IpAddr(address), name.first.len()) != name.first) {
        continue;
      }
      best = found;
      len = name.first.len();
    }
    return best;
  }
  Hop resolved(U32 id) const {
    const Hop unknown{Hop::Kind::drop, Refusal::unknownNexthop};
    const auto at = side_->objects.find(id);
    if (at == side_->objects.end()) return unknown;
    if (at->second.group.empty()) return at->second.hop;
    const auto first = side_->objects.find(at->second.group[0]);
    return first != side_->objects.end() && first->second.group.empty() ? first->second.hop
                                                                        : unknown;
  }
  void newNexthop() {
    const U32 id = 1 + random_.below(12);
    Object object{anyHop(), {}};
    if (object.hop.kind == Hop::Kind::gateway && random_.below(6) == 0) {
      object.hop.refusal = Refusal::ipv6;
      object.hop.gateway = 0;
    }
    if (random_.below(4) == 0) object = {{}, {1 + random_.below(12), 1 + random_.below(12)}};
    sender().nexthop({id, false, object.hop, object.group});
    side_->objects[id] = object;
  }
  void hopIs(const Name& name, Told& route, const Hop& hop) {
    route.hop = hop;
    changed(name);
  }
  /// One that is not good, if only for a while, need not stay.
  void changed(const Name& name) {
    const Told* route = counting(name);
    if (!route || !way(route->hop)) steady_.erase(name);
  }
  /// What the first source says of a route, or else the second.
  const Told* counting(const Name& name) const {
    for (const Side& side : sides_) {
      const auto at = side.routes.find(name);
      if (at != side.routes.end()) return &at->second;
    }
    return nullptr;
  }
  void announce(const Name& name) {
    Told& route = side_->routes[name];
    route.id = random_.flip() ? 1 + random_.below(12) : 0;
    if (route.id != 0) {
      hopIs(name, route, resolved(route.id));
    } else {
      hopIs(name, route, anyHop());
      route.hop.ofSeveral = route.hop.kind == Hop::Kind::gateway && random_.flip();
    }
    tell(name, route);
  }
  void tell(const Name& name, const Told& route) {
    sender().route({nameOf(name.first, name.second), false, route.id, route.hop});
  }
  void withdraw(const Name& name) {
    sender().route({nameOf(name.first, name.second), true});
    side_->routes.erase(name);
    changed(name);
  }

  struct Side {
    std::map<U32, Object> objects;
    std::map<Name, Told> routes;
    bool alien = false;
  };
  void sideIs(U8 source) { side_ = &sides_[source]; }
  Sender& sender() { return world_.senders[static_cast<std::size_t>(side_ - sides_.data())]; }

  World& world_;
  Random& random_;
  std::vector<Name> names_;
  std::array<Side, World::sources> sides_;
  Side* side_ = nullptr;  ///< Whose turn it is.
  std::set<Name> steady_;
};

/// What a whole audit finds, by table and kind.
std::map<std::string, U64> auditAll(const VelaAgent::Agent& agent) {
  std::map<std::string, U64> found;
  for (const auto& table : agent.tables()) {
    table->audit();
    for (const auto& each : table->findings())
      ++found[table->fullName() + VelaAgent::nameOf(each.kind)];
  }
  return found;
}

TEST(RouteService, SwitchFollowsWhatSourcesSay) {
  World world;
  Random random;
  Model model(world, random);
  model.watch();
  for (U8 source = 0; source < World::sources; ++source) world.connect(source);
  for (int round = 0; round < (VelaTest::sanitized ? 15 : 60); ++round) {
    for (U32 steps = random.below(60); steps > 0; --steps) model.step();
    model.receive();
    world.service->work(random.below(40));
    if (random.below(3) == 0) continue;
    const U8 source = random.flip();
    switch (random.below(5)) {
      case 0:  // A daemon that has other routes now, and calls its next hops otherwise.
        world.service->disconnected(source, false);
        world.quiet();
        model.reconnect(source, false);
        model.receive();
        world.quiet();
        break;
      case 1: {  // Killed amid changes, or when all was done.
        const bool done = random.flip();
        if (done) world.drain();
        const U64 writes = world.chip.rowWrites();
        world.restart();
        for (const U8 each : {source, static_cast<U8>(1 - source)}) {
          model.reconnect(each, true);
          model.receive();
          world.quiet();
        }
        // What the second one says of a route that left no trace counts until the first has spoken.
        if (done && source == 0) {
          EXPECT_EQ(world.chip.rowWrites(), writes) << "right rows were rewritten";
        }
        EXPECT_TRUE(world.service->figuresOf(source).complete);
        EXPECT_EQ(world.service->figures().unclaimed, 0);
        break;
      }
      default:
        world.drain();
        break;
    }
    model.check();
    if (HasFailure()) return;
  }
}

TEST(RouteService, RoutesThatFoundNoIndexTakeThoseThatBecomeFree) {
  World world;
  Random random;
  world.connect();
  constexpr U32 slots = Nexthops::lagCount * Nexthops::rewriteCount;
  const auto tell = [&](U32 number, bool withdrawn) {
    RouteMessage route{nameOf(IpPrefix(IpAddr(0x0B000000 + (number << 8)), 24)), withdrawn};
    route.hop = {Hop::Kind::gateway, Refusal::none, false, 1 + number % 3, number};
    world.sender.route(route);
    world.sender.frame();
  };
  const auto refused = [&] {
    return world.service->figures().refused[std::size_t(Refusal::noIndex)];
  };
  for (U32 number = 0; number < slots + 100; ++number) tell(number, false);
  world.receive(random);
  EXPECT_TRUE(world.service->full(0));
  world.drain();
  EXPECT_EQ(refused(), 100);
  EXPECT_EQ(world.agent->entriesOf("Route", 0).programmed(), slots);
  // One that has its index for itself takes no other, and nobody gets this one meanwhile.
  RouteMessage moved{nameOf(IpPrefix(IpAddr(0x0B000500), 24))};
  moved.hop = {Hop::Kind::gateway, Refusal::none, false, 3, 0xFFFF};
  const U64 writes = world.chip.rowWrites();
  world.service->take(0, moved, world.now);
  world.drain();
  EXPECT_EQ(world.way(0, IpAddr(0x0B000500)), World::Way(1 << 5, "if3", 0xFFFF));
  EXPECT_EQ(world.chip.rowWrites(), writes);
  EXPECT_EQ(refused(), 100);
  for (U32 number = 0; number < 70; ++number) tell(number, true);
  world.receive(random);
  world.drain();
  EXPECT_EQ(refused(), 30);
  for (U32 number = 70; number < slots + 100; ++number) tell(number, true);
  world.receive(random);
  world.drain();
  EXPECT_EQ(world.service->figures().wanted, 0);
  EXPECT_EQ(world.agent->entriesOf("Route", 0).entries(), 0);
  EXPECT_EQ(world.agent->entriesOf("L3Lag", 0).entries(), 0);
}

TEST(RouteService, RoutesWithoutRoomComeInWhenOthersGoHoweverManyWait) {
  World world;
  Random random;
  world.settings.waitingMost = 100;
  world.restart();
  world.connect();
  const VelaAgent::Entries& level = world.agent->entriesOf("Lpm23", 0);
  std::set<RouteName> left;
  for (U32 number = 0; number < 5000; ++number) {
    left.insert(nameOf(IpPrefix(IpAddr(0x20000000 + (number << 11)), 21)));
  }
  const auto tell = [&](const RouteName& name, bool withdrawn) {
    world.sender.route({name, withdrawn, 0, {Hop::Kind::local}});
    world.sender.frame();
  };
  for (const RouteName& name : left) tell(name, false);
  while (!left.empty()) {
    world.receive(random);
    world.drain();
    const U64 programmed = world.service->figures().programmed;
    EXPECT_GE(programmed, std::min<std::size_t>(left.size(), 1900));
    EXPECT_EQ(programmed, level.programmed());
    EXPECT_LE(level.waiting(), 100 + VelaSwitchApi::batchMost);
    std::set<RouteName> waiting;
    const RouteService::RefusedRoutes refused = world.service->refused();
    for (std::size_t each = 0; each < refused.size(); ++each) waiting.insert(refused[each].first);
    ASSERT_EQ(programmed + waiting.size(), left.size());
    for (const RouteName& name : std::exchange(left, waiting)) {
      if (!left.contains(name)) tell(name, true);
    }
  }
  world.receive(random);
  world.drain();
  EXPECT_EQ(level.entries(), 0);
}

TEST(RouteService, WhatRegistersDidNotTakeIsTriedAgain) {
  World world;
  Random random;
  world.connect();
  for (U32 good = 0; good < 12; ++good) {
    const auto len = static_cast<U8>(8 + 2 * good % 24);
    RouteMessage route{nameOf(IpPrefix(IpAddr(0x0B000000 + (good << 16)), len))};
    route.hop = {Hop::Kind::gateway, Refusal::none, false, 1 + good % 3, good};
    world.sender.route(route);
    world.sender.frame();
    world.chip.failWritesIs(1 + good % 3, 0, good % 4);
    world.receive(random);
    world.drain();
    world.chip.failWritesIs(0);
    for (int ticks = 0; ticks < 2; ++ticks) {
      world.service->tick(world.now += seconds(2));
      world.drain();
    }
    EXPECT_EQ(world.service->figures().programmed, world.service->figures().wanted);
    EXPECT_TRUE(world.way(0, IpAddr(0x0B000000 + (good << 16))));
  }
}

TEST(RouteService, WhatFailsForLongIsTriedAgainMoreAndMoreSeldom) {
  World world;
  const std::string directory = world.file + ".d";
  std::filesystem::create_directory(directory);
  world.settings.nexthopFile = directory + "/nexthops";
  world.restart();
  std::filesystem::remove_all(directory);
  world.connect();
  world.service->take(0, RouteMessage{nameOf(IpPrefix(IpAddr(0x0A000000), 8))}, world.now);
  for (int tick = 0; tick < 600; ++tick) {
    world.drain();
    world.service->tick(world.now += std::chrono::milliseconds(100));
  }
  EXPECT_THAT(world.service->carriedOut(), testing::AllOf(testing::Ge(6), testing::Le(8)));
  std::filesystem::create_directory(directory);
  world.service->tick(world.now += seconds(64));
  world.drain();
  EXPECT_EQ(world.service->figures().programmed, 1);
  std::filesystem::remove_all(directory);
}

TEST(RouteService, SourcesAreNotSweptWhileHeldUpButHoweverMuchWaits) {
  World world;
  world.settings.sources[0].answered = true;
  world.restart();
  const auto tell = [&](U8 source, U32 from, U32 to, Hop::Kind kind = Hop::Kind::local) {
    for (U32 at = from; at < to; ++at) {
      RouteMessage route{nameOf(IpPrefix(IpAddr(0x0B000000 + (at << 8)), 24)), false, 0, {kind}};
      world.service->take(source, route, world.now);
    }
  };
  world.connect();
  tell(0, 0, 1200);
  world.drain();
  world.connect();
  tell(0, 0, 1100);
  world.drain();
  world.pass(seconds(180));
  EXPECT_EQ(world.service->figuresOf(0).routes, 1200) << "nobody read what it has to say";
  while (world.service->answer(0)) continue;
  // Others change without an end.
  world.connect(1);
  for (int count = 0; count < 100; ++count) {
    const U32 from = 2000 + 100 * (static_cast<U32>(count) % 3);
    tell(1, from, from + 100, count / 3 % 2 ? Hop::Kind::drop : Hop::Kind::local);
    if (count == 0) tell(1, 3000, 3100);
    world.service->work(100);
    ASSERT_GT(world.service->queued(), 0);
    world.service->tick(world.now += std::chrono::milliseconds(100));
  }
  EXPECT_TRUE(world.service->figuresOf(0).complete);
  EXPECT_EQ(world.service->figuresOf(0).routes, 1100);
}

TEST(RouteService, RoutesFollowTheNamesOfInterfaces) {
  World world;
  world.connect();
  for (const U32 interface : {1, 9}) {
    RouteMessage route{nameOf(IpPrefix(IpAddr(interface << 24), 8))};
    route.hop = {Hop::Kind::gateway, Refusal::none, false, interface, 1};
    world.service->take(0, route, world.now);
  }
  world.drain();
  EXPECT_EQ(world.service->figures().refused[std::size_t(Refusal::noPort)], 1);
  world.names = {{1, "if2"}, {9, "if3"}};
  world.service->tick(world.now += seconds(5));
  world.drain();
  EXPECT_EQ(world.way(0, IpAddr(0x01000001)), World::Way(3 << 6, "if2", 1));
  EXPECT_EQ(world.way(0, IpAddr(0x09000001)), World::Way(1 << 5, "if3", 1));
}

TEST(RouteService, OneOfSeveralOfARankGoesWhenAllIsTold) {
  World world;
  const IpAddr address(0x0A000001);
  RouteMessage first{nameOf(IpPrefix(address, 8))};
  first.hop = {Hop::Kind::gateway, Refusal::none, false, 1, 1};
  first.other = RouteMessage::Other::isBehind;
  RouteMessage second = first;
  second.hop.gateway = 2;
  second.other = RouteMessage::Other::counts;
  world.connect();
  for (const RouteMessage& each : {first, first, second}) world.service->take(0, each, world.now);
  world.drain();
  EXPECT_EQ(world.way(0, address), World::Way(1 << 5, "if1", 1));
  first.withdrawn = second.withdrawn = true;
  world.service->take(0, first, world.now);
  world.drain();
  EXPECT_TRUE(world.service->unsure(0));
  EXPECT_TRUE(world.way(0, address));
  world.connect();
  second.withdrawn = false;
  for (int count = 0; count < 2; ++count) world.service->take(0, second, world.now);
  world.drain();
  EXPECT_EQ(world.way(0, address), World::Way(1 << 5, "if1", 2));
  world.service->take(0, first, world.now);
  world.drain();
  EXPECT_FALSE(world.service->unsure(0));
  EXPECT_FALSE(world.way(0, address));
}

TEST(RouteService, OnlySilenceThatWasListenedToWithdraws) {
  World world;
  const auto tell = [&](U32 number) {
    const RouteName name = nameOf(IpPrefix(IpAddr(number << 24), 8));
    world.service->take(0, RouteMessage{name, false, 0, {Hop::Kind::local}}, world.now);
  };
  for (const U32 told : {10, 11}) {
    world.connect();
    tell(told);
    world.pass(seconds(1));
  }
  world.connect();
  world.pass(seconds(120));
  EXPECT_EQ(world.service->figuresOf(0).routes, 2) << "it said nothing";
  tell(11);
  world.service->tick(world.now += seconds(120));
  world.drain();
  EXPECT_EQ(world.service->figuresOf(0).routes, 2) << "the daemon stood still";
  for (int count = 0; count < 4; ++count) {
    world.pass(seconds(4));
    world.service->notQuiet(0, world.now);
  }
  EXPECT_EQ(world.service->figuresOf(0).routes, 2) << "there was something to read";
  world.quiet();
  EXPECT_EQ(world.service->figuresOf(0).routes, 1);
}

TEST(RouteService, RowsThatFailNeverLeadToTheNextHopOfAnother) {
  World world;
  Random random;
  world.connect();
  // Some share a row, and shorter ones have several.
  const std::array<IpPrefix, 8> names{
      IpPrefix(IpAddr(0x0A000000), 8),  IpPrefix(IpAddr(0x0A400000), 10),
      IpPrefix(IpAddr(0x0B400000), 10), IpPrefix(IpAddr(0x0C000000), 21),
      IpPrefix(IpAddr(0x0C000000), 22), IpPrefix(IpAddr(0x0C000400), 22),
      IpPrefix(IpAddr(0x0D000000), 24), IpPrefix(IpAddr(0x0E000000), 32)};
  for (int round = 0; round < 3000; ++round) {
    world.chip.failWritesIs(random.below(4), random.below(3), random.below(3));
    for (U32 changes = 1 + random.below(3); changes > 0; --changes) {
      const U32 number = random.below(names.size());
      RouteMessage route{nameOf(names[number]), random.below(3) == 0};
      route.hop = {Hop::Kind::gateway, Refusal::none, false, 1 + random.below(3)};
      route.hop.gateway = (number + 1) << 8 | random.below(4);
      world.service->take(0, route, world.now);
    }
    world.drain();
    for (const IpPrefix& name : names) {
      const auto hit = VelaDevice::route(world.path, 0, name.address());
      if (!hit) continue;
      const U32 gateway = std::get<2>(*world.way(0, name.address()));
      const U32 number = (gateway >> 8) - 1;
      ASSERT_LT(number, names.size()) << "nobody's next hop, in round " << round;
      EXPECT_EQ(IpPrefix(name.address(), names[number].len()), names[number]);
    }
    if (random.below(4) == 0) world.service->tick(world.now += seconds(1));
    world.drain();
  }
  world.chip.failWritesIs(0);
  for (const IpPrefix& name : names)
    world.service->take(0, RouteMessage{nameOf(name), true}, world.now);
  world.pass(seconds(130));
  EXPECT_EQ(world.agent->entriesOf("L3Lag", 0).entries(), 0);
  EXPECT_EQ(world.service->refused().size(), 0);
  EXPECT_THAT(auditAll(*world.agent), testing::IsEmpty());
}

TEST(RouteService, RoutesOfASourceAreBounded) {
  World world;
  world.settings.routesMost = 10;
  world.restart();
  for (int connection = 0; connection < 2; ++connection) {
    world.connect();
    const auto tell = [&](U32 number) {
      const RouteName name = nameOf(IpPrefix(IpAddr(number << 24), 8), number % 2 ? 254 : 77);
      world.service->take(0, RouteMessage{name}, world.now);
    };
    for (U32 number = 0; number < 10; ++number) tell(number);
    for (const U32 number : {10, 11}) EXPECT_THROW(tell(number), MalformedMessage);
    world.drain();
    EXPECT_EQ(world.service->figures().wanted, 10);
  }
}

TEST(RouteService, RoutesOfOtherFamiliesAreNamed) {
  World world;
  world.connect();
  world.service->take(0, RouteMessage{{RT_TABLE_MAIN, AF_MPLS, 20, {0, 6, 0x41, 0}}}, world.now);
  world.service->take(0, RouteMessage{{RT_TABLE_MAIN, 7, 8}}, world.now);
  const RouteService::RefusedRoutes refused = world.service->refused();
  std::map<std::string, std::string> listed;
  for (std::size_t at = 0; at < refused.size(); ++at) {
    listed[toText(refused[at].first)] = VelaService::nameOf(refused[at].second);
  }
  EXPECT_THAT(listed, testing::UnorderedElementsAre(testing::Pair("label 100", "mpls"),
                                                    testing::Pair("family 7", "family")));
}

TEST(RouteService, NextHopsOfASourceAreBounded) {
  World world;
  world.connect();
  for (U32 id = 1; id <= 65536; ++id) world.service->take(0, NexthopMessage{id}, world.now);
  world.service->take(0, NexthopMessage{1, false, {Hop::Kind::local}}, world.now);
  EXPECT_THROW(world.service->take(0, NexthopMessage{65537}, world.now), MalformedMessage);
}

TEST(Nexthops, ALineThatWasCutCostsNoOther) {
  const std::string file = testing::TempDir() + "cut." + std::to_string(getpid());
  const std::array<Nexthops::Owner, 2> owners{{{1, "if1", 7}, {2, "if2", 8}}};
  const auto write = [](U8, U64) { return true; };
  std::array<Slot, 2> slots;
  {
    Nexthops nexthops(file, write);
    nexthops.started();
    EXPECT_EQ(nexthops.acquire(owners[0], slots[0]), Nexthops::Outcome::good);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{std::filesystem::file_size(file) + 10, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_EQ(nexthops.acquire(owners[1], slots[1]), Nexthops::Outcome::hardwareError);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(nexthops.failure(), file + ": File too large");
    EXPECT_EQ(nexthops.acquire(owners[1], slots[1]), Nexthops::Outcome::good);
    EXPECT_EQ(nexthops.failure(), "");
  }
  Nexthops nexthops(file, write);
  for (std::size_t at : {0, 1}) nexthops.lagIs(slots[at].lag, owners[at].ports);
  nexthops.started();
  for (std::size_t at : {1, 0}) {
    Slot slot;
    EXPECT_EQ(nexthops.acquire(owners[at], slot), Nexthops::Outcome::good);
    EXPECT_EQ(slot, slots[at]);
  }
  std::filesystem::remove(file);
}

TEST(Upkeep, ScrubbingFindsAndMendsWhatAnAuditFinds) {
  World world;
  Random random;
  Model model(world, random);
  world.connect();
  for (int steps = 0; steps < 200; ++steps) model.step();
  world.receive(random);
  world.drain();
  for (const bool repair : {false, true}) {
    Upkeep upkeep(*world.agent, world.watcher->watch(), {{100000, repair}, {}, {}});
    for (int flips = 0; flips < 40; ++flips) {
      const auto& tables = world.agent->tables();
      const auto& parts = tables[random.below(U32(tables.size()))]->convertor().hwTables();
      if (parts.empty()) continue;
      const auto& part = std::next(parts.begin(), random.below(U32(parts.size())))->second;
      world.chip.flipBit(part->busHandle(), random.below(part->descriptor().last + 1), 0,
                         random.below(32));
    }
    const auto expected = auditAll(*world.agent);
    EXPECT_GT(expected.size(), 5);
    // A row at a time, and none of another pass.
    while (upkeep.scrubber().passes() == 0) {
      upkeep.tick(world.now += std::chrono::microseconds(10));
    }
    std::map<std::string, U64> found;
    upkeep.scrubber().forEachFound([&](const auto& table, auto kind, U64 count) {
      found[table.fullName() + VelaAgent::nameOf(kind)] = count;
    });
    EXPECT_EQ(found, expected);
    EXPECT_EQ(auditAll(*world.agent).empty(), repair);
  }
}

TEST(Upkeep, AnEmptySwitchIsEmptyAfterARestart) {
  World world;
  world.restart();
  for (const auto& table : world.agent->tables()) {
    EXPECT_EQ(table->typed().used() + table->typed().peak(), 0) << table->fullName();
  }
}

TEST(Delays, EachChangeCountsFromItsMessage) {
  Random random;
  Delays delays;
  std::deque<int> changes;  // When each was asked for, or never.
  std::vector<int> expected;
  std::vector<int> found;
  U64 queued = 0;
  for (int now = 0; now < 1000; ++now) {
    const int came = random.flip() ? now : -1;
    for (U32 count = random.below(4); count > 0; --count, ++queued) changes.push_back(came);
    came < 0 ? delays.unasked(queued) : delays.asked(queued, Clock::time_point(seconds(came)));
    for (U32 count = random.below(5); count > 0 && !changes.empty(); --count) {
      if (changes.front() >= 0) expected.push_back(now - changes.front());
      changes.pop_front();
    }
    delays.done(queued - changes.size(), Clock::time_point(seconds(now)),
                [&](U64 count, Clock::duration delay) {
                  found.insert(found.end(), count, static_cast<int>(delay / seconds(1)));
                });
  }
  EXPECT_EQ(found, expected);
}

TEST(Upkeep, LoadsCrossTheirMarksWithHysteresis) {
  World world;
  Random random;
  Thresholds thresholds(*world.agent, world.watcher->watch());
  const Marks marks{75, 25};
  thresholds.settingsAre({{}, {{"HashTest", marks}}});
  const auto& table = *std::find_if(world.agent->tables().begin(), world.agent->tables().end(),
                                    [](const auto& each) { return each->name() == "HashTest"; });
  bool above = false;
  U64 crossings = 0;
  for (int step = 0; step < 5000; ++step) {
    // It fills and empties by and by.
    const VelaAgent::Json key = random.below(40);
    (random.below(10) < (step / 200 % 2 ? 1U : 9U)) ? void(table->set(key, {}))
                                                    : void(table->del(key));
    const U32 used = table->typed().used();
    const U64 before = world.watcher->watch().sequence();
    thresholds.check();
    const bool crossed = above ? used * 100 <= marks.low * 16 : used * 100 > marks.high * 16;
    above ^= crossed;
    crossings += crossed;
    ASSERT_EQ(world.watcher->watch().sequence() - before, crossed);
    ASSERT_EQ(thresholds.state(*table)->above, above);
  }
  EXPECT_GT(crossings, 4);
  EXPECT_EQ(thresholds.state(*table)->rises + thresholds.state(*table)->falls, crossings);
}

TEST(FpmStream, BrokenStreamsEndInOneWay) {
  World world;
  Random random;
  Model model(world, random);
  for (int steps = 0; steps < 60; ++steps) model.step();
  const std::string whole = world.sender.stream;
  U64 malformed = 0;
  for (int round = 0; round < 3000; ++round) {
    world.sender.stream = whole;
    for (U32 flips = 1 + random.below(3); flips > 0; --flips) {
      world.sender.stream[random.below(static_cast<U32>(whole.size()))] =
          static_cast<char>(random());
    }
    world.connect();
    try {
      world.receive(random);
    } catch (const MalformedMessage&) {
      ++malformed;
    }
    world.service->work(20);
  }
  EXPECT_GT(malformed, 100);
}

/// Messages of the kernel, made by the library that reads them.
class KernelMessages {
 public:
  template <class Fixed>
  nlmsghdr* add(U16 type, const Fixed& fixed) {
    bytes.resize(bytes.size() + 512);
    last_ = mnl_nlmsg_put_header(bytes.data() + size_);
    last_->nlmsg_type = type;
    std::memcpy(mnl_nlmsg_put_extra_header(last_, sizeof fixed), &fixed, sizeof fixed);
    return last_;
  }
  void end() { size_ += MNL_ALIGN(last_->nlmsg_len); }
  void route(const char* address, U8 len, U8 table, U8 type, U32 metric, U8 tos = 0) {
    auto* head = add(RTM_NEWROUTE, rtmsg{AF_INET, len, 0, tos, table, RTPROT_STATIC, 0, type, 0});
    mnl_attr_put_u32(head, RTA_DST, inet_addr(address));
    mnl_attr_put_u32(head, RTA_OIF, 1);
    if (metric != 0) mnl_attr_put_u32(head, RTA_PRIORITY, metric);
    end();
  }
  void neighbour(U16 type, const char* address, U16 state) {
    mnl_attr_put_u32(add(type, ndmsg{AF_INET, 0, 0, 1, state, 0, RTN_UNICAST}), NDA_DST,
                     inet_addr(address));
    end();
  }
  std::string told(KernelStream& stream, KernelStream::Heard& heard) {
    std::string all;
    heard = stream.received(std::span(bytes).first(size_), [&](const Message& message) {
      const auto& route = std::get<RouteMessage>(message);
      all += Orb::text(route.withdrawn ? "-" : "+", toText(route.route), " by ", route.preference,
                       "; ");
    });
    size_ = 0;
    return all;
  }
  std::vector<char> bytes;

 private:
  std::size_t size_ = 0;
  nlmsghdr* last_ = nullptr;
};

TEST(KernelStream, RoutesAreThoseThatPacketsOfOthersTake) {
  KernelMessages kernel;
  auto* head = kernel.add(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 0, 9, 1, 0});
  nlattr* about = mnl_attr_nest_start(head, IFLA_LINKINFO);
  mnl_attr_put_strz(head, IFLA_INFO_KIND, "vrf");
  nlattr* data = mnl_attr_nest_start(head, IFLA_INFO_DATA);
  mnl_attr_put_u32(head, IFLA_VRF_TABLE, 10);
  mnl_attr_nest_end(head, data);
  mnl_attr_nest_end(head, about);
  kernel.end();
  const auto link = [&](unsigned flags) {
    mnl_attr_put_u32(kernel.add(RTM_NEWLINK, ifinfomsg{AF_UNSPEC, 0, 0, 1, flags, 0}), IFLA_MASTER,
                     9);
    kernel.end();
  };
  link(1);
  kernel.route("10.1.0.0", 16, 254, RTN_UNICAST, 20);
  kernel.route("10.1.0.2", 32, 255, RTN_LOCAL, 0);
  kernel.route("10.1.255.255", 32, 255, RTN_BROADCAST, 0);
  kernel.route("127.0.0.0", 8, 255, RTN_LOCAL, 0);
  kernel.route("10.2.0.0", 16, 254, RTN_UNICAST, 0, 4);
  kernel.neighbour(RTM_NEWNEIGH, "10.1.0.7", NUD_STALE);
  kernel.neighbour(RTM_NEWNEIGH, "10.1.0.8", NUD_INCOMPLETE);
  kernel.neighbour(RTM_DELNEIGH, "10.1.0.7", NUD_STALE);
  KernelStream stream;
  KernelStream::Heard heard;
  EXPECT_EQ(kernel.told(stream, heard),
            "+10.1.0.0/16 by 21; +10.1.0.2/32 by 0; +10.1.0.7/32 table 10 by 4294967295; "
            "-10.1.0.8/32 table 10 by 4294967295; -10.1.0.7/32 table 10 by 4294967295; ");
  EXPECT_FALSE(heard.doubtful);
  link(0);
  EXPECT_EQ(kernel.told(stream, heard), "");
  EXPECT_TRUE(heard.doubtful) << "routes go with a link that is down, unheard";
  for (const auto& [type, error] : {std::pair<U16, int>{NLMSG_ERROR, EPERM},
                                    {NLMSG_ERROR, ENOBUFS},
                                    {NLMSG_DONE, EINTR},
                                    {NLMSG_DONE, 0}}) {
    kernel.add(type, nlmsgerr{-error, {}});
    kernel.end();
    kernel.told(stream, heard);
    EXPECT_EQ(heard.dumped, error != ENOBUFS);
    EXPECT_EQ(heard.error, error == ENOBUFS ? 0 : error);
  }
}

TEST(OffloadFrame, NamesTheTypeThatCame) {
  for (const U8 type : {RTN_UNICAST, RTN_LOCAL, RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_PROHIBIT}) {
    RouteMessage route{nameOf(IpPrefix(IpAddr(0x0A000000), 8))};
    route.type = type;
    const std::string frame = offloadFrame(route, true);
    FpmStream().received(frame, [&](const Message& message) {
      EXPECT_EQ(std::get<RouteMessage>(message).type, type);
    });
  }
}

/// What a line is made of: its names and the kinds of its values. Of a list, of the first item.
VelaAgent::Json shapeOf(const VelaAgent::Json& json) {
  if (json.is_array()) return json.empty() ? json : VelaAgent::Json::array({shapeOf(json[0])});
  if (!json.is_object()) return json.type_name();
  auto shape = VelaAgent::Json::object();
  for (const auto& item : json.items()) shape[item.key()] = shapeOf(item.value());
  return shape;
}

std::string firstOfEachEvent(const std::string& lines) {
  std::set<std::string> events;
  std::string first;
  std::istringstream all(lines);
  for (std::string line; std::getline(all, line);) {
    if (events.insert(VelaAgent::jsonFromText(line)["event"]).second) (first += line) += '\n';
  }
  return first;
}

TEST(Control, RoutesThatTablesWereNotToldOfAreNamed) {
  World world;
  Random random;
  world.connect();
  const Upkeep upkeep(*world.agent, world.watcher->watch(), {{0, true}, {}, seconds(1)});
  const RouteTimes times(*world.agent);
  const auto tell = [&](IpPrefix prefix, U32 interface) {
    world.sender.route({nameOf(prefix),
                        false,
                        0,
                        {Hop::Kind::gateway, Refusal::none, false, interface, 0xC0000201}});
  };
  tell(IpPrefix(IpAddr(0x0A000000), 8), 1);
  tell(IpPrefix(IpAddr(0x0A010000), 16), 9);
  tell(IpPrefix(IpAddr(0x0B000000), 8), 9);
  world.sender.frame();
  world.receive(random);
  world.drain();
  Control control(*world.agent, *world.service, times, world.watcher->watch(), upkeep);
  const auto why = [&](const std::string& asked) {
    std::string answer;
    control.ask("{\"request\":\"why\"," + asked + "}")->piece(answer);
    return VelaAgent::jsonFromText(answer.substr(0, answer.find('\n')));
  };
  auto answer = why(R"("address":{"vrf":0,"address":"10.1.2.3"})");
  EXPECT_EQ(answer["route"]["prefix"], "10.0.0.0/8");
  EXPECT_EQ(answer["better"][0]["key"]["prefix"], "10.1.0.0/16");
  EXPECT_EQ(answer["better"][0]["notTold"], "noPort");
  answer = why(R"("address":{"vrf":0,"address":"11.1.2.3"})");
  EXPECT_EQ(answer["causes"], VelaAgent::Json({"coveredByRefused", "notTold"}));
  EXPECT_EQ(answer["better"].size(), 1u);
  answer = why(R"("table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/8"})");
  EXPECT_EQ(answer["seconds"], VelaAgent::Json({{"desired", 0}, {"status", 0}}));
}

TEST(Control, WhatIsNoTextIsRefusedAndCopiesAreFew) {
  World world;
  const Upkeep upkeep(*world.agent, world.watcher->watch(), {});
  const RouteTimes times(*world.agent);
  Control control(*world.agent, *world.service, times, world.watcher->watch(), upkeep);
  const auto isRefused = [&](const std::string& line) {
    const auto answer = control.ask(line);
    std::string text;
    do {
      if (answer->prepares()) answer->prepare();
    } while (answer->piece(text));
    return VelaAgent::jsonFromText(text.substr(text.rfind("{\"done\"")))["done"] == false;
  };
  EXPECT_TRUE(isRefused("\xFF"));
  EXPECT_TRUE(isRefused("{\"request\":\"statsu\xE2\x82\"}"));
  EXPECT_TRUE(isRefused("{\"request\":\"" + std::string(20000, '\xC3')));
  const std::string decode = R"({"request":"decode"})";
  auto unread = control.ask(decode);
  const auto other = control.ask(decode);
  EXPECT_TRUE(isRefused(decode));
  unread.reset();
  EXPECT_FALSE(isRefused(decode));
}

TEST(Memory, AFileHasItsRoomOnTheDisk) {
  const std::string file = testing::TempDir() + "room." + std::to_string(getpid());
  constexpr off_t size = off_t{1} << 20;
  VelaDevice::Memory(file).sizeIs(size);
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, size);
  EXPECT_GE(512 * status.st_blocks, size) << "has holes";
  std::filesystem::remove(file);
}

TEST(Control, AnswersAreAsDocumented) {
  World world;
  Random random;
  world.connect();
  const auto tell = [&](IpPrefix prefix, Hop::Kind kind, U32 interface) {
    world.sender.route(
        {nameOf(prefix), false, 0, {kind, Refusal::none, false, interface, 0xC0000201}});
  };
  tell(IpPrefix(IpAddr(0xCB007100), 24), Hop::Kind::gateway, 1);
  tell(IpPrefix(IpAddr(0xC0000200), 24), Hop::Kind::local, 1);
  tell(IpPrefix(IpAddr(0xC6336400), 24), Hop::Kind::gateway, 9);
  world.sender.route({{RT_TABLE_MAIN, AF_INET6, 16, {0x20, 1}}, false, 0, {Hop::Kind::local}});
  world.sender.frame();
  world.receive(random);
  world.drain();
  Upkeep upkeep(*world.agent, world.watcher->watch(), {{100000, true}, {}, seconds(1)});
  while (upkeep.scrubber().passes() == 0) upkeep.tick(world.now += seconds(1));
  const RouteTimes times(*world.agent);
  Control control(*world.agent, *world.service, times, world.watcher->watch(), upkeep);
  std::ifstream docs(DOCS "/velad.md");
  std::string answer;
  int asked = 0;
  for (std::string line; std::getline(docs, line);) {
    if (line.starts_with("> ")) {
      EXPECT_EQ(answer, "") << "the answer has more lines than documented";
      answer.clear();
      const auto making = control.ask(line.substr(2));
      if (making->prepares()) making->prepare();
      while (making->piece(answer) && !making->waits()) {
      }
      ++asked;
      if (line.find("watch") == std::string::npos) continue;
      // Something of each kind happens.
      tell(IpPrefix(IpAddr(0xCB007200), 24), Hop::Kind::gateway, 1);
      world.sender.frame();
      world.receive(random);
      world.drain();
      upkeep.settingsAre({{100000, true}, {{0, 0}, {}}, {}});
      const auto& lags = world.agent->tables().back()->convertor().hwTables().begin()->second;
      world.chip.flipBit(lags->busHandle(), 0, 0, 3);
      const U64 passes = upkeep.scrubber().passes();
      while (upkeep.scrubber().passes() < passes + 2) upkeep.tick(world.now += seconds(1));
      making->piece(answer);
      answer = firstOfEachEvent(answer);
    } else if (line.starts_with("< ")) {
      const std::string real = answer.substr(0, answer.find('\n'));
      ASSERT_NE(real, "") << "no line for " << line;
      answer.erase(0, real.size() + 1);
      const auto json = VelaAgent::jsonFromText(real);
      const auto told = VelaAgent::jsonFromText(line.substr(2));
      EXPECT_EQ(shapeOf(json), shapeOf(told)) << real;
      if (told.contains("done") || (told.contains("finding") && !told.contains("event"))) {
        EXPECT_EQ(json, told);
      }
    }
  }
  EXPECT_EQ(asked, 12);
}

TEST(Configuration, DocumentedOneIsGood) {
  std::ifstream docs(DOCS "/velad.md");
  const std::string all(std::istreambuf_iterator<char>(docs), {});
  const std::size_t begin = all.find("```json") + 7;
  std::vector<std::string> mistakes;
  readConfiguration(all.substr(begin, all.find("```", begin) - begin), mistakes);
  EXPECT_THAT(mistakes, testing::IsEmpty());
}

TEST(Configuration, EachMistakeHasALine) {
  std::vector<std::string> mistakes;
  const auto good = readConfiguration(
      R"({"device":"d","control":"c","interfaces":{"eth1":5,"bond0":[6,7]},"tables":{"254":0},
          "kernel":{"quiet":1},"fpm":{"listen":"0.0.0.0:99","anywhere":true,"quiet":0.5,"offload":true}})",
      mistakes);
  EXPECT_THAT(mistakes, testing::IsEmpty());
  EXPECT_EQ(good.routes.portMasks.at("bond0"), 0xC0);
  EXPECT_EQ(good.fpmPort, 99);
  ASSERT_EQ(good.routes.sources.size(), 2);
  EXPECT_TRUE(good.routes.sources[0].answered) << "zebra counts before the kernel";
  EXPECT_EQ(good.routes.sources[1].quiet, seconds(1));
  EXPECT_EQ(good.routes.sources[0].quiet, std::chrono::milliseconds(500));
  readConfiguration(
      R"({"devise":"d","control":7,"interfaces":{"eth1":48,"eth2":[]},"tables":{"254":0,"9":0,"8":999},
          "fpm":{"listen":"10.0.0.1:2620","quiet":-1},"queue":0,
          "metrics":{"listen":"10.0.0.1:9109","anywhere":1},"log":"loud","hits":-1,
          "scrub":{"rows":100001,"repair":0},
          "thresholds":{"high":101,"tables":{"L3Lag":{"high":70},"L3Lug":{},"Lpm26":{"low":8.5},
          "Lpm20":{"low":4294967346}}}})",
      mistakes);
  EXPECT_THAT(mistakes,
              testing::UnorderedElementsAre(
                  "devise: unknown field (did you mean device?)", "control: is to be a text",
                  "interfaces.eth1: the switch has ports 0 to 47, no 48",
                  "interfaces.eth2: names no port", "tables.9: another table has VRF 0",
                  testing::StartsWith("tables.8: the switch has VRFs 0 to "),
                  testing::StartsWith("fpm.listen: 10.0.0.1 is not loopback"),
                  testing::StartsWith("metrics.listen: 10.0.0.1 is not loopback"),
                  "metrics.anywhere: is to be true or false",
                  "fpm.quiet: is to be seconds, 0 to 86400", "queue: is to be 1 or more",
                  "log: is to be one of error, warning, info", "hits: is to be seconds, 0 to 86400",
                  testing::StartsWith("scrub.rows: "), "scrub.repair: is to be true or false",
                  "thresholds.high: is to be a percentage, 0 to 100",
                  "thresholds.tables.L3Lag: low is to be below high, not 70 and 70",
                  "thresholds.tables.L3Lug: unknown field (did you mean L3Lag?)",
                  "thresholds.tables.Lpm26.low: is to be a percentage, 0 to 100",
                  "thresholds.tables.Lpm20.low: is to be a percentage, 0 to 100",
                  "device: is missing", "control: is missing"));
  mistakes.clear();
  readConfiguration(R"({"profile":5,"device":"d","interfaces":{"eth1":48},"queue":0})", mistakes);
  EXPECT_THAT(mistakes, testing::UnorderedElementsAre(
                            "profile: is to be a text", "queue: is to be 1 or more",
                            "control: is missing", testing::StartsWith("tables: names no table")));
  mistakes.clear();
  readConfiguration(
      R"({"device":"d","control":"x/../d","nexthops":"d","tables":{"254":0,"254":0,"0254":1},
          "fpm":{"listen":"127.0.0.1:99"},"metrics":{"listen":"0.0.0.0:99","anywhere":true},
          "page":{"listen":"127.0.0.1:0"},"thresholds":{"tables":{"StarG":{},"Lpm26":{}}}})",
      mistakes);
  EXPECT_THAT(mistakes, testing::UnorderedElementsAre(
                            "tables.254: is there twice", "tables.0254: this table is there twice",
                            "control: is the file of device", "nexthops: is the file of device",
                            "page.listen: is to have a port, 1 to 65535",
                            "fpm.listen: is where metrics.listen is",
                            "thresholds.tables.StarG: has no rows of its own that could be full"));
  mistakes.clear();
  readConfiguration(R"({"control":")" + std::string(108, 'c') + R"(","stream":{"server":"s"}})",
                    mistakes);
  EXPECT_THAT(mistakes,
              testing::Contains("control: is longer than a socket's path can be, 107 bytes"));
  for (const auto& [text, mistake] :
       std::map<std::string, std::string>{{"[]", "is to be a JSON object"},
                                          {" \n", "it is empty"},
                                          {"{\n  \"device\": 1,\n}\n", "line 3, column 1 of }"},
                                          {"{\n  7", "line 2, column 3 of   7"},
                                          {"{\n \"a\":\n", "line 2, column 6 of  \"a\":"}}) {
    mistakes.clear();
    readConfiguration(text, mistakes);
    EXPECT_THAT(mistakes, testing::ElementsAre(mistake));
  }
}

}  // namespace
