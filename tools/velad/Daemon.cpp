#include "Daemon.h"

#include <net/if.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <utility>

#include "FpmFeed.h"
#include "KernelFeed.h"
#include "agent/Profiles.h"

namespace Velad {

using VelaAgent::Agent;
using VelaService::Clock;

namespace {

constexpr std::size_t workAtATime = 256;
constexpr U64 tickMilliseconds = 100;
constexpr unsigned ticksPerCollection = 10;

std::string nameOfInterface(U32 number) {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(number, name.data()) ? name.data() : "";
}

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

}  // namespace

Daemon::Daemon(const VelaService::ConfigurationFile& file)
    : file_(file),
      lastText_(file.text),
      chip_(VelaDevice::Memory(configuration_.device)),
      agent_(VelaAgent::loadProfile(configuration_.profile), chip_) {
  const bool restart = chip_.used();
  agent_.make();
  agent_.start(restart ? Agent::Start::restart : Agent::Start::fresh);
  routes_.emplace(agent_, configuration_.routes, nameOfInterface);
  times_.emplace(agent_);
  watch_.emplace(agent_, *routes_);
  watch_->noticeListenerIs([](const std::string& text) { log(Level::warning, text); });
  upkeep_.emplace(agent_, *watch_, configuration_.upkeep);
  if (configuration_.stream) {
    follower_.emplace(agent_, *configuration_.stream, restart,
                      [](const std::string& text) { log(Level::warning, "stream: " + text); });
    follower_->scrubberIs(&upkeep_->scrubber());
    watch_->listenerIs(&*follower_);
    stream_.emplace(loop_, *follower_, [this] {
      streamDelays_.asked(follower_->queuedSoFar(), Clock::now());
      workIfNeeded();
    });
  }
  control_.emplace(agent_, *routes_, *times_, *watch_, *upkeep_, follower_ ? &*follower_ : nullptr);
  log(Level::info, std::string(restart ? "restart: " : "start: ") + "the switch holds " +
                       std::to_string(routes_->figures().unclaimed) + " routes, " +
                       std::to_string(agent_.recorder().rowWrites()) + " rows were written");
  uv_idle_init(loop_.get(), &working_);
  uv_timer_init(loop_.get(), &ticking_);
  uv_signal_init(loop_.get(), &term_);
  uv_signal_init(loop_.get(), &interrupt_);
  uv_signal_init(loop_.get(), &hangup_);
  working_.data = ticking_.data = term_.data = interrupt_.data = hangup_.data = this;
  const auto heard = [this](Clock::time_point came) {
    heardAt_ = came;
    delays_.asked(routes_->queuedSoFar(), came);
    workIfNeeded();
  };
  for (VelaService::RouteService::SourceId each = 0; each < routes_->sourceCount(); ++each) {
    const Feed::Place place{*routes_, each, heard};
    if (routes_->sources()[each].name == "fpm") {
      feeds_.push_back(std::make_unique<FpmFeed>(loop_, configuration_, place));
    } else {
      feeds_.push_back(std::make_unique<KernelFeed>(loop_, configuration_, place));
    }
  }
  operators_.emplace(loop_, *control_, configuration_.control);
  if (!configuration_.metrics.empty()) {
    metrics_.emplace(configuration_.metrics);
    log(Level::info, "metrics: at http://" + configuration_.metrics + "/metrics");
  }
  if (!configuration_.page.empty()) {
    page_.emplace(loop_, configuration_.page, agent_, upkeep_->thresholds());
    log(Level::info, "page: at http://" + configuration_.page + "/");
  }
}

Daemon::~Daemon() {
  if (follower_) watch_->listenerDel(&*follower_);
}

void Daemon::workIfNeeded() {
  if (!idle()) uv_idle_start(&working_, [](uv_idle_t* on) { of(on).work(); });
}

/// Changes that next hops ask for are theirs who said something last.
void Daemon::followNexthops() {
  routes_->followNexthops();
  delays_.asked(routes_->queuedSoFar(), heardAt_);
}

/// One part; sources and operators are heard before the next.
void Daemon::work() {
  followNexthops();
  routes_->work(workAtATime);
  for (const auto& feed : feeds_) feed->worked();
  if (follower_ && !follower_->idle()) {
    follower_->work();
    if (follower_->idle()) stream_->worked();
  }
  const auto now = Clock::now();
  const auto tell = [this](U64 changes, Clock::duration delay) {
    if (metrics_) metrics_->carriedOut(changes, std::chrono::duration<double>(delay).count());
  };
  delays_.done(routes_->carriedOut(), now, tell);
  if (follower_) streamDelays_.done(follower_->carriedOut(), now, tell);
  // What is tried again.
  delays_.unasked(routes_->queuedSoFar());
  if (idle()) uv_idle_stop(&working_);
}

void Daemon::tick() {
  sd_notify(0, "WATCHDOG=1");
  const bool collects = ++ticks_ % ticksPerCollection == 0;
  if (collects) tellFailures();
  if (collects && metrics_) {
    metrics_->collect(agent_, *routes_, *upkeep_);
    metrics_->queueLengthIs(routes_->queued() + (follower_ ? follower_->queued() : 0));
    if (follower_) metrics_->collect(*follower_);
  }
  for (const auto& feed : feeds_) feed->tick(agent_.recorder().rowWrites());
  const auto now = Clock::now();
  upkeep_->tick(now);
  followNexthops();
  routes_->tick(now);
  if (stream_) stream_->tick(now);
  delays_.unasked(routes_->queuedSoFar());
  workIfNeeded();
}

/// What the last second failed in, and the file of next hops once more when it is well again.
void Daemon::tellFailures() {
  const U64 failures = agent_.recorder().failures();
  if (failures != busFailures_) {
    log(Level::warning, Orb::text("bus: ", failures - std::exchange(busFailures_, failures),
                                  " accesses to rows and hit bits failed"));
  }
  const std::string& failure = routes_->nexthops().failure();
  if (failure == nexthopFailure_) return;
  nexthopFailure_ = failure;
  failure.empty() ? log(Level::info, "next hops: their file is written again")
                  : log(Level::error, "next hops: cannot write " + failure);
}

/// Takes over what a running daemon can of its file, unless there is a mistake in it.
void Daemon::reload() {
  const auto next = VelaService::readConfigurationFile(file_.path);
  for (const std::string& mistake : next.mistakes) {
    log(Level::error, "reload: nothing is changed, " + file_.path + ": " + mistake);
  }
  if (!next.mistakes.empty()) return;
  upkeep_->settingsAre(next.settings.upkeep);
  // What changed is told by the more talkative of both levels.
  const Level level = levelOf(next.settings.log);
  leastLevelIs(std::max(leastLevel(), level));
  using VelaService::compareConfigurations;
  const auto live = compareConfigurations(lastText_, next.text).live;
  const auto restart = compareConfigurations(file_.text, next.text).restart;
  lastText_ = next.text;
  if (live.empty() && restart.empty()) log(Level::info, "reload: nothing changed");
  if (!live.empty()) log(Level::info, "reload: changed " + listOf(live));
  if (!restart.empty()) log(Level::warning, "reload: only a restart changes " + listOf(restart));
  leastLevelIs(level);
}

void Daemon::run() {
  std::signal(SIGPIPE, SIG_IGN);
  const auto stop = [](uv_signal_t* on, int) { of(on).loop_.stop(); };
  checked(uv_signal_start(&term_, stop, SIGTERM), "SIGTERM");
  checked(uv_signal_start(&interrupt_, stop, SIGINT), "SIGINT");
  const auto reload = [](uv_signal_t* on, int) { of(on).reload(); };
  checked(uv_signal_start(&hangup_, reload, SIGHUP), "SIGHUP");
  uv_timer_start(
      &ticking_, [](uv_timer_t* on) { of(on).tick(); }, tickMilliseconds, tickMilliseconds);
  sd_notify(0, "READY=1");
  loop_.run();
  sd_notify(0, "STOPPING=1");
  log(Level::info, "stops; forwarding stays as it is");
  operators_.reset();
  feeds_.clear();
  stream_.reset();
}

}  // namespace Velad
