#pragma once

#include <array>
#include <functional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "Orb/Types.h"

/// What sources of routes say, in the service's own words.
namespace VelaService {

/// What is not as it should be; nothing that follows it can be trusted.
class MalformedMessage : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// A route as its source names it, of whatever address family. Bits behind the prefix are zero.
struct RouteName {
  U32 table = 0;  ///< The kernel's number of the table.
  U8 family = 0;  ///< AF_INET and so on.
  U8 len = 0;     ///< Bits of the prefix.
  std::array<U8, 16> address{};
  auto operator<=>(const RouteName&) const = default;
};
/// "10.0.0.0/8" for people; with its table unless that is the kernel's main one.
std::string toText(const RouteName& name);

struct RouteNameHash {
  std::size_t operator()(const RouteName& name) const noexcept;
};

/// Why a route is not offered to the switch.
enum class Refusal : U8 {
  none,
  ipv6,            ///< The route or its gateway is IPv6.
  family,          ///< Its address family is another one than IPv4, IPv6 and MPLS.
  mpls,            ///< It is a label's, or its next hop pushes one.
  routeType,       ///< Neither unicast, local nor one that drops.
  unknownTable,    ///< Its table belongs to no VRF.
  unknownNexthop,  ///< Its next hop was not announced.
  noPort,          ///< Its gateway's interface has no port.
  noIndex,         ///< All next hops of the switch are taken.
  hardwareError,   ///< What its next hop needs could not be written.
};
inline constexpr std::size_t refusals = 10;
/// As it is spelled in answers.
const char* nameOf(Refusal refusal);
/// For people.
const char* meaningOf(Refusal refusal);

/// Where packets of a route go.
struct Hop {
  enum class Kind : U8 {
    drop,     ///< Nowhere: blackhole, unreachable, prohibit.
    local,    ///< To the CPU: connected subnets, the switch's own addresses.
    gateway,  ///< To a gateway behind an interface.
  };
  Kind kind = Kind::drop;
  Refusal refusal = Refusal::none;  ///< Whatever is wrong with it; it goes nowhere then.
  bool ofSeveral = false;           ///< The first gateway of several.
  U32 interface = 0;                ///< The kernel's number of it.
  U32 gateway = 0;                  ///< IPv4, in host order.
  bool operator==(const Hop&) const = default;
};

/// A next hop that routes refer to.
struct NexthopMessage {
  U32 id = 0;
  bool withdrawn = false;
  Hop hop;
  std::vector<U32> group;  ///< The next hops that it stands for; then `hop` means nothing.
};

struct RouteMessage {
  RouteName route;
  bool withdrawn = false;
  U32 nexthop = 0;  ///< The next hop's id; 0 where `hop` says it.
  Hop hop;
  U32 preference = 0;  ///< A source may have several routes of a name; the lowest counts.
  U8 protocol = 0;     ///< Whose route it is, by the kernel's number (RTPROT_BGP and so on).
  U8 type = 0;         ///< By the kernel's number (RTN_UNICAST and so on).
  /// What becomes of another that the source has of that name and preference.
  enum class Other : U8 {
    goes,      ///< This one replaces it.
    counts,    ///< This one stands behind it.
    isBehind,  ///< It stands behind this one.
  };
  Other other = Other::goes;
};

using Message = std::variant<NexthopMessage, RouteMessage>;
using MessageListener = std::function<void(const Message&)>;

}  // namespace VelaService
