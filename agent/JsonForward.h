#pragma once

#include <nlohmann/json_fwd.hpp>

namespace VelaAgent {

/// For headers that hand JSON on; whoever looks into it includes Json.h.
using Json = nlohmann::ordered_json;

}  // namespace VelaAgent
