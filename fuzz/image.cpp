#include <cstdio>
#include <cstring>

#include "Fuzz.h"
#include "agent/Events.h"

// Saved switches as they may stand in a file: taken up, decoded, and started on.

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  static const auto profile = VelaAgent::loadProfile("vela-20-4.0");
  if (size == 0) return 0;
  VelaFuzz::refusable([&] {
    VelaDevice::Memory memory;
    memory.sizeIs(size);
    std::memcpy(memory.bytes(), data, size);
    VelaDevice::SimulatedSwitch chip{std::move(memory)};
    VelaAgent::Agent agent(profile, chip);
    agent.make({"HashTest", "PortConfig", "LagGroup", "Copp"});
    agent.start(VelaAgent::Agent::Start::restart);
    agent.complete();
    agent.reconcile();
    for (const auto& table : agent.tables()) {
      table->audit();
      // Whatever the image was, the agent wrote it right.
      for (const auto& finding : table->findings()) {
        std::fprintf(stderr, "%s %s\n", table->name().c_str(),
                     VelaAgent::findingLine(finding).dump().c_str());
        __builtin_trap();
      }
    }
  });
  return 0;
}
