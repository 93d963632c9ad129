#include "Peers.h"

#ifdef VELA_DPDK
#include <rte_eal.h>
#include <rte_errno.h>
#include <sched.h>
#endif

namespace VelaBench {

#ifdef VELA_DPDK
bool dpdkStarted() {
  static const bool started = [] {
    // Tied to no processor but those that the benchmark may use anyway, and to none afterwards.
    cpu_set_t processors;
    sched_getaffinity(0, sizeof processors, &processors);
    int first = 0;
    while (!CPU_ISSET(first, &processors)) ++first;
    std::string lcores = "--lcores=0@" + std::to_string(first);
    std::string arguments[] = {
        "vela_bench", "--no-huge",      "--no-pci",          "--no-shconf",    "-m",
        "1024",       "--no-telemetry", "--log-level=error", "--iova-mode=va", lcores};
    std::array<char*, std::size(arguments)> argv{};
    for (std::size_t i = 0; i < argv.size(); ++i) argv[i] = arguments[i].data();
    const bool good = rte_eal_init(static_cast<int>(argv.size()), argv.data()) >= 0;
    sched_setaffinity(0, sizeof processors, &processors);
    return good;
  }();
  return started;
}
#endif

std::string missingPeers() {
  std::string missing;
#ifdef VELA_DPDK
  if (!dpdkStarted()) {
    missing += std::string("rte_hash and rte_fib are left out: DPDK does not start here: ") +
               rte_strerror(rte_errno) + "\n";
  }
#else
  missing += "rte_hash and rte_fib are left out: libdpdk-dev is not installed\n";
#endif
#ifndef VELA_LIBCUCKOO
  missing += "libcuckoo is left out: libcuckoo-dev is not installed\n";
#endif
  return missing;
}

}  // namespace VelaBench
