#pragma once

#include <string>
#include <vector>

namespace Velad {

/// How something is served by HTTP at an address: whoever sends half a request holds up one of
/// several threads, and not for long.
inline std::vector<std::string> httpOptions(const std::string& address) {
  return {"listening_ports", address, "num_threads", "8", "request_timeout_ms", "1000"};
}

}  // namespace Velad
