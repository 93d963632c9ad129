#include "Fuzz.h"
#include "service/Netlink.h"
#include "service/RouteService.h"

// Whatever a forwarding plane manager's client or the kernel sends: its connection may end, and
// when another has nothing to announce, nothing is left in the switch.

namespace {

/// A switch with a service above it. Memory has to last for many inputs.
struct Served {
  VelaFuzz::Rig rig{"vela-48-5.1"};
  VelaService::RouteService routes{
      rig.agent,
      {.vrfs = {{254, 0}, {10, 3}}, .portMasks = {{"if1", 1}, {"if2", 6}}, .sources = {{"fpm"}}},
      [](U32 number) { return "if" + std::to_string(number); }};
};

}  // namespace

/// The first byte says where the stream comes in two; 255 that it is the kernel's datagram.
extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  static Served served;
  if (size == 0) return 0;
  auto now = VelaService::Clock::now();
  VelaService::RouteService& routes = served.routes;
  routes.connected(0, now);
  const bool fatal = VelaFuzz::refusable([&] {
    const auto take = [&](const VelaService::Message& each) {
      // Its name is told whatever it is.
      if (const auto* route = std::get_if<VelaService::RouteMessage>(&each)) {
        static_cast<void>(toText(route->route));
      }
      routes.take(0, each, now);
    };
    const std::vector<char> all(data + 1, data + size);
    const std::span<const char> bytes(all);
    if (data[0] == 255) return VelaService::KernelStream().received(bytes, take), void();
    const std::size_t cut = std::min<std::size_t>(data[0], all.size());
    VelaService::FpmStream stream;
    for (const auto part : {bytes.first(cut), bytes.subspan(cut)}) {
      stream.received(part, take);
      routes.work(3);
    }
  });
  if (fatal) __builtin_trap();
  routes.disconnected(0, false);
  routes.connected(0, now);
  while (!routes.idle()) routes.work(64);
  routes.told(0);
  for (int seconds = 0; seconds < 6; ++seconds) {
    routes.tick(now += std::chrono::seconds(1));
    while (!routes.idle()) routes.work(64);
  }
  const auto& agent = served.rig.agent;
  if (routes.figures().wanted != 0 || agent.entriesOf("Route", 0).entries() != 0 ||
      agent.entriesOf("L3Lag", 0).entries() != 0) {
    __builtin_trap();
  }
  return 0;
}
