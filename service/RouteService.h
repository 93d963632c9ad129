#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <unordered_map>

#include "agent/Agent.h"
#include "service/Messages.h"
#include "service/Nexthops.h"

namespace VelaService {

using Clock = std::chrono::steady_clock;

/// What a route service is told once.
struct RouteSettings {
  std::map<U32, U8> vrfs;                ///< By the kernel's number of the table.
  std::map<std::string, U64> portMasks;  ///< By the interface's name.
  /// How long a source is quiet, or else connected, until what it did not announce goes.
  Clock::duration quiet = std::chrono::seconds(5);
  Clock::duration longest = std::chrono::seconds(60);
  std::size_t queueMost = 4096;  ///< Routes that wait, until sources are to be held up.
  std::string nexthopFile;       ///< See Nexthops.
};

/// Brings the routes of a source into a switch, and keeps them there.
///
/// Messages change what is desired, and put the route into a queue unless it is there already; so
/// changes of a route that follow each other are one, and a withdrawal with an announcement behind
/// it is a replacement, which never leaves hardware. work() carries out what is queued.
///
/// Routes outlive their source's connection. Those that it does not announce again once it is back
/// are removed when it has been quiet; after a restart those that hardware held likewise.
class RouteService final : private Orb::KeyObserver<VelaSwitch::LpmKey>,
                           private VelaSwitchApi::BatchListener {
 public:
  /// The name of an interface by its number; empty where there is none.
  using InterfaceNamer = std::function<std::string(U32)>;

  /// `agent` must be started, and outlive this. Takes up what the switch holds. Throws
  /// std::runtime_error when the file of next hops cannot be written.
  RouteService(VelaAgent::Agent& agent, RouteSettings settings, InterfaceNamer namer);
  ~RouteService();
  RouteService(const RouteService&) = delete;
  RouteService& operator=(const RouteService&) = delete;

  void connected(Clock::time_point now);
  /// The source is gone; `malformed` when what it said was of no use.
  void disconnected(bool malformed) {
    connected_ = false;
    figures_.malformed += malformed;
  }
  /// Takes a message of the source that is connected.
  void take(const Message& message, Clock::time_point now);
  /// Whether the source is to be held up until work() was done.
  bool full() const { return queue_.size() >= settings_.queueMost; }
  bool idle() const { return queue_.empty() && !sweeping_; }
  /// Carries out up to `most` changes.
  void work(std::size_t most);
  /// What time brings: to be called now and then.
  void tick(Clock::time_point now);

  /// On this connection: how many routes went that it did not announce, when they are gone.
  std::optional<std::size_t> removed() const {
    return swept_ && !sweeping_ && connection_ != 0 ? std::optional(removed_) : std::nullopt;
  }

  /// All of them are kept, so that asking costs nothing.
  struct Figures {
    U64 connections = 0;  ///< So far.
    U64 messages = 0;     ///< So far.
    U64 malformed = 0;    ///< Connections that ended with something malformed.
    U64 routes = 0;       ///< That are wanted, refused ones among them, or are to go.
    U64 wanted = 0;       ///< Those of them that are wanted.
    U64 announced = 0;    ///< Those that were announced on this connection.
    U64 ofSeveral = 0;    ///< In the switch with the first of several gateways.
    U64 programmed = 0;   ///< In hardware.
    U64 waiting = 0;      ///< That the switch has no room for.
    std::array<U64, refusals> refused{};  ///< By reason.
  };
  const Figures& figures() const { return figures_; }
  std::size_t queued() const { return queue_.size(); }
  bool isConnected() const { return connected_; }
  const Nexthops& nexthops() const { return nexthops_; }

  /// Hears of routes whose status is another one, amid changes. There is one at most; empty for
  /// none.
  using StatusListener =
      std::function<void(const VelaSwitch::LpmKey&, VelaAgent::EntryProgrammedStatus)>;
  void statusListenerIs(StatusListener listener) { statusListener_ = std::move(listener); }
  /// Every route that is refused, or none that waits for room.
  void forEachRefused(const std::function<void(const RouteName&, Refusal)>& visit) const;

 private:
  struct Route {
    Hop hop;
    U32 nexthop = 0;     ///< By its id, or 0.
    U32 connection = 0;  ///< On which it was announced last.
    Slot slot;
    bool placed = false;  ///< The switch was told of it, with the slot.
    bool wanted = false;
    bool queued = false;
    bool ofSeveral = false;  ///< It was placed as the first of several gateways.
    Refusal refusal = Refusal::none;
    VelaAgent::EntryProgrammedStatus status{};  ///< Of its entry.
  };
  using Routes = std::unordered_map<RouteName, Route, RouteNameHash>;
  struct Nexthop {
    Hop hop;
    std::vector<U32> group;
  };
  struct Placing;

  void rebuild();
  void take(const NexthopMessage& message);
  void take(const RouteMessage& message);
  Hop resolved(U32 id) const;
  void enqueue(Routes::value_type& route);
  /// Queues the routes that `wanted` says yes to.
  template <class Wanted>
  void enqueueAll(const Wanted& wanted);
  Refusal place(const RouteName& name, const Route& route, Placing& placing);
  void withdraw(Routes::value_type& route);
  void refusalIs(Route& route, Refusal refusal);
  void wantedIs(Route& route, bool wanted);
  void statusIs(const VelaSwitch::LpmKey& key, Route& route,
                VelaAgent::EntryProgrammedStatus status);
  void announce();
  void handleKey(const VelaSwitch::LpmKey& key) override;
  void entryBegins(std::size_t) override {}
  void entryDone(std::size_t number, const VelaSwitchApi::EntryOutcome& outcome) override;
  const std::string* interfaceName(U32 number);
  void beginSweep();
  void endSweep();
  bool writeLag(U8 lag, U64 ports);

  VelaAgent::Agent& agent_;
  RouteSettings settings_;
  InterfaceNamer namer_;
  VelaAgent::Entries& routeEntries_;
  VelaAgent::Entries& lagEntries_;
  Nexthops nexthops_;
  std::unordered_map<U32, std::string> interfaces_;  ///< Names by number.
  std::unordered_map<U32, Nexthop> objects_;         ///< That the source announced, by id.
  Routes routes_;
  std::deque<Routes::value_type*> queue_;
  std::vector<Placing> placings_;  ///< What is to be announced together.
  std::map<U8, U32> tables_;       ///< The kernel's, by their VRFs.
  Figures figures_;
  StatusListener statusListener_;
  std::vector<Slot> orphans_;  ///< Of routes that hardware held in VRFs of no table.
  U32 connection_ = 0;
  bool awaited_ = false;  ///< Routes may wait for their next hop to be announced.
  bool connected_ = false;
  bool swept_ = true;      ///< On this connection.
  bool sweeping_ = false;  ///< What is stale is queued.
  bool rebuilt_;           ///< Nobody said yet what of the switch's rows is desired.
  std::size_t removed_ = 0;
  Clock::time_point since_;
  Clock::time_point last_;
};

}  // namespace VelaService
