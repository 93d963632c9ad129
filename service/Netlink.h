#pragma once

#include <span>
#include <unordered_map>

#include "service/Messages.h"

namespace VelaService {

/// Reads the netlink messages that `bytes`, aligned for them, hold one behind the other, and tells
/// those of routes and next hops. Throws MalformedMessage; what came before it was told.
void readNetlink(std::span<const char> bytes, const MessageListener& listener);

/// The frame that tells a forwarding plane manager's client whether its route is in hardware:
/// RTM_NEWROUTE with RTM_F_OFFLOAD or RTM_F_OFFLOAD_FAILED.
std::string offloadFrame(const RouteMessage& route, bool programmed);

/// Cuts the stream of a forwarding plane manager's client into frames and reads their messages: a
/// header of four bytes (version 1, type 1, the length in network order, header included), netlink
/// messages behind it.
class FpmStream {
 public:
  static constexpr std::size_t headerSize = 4;

  /// Takes what was received. Throws MalformedMessage; the stream is of no use then. All messages
  /// of a frame are told before this returns.
  void received(std::span<const char> bytes, const MessageListener& listener);
  /// Frames that came so far, and whether a part of the next one has.
  U64 frames() const { return frames_; }
  bool unfinished() const { return !frame_.empty(); }

 private:
  U64 frames_ = 0;
  std::vector<char> frame_;  ///< What there is of a frame.
};

/// Reads what the kernel says of IPv4 routes, next hops, links and neighbours, and tells it as
/// routes and next hops. Routes of the local table, the switch's own addresses, are told as the
/// main table's, and neighbours that are resolved as routes of theirs alone; what is looked up
/// before others is preferred. What concerns no other host is left out.
class KernelStream {
 public:
  struct Heard {
    bool dumped = false;    ///< What was asked for came to its end, or will not come.
    int error = 0;          ///< Why not all of it came, as of errno; 0 where all did.
    bool doubtful = false;  ///< Routes may have changed without a word: all is to be asked for.
  };
  /// All is asked for from the start.
  void begin() { links_.clear(); }
  /// Takes a datagram, aligned for messages. Throws MalformedMessage.
  Heard received(std::span<const char> bytes, const MessageListener& listener);

 private:
  struct Link {
    bool up = false;
    U32 master = 0;  ///< Another link's number, or 0.
    U32 table = 0;   ///< Of a VRF's link; 0 for others.
    std::string name;
    bool operator==(const Link&) const = default;
  };
  static Link readLink(const void* bytes);
  RouteMessage readNeighbour(const void* bytes) const;

  std::unordered_map<U32, Link> links_;  ///< By number.
};

}  // namespace VelaService
