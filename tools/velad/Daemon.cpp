#include "Daemon.h"

#include <net/if.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>

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
constexpr std::size_t longestRequest = std::size_t{1} << 20;

std::string nameOfInterface(U32 number) {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(number, name.data()) ? name.data() : "";
}

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

void removeSocket(const std::string& path) {
  struct stat at {};
  if (lstat(path.c_str(), &at) == 0 && S_ISSOCK(at.st_mode)) unlink(path.c_str());
}

}  // namespace

/// An operator's connection: lines come in, are answered one after the other, and while one is
/// answered no more is read.
class Daemon::Operator {
 public:
  Operator(Daemon& daemon, uv_stream_t* listener) : daemon_(daemon), stream_(listener) {}
  ~Operator() {
    if (preparing_) preparing_->owner = nullptr;
  }

  void start() {
    who_ = stream_.peer();
    log(Level::info, "control: connected, " + who_);
    stream_.start([this](std::span<const char> bytes) { received(bytes); }, [this] { end(""); });
  }
  /// Goes on with an answer that waited, if there is more of it.
  void resume() {
    if (answer_ && answer_->overrun()) return end("reading too slowly");
    if (!waiting_ || answer_->waits()) return;
    waiting_ = false;
    piece();
  }

 private:
  /// What runs in another thread outlives an operator who does not wait for it.
  struct Preparing {
    uv_work_t request;
    Operator* owner;
    std::unique_ptr<VelaService::Answer> answer;
  };

  void received(std::span<const char> bytes) {
    input_.append(bytes.begin(), bytes.end());
    if (answer_) {
      boundInput();
      return;
    }
    stream_.readingIs(false);
    next();
  }
  bool boundInput() {
    if (input_.size() <= longestRequest) return true;
    end("a request without an end");
    return false;
  }
  void next() {
    const std::size_t end = input_.find('\n');
    if (end == std::string::npos) {
      if (boundInput()) stream_.readingIs(true);
      return;
    }
    answer_ = daemon_.control_->ask(std::string_view(input_).substr(0, end));
    input_.erase(0, end + 1);
    if (answer_->prepares()) return prepare();
    piece();
  }
  void prepare() {
    preparing_ = new Preparing{{}, this, std::move(answer_)};
    preparing_->request.data = preparing_;
    uv_queue_work(
        daemon_.loop_.get(), &preparing_->request,
        [](uv_work_t* request) { static_cast<Preparing*>(request->data)->answer->prepare(); },
        [](uv_work_t* request, int) {
          const std::unique_ptr<Preparing> done(static_cast<Preparing*>(request->data));
          if (!done->owner) return;
          done->owner->preparing_ = nullptr;
          done->owner->answer_ = std::move(done->answer);
          done->owner->piece();
        });
  }
  void piece() {
    std::string text;
    if (!answer_->piece(text)) answer_.reset();
    stream_.write(std::move(text), [this] { written(); });
  }
  void written() {
    if (!answer_) return next();
    if (!answer_->waits()) return piece();
    waiting_ = true;
    // To hear when the peer is gone.
    stream_.readingIs(true);
  }
  void end(const std::string& why) {
    log(why.empty() ? Level::info : Level::warning,
        "control: closed" + (why.empty() ? why : " for " + why) + ", " + who_);
    daemon_.operators_.remove_if([this](const auto& each) { return each.get() == this; });
  }

  Daemon& daemon_;
  Stream stream_;
  std::string who_;
  std::string input_;
  std::unique_ptr<VelaService::Answer> answer_;
  bool waiting_ = false;  ///< The answer goes on when there is more of it.
  Preparing* preparing_ = nullptr;
};

Daemon::Daemon(const VelaService::ConfigurationFile& file)
    : file_(file),
      lastText_(file.text),
      chip_(VelaDevice::Memory(configuration_.device)),
      agent_(VelaAgent::loadProfile(configuration_.profile), chip_) {
  const bool restart = chip_.used();
  agent_.make();
  agent_.start(restart ? Agent::Start::restart : Agent::Start::fresh);
  routes_.emplace(agent_, configuration_.routes, nameOfInterface);
  watch_.emplace(agent_, *routes_);
  upkeep_.emplace(agent_, *watch_, configuration_.upkeep);
  control_.emplace(agent_, *routes_, *watch_, *upkeep_);
  log(Level::info, std::string(restart ? "restart: " : "start: ") + "the switch holds " +
                       std::to_string(routes_->figures().unclaimed) + " routes, " +
                       std::to_string(agent_.recorder().rowWrites()) + " rows were written");
  uv_idle_init(loop_.get(), &working_);
  uv_prepare_init(loop_.get(), &pausing_);
  uv_timer_init(loop_.get(), &ticking_);
  uv_signal_init(loop_.get(), &term_);
  uv_signal_init(loop_.get(), &interrupt_);
  uv_signal_init(loop_.get(), &hangup_);
  working_.data = pausing_.data = ticking_.data = term_.data = interrupt_.data = hangup_.data =
      this;
  const auto heard = [this](Clock::time_point came) { workIfNeeded(came); };
  for (VelaService::RouteService::SourceId each = 0; each < routes_->sources().size(); ++each) {
    const Feed::Place place{*routes_, each, heard};
    if (routes_->sources()[each].name == "fpm") {
      feeds_.push_back(std::make_unique<FpmFeed>(loop_, configuration_, place));
    } else {
      feeds_.push_back(std::make_unique<KernelFeed>(loop_, configuration_, place));
    }
  }
  listenForOperators();
  if (!configuration_.metrics.empty()) {
    metrics_.emplace(configuration_.metrics);
    log(Level::info, "metrics: at http://" + configuration_.metrics + "/metrics");
  }
}

Daemon::~Daemon() { removeSocket(configuration_.control); }

void Daemon::listenForOperators() {
  // Whoever had it before has the switch no more.
  removeSocket(configuration_.control);
  uv_pipe_init(loop_.get(), &operatorListener_, 0);
  operatorListener_.data = this;
  const mode_t mask = umask(0117);
  const int bound = uv_pipe_bind(&operatorListener_, configuration_.control.c_str());
  umask(mask);
  checked(bound, configuration_.control);
  checked(uv_listen(reinterpret_cast<uv_stream_t*>(&operatorListener_), 16,
                    [](uv_stream_t* on, int) { of(on).acceptOperator(); }),
          configuration_.control);
}

void Daemon::acceptOperator() {
  operators_.push_back(
      std::make_unique<Operator>(*this, reinterpret_cast<uv_stream_t*>(&operatorListener_)));
  operators_.back()->start();
}

/// Answers that wait for something to happen may have more now.
void Daemon::resumeOperators() {
  for (auto at = operators_.begin(); at != operators_.end();) {
    // It may be gone then.
    Operator& each = **at++;
    each.resume();
  }
}

void Daemon::workIfNeeded(Clock::time_point since) {
  if (routes_->idle() || uv_is_active(reinterpret_cast<const uv_handle_t*>(&working_))) return;
  busySince_ = since;
  uv_idle_start(&working_, [](uv_idle_t* on) { of(on).work(); });
}

/// One part; sources and operators are heard before the next.
void Daemon::work() {
  routes_->work(workAtATime);
  for (const auto& feed : feeds_) feed->worked();
  if (!routes_->idle()) return;
  uv_idle_stop(&working_);
  if (metrics_) {
    metrics_->settled(std::chrono::duration<double>(Clock::now() - busySince_).count());
  }
}

void Daemon::tick() {
  sd_notify(0, "WATCHDOG=1");
  if (metrics_ && ++ticks_ % ticksPerCollection == 0) metrics_->collect(agent_, *routes_, *upkeep_);
  const auto now = Clock::now();
  upkeep_->tick(now);
  routes_->tick(now);
  workIfNeeded(now);
  for (const auto& feed : feeds_) feed->tick(agent_.recorder().rowWrites());
}

/// Takes over what a running daemon can of its file, unless there is a mistake in it.
void Daemon::reload() {
  const auto next = VelaService::readConfigurationFile(file_.path);
  for (const std::string& mistake : next.mistakes) {
    log(Level::error, "reload: nothing is changed, " + file_.path + ": " + mistake);
  }
  if (!next.mistakes.empty()) return;
  upkeep_->settingsAre(next.settings.upkeep);
  leastLevelIs(next.settings.log);
  using VelaService::compareConfigurations;
  const auto live = compareConfigurations(lastText_, next.text).live;
  const auto restart = compareConfigurations(file_.text, next.text).restart;
  lastText_ = next.text;
  if (live.empty() && restart.empty()) log(Level::info, "reload: nothing changed");
  if (!live.empty()) log(Level::info, "reload: changed " + listOf(live));
  if (!restart.empty()) log(Level::warning, "reload: only a restart changes " + listOf(restart));
}

void Daemon::run() {
  std::signal(SIGPIPE, SIG_IGN);
  const auto stop = [](uv_signal_t* on, int) { of(on).loop_.stop(); };
  checked(uv_signal_start(&term_, stop, SIGTERM), "SIGTERM");
  checked(uv_signal_start(&interrupt_, stop, SIGINT), "SIGINT");
  const auto reload = [](uv_signal_t* on, int) { of(on).reload(); };
  checked(uv_signal_start(&hangup_, reload, SIGHUP), "SIGHUP");
  uv_prepare_start(&pausing_, [](uv_prepare_t* on) { of(on).resumeOperators(); });
  uv_timer_start(
      &ticking_, [](uv_timer_t* on) { of(on).tick(); }, tickMilliseconds, tickMilliseconds);
  sd_notify(0, "READY=1");
  loop_.run();
  sd_notify(0, "STOPPING=1");
  log(Level::info, "stops; forwarding stays as it is");
  operators_.clear();
  feeds_.clear();
}

}  // namespace Velad
