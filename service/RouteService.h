#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "agent/Agent.h"
#include "agent/Why.h"
#include "service/Messages.h"
#include "service/Nexthops.h"

namespace VelaService {

using Clock = std::chrono::steady_clock;

/// A source of routes.
struct SourceSettings {
  std::string name;
  /// How long it is quiet, or else connected, until what it did not announce goes.
  Clock::duration quiet = std::chrono::seconds(5);
  Clock::duration longest = std::chrono::seconds(60);
  bool answered = false;  ///< It is told what becomes of its routes.
};

/// What a route service is told once.
struct RouteSettings {
  std::map<U32, U8> vrfs;                ///< By the kernel's number of the table.
  std::map<std::string, U64> portMasks;  ///< By the interface's name.
  /// Of several that announce a route the first one counts.
  std::vector<SourceSettings> sources;
  std::size_t queueMost = 4096;  ///< Routes that wait, until sources are to be held up.
  /// Routes of a level that wait for room in its table; more are not offered to it before.
  U64 waitingMost = 32768;
  U64 routesMost = 2'000'000;  ///< Of a source.
  std::string nexthopFile;     ///< See Nexthops.
};

/// Whether a table is a level that whole routes are spread over.
bool isRouteLevel(const VelaAgent::Agent& agent, const VelaAgent::TableAdapter& table);
/// Whether it is what sources of routes program: whole routes, their levels, and layer-3 LAGs.
bool isRouteTable(const VelaAgent::Agent& agent, const VelaAgent::TableAdapter& table);

/// Brings the routes of sources into a switch, and keeps them there.
///
/// Messages change what is desired, and put the route into a queue unless it is there already; so
/// changes of a route that follow each other are one, and a withdrawal with an announcement behind
/// it is a replacement, which never leaves hardware. work() carries out what is queued.
///
/// Routes outlive their source's connection. Those that it does not announce again once it is back
/// are removed when it has been quiet. Those that hardware held after a restart, and that no source
/// announced, are removed when each has been quiet.
class RouteService final : private Orb::KeyObserver<VelaSwitch::LpmKey>,
                           private VelaSwitchApi::BatchListener {
 public:
  /// The name of an interface by its number; empty where there is none.
  using InterfaceNamer = std::function<std::string(U32)>;
  /// Its place among the sources of the settings.
  using SourceId = U8;

  /// `agent` must be started, and outlive this. Takes up what the switch holds. Throws
  /// std::runtime_error when the file of next hops cannot be written.
  RouteService(VelaAgent::Agent& agent, RouteSettings settings, InterfaceNamer namer);
  ~RouteService();
  RouteService(const RouteService&) = delete;
  RouteService& operator=(const RouteService&) = delete;

  /// The source tells all that it has from now on, and then what changes.
  void connected(SourceId from, Clock::time_point now);
  /// The source is gone; `malformed` when what it said was of no use.
  void disconnected(SourceId from, bool malformed);
  /// Takes a message of a source that is connected. Throws MalformedMessage when it has more than
  /// there is memory for.
  void take(SourceId from, const Message& message, Clock::time_point now);
  /// The source is not quiet, although there is no message to be taken so far.
  void notQuiet(SourceId from, Clock::time_point now) { sources_[from].last = now; }
  /// The source has told all that it has: it need not be waited for, but for the first time, when
  /// whoever fills it may only be starting as well.
  void told(SourceId from) {
    sources_[from].spoke = true;
    sources_[from].told = sources_[from].heard;
  }
  /// Whether the source withdrew one of several routes of a name and a preference, so that it has
  /// to tell all again; the route stays until then.
  bool unsure(SourceId from) const { return sources_[from].unsure; }
  /// Whether the source is to be held up until work() was done, and answers were taken.
  bool full(SourceId from) const {
    return queue_.size() >= settings_.queueMost ||
           sources_[from].answers.size() >= settings_.queueMost;
  }
  bool idle() const { return queue_.empty() && !sweep_ && !nexthopsChanged_; }
  /// Queues routes whose next hops were announced with something else in them.
  void followNexthops();
  /// Carries out up to `most` changes.
  void work(std::size_t most);
  /// What time brings: to be called now and then.
  void tick(Clock::time_point now);

  /// A route that a source announced on its connection, and whether hardware has it.
  struct Answer {
    RouteMessage route;
    bool programmed;
  };
  /// The next that a source is to be told, where it is: of each announcement, and when it changes.
  std::optional<Answer> answer(SourceId to);

  /// What a source has to do with it all.
  struct SourceFigures {
    bool connected = false;
    bool complete = false;  ///< What it did not announce on this connection is gone.
    U64 connections = 0;    ///< So far.
    U64 messages = 0;       ///< So far.
    U64 malformed = 0;      ///< Connections that ended with something malformed.
    U64 routes = 0;         ///< That it announced and did not withdraw.
    U64 announced = 0;      ///< Those of them that it announced on this connection.
    U64 removed = 0;        ///< Routes that went when it was complete last.
  };
  const SourceFigures& figuresOf(SourceId source) const { return sources_[source].figures; }
  const std::vector<SourceSettings>& sources() const { return settings_.sources; }
  SourceId sourceCount() const { return static_cast<SourceId>(sources_.size()); }

  /// All of them are kept, so that asking costs nothing.
  struct Figures {
    U64 wanted = 0;      ///< Routes that are wanted, refused ones among them.
    U64 unclaimed = 0;   ///< Those of them that hardware held and no source announced so far.
    U64 ofSeveral = 0;   ///< In the switch with the first of several gateways.
    U64 programmed = 0;  ///< In hardware.
    U64 waiting = 0;     ///< That the switch has no room for.
    std::array<U64, refusals> refused{};  ///< By reason.
  };
  const Figures& figures() const { return figures_; }
  std::size_t queued() const { return queue_.size(); }
  /// Changes that were carried out so far, and with them those that wait.
  U64 carriedOut() const { return carriedOut_; }
  U64 queuedSoFar() const { return carriedOut_ + queue_.size(); }
  const Nexthops& nexthops() const { return nexthops_; }

  /// Hears of routes whose status is another one, whoever announced them, amid changes. There is
  /// one at most; empty for none.
  using StatusListener =
      std::function<void(const VelaSwitch::LpmKey&, VelaAgent::EntryProgrammedStatus)>;
  void statusListenerIs(StatusListener listener) { statusListener_ = std::move(listener); }
  /// Why the switch's tables were not told of a route that is wanted, or withdrew it: the refusal,
  /// or "held" behind as many as may wait. Nothing for other routes.
  std::optional<VelaAgent::NotTold> whyNotTold(const VelaSwitch::LpmKey& route) const;
  class RefusedRoutes;
  /// Every route that is refused or waits for room.
  RefusedRoutes refused() const;

 private:
  static constexpr SourceId nobody = 0xFF;  ///< Hardware held it.

  /// What a source says of a route.
  struct Offer {
    Hop hop;
    U32 nexthop = 0;     ///< By its id, or 0.
    U32 preference = 0;  ///< As in the message.
    U32 connection = 0;  ///< On which it was announced last.
    SourceId source = nobody;
    U8 protocol = 0;       ///< As in the message.
    U8 type = 0;           ///< As in the message.
    bool several = false;  ///< The source has others of this rank.

    auto rank() const { return std::pair(source, preference); }
  };
  struct Route {
    Offer offer;  ///< The one that counts.
    Slot slot;
    bool placed = false;  ///< The switch was told of it, with the slot, and may have it still.
    bool wanted = false;
    bool queued = false;
    bool ofSeveral = false;  ///< It was placed as the first of several gateways.
    bool held = false;       ///< It waits, and the switch was not told of it.
    bool answering = false;  ///< It is among the answers.
    bool told = false;       ///< Its source was told what became of it: `toldOf`.
    bool toldOf = false;
    Refusal refusal = Refusal::none;
    VelaAgent::EntryProgrammedStatus status{};  ///< Of its entry.
  };
  /// A key in few bytes: the VRF, the bits of the prefix, the address.
  using RouteId = U64;
  using Routes = std::unordered_map<RouteId, Route>;
  /// Routes that wait, of the lengths that share a level.
  struct Level {
    U64 waiting = 0;
    U64 held = 0;  ///< Those of them that the switch was not told of.
  };
  struct Nexthop {
    Hop hop;
    U32 first = 0;  ///< Of a group the first member, or 0.
    bool operator==(const Nexthop&) const = default;
  };
  using Foreign = std::unordered_map<RouteName, Offer, RouteNameHash>;
  struct Source {
    std::unordered_map<U32, Nexthop> objects;  ///< That it announced, by id.
    Foreign foreign;                           ///< Routes of it that no VRF can have.
    std::deque<RouteName> answers;             ///< Routes that it is to be told of.
    SourceFigures figures;
    U32 connection = 0;
    bool awaited = false;     ///< Routes may wait for their next hop to be announced.
    bool changed = false;     ///< Routes may have other next hops, by `objects`.
    bool unsure = false;      ///< It withdrew one of several routes of a rank.
    bool spoke = false;       ///< It said something on this connection.
    bool told = false;        ///< It has told all that it has.
    bool heard = false;       ///< It was complete before.
    Clock::time_point since;  ///< It spoke.
    Clock::time_point last;
  };
  /// What a source did not announce goes, once what was queued before is carried out.
  struct Sweep {
    SourceId of;
    U64 after;  ///< It goes on when so many changes are carried out.
    bool collected = false;
  };
  struct Placing;

  void rebuild();
  void take(SourceId from, const NexthopMessage& message);
  void take(SourceId from, const RouteMessage& message);
  Offer* offerOf(Routes::value_type& each, const Offer& offer);
  void checkRoom(const Source& source) const;
  void foreignIs(const RouteName& name, const Offer& offer, bool there);
  void foreignDel(Source& source, Foreign::iterator at);
  static RouteId idOf(const VelaSwitch::LpmKey& key);
  std::optional<RouteId> idOf(const RouteName& name) const;
  static VelaSwitch::LpmKey keyOf(RouteId id);
  RouteName nameOf(RouteId id) const;
  Level& levelOf(RouteId id) { return levels_[(id >> 32 & 0xFF) / 3]; }
  static Hop resolved(const Source& source, U32 id);
  void count(const Offer& offer, bool there);
  bool heard(SourceId before) const;
  void offerIs(Routes::value_type& each, const Offer& offer);
  void offerDel(Routes::value_type& each);
  void beatenIs(RouteId id, const Offer& offer, bool there);
  void answerIs(RouteId id, Route& route);
  void enqueue(Routes::value_type& route);
  /// Queues the routes that `wanted` says yes to.
  template <class Wanted>
  void enqueueAll(const Wanted& wanted);
  Refusal ownerOf(const Route& route, Nexthops::Owner& owner);
  Refusal place(const Nexthops::Owner& owner, RouteId id, Placing& placing);
  void workOn(Routes::value_type& each);
  void tryAgain();
  bool withdraw(Routes::value_type& each);
  bool rowsKnown(const VelaSwitch::LpmKey& route);
  void giveUp(RouteId id, Slot slot, bool rowsKnown);
  void refusalIs(Route& route, Refusal refusal);
  void wantedIs(Route& route, bool wanted);
  void statusIs(const VelaSwitch::LpmKey& key, Route& route,
                VelaAgent::EntryProgrammedStatus status);
  void announce();
  void handleKey(const VelaSwitch::LpmKey& key) override;
  void entryBegins(std::size_t) override {}
  void entryDone(std::size_t number, const VelaSwitchApi::EntryOutcome& outcome) override;
  const std::string& interfaceName(U32 number);
  void refreshInterfaces();
  void retryHardware(Clock::time_point now);
  void holdTimes(Clock::time_point now);
  void beginSweep();
  void collectStale(SourceId of);
  void goOnSweeping();
  void endSweep();
  bool writeLag(U8 lag, U64 ports);

  VelaAgent::Agent& agent_;
  RouteSettings settings_;
  InterfaceNamer namer_;
  VelaAgent::Entries& routeEntries_;
  VelaAgent::Entries& lagEntries_;
  Nexthops nexthops_;
  std::vector<Source> sources_;
  std::unordered_map<U32, std::string> interfaces_;  ///< Names by number; empty for none so far.
  Routes routes_;
  /// What is said of routes by other sources than the one that counts.
  std::unordered_map<RouteId, std::vector<Offer>> beaten_;
  std::deque<Routes::value_type*> queue_;
  U64 carriedOut_ = 0;
  std::vector<Placing> placings_;  ///< What is to be announced together.
  std::map<U8, U32> tables_;       ///< The kernel's, by their VRFs.
  std::array<Level, 11> levels_;
  Figures figures_;
  StatusListener statusListener_;
  /// The statuses of routes that the switch was told of by others, such as a stream.
  std::unordered_map<RouteId, VelaAgent::EntryProgrammedStatus> others_;
  /// Slots that routes had before, by rows that could not be written since.
  std::unordered_map<RouteId, std::vector<Slot>> lingering_;
  std::vector<Slot> orphans_;  ///< Of routes that hardware held in VRFs of no table.
  std::optional<Sweep> sweep_;
  bool nexthopsChanged_ = false;  ///< Of a source.
  U64 triedUntil_ = 0;  ///< What was tried again is done when so many changes are carried out.
  Clock::time_point ticked_;
  Clock::time_point interfacesAt_;  ///< When their names are looked up anew.
  Clock::time_point hardwareAt_;    ///< When registers that failed are tried again.
  Clock::duration hardwarePause_ = std::chrono::seconds(1);
  bool rebuilt_;  ///< Nobody said yet what of the switch's rows is desired.
};

/// Routes that are refused or wait for room, as they were when it was made. There may be hundreds
/// of thousands, of which it keeps eight bytes each.
class RouteService::RefusedRoutes {
 public:
  std::size_t size() const { return routes_.size() + foreign_.size(); }
  /// The one of the number, and why it is refused: Refusal::none where it waits. The service must
  /// be there still.
  std::pair<RouteName, Refusal> operator[](std::size_t number) const;

 private:
  friend class RouteService;

  explicit RefusedRoutes(const RouteService& service) : service_(service) {}

  const RouteService& service_;
  std::vector<U64> routes_;  ///< Their ids, which have 48 bits, before their refusals.
  std::vector<RouteName> foreign_;
};

}  // namespace VelaService
