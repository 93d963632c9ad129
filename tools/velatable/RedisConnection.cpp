#include "RedisConnection.h"

namespace VelaTool {

using VelaAgent::InputException;
using VelaRedis::Arguments;
using VelaRedis::Command;

namespace {

constexpr timeval answerMost{5, 0};
constexpr int redirectionsMost = 5;

}  // namespace

RedisConnection::RedisConnection(std::string url, const std::string& credentials)
    : url_(std::move(url)),
      address_(VelaRedis::addressOf(url_)),
      authentication_(VelaRedis::authentication(credentials)) {}

void RedisConnection::gone(const std::string& why) {
  context_.reset();
  throw ServerGone(url_ + ": " + why);
}

void RedisConnection::connect() {
  context_.reset(redisConnectWithTimeout(address_.host.c_str(), address_.port, answerMost));
  if (!context_) gone("no memory");
  if (context_->err != 0) gone(std::string(context_->errstr));
  redisSetTimeout(context_.get(), answerMost);
  if (authentication_.empty()) return;
  const Reply reply = exchange(authentication_);
  if (reply->type != REDIS_REPLY_ERROR) return;
  context_.reset();
  throw InputException(url_ + ": " + VelaRedis::textOf(*reply));
}

RedisConnection::Reply RedisConnection::exchange(const Command& command) {
  Arguments arguments(command);
  void* reply = redisCommandArgv(context_.get(), arguments.count(), arguments.texts.data(),
                                 arguments.sizes.data());
  if (!reply) gone(std::string(context_->errstr));
  return {static_cast<redisReply*>(reply), freeReplyObject};
}

RedisConnection::Reply RedisConnection::ask(const Command& command) {
  for (int redirections = 0; redirections < redirectionsMost; ++redirections) {
    if (!context_) connect();
    Reply reply = exchange(command);
    if (reply->type != REDIS_REPLY_ERROR) return reply;
    if (VelaRedis::movedTo(*reply, address_)) {
      context_.reset();
      continue;
    }
    const std::string error = VelaRedis::textOf(*reply);
    // It reads what it had saved.
    if (error.starts_with("LOADING")) gone(error);
    throw InputException(error);
  }
  throw InputException(url_ + ": no server of the cluster has the stream");
}

}  // namespace VelaTool
