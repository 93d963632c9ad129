#pragma once

#include <hiredis/hiredis.h>

#include <string>
#include <vector>

#include "service/Stream.h"

/// What both programs need of the client library of Redis.
namespace VelaRedis {

struct Address {
  std::string host;
  int port = 6379;
};
/// Of "redis://HOST" or "redis://HOST:PORT", or several with commas between them; throws
/// VelaAgent::InputException for others.
std::vector<Address> addressesOf(const std::string& urls);
/// The address that an error names when another server of a cluster has the key; false for others.
bool movedTo(const redisReply& error, Address& address);

/// A command and its arguments.
using Command = std::vector<std::string>;
/// The one that authenticates with what the file says, "PASSWORD" or "USER PASSWORD"; an empty one
/// where `file` is empty. Throws VelaAgent::InputException when it cannot be read.
Command authentication(const std::string& file);

/// A command as the library takes it; the command must outlive it.
struct Arguments {
  explicit Arguments(const Command& command);
  int count() const { return static_cast<int>(texts.size()); }
  std::vector<const char*> texts;
  std::vector<std::size_t> sizes;
};

/// What a reply says, for people.
std::string textOf(const redisReply& reply);
/// The entries of a reply to XRANGE, or to XREAD of one stream. Throws VelaAgent::InputException
/// for another one.
std::vector<VelaService::StreamEntry> entriesOf(const redisReply& reply);

}  // namespace VelaRedis
