#include "service/Netlink.h"

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/lwtunnel.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

namespace VelaService {

namespace {

/// A neighbour's route is behind all others of its address.
constexpr U32 neighbourPreference = ~U32{0};

/// Attributes by their types, up to the last that is known.
template <std::size_t types>
class Attributes {
 public:
  void add(const nlattr* attribute) {
    const U16 type = mnl_attr_get_type(attribute);
    if (type < types) all_[type] = attribute;
  }
  const nlattr* operator[](std::size_t type) const { return all_[type]; }
  bool has(std::size_t type) const { return all_[type] != nullptr; }

  U16 size(std::size_t type) const { return mnl_attr_get_payload_len(all_[type]); }
  const char* bytes(std::size_t type) const {
    return static_cast<const char*>(mnl_attr_get_payload(all_[type]));
  }
  /// The number that an attribute holds; 0 where there is none.
  template <class Number = U32>
  Number number(std::size_t type) const {
    Number value = 0;
    if (!has(type)) return value;
    if (size(type) != sizeof value) throw MalformedMessage("an attribute of a wrong size");
    std::memcpy(&value, bytes(type), sizeof value);
    return value;
  }

 private:
  std::array<const nlattr*, types> all_{};
};

template <std::size_t types>
Attributes<types> attributesIn(const char* begin, std::size_t size) {
  Attributes<types> all;
  const auto* attribute = reinterpret_cast<const nlattr*>(begin);
  while (mnl_attr_ok(attribute, static_cast<int>(size))) {
    all.add(attribute);
    const std::size_t step = MNL_ALIGN(attribute->nla_len);
    size -= std::min(size, step);
    attribute = mnl_attr_next(attribute);
  }
  if (size != 0) throw MalformedMessage("attributes that do not fill their message");
  return all;
}

/// Those behind the fixed part of a message.
template <std::size_t types, class Fixed>
Attributes<types> attributesOf(const nlmsghdr* message) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(Fixed)) throw MalformedMessage("a short message");
  const auto* begin =
      static_cast<const char*>(mnl_nlmsg_get_payload_offset(message, sizeof(Fixed)));
  const auto* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
  const auto* last = reinterpret_cast<const char*>(message) + message->nlmsg_len;
  end = std::min(end, last);
  return attributesIn<types>(begin, begin < end ? static_cast<std::size_t>(end - begin) : 0);
}

/// What a message begins with; attributesOf() has seen that it is there.
template <class Fixed>
Fixed headOf(const nlmsghdr* message) {
  Fixed head;
  std::memcpy(&head, mnl_nlmsg_get_payload(message), sizeof head);
  return head;
}

/// A next hop of an interface and perhaps a gateway, by the types that these have where it stands.
template <class All>
Hop hopOf(const All& all, U8 interface, U8 gateway, U8 encapType) {
  Hop hop{Hop::Kind::local};
  hop.interface = all.number(interface);
  if (all.has(encapType) && all.template number<U16>(encapType) == LWTUNNEL_ENCAP_MPLS) {
    hop.refusal = Refusal::mpls;
  }
  if (all.has(gateway)) {
    hop.kind = Hop::Kind::gateway;
    if (all.size(gateway) == sizeof(in6_addr)) {
      hop.refusal = Refusal::ipv6;
    } else {
      hop.gateway = ntohl(all.number(gateway));
    }
  }
  return hop;
}

Hop routeHop(const Attributes<RTA_MAX + 1>& all) {
  Hop hop = hopOf(all, RTA_OIF, RTA_GATEWAY, RTA_ENCAP_TYPE);
  // Another family's gateway.
  if (all.has(RTA_VIA)) hop.refusal = Refusal::ipv6;
  return hop;
}

/// The first of the next hops that a route lists itself, but none whose link is down unless all
/// are.
Hop firstOf(const nlattr* multipath) {
  const auto* first = static_cast<const char*>(mnl_attr_get_payload(multipath));
  const std::size_t size = mnl_attr_get_payload_len(multipath);
  std::optional<Hop> found;
  bool dead = false;
  for (std::size_t at = 0; !found || (dead && at < size);) {
    rtnexthop next{};
    if (size >= at + sizeof next) std::memcpy(&next, first + at, sizeof next);
    if (next.rtnh_len < sizeof next || size - at < next.rtnh_len) {
      throw MalformedMessage("a next hop that does not fit");
    }
    const std::size_t end = at + RTNH_ALIGN(next.rtnh_len);
    const bool down = (next.rtnh_flags & RTNH_F_DEAD) != 0;
    if (!found || !down) {
      found = routeHop(
          attributesIn<RTA_MAX + 1>(first + at + sizeof next, next.rtnh_len - sizeof next));
      found->interface = static_cast<U32>(next.rtnh_ifindex);
      dead = down;
    }
    found->ofSeveral = at != 0 || end < size;
    at = end;
  }
  return *found;
}

Hop hopOfType(U8 type, const Attributes<RTA_MAX + 1>& all) {
  switch (type) {
    case RTN_UNICAST:
      return all.has(RTA_MULTIPATH) ? firstOf(all[RTA_MULTIPATH]) : routeHop(all);
    case RTN_LOCAL:
      return {Hop::Kind::local};
    case RTN_BLACKHOLE:
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
      return {Hop::Kind::drop};
    default:
      return {Hop::Kind::drop, Refusal::routeType};
  }
}

RouteName nameOf(const rtmsg& head, const Attributes<RTA_MAX + 1>& all) {
  RouteName name;
  name.table = all.has(RTA_TABLE) ? all.number(RTA_TABLE) : head.rtm_table;
  name.family = head.rtm_family;
  name.len = head.rtm_dst_len;
  const std::size_t width = head.rtm_family == AF_INET ? 4 : head.rtm_family == AF_INET6 ? 16 : 0;
  if (width != 0 && name.len > 8 * width) throw MalformedMessage("a prefix that is too long");
  if (all.has(RTA_DST)) {
    const std::size_t size = all.size(RTA_DST);
    if (size > name.address.size() || (width != 0 && size != width)) {
      throw MalformedMessage("an address of a wrong size");
    }
    std::memcpy(name.address.data(), all.bytes(RTA_DST), size);
  } else if (name.len != 0) {
    throw MalformedMessage("a prefix without an address");
  }
  for (std::size_t bit = name.len; bit < 8 * width; ++bit) {
    name.address[bit / 8] &= static_cast<U8>(~(0x80U >> bit % 8));
  }
  return name;
}

RouteMessage readRoute(const nlmsghdr* message) {
  const auto all = attributesOf<RTA_MAX + 1, rtmsg>(message);
  const auto head = headOf<rtmsg>(message);
  RouteMessage route{nameOf(head, all), message->nlmsg_type == RTM_DELROUTE};
  route.protocol = head.rtm_protocol;
  route.type = head.rtm_type;
  if (route.withdrawn) return route;
  route.hop = hopOfType(head.rtm_type, all);
  if (head.rtm_type == RTN_UNICAST) route.nexthop = all.number(RTA_NH_ID);
  return route;
}

NexthopMessage readNexthop(const nlmsghdr* message) {
  const auto all = attributesOf<NHA_MAX + 1, nhmsg>(message);
  NexthopMessage nexthop{all.number(NHA_ID), message->nlmsg_type == RTM_DELNEXTHOP};
  if (nexthop.id == 0) throw MalformedMessage("a next hop without an id");
  if (nexthop.withdrawn) return nexthop;
  if (all.has(NHA_GROUP)) {
    const std::size_t members = all.size(NHA_GROUP) / sizeof(nexthop_grp);
    if (members == 0 || all.size(NHA_GROUP) % sizeof(nexthop_grp) != 0) {
      throw MalformedMessage("a group of next hops of a wrong size");
    }
    for (std::size_t number = 0; number < members; ++number) {
      nexthop_grp member;
      std::memcpy(&member, all.bytes(NHA_GROUP) + number * sizeof member, sizeof member);
      if (member.id == 0) throw MalformedMessage("a member of a group without an id");
      nexthop.group.push_back(member.id);
    }
  } else if (!all.has(NHA_BLACKHOLE)) {
    nexthop.hop = hopOf(all, NHA_OIF, NHA_GATEWAY, NHA_ENCAP_TYPE);
  }
  return nexthop;
}

template <class Visitor>
void forEachMessage(std::span<const char> bytes, const Visitor& visit) {
  auto left = static_cast<int>(bytes.size());
  const auto* message = reinterpret_cast<const nlmsghdr*>(bytes.data());
  // The library takes a length beyond all integers for a negative one, which fits.
  const auto fits = [&] {
    return mnl_nlmsg_ok(message, left) && message->nlmsg_len <= static_cast<U32>(left);
  };
  for (; fits(); message = mnl_nlmsg_next(message, &left)) visit(message);
  if (left > 0) throw MalformedMessage("bytes that are no message");
}

/// A route of the kernel's that packets from other hosts may take.
std::optional<RouteMessage> readKernelRoute(const nlmsghdr* message) {
  RouteMessage route = readRoute(message);
  const auto head = headOf<rtmsg>(message);
  const bool loopback = route.route.address[0] == 127;
  if (head.rtm_family != AF_INET || (head.rtm_flags & RTM_F_CLONED) != 0 || head.rtm_tos != 0 ||
      loopback || head.rtm_type == RTN_BROADCAST || head.rtm_type == RTN_ANYCAST ||
      head.rtm_type == RTN_MULTICAST) {
    return std::nullopt;
  }
  const U32 metric = attributesOf<RTA_MAX + 1, rtmsg>(message).number(RTA_PRIORITY);
  route.preference = std::min(metric, neighbourPreference - 2) + 1;
  if (route.route.table == RT_TABLE_LOCAL) {
    route.route.table = RT_TABLE_MAIN;
    route.preference = 0;
  }
  // A dump tells those of a name and metric in their order.
  if ((message->nlmsg_flags & (NLM_F_APPEND | NLM_F_MULTI)) != 0) {
    route.other = RouteMessage::Other::counts;
  } else if ((message->nlmsg_flags & NLM_F_REPLACE) == 0) {
    route.other = RouteMessage::Other::isBehind;
  }
  return route;
}

/// The error that the payload of a message begins with, as of errno.
int errorOf(const nlmsghdr* message) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(int)) throw MalformedMessage("a short message");
  return -headOf<int>(message);
}

}  // namespace

void readNetlink(std::span<const char> bytes, const MessageListener& listener) {
  forEachMessage(bytes, [&](const nlmsghdr* message) {
    switch (message->nlmsg_type) {
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
        return listener(readRoute(message));
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP:
        return listener(readNexthop(message));
      default:
        return;
    }
  });
}

KernelStream::Link KernelStream::readLink(const void* bytes) {
  const auto* message = static_cast<const nlmsghdr*>(bytes);
  const auto all = attributesOf<IFLA_LINKINFO + 1, ifinfomsg>(message);
  Link link{(headOf<ifinfomsg>(message).ifi_flags & IFF_UP) != 0, all.number(IFLA_MASTER)};
  if (all.has(IFLA_IFNAME)) link.name.assign(all.bytes(IFLA_IFNAME), all.size(IFLA_IFNAME));
  if (!all.has(IFLA_LINKINFO)) return link;
  const auto about =
      attributesIn<IFLA_INFO_DATA + 1>(all.bytes(IFLA_LINKINFO), all.size(IFLA_LINKINFO));
  static constexpr char vrf[] = "vrf";
  const bool isVrf = about.has(IFLA_INFO_KIND) && about.has(IFLA_INFO_DATA) &&
                     std::string_view(about.bytes(IFLA_INFO_KIND), about.size(IFLA_INFO_KIND)) ==
                         std::string_view(vrf, sizeof vrf);
  if (isVrf) {
    link.table =
        attributesIn<IFLA_VRF_MAX + 1>(about.bytes(IFLA_INFO_DATA), about.size(IFLA_INFO_DATA))
            .number(IFLA_VRF_TABLE);
  }
  return link;
}

RouteMessage KernelStream::readNeighbour(const void* bytes) const {
  const auto* message = static_cast<const nlmsghdr*>(bytes);
  const auto all = attributesOf<NDA_MAX + 1, ndmsg>(message);
  const auto head = headOf<ndmsg>(message);
  RouteMessage route{{RT_TABLE_MAIN, AF_INET, 32}};
  const U32 address = all.number(NDA_DST);
  std::memcpy(route.route.address.data(), &address, sizeof address);
  route.preference = neighbourPreference;
  route.hop = {Hop::Kind::gateway, Refusal::none, false, static_cast<U32>(head.ndm_ifindex),
               ntohl(address)};
  constexpr U16 resolved = NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;
  route.other = RouteMessage::Other::isBehind;
  route.withdrawn = message->nlmsg_type == RTM_DELNEIGH || (head.ndm_state & resolved) == 0;
  const auto link = links_.find(route.hop.interface);
  const auto master = link == links_.end() ? link : links_.find(link->second.master);
  if (master != links_.end() && master->second.table != 0) route.route.table = master->second.table;
  return route;
}

KernelStream::Heard KernelStream::received(std::span<const char> bytes,
                                           const MessageListener& listener) {
  Heard heard;
  forEachMessage(bytes, [&](const nlmsghdr* message) {
    heard.doubtful = heard.doubtful || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    switch (message->nlmsg_type) {
      case NLMSG_ERROR:
      case NLMSG_DONE:
        // What is asked for comes when there is room for it.
        if (const int error = errorOf(message); error != ENOBUFS) {
          heard.dumped = true;
          heard.error = error;
        }
        break;
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
        if (const auto route = readKernelRoute(message)) listener(*route);
        break;
      case RTM_DELNEXTHOP:
        heard.doubtful = true;
        [[fallthrough]];
      case RTM_NEWNEXTHOP:
        listener(readNexthop(message));
        break;
      case RTM_NEWLINK: {
        const Link link = readLink(message);
        const auto number = static_cast<U32>(headOf<ifinfomsg>(message).ifi_index);
        const auto [at, isNew] = links_.try_emplace(number, link);
        heard.doubtful = heard.doubtful || (!isNew && at->second != link);
        at->second = link;
        break;
      }
      // Routes go with links and addresses, and the kernel does not say so.
      case RTM_DELLINK:
      case RTM_DELADDR:
        heard.doubtful = true;
        break;
      case RTM_NEWNEIGH:
      case RTM_DELNEIGH:
        if (attributesOf<NDA_MAX + 1, ndmsg>(message).has(NDA_DST) &&
            headOf<ndmsg>(message).ndm_family == AF_INET) {
          listener(readNeighbour(message));
        }
        break;
      default:
        break;
    }
  });
  return heard;
}

std::string offloadFrame(const RouteMessage& route, bool programmed) {
  const RouteName& name = route.route;
  alignas(nlmsghdr) std::array<char, 128> buffer{};
  nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
  message->nlmsg_type = RTM_NEWROUTE;
  auto* head = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
  const bool drops = route.nexthop == 0 && route.hop.kind == Hop::Kind::drop;
  head->rtm_family = name.family;
  head->rtm_dst_len = name.len;
  head->rtm_table = static_cast<U8>(name.table < 256 ? name.table : U32{RT_TABLE_COMPAT});
  head->rtm_protocol = route.protocol;
  head->rtm_type = route.type;
  head->rtm_flags = programmed ? RTM_F_OFFLOAD : RTM_F_OFFLOAD_FAILED;
  mnl_attr_put(message, RTA_DST, name.family == AF_INET ? 4 : 16, name.address.data());
  mnl_attr_put_u32(message, RTA_TABLE, name.table);
  if (route.nexthop != 0) {
    mnl_attr_put_u32(message, RTA_NH_ID, route.nexthop);
  } else if (!drops) {
    mnl_attr_put_u32(message, RTA_OIF, route.hop.interface);
    if (route.hop.gateway != 0) {
      mnl_attr_put_u32(message, RTA_GATEWAY, htonl(route.hop.gateway));
    }
  }
  const std::size_t size = FpmStream::headerSize + message->nlmsg_len;
  std::string frame{1, 1, static_cast<char>(size >> 8), static_cast<char>(size)};
  return frame.append(buffer.data(), message->nlmsg_len);
}

void FpmStream::received(std::span<const char> bytes, const MessageListener& listener) {
  const auto take = [&](std::size_t size) {
    const std::size_t count = std::min(size - std::min(size, frame_.size()), bytes.size());
    frame_.insert(frame_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    bytes = bytes.subspan(count);
    return frame_.size() >= size;
  };
  while (take(headerSize)) {
    const std::size_t length = static_cast<U8>(frame_[2]) << 8 | static_cast<U8>(frame_[3]);
    if (frame_[0] != 1) throw MalformedMessage("a frame of an unknown version");
    if (frame_[1] != 1) throw MalformedMessage("a frame that is not of netlink");
    if (length < headerSize) throw MalformedMessage("a frame shorter than its header");
    if (!take(length)) return;
    // What follows the header is aligned as messages are.
    readNetlink(std::span<const char>(frame_).subspan(headerSize), listener);
    frame_.clear();
    ++frames_;
  }
}

}  // namespace VelaService
