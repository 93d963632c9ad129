#include "RedisSource.h"

#include <netdb.h>

#include <algorithm>
#include <array>
#include <random>
#include <utility>

#include "RedisPoll.h"

namespace Velad {

using std::chrono::milliseconds;
using std::chrono::seconds;
using VelaRedis::Command;
using VelaService::StreamFollower;

namespace {

/// An entry has up to 64 KB, and others are served between two pages.
constexpr const char* entriesAtATime = "16";
/// How long a read waits for news: so long may a report take to be sent.
constexpr const char* newsMilliseconds = "1000";
/// A server from which no byte comes for so long is gone.
constexpr auto silenceMost = seconds(10);
constexpr auto reportPause = seconds(1);
/// Reports say at least this often that there is somebody.
constexpr auto reportMost = seconds(10);
/// Of an entry of the stream of statuses, of which there is one a second at most.
constexpr std::size_t linesBytes = std::size_t{1} << 14;

/// When to connect again: later from failure to failure, and not all at once.
milliseconds pauseAfter(unsigned failures) {
  static std::minstd_rand random{std::random_device{}()};
  const unsigned most = std::min(5000U, 200U << std::min(failures, 5U));
  return milliseconds(most / 2 + random() % (most / 2));
}

/// One of the addresses of a name, another at each attempt.
std::string addressText(const addrinfo* addresses, unsigned attempt) {
  std::vector<const addrinfo*> all;
  for (const addrinfo* each = addresses; each; each = each->ai_next) all.push_back(each);
  const addrinfo* chosen = all[attempt % all.size()];
  std::array<char, NI_MAXHOST> text{};
  getnameinfo(chosen->ai_addr, chosen->ai_addrlen, text.data(), text.size(), nullptr, 0,
              NI_NUMERICHOST);
  return text.data();
}

}  // namespace

RedisSource::RedisSource(Loop& loop, StreamFollower& follower, std::function<void()> heard)
    : loop_(loop),
      follower_(follower),
      heard_(std::move(heard)),
      names_(VelaService::streamNames(follower.settings().switchName)),
      homes_(VelaRedis::addressesOf(follower.settings().server)),
      address_(homes_.front()),
      authentication_(VelaRedis::authentication(follower.settings().credentials)) {}

RedisSource::~RedisSource() {
  if (lookup_) {
    lookup_->source = nullptr;
    uv_cancel(reinterpret_cast<uv_req_t*>(&lookup_->request));
  }
  if (!context_) return;
  context_->data = nullptr;
  redisAsyncFree(context_);
}

/// The client library would look a name up in this thread.
void RedisSource::resolve() {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  lookup_ = new Lookup{{}, this};
  lookup_->request.data = lookup_;
  const auto found = [](uv_getaddrinfo_t* request, int status, addrinfo* addresses) {
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> all(addresses, uv_freeaddrinfo);
    const std::unique_ptr<Lookup> done(static_cast<Lookup*>(request->data));
    RedisSource* source = done->source;
    if (!source) return;
    source->lookup_ = nullptr;
    if (status < 0) return source->lost(source->address_.host + ": " + uv_strerror(status));
    source->connect(addressText(addresses, source->failures_));
  };
  const int result =
      uv_getaddrinfo(loop_.get(), &lookup_->request, found, address_.host.c_str(), nullptr, &hints);
  if (result >= 0) return;
  delete std::exchange(lookup_, nullptr);
  lost(address_.host + ": " + uv_strerror(result));
}

void RedisSource::connect(const std::string& host) {
  last_ = Clock::now();
  context_ = redisAsyncConnect(host.c_str(), address_.port);
  if (!context_) return lost("no memory");
  context_->data = this;
  if (context_->err != 0) return drop(context_->errstr);
  drive(loop_, context_, [this] { last_ = Clock::now(); });
  // The library frees the context after either call.
  redisAsyncSetDisconnectCallback(context_, [](const redisAsyncContext* on, int) {
    auto* source = static_cast<RedisSource*>(on->data);
    if (!source) return;
    source->context_ = nullptr;
    source->lost(on->err != 0 ? on->errstr : "closed");
  });
  redisAsyncSetConnectCallback(context_, [](const redisAsyncContext* on, int status) {
    auto* source = static_cast<RedisSource*>(on->data);
    if (!source) return;
    if (status == REDIS_OK) return source->established();
    source->context_ = nullptr;
    source->lost(on->errstr);
  });
}

void RedisSource::established() {
  connected_ = true;
  if (!authentication_.empty()) {
    send(authentication_, [this](const redisReply& reply) {
      if (reply.type == REDIS_REPLY_ERROR) refused(reply);
    });
  }
  follower_.connected();
  read();
}

void RedisSource::read() {
  const auto reading = follower_.reading();
  if (!connected_ || reading_ || !reading) return;
  const bool snapshot = reading->stream == StreamFollower::Reading::Stream::snapshot;
  const std::string& stream = snapshot ? names_.snapshot : names_.changes;
  const std::string from = toText(reading->from);
  Command command{"XRANGE", stream, "(" + from, "+", "COUNT", entriesAtATime};
  if (reading->inclusive) command = {"XRANGE", stream, from, from};
  if (reading->news) {
    command = {"XREAD",          "COUNT",   entriesAtATime, "BLOCK",
               newsMilliseconds, "STREAMS", stream,         from};
  }
  reading_ = true;
  send(command, [this](const redisReply& reply) { entriesCame(reply); });
}

void RedisSource::entriesCame(const redisReply& reply) {
  if (reply.type == REDIS_REPLY_ERROR) return refused(reply);
  reading_ = false;
  if (!std::exchange(useful_, true)) {
    log(Level::info, "stream: connected to " + address_.host + ":" + std::to_string(address_.port));
    failures_ = 0;
    told_.clear();
    follower_.troubleIs(refusal_);
  }
  follower_.take(VelaRedis::entriesOf(reply));
  follower_.idle() ? read() : heard_();
}

void RedisSource::report(Clock::time_point now) {
  if (reporting_ || now - considered_ < reportPause) return;
  considered_ = now;
  follower_.retry();
  const std::string report = follower_.report().dump();
  const std::string lines = follower_.unsent(linesBytes);
  if (lines.empty() && report == lastReport_ && now - reported_ < reportMost) return;
  Command command{
      "XADD", names_.status, "MAXLEN", "~", std::to_string(follower_.settings().statusLength),
      "*",    "report",      report};
  if (!lines.empty()) command.insert(command.end(), {"lines", lines});
  reporting_ = true;
  send(command, [this, report, now](const redisReply& reply) {
    reporting_ = false;
    refusalIs(reply.type == REDIS_REPLY_ERROR ? VelaRedis::textOf(reply) : std::string());
    if (!refusal_.empty()) return;
    reported_ = now;
    lastReport_ = report;
    follower_.sent();
  });
}

/// Why the server takes no report, if so: what is desired can be read all the same.
void RedisSource::refusalIs(const std::string& why) {
  if (why == refusal_) return;
  refusal_ = why;
  follower_.troubleIs(why);
  if (!why.empty()) log(Level::warning, "stream: no report can be written: " + why);
}

void RedisSource::send(const Command& command, Replied replied) {
  struct Request {
    Replied replied;
  };
  auto* request = new Request{std::move(replied)};
  VelaRedis::Arguments arguments(command);
  const int result = redisAsyncCommandArgv(
      context_,
      [](redisAsyncContext* on, void* reply, void* data) {
        const std::unique_ptr<Request> done(static_cast<Request*>(data));
        auto* source = static_cast<RedisSource*>(on->data);
        if (source && reply) {
          source->replyCame(done->replied, *static_cast<const redisReply*>(reply));
        }
      },
      request, arguments.count(), arguments.texts.data(), arguments.sizes.data());
  if (result != REDIS_OK) {
    delete request;
    return drop("cannot send");
  }
  if (awaited_++ == 0) last_ = Clock::now();
}

void RedisSource::replyCame(const Replied& replied, const redisReply& reply) {
  last_ = Clock::now();
  --awaited_;
  try {
    replied(reply);
  } catch (const std::exception& error) {
    drop(error.what());
  }
}

void RedisSource::refused(const redisReply& error) {
  const bool moved = VelaRedis::movedTo(error, address_);
  drop(VelaRedis::textOf(error), moved ? Level::info : Level::warning);
  if (moved) next_ = {};
}

/// The connection is no more.
void RedisSource::lost(const std::string& why, Level level) {
  const bool was = std::exchange(connected_, false);
  follower_.disconnected();
  follower_.troubleIs(why);
  useful_ = reading_ = reporting_ = false;
  awaited_ = 0;
  // Attempts that fail alike are told of once.
  if (told_.insert(why).second) log(level, "stream: " + why);
  next_ = Clock::now() + pauseAfter(failures_++);
  if (!was) address_ = homes_[failures_ % homes_.size()];
}

/// Ends the connection.
void RedisSource::drop(const std::string& why, Level level) {
  redisAsyncContext* context = std::exchange(context_, nullptr);
  context->data = nullptr;
  redisAsyncFree(context);
  lost(why, level);
}

void RedisSource::tick(Clock::time_point now) {
  if (lookup_) return;
  if (!context_) {
    if (now >= next_) resolve();
    return;
  }
  if ((!connected_ || awaited_ > 0) && now - last_ > silenceMost) return drop("no answer");
  if (!connected_) return;
  report(now);
  read();
}

}  // namespace Velad
