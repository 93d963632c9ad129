#include "Redis.h"

#include <algorithm>
#include <fstream>
#include <span>

#include "Orb/Text.h"
#include "agent/Input.h"

namespace VelaRedis {

using VelaAgent::InputException;
using VelaService::StreamEntry;

namespace {

/// "HOST:PORT", or "HOST" for the usual port.
Address addressOfText(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  Address address{std::string(text.substr(0, colon))};
  if (colon != std::string_view::npos) address.port = Orb::fromText<U16>(text.substr(colon + 1));
  if (address.host.empty()) throw InputException("no host");
  return address;
}

std::span<redisReply* const> elementsOf(const redisReply& reply) {
  if (reply.type != REDIS_REPLY_ARRAY) throw InputException("an answer that is no list of entries");
  return {reply.element, reply.elements};
}

std::string stringOf(const redisReply& reply) {
  if (reply.type != REDIS_REPLY_STRING) throw InputException("an entry whose parts are no texts");
  return {reply.str, static_cast<std::size_t>(reply.len)};
}

StreamEntry entryOf(const redisReply& reply) {
  const auto parts = elementsOf(reply);
  if (parts.size() != 2) throw InputException("an entry without its fields");
  StreamEntry entry{VelaService::entryIdFromText(stringOf(*parts[0])), {}};
  const auto fields = elementsOf(*parts[1]);
  for (std::size_t at = 0; at + 1 < fields.size(); at += 2) {
    entry.fields[stringOf(*fields[at])] = stringOf(*fields[at + 1]);
  }
  return entry;
}

Address addressOf(std::string_view url) {
  constexpr std::string_view scheme = "redis://";
  try {
    if (!url.starts_with(scheme)) throw InputException("another scheme");
    return addressOfText(url.substr(scheme.size()));
  } catch (const std::exception&) {
    throw InputException("\"" + std::string(url) + "\" is to be redis://HOST:PORT");
  }
}

}  // namespace

std::vector<Address> addressesOf(const std::string& urls) {
  std::vector<Address> all;
  for (std::size_t begin = 0; begin <= urls.size();) {
    const std::size_t end = std::min(urls.find(',', begin), urls.size());
    all.push_back(addressOf(std::string_view(urls).substr(begin, end - begin)));
    begin = end + 1;
  }
  return all;
}

bool movedTo(const redisReply& error, Address& address) {
  const std::string text = textOf(error);
  if (error.type != REDIS_REPLY_ERROR || !text.starts_with("MOVED ")) return false;
  address = addressOfText(std::string_view(text).substr(text.rfind(' ') + 1));
  return true;
}

Command authentication(const std::string& file) {
  if (file.empty()) return {};
  std::ifstream in(file);
  Command command{"AUTH"};
  for (std::string word; in >> word;) command.push_back(word);
  if (command.size() < 2 || command.size() > 3) {
    throw InputException(file + " is to hold a password, or a user and a password");
  }
  return command;
}

Arguments::Arguments(const Command& command) {
  for (const std::string& each : command) {
    texts.push_back(each.data());
    sizes.push_back(each.size());
  }
}

std::string textOf(const redisReply& reply) {
  return reply.str ? std::string(reply.str, static_cast<std::size_t>(reply.len))
                   : std::to_string(reply.integer);
}

std::vector<StreamEntry> entriesOf(const redisReply& reply) {
  std::vector<StreamEntry> entries;
  if (reply.type == REDIS_REPLY_NIL) return entries;
  auto list = elementsOf(reply);
  // XREAD answers with the name of each stream and its entries.
  if (list.size() == 1) {
    const auto parts = elementsOf(*list[0]);
    const bool ofStream = parts.size() == 2 && parts[1]->type == REDIS_REPLY_ARRAY &&
                          parts[1]->elements != 0 &&
                          parts[1]->element[0]->type == REDIS_REPLY_ARRAY;
    if (ofStream) list = elementsOf(*parts[1]);
  }
  entries.reserve(list.size());
  for (const redisReply* each : list) entries.push_back(entryOf(*each));
  return entries;
}

}  // namespace VelaRedis
