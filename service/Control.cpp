#include "service/Control.h"

#include <algorithm>
#include <cmath>

#include "agent/Events.h"
#include "agent/Profiles.h"
#include "service/Explain.h"

namespace VelaService {

using VelaAgent::Agent;
using VelaAgent::InputException;
using VelaAgent::Json;
using VelaAgent::TableAdapter;

namespace {

/// What a piece of an answer takes; of lines that are made already, how many bytes it has.
constexpr auto pieceTime = std::chrono::milliseconds(1);
constexpr std::size_t pieceBytes = std::size_t{1} << 16;
/// How many answers may have a copy of the registers, or what stands in one, at a time.
constexpr unsigned copiesMost = 2;

void allowOnly(const Json& request, const std::vector<std::string>& names) {
  for (const auto& item : request.items()) {
    if (item.key() == "request") continue;
    if (std::find(names.begin(), names.end(), item.key()) == names.end()) {
      throw InputException("unknown field \"" + item.key() + "\"" +
                           VelaAgent::suggestion(item.key(), names));
    }
  }
}

std::string textOf(const Json& request, const char* name) {
  const auto at = request.find(name);
  if (at == request.end()) return {};
  if (!at->is_string()) throw InputException(std::string("\"") + name + "\" is not a text");
  return at->get<std::string>();
}

bool flagOf(const Json& request, const char* name) {
  const auto at = request.find(name);
  if (at == request.end()) return false;
  if (!at->is_boolean()) throw InputException(std::string("\"") + name + "\" is not true or false");
  return at->get<bool>();
}

/// Takes a list out of a request.
Json listOf(Json& request, const char* name) {
  const auto at = request.find(name);
  if (at == request.end()) throw InputException(std::string("\"") + name + "\" is missing");
  if (!at->is_array()) throw InputException(std::string("\"") + name + "\" is not a list");
  return std::move(*at);
}

void addLine(std::string& out, const Json& line) {
  // Requests come from anybody: what is quoted of them may be no text.
  out += line.dump(-1, ' ', false, Json::error_handler_t::replace);
  out += '\n';
}

void addEnd(std::string& out) { addLine(out, {{"done", true}}); }
void addError(std::string& out, const std::string& what) {
  addLine(out, {{"done", false}, {"error", what}});
}

Json tableName(const TableAdapter& table) {
  return {{"table", table.name()}, {"instance", table.instance()}};
}

std::string addressText(U32 address) { return Orb::text(Ipnet::IpAddr(address)); }

/// An answer of a number of items, each made when its turn comes.
class Items final : public Answer {
 public:
  using Maker = std::function<void(std::size_t number, std::string& out)>;

  Items(std::size_t count, Maker make) : count_(count), make_(std::move(make)) {}

  bool piece(std::string& out) override {
    const auto end = Clock::now() + pieceTime;
    for (bool first = true; next_ < count_; first = false) {
      if (!first && Clock::now() >= end) return true;
      try {
        make_(next_++, out);
      } catch (const std::exception& error) {
        addLine(out, {{"done", false}, {"item", next_}, {"error", error.what()}});
        return false;
      }
    }
    addEnd(out);
    return false;
  }

 private:
  std::size_t count_;
  Maker make_;
  std::size_t next_ = 0;
};

/// What stands in a copy of the switch's registers.
class Decoded final : public Answer {
 public:
  /// `copies` counts those that there are. Throws InputException when that would be too many.
  Decoded(const Agent& agent, std::string table, unsigned& copies)
      : copies_(copies), profile_(agent.profile().fields()), table_(std::move(table)) {
    if (copies_ == copiesMost) throw InputException("too many decode at a time: ask again");
    chip_.emplace(agent.chip());
    ++copies_;
  }
  ~Decoded() override { --copies_; }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;

  bool prepares() const override { return !prepared_; }
  void prepare() override {
    prepared_ = true;
    try {
      // Everything that is counted is this thread's own.
      Agent copy(Orb::make<VelaSwitch::ProfileInfo>(profile_), *chip_);
      copy.make();
      copy.decode();
      for (const TableAdapter* table : copy.announced()) {
        if (table_.empty() || table->name() == table_) add(copy, *table);
      }
    } catch (const std::exception& error) {
      error_ = error.what();
    }
    chip_.reset();
  }
  bool piece(std::string& out) override {
    out.append(lines_, next_, pieceBytes);
    next_ += pieceBytes;
    if (next_ < lines_.size()) return true;
    error_.empty() ? addEnd(out) : addError(out, error_);
    return false;
  }

 private:
  void add(const Agent& agent, const TableAdapter& table) {
    table.forEachEntry([&](const Json& key, const Json& result) {
      // Routes are told whole, unless their level is asked for.
      if (table_.empty() && !agent.routesAt(table, key).empty()) return;
      Json line = {{"op", "set"}};
      line.update(tableName(table));
      line["key"] = key;
      line["result"] = result;
      addLine(lines_, line);
    });
  }

  unsigned& copies_;
  std::optional<VelaDevice::SimulatedSwitch> chip_;
  VelaSwitch::ProfileFields profile_;
  std::string table_;
  bool prepared_ = false;
  std::string lines_;
  std::size_t next_ = 0;
  std::string error_;
};

Json sourcesStatus(const RouteService& routes) {
  Json all = Json::array();
  for (const SourceSettings& source : routes.sources()) {
    const auto& figures = routes.figuresOf(static_cast<RouteService::SourceId>(all.size()));
    all.push_back({{"source", source.name},
                   {"connected", figures.connected},
                   {"complete", figures.complete},
                   {"connections", figures.connections},
                   {"malformed", figures.malformed},
                   {"messages", figures.messages},
                   {"routes", figures.routes},
                   {"stale", figures.routes - figures.announced}});
  }
  return all;
}

Json refusedCounts(const RouteService::Figures& figures) {
  Json counts = Json::object();
  for (std::size_t reason = 1; reason < refusals; ++reason) {
    if (figures.refused[reason] != 0) {
      counts[nameOf(static_cast<Refusal>(reason))] = figures.refused[reason];
    }
  }
  return counts;
}

Json scrubStatus(const Scrubber& scrubber) {
  Json status = {{"rows", scrubber.rows()}, {"passes", scrubber.passes()}};
  if (const auto last = scrubber.lastPass()) {
    status["age"] = std::round(std::chrono::duration<double>(Clock::now() - *last).count());
  }
  Json& found = status["findings"] = Json::array();
  scrubber.forEachFound([&](const TableAdapter& table, Scrubber::Kind kind, U64 count) {
    Json line = tableName(table);
    line["finding"] = VelaAgent::nameOf(kind);
    line["count"] = count;
    found.push_back(std::move(line));
  });
  return status;
}

Json tableStatus(const VelaAgent::HwTableAdapter& table, const Thresholds& thresholds) {
  Json status = tableName(table);
  status["entries"] = table.entries();
  status["waiting"] = table.waiting();
  status["used"] = table.typed().used();
  status["peak"] = table.typed().peak();
  status["capacity"] = table.typed().capacity();
  status["load"] = std::round(10 * table.typed().load()) / 10;
  const Thresholds::State* state = thresholds.state(table);
  if (state && state->above) status["above"] = true;
  return status;
}

/// How the service does, and what it did; `lists` tells of each route that is refused or waits.
std::unique_ptr<Answer> statusOf(const Agent& agent, const RouteService& routes,
                                 const Upkeep& upkeep, const StreamFollower* stream, bool lists) {
  const auto& figures = routes.figures();
  Json status = {{"sources", sourcesStatus(routes)},         {"offered", figures.wanted},
                 {"unclaimed", figures.unclaimed},           {"queued", routes.queued()},
                 {"programmed", figures.programmed},         {"waiting", figures.waiting},
                 {"ofSeveral", figures.ofSeveral},           {"refused", refusedCounts(figures)},
                 {"rowWrites", agent.recorder().rowWrites()}};
  Json& nexthops = status["nexthops"] = Json::array();
  routes.nexthops().forEach([&](Slot slot, const Nexthops::Owner& owner, U32 count) {
    nexthops.push_back({{"l3LagIndex", slot.lag},
                        {"rewriteIndex", slot.rewrite},
                        {"portMask", Orb::text(VelaSwitch::IngressPortMask(owner.ports))},
                        {"interface", owner.interface},
                        {"gateway", addressText(owner.gateway)},
                        {"routes", count}});
  });
  Json& tables = status["tables"] = Json::array();
  for (const auto& each : agent.tables()) {
    if (each->entries() != 0) tables.push_back(tableStatus(*each, upkeep.thresholds()));
  }
  status["scrub"] = scrubStatus(upkeep.scrubber());
  if (stream) {
    Json& line = status["stream"] = {{"connected", stream->isConnected()}};
    if (!stream->trouble().empty()) line["error"] = stream->trouble();
    line.update(stream->report());
  }
  std::optional<RouteService::RefusedRoutes> list;
  if (lists) list.emplace(routes.refused());
  std::string first = status.dump() + "\n";
  const std::size_t lines = 1 + (list ? list->size() : 0);
  return std::make_unique<Items>(lines, [first = std::move(first), list = std::move(list)](
                                            std::size_t number, std::string& out) {
    if (number == 0) {
      out += first;
    } else {
      const auto [name, why] = (*list)[number - 1];
      addLine(out,
              {{"route", toText(name)}, {"why", why == Refusal::none ? "tableFull" : nameOf(why)}});
    }
  });
}

/// What is known of entries.
std::unique_ptr<Answer> entriesOf(const TableAdapter& table, Json keys) {
  table.typed().checkChangeable();
  const std::size_t count = keys.size();
  return std::make_unique<Items>(
      count, [&table, keys = std::move(keys)](std::size_t number, std::string& out) {
        const VelaAgent::AnyValue key = table.keyFromJson(keys[number]);
        const VelaAgent::Entries& entries = table.typed();
        Json line = tableName(table);
        line["key"] = table.keyToJson(key);
        line["result"] = VelaAgent::anyToJson(entries.resultOf(key));
        line["status"] = VelaSwitchApi::nameOf(entries.status(key));
        line["lastHit"] = entries.lastHit(key).value();
        addLine(out, line);
      });
}

/// What packets find; no hit bit is set.
std::unique_ptr<Answer> lookupIn(const Agent& agent, const std::string& name, Json keys) {
  const TableAdapter& table = agent.table(name, 0);
  const std::size_t count = keys.size();
  return std::make_unique<Items>(
      count, [&agent, &table, keys = std::move(keys)](std::size_t number, std::string& out) {
        VelaDevice::DataPath path(agent.chip(), agent.profile());
        addLine(out, {{"op", "lookup"},
                      {"table", table.name()},
                      {"key", keys[number]},
                      {"hit", table.lookup(path, keys[number])}});
      });
}

/// What rows differ from what they should be, table by table.
std::unique_ptr<Answer> auditOf(const Agent& agent, bool repair) {
  return std::make_unique<Items>(agent.tables().size(),
                                 [&agent, repair](std::size_t number, std::string& out) {
                                   VelaAgent::HwTableAdapter& table = *agent.tables()[number];
                                   table.audit();
                                   const auto findings = table.findings();
                                   for (const auto& finding : findings) {
                                     Json line = tableName(table);
                                     line.update(VelaAgent::findingLine(finding));
                                     addLine(out, line);
                                   }
                                   if (repair && !findings.empty()) table.repair();
                                 });
}

/// Applies events; what is refused, found or comes in meanwhile has a line.
std::unique_ptr<Answer> runOf(Agent& agent, const StreamFollower* stream, Json events) {
  const auto ownerOf = [&agent, stream](const TableAdapter& table) {
    if (stream && !stream->ownerOf(table)) return "the stream's";
    return isRouteTable(agent, table) ? "the sources'" : nullptr;
  };
  const std::size_t count = events.size();
  return std::make_unique<Items>(
      count, [&agent, ownerOf, events = std::move(events)](std::size_t number, std::string& out) {
        // Others may apply events between two of these: each has a runner of its own.
        VelaAgent::EventRunner runner(agent);
        runner.ownersAre(ownerOf);
        runner.resultListenerIs([&out](const std::string& line) { (out += line) += '\n'; });
        runner.apply(events[number]);
      });
}

/// What happens from now on, without an end.
class Watched final : public Answer {
 public:
  explicit Watched(Watch& watch) : queue_(watch, most), sequence_(watch.sequence()) {}

  bool piece(std::string& out) override {
    if (!std::exchange(begun_, true)) {
      addLine(out, {{"sequence", sequence_}, {"event", "watching"}});
    }
    out += queue_.take();
    return true;
  }
  bool waits() const override { return begun_ && queue_.empty(); }
  bool overrun() const override { return queue_.overrun(); }

 private:
  static constexpr std::size_t most = std::size_t{1} << 20;

  WatchQueue queue_;
  U64 sequence_;
  bool begun_ = false;
};

/// Why an entry is not in hardware, or where packets to an address go.
std::unique_ptr<Answer> whyOf(Agent& agent, const RouteService& routes, const RouteTimes& times,
                              const Json& request) {
  const U64 instance = VelaAgent::numberFromJson(request.value("instance", Json(0)), ~U32{0});
  return std::make_unique<Items>(
      1, [&agent, &routes, &times, request, instance](std::size_t, std::string& out) {
        VelaAgent::Reasons reasons(agent, true);
        reasons.notToldIs([&](const auto& route) { return routes.whyNotTold(route); });
        Json answer =
            request.contains("address")
                ? reasons.address(request["address"])
                : reasons.entry(agent.table(textOf(request, "table"), static_cast<U32>(instance)),
                                request.value("key", Json()));
        addTimes(answer, times);
        addLine(out, answer);
      });
}

/// What the switch looks like; the tables may change between its parts.
class Pictured final : public Answer {
 public:
  Pictured(Agent& agent, VelaAgent::FitMeter& meter, const Thresholds& thresholds)
      : picture_(agent, meter, thresholds) {}

  bool piece(std::string& out) override {
    if (picture_.step()) return true;
    addLine(out, picture_.take());
    addEnd(out);
    return false;
  }

 private:
  LivePicture picture_;
};

/// What is said of a request that is none.
class Refused final : public Answer {
 public:
  explicit Refused(std::string why) : why_(std::move(why)) {}
  bool piece(std::string& out) override {
    addError(out, why_);
    return false;
  }

 private:
  std::string why_;
};

/// The answer to a line that takes long to read.
class Read final : public Answer {
 public:
  Read(Control& control, std::string_view line) : control_(control), line_(line) {}

  bool prepares() const override { return answer_ ? answer_->prepares() : !line_.empty(); }
  void prepare() override {
    if (answer_) return answer_->prepare();
    try {
      request_ = VelaAgent::jsonFromText(line_);
    } catch (const std::exception& error) {
      answer_ = std::make_unique<Refused>(error.what());
    }
    line_.clear();
  }
  bool piece(std::string& out) override {
    if (answer_) return answer_->piece(out);
    answer_ = control_.askRead(std::move(request_));
    return true;
  }
  bool waits() const override { return answer_ && answer_->waits(); }
  bool overrun() const override { return answer_ && answer_->overrun(); }

 private:
  Control& control_;
  std::string line_;
  Json request_;
  std::unique_ptr<Answer> answer_;
};

}  // namespace

std::unique_ptr<Answer> Control::answerTo(Json request) {
  static const std::vector<std::string> names{"status", "entry", "lookup", "decode", "audit",
                                              "run",    "watch", "why",    "picture"};
  if (!request.is_object()) throw InputException("not a JSON object");
  const std::string name = textOf(request, "request");
  if (name == "status") {
    allowOnly(request, {"refused"});
    return statusOf(agent_, routes_, upkeep_, stream_, flagOf(request, "refused"));
  }
  if (name == "lookup") {
    allowOnly(request, {"table", "keys"});
    return lookupIn(agent_, textOf(request, "table"), listOf(request, "keys"));
  }
  if (name == "entry") {
    allowOnly(request, {"table", "instance", "keys"});
    const auto instance =
        static_cast<U32>(VelaAgent::numberFromJson(request.value("instance", Json(0U)), ~U32{0}));
    return entriesOf(agent_.table(textOf(request, "table"), instance), listOf(request, "keys"));
  }
  if (name == "decode") {
    allowOnly(request, {"table"});
    const std::string table = textOf(request, "table");
    if (!table.empty()) agent_.table(table, 0);
    return std::make_unique<Decoded>(agent_, table, copies_);
  }
  if (name == "audit") {
    allowOnly(request, {"repair"});
    return auditOf(agent_, flagOf(request, "repair"));
  }
  if (name == "run") {
    allowOnly(request, {"events"});
    return runOf(agent_, stream_, listOf(request, "events"));
  }
  if (name == "watch") {
    allowOnly(request, {});
    return std::make_unique<Watched>(watch_);
  }
  if (name == "why") {
    allowOnly(request, {"table", "instance", "key", "address"});
    return whyOf(agent_, routes_, times_, request);
  }
  if (name == "picture") {
    allowOnly(request, {});
    return std::make_unique<Pictured>(agent_, meter_, upkeep_.thresholds());
  }
  throw InputException("unknown request \"" + name + "\"" + VelaAgent::suggestion(name, names));
}

std::string Control::errorLine(const std::string& why) {
  std::string line;
  addError(line, why);
  return line;
}

std::unique_ptr<Answer> Control::ask(std::string_view line) {
  constexpr std::size_t longLine = std::size_t{1} << 14;
  if (line.size() > longLine) return std::make_unique<Read>(*this, line);
  try {
    return askRead(VelaAgent::jsonFromText(std::string(line)));
  } catch (const std::exception& error) {
    return std::make_unique<Refused>(error.what());
  }
}

std::unique_ptr<Answer> Control::askRead(Json request) {
  try {
    return answerTo(std::move(request));
  } catch (const std::exception& error) {
    return std::make_unique<Refused>(error.what());
  }
}

}  // namespace VelaService
