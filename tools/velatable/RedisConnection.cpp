#include "RedisConnection.h"

#include <algorithm>
#include <array>

namespace VelaTool {

using VelaAgent::InputException;
using VelaRedis::Arguments;
using VelaRedis::Command;

namespace {

constexpr timeval answerMost{5, 0};
constexpr int redirectionsMost = 5;

/// Whether a server refuses for now alone: it reads what it had saved, or another takes its place.
bool isPassing(const std::string& error) {
  constexpr std::array<std::string_view, 7> passing{
      "LOADING ", "READONLY ", "CLUSTERDOWN ", "TRYAGAIN ", "ASK ", "PARTS ", "MASTERDOWN "};
  return std::any_of(passing.begin(), passing.end(),
                     [&](std::string_view each) { return error.starts_with(each); });
}

}  // namespace

RedisConnection::RedisConnection(std::string url, const std::string& credentials)
    : url_(std::move(url)),
      homes_(VelaRedis::addressesOf(url_)),
      address_(homes_.front()),
      authentication_(VelaRedis::authentication(credentials)) {}

void RedisConnection::gone(const std::string& why) {
  context_.reset();
  address_ = homes_[++failures_ % homes_.size()];
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
  const std::string error = VelaRedis::textOf(*reply);
  if (isPassing(error)) gone(error);
  context_.reset();
  throw InputException(url_ + ": " + error);
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
    if (isPassing(error)) gone(error);
    throw InputException(url_ + ": " + error);
  }
  gone("no server of the cluster has the stream");
}

}  // namespace VelaTool
