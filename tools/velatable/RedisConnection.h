#pragma once

#include <memory>

#include "agent/Input.h"
#include "tools/redis/Redis.h"

namespace VelaTool {

/// The server does not answer, or not yet: what was asked may or may not have happened.
class ServerGone : public VelaAgent::InputException {
 public:
  using VelaAgent::InputException::InputException;
};

/// A connection to a Redis server, or to the servers of a cluster one after the other. One that is
/// lost is made anew by the next command.
class RedisConnection {
 public:
  using Reply = std::unique_ptr<redisReply, void (*)(void*)>;

  /// Throws InputException for an address that is none, or credentials that cannot be read.
  RedisConnection(std::string url, const std::string& credentials);

  /// Carries out a command. Throws ServerGone when there is no answer, and InputException with what
  /// the server says when it refuses.
  Reply ask(const VelaRedis::Command& command);

 private:
  void connect();
  Reply exchange(const VelaRedis::Command& command);
  [[noreturn]] void gone(const std::string& why);

  std::string url_;
  std::vector<VelaRedis::Address> homes_;  ///< Of the URL, in turn,
  VelaRedis::Address address_;             ///< and where the streams are.
  std::size_t failures_ = 0;
  VelaRedis::Command authentication_;
  std::unique_ptr<redisContext, void (*)(redisContext*)> context_{nullptr, redisFree};
};

}  // namespace VelaTool
