#pragma once

#include <functional>
#include <set>

#include "Log.h"
#include "Loop.h"
#include "service/RouteService.h"
#include "service/StreamFollower.h"
#include "tools/redis/Redis.h"

struct redisAsyncContext;

namespace Velad {

/// Reads the streams of a switch from a Redis server for the one who follows them, and writes what
/// he reports to the stream of statuses. It connects again whenever a connection is lost.
class RedisSource {
 public:
  using Clock = VelaService::Clock;

  /// All must outlive it. `heard` is called when the follower has something to do. Throws
  /// VelaAgent::InputException when the file of credentials cannot be read.
  RedisSource(Loop& loop, VelaService::StreamFollower& follower, std::function<void()> heard);
  ~RedisSource();
  RedisSource(const RedisSource&) = delete;
  RedisSource& operator=(const RedisSource&) = delete;

  /// The follower has done what there was.
  void worked() { read(); }
  /// To be called now and then, several times a second.
  void tick(Clock::time_point now);

 private:
  using Replied = std::function<void(const redisReply&)>;
  /// A look-up of a name, which outlives a source that goes meanwhile.
  struct Lookup {
    uv_getaddrinfo_t request;
    RedisSource* source;
  };

  void resolve();
  void connect(const std::string& host);
  void established();
  void read();
  void entriesCame(const redisReply& reply);
  void report(Clock::time_point now);
  void send(const VelaRedis::Command& command, Replied replied);
  void replyCame(const Replied& replied, const redisReply& reply);
  void refused(const redisReply& error);
  void refusalIs(const std::string& why);
  void lost(const std::string& why, Level level = Level::warning);
  void drop(const std::string& why, Level level = Level::warning);

  Loop& loop_;
  VelaService::StreamFollower& follower_;
  std::function<void()> heard_;
  VelaService::StreamNames names_;
  std::vector<VelaRedis::Address> homes_;  ///< Where it is told to connect, in turn,
  VelaRedis::Address address_;             ///< and where the streams are.
  VelaRedis::Command authentication_;
  Lookup* lookup_ = nullptr;
  redisAsyncContext* context_ = nullptr;
  bool connected_ = false;
  bool useful_ = false;  ///< The connection: something was read.
  bool reading_ = false;
  bool reporting_ = false;
  unsigned awaited_ = 0;          ///< Replies that are to come.
  unsigned failures_ = 0;         ///< Since a connection was of use.
  Clock::time_point next_;        ///< When to connect.
  Clock::time_point last_;        ///< When bytes came, or were asked for first.
  Clock::time_point considered_;  ///< When a report was thought of,
  Clock::time_point reported_;    ///< and when one was sent.
  std::string lastReport_;
  std::string refusal_;         ///< Why the last report was refused.
  std::set<std::string> told_;  ///< Why connections were lost since one was of use.
};

}  // namespace Velad
