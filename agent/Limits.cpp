#include "agent/Limits.h"

namespace VelaAgent {
namespace {

[[noreturn]] void refuse(std::string_view field, U64 count, const char* things, U64 number) {
  throw InputException(
      Orb::text(field, " ", number, ": this switch has ", things, " 0 to ", count - 1));
}

}  // namespace

void refuseBeyond(std::string_view field, U64 number, U64 count, const char* things) {
  if (number >= count) refuse(field, count, things, number);
}

void refuseAbsentPort(std::string_view field, U64 port, const VelaSwitch::ProfileInfo& profile) {
  refuseBeyond(field, port, profile.ports(), "ports");
}

void refuseAbsentPipe(std::string_view field, U64 pipe, const VelaSwitch::ProfileInfo& profile) {
  const auto& pipes = profile.ingressPipeRangeInfos();
  const bool known = std::any_of(pipes.begin(), pipes.end(),
                                 [&](const auto& each) { return each.pipe() == pipe; });
  if (!known) refuse(field, pipes.size(), "ingress pipes", pipe);
}

void refuseAbsentVrf(std::string_view field, U64 vrf, const VelaSwitch::ProfileInfo& profile) {
  refuseBeyond(field, vrf, profile.vrfs(), "VRFs");
}

}  // namespace VelaAgent
