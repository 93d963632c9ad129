#include "service/KernelSource.h"

#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <array>
#include <system_error>

namespace VelaService {

namespace {

/// Larger than any message of the kernel's.
constexpr std::size_t datagramMost = std::size_t{1} << 16;
constexpr int datagramsAtATime = 32;
/// After the kernel refused to tell all.
constexpr auto askPause = std::chrono::seconds(5);

/// What is asked for, one after the other: links come before the neighbours behind them, and next
/// hops before the routes that refer to them.
struct Request {
  U16 type;
  U8 family;
  std::size_t size;
};
constexpr std::array<Request, 4> requests{{{RTM_GETLINK, AF_UNSPEC, sizeof(ifinfomsg)},
                                           {RTM_GETNEXTHOP, AF_UNSPEC, sizeof(nhmsg)},
                                           {RTM_GETROUTE, AF_INET, sizeof(rtmsg)},
                                           {RTM_GETNEIGH, AF_INET, sizeof(ndmsg)}}};
constexpr std::array<int, 5> groups{RTNLGRP_LINK, RTNLGRP_NEIGH, RTNLGRP_IPV4_IFADDR,
                                    RTNLGRP_IPV4_ROUTE, RTNLGRP_NEXTHOP};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

KernelSource::KernelSource(RouteService& routes, RouteService::SourceId source, U32 receiveBuffer,
                           Clock::time_point now)
    : routes_(routes),
      source_(source),
      socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      buffer_(datagramMost) {
  if (!socket_) fail("rtnetlink");
  const auto size = static_cast<int>(receiveBuffer);
  if (setsockopt(file(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    setsockopt(file(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
  bool good = mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) == 0;
  // Changes are heard before all is asked for, so that none is lost between.
  for (int group : groups) {
    good = good &&
           mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) == 0;
  }
  if (!good) fail("rtnetlink");
  ask(now);
}

void KernelSource::SocketCloser::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

int KernelSource::file() const { return mnl_socket_get_fd(socket_.get()); }

void KernelSource::ask(Clock::time_point now) {
  doubtful_ = false;
  error_ = 0;
  asking_ = true;
  asked_ = 0;
  stream_.begin();
  routes_.connected(source_, now);
  askNext();
}

void KernelSource::askNext() {
  const Request& request = requests[asked_++];
  alignas(nlmsghdr) std::array<char, 64> bytes{};
  nlmsghdr* message = mnl_nlmsg_put_header(bytes.data());
  message->nlmsg_type = request.type;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  // The family is the first of all that these begin with.
  *static_cast<U8*>(mnl_nlmsg_put_extra_header(message, request.size)) = request.family;
  if (mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0) fail("rtnetlink");
}

void KernelSource::received(std::span<const char> bytes, Clock::time_point now) {
  const auto heard =
      stream_.received(bytes, [&](const Message& message) { routes_.take(source_, message, now); });
  doubtful_ = doubtful_ || heard.doubtful || routes_.unsure(source_);
  if (!heard.dumped || !asking_) return;
  // A kernel may be built without next hops of their own.
  const bool needless = heard.error == EOPNOTSUPP && requests[asked_ - 1].type == RTM_GETNEXTHOP;
  if (heard.error != 0 && !needless) {
    error_ = heard.error;
    asking_ = false;
    doubtful_ = true;
    askAt_ = now + askPause;
    // What it did not tell is not gone.
    routes_.disconnected(source_, false);
    return;
  }
  if (asked_ < requests.size()) return askNext();
  asking_ = false;
  if (!doubtful_) routes_.told(source_);
}

void KernelSource::tick(Clock::time_point now) {
  if (doubtful_ && !asking_ && now >= askAt_) ask(now);
}

void KernelSource::receive(Clock::time_point now) {
  for (int count = 0; count < datagramsAtATime; ++count) {
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
    if (size >= 0) {
      received(std::span(buffer_).first(static_cast<std::size_t>(size)), now);
    } else if (errno == ENOBUFS) {
      ++overruns_;
      doubtful_ = true;
    } else if (errno == EAGAIN) {
      // Now there is room for the answer.
      return tick(now);
    } else if (errno != EINTR) {
      fail("rtnetlink");
    }
  }
}

}  // namespace VelaService
