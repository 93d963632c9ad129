#pragma once

#include <memory>

#include "service/Netlink.h"
#include "service/RouteService.h"

struct mnl_socket;

namespace VelaService {

/// The kernel as a source of routes: asks it for all that it has, and hears what changes. When it
/// could not tell a change, for its messages found no room, or does not tell it, it is asked for
/// all once more, and what it does not tell again goes.
class KernelSource {
 public:
  /// Messages wait in so many bytes until they are received; more than the system allows is for
  /// CAP_NET_ADMIN. Throws std::system_error.
  KernelSource(RouteService& routes, RouteService::SourceId source, U32 receiveBuffer,
               Clock::time_point now);
  KernelSource(const KernelSource&) = delete;
  KernelSource& operator=(const KernelSource&) = delete;

  /// What is readable when there is something to receive.
  int file() const;
  /// Takes some of what is there. Throws MalformedMessage and std::system_error; it is of no use
  /// then.
  void receive(Clock::time_point now);
  /// Asks for all again where that is due; to be called now and then. Throws std::system_error; it
  /// is of no use then.
  void tick(Clock::time_point now);
  /// How often messages found no room.
  U64 overruns() const { return overruns_; }
  /// Why what was asked for last did not come, as of errno; 0 where it did, or is to come.
  int error() const { return error_; }

 private:
  struct SocketCloser {
    void operator()(mnl_socket* socket) const;
  };

  void ask(Clock::time_point now);
  void askNext();
  void received(std::span<const char> bytes, Clock::time_point now);

  RouteService& routes_;
  RouteService::SourceId source_;
  std::unique_ptr<mnl_socket, SocketCloser> socket_;
  KernelStream stream_;
  std::vector<char> buffer_;
  std::size_t asked_ = 0;    ///< How much of all was asked for.
  bool asking_ = false;      ///< There is more to come.
  bool doubtful_ = false;    ///< All is to be asked for.
  Clock::time_point askAt_;  ///< Not before then.
  int error_ = 0;
  U64 overruns_ = 0;
};

}  // namespace VelaService
