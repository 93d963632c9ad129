#pragma once

#include <span>
#include <stdexcept>

#include "service/Messages.h"

namespace VelaService {

/// Bytes that are not what they should be; nothing of what follows them can be trusted.
class MalformedMessage : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Reads the netlink messages that `bytes`, aligned for them, hold one behind the other, and tells
/// those of routes and next hops. Throws MalformedMessage; what came before it was told.
void readNetlink(std::span<const char> bytes, const MessageListener& listener);

/// Cuts the stream of a forwarding plane manager's client into frames and reads their messages: a
/// header of four bytes (version 1, type 1, the length in network order, header included), netlink
/// messages behind it.
class FpmStream {
 public:
  static constexpr std::size_t headerSize = 4;

  /// Takes what was received. Throws MalformedMessage; the stream is of no use then. All messages
  /// of a frame are told before this returns.
  void received(std::span<const char> bytes, const MessageListener& listener);

 private:
  std::vector<char> frame_;  ///< What there is of a frame.
};

}  // namespace VelaService
