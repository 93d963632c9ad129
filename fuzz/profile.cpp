#include "Fuzz.h"

// Profiles as they may stand in a file, and the tables that are declared from them.

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  VelaFuzz::refusable([&] {
    const auto profile = VelaAgent::profileFromText({reinterpret_cast<const char*>(data), size});
    VelaDevice::SimulatedSwitch chip;
    VelaAgent::Agent agent(profile, chip);
    agent.make({"HashTest", "VlanGroup", "LagGroup", "LagLookUp", "LagMembership", "PortConfig",
                "Copp", "Lpm14", "L3Lag", "RxPortMirror", "FloodSet", "VlanMembership"});
  });
  return 0;
}
