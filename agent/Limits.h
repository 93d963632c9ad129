#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Orb/Any.h"
#include "VelaSwitch/Profile.h"

/// What a switch has no room for in the values that it is told. Numbers and port masks that are too
/// big are cut, which is worth a warning; a single port, pipe or VRF that is not there is refused,
/// since there is nothing that it could be cut to.
namespace VelaAgent {

/// How many bits hardware has for a field of the name, which may be a mask of ports; 64 where
/// nothing but the field's type says.
using FieldBits = std::function<unsigned(std::string_view field, bool portMask)>;

/// Throws InputException unless `number` is below `count`: "vrf 9: this switch has VRFs 0 to 7".
void refuseBeyond(std::string_view field, U64 number, U64 count, const char* things);
void refuseAbsentPort(std::string_view field, U64 port, const VelaSwitch::ProfileInfo& profile);
void refuseAbsentPipe(std::string_view field, U64 pipe, const VelaSwitch::ProfileInfo& profile);
void refuseAbsentVrf(std::string_view field, U64 vrf, const VelaSwitch::ProfileInfo& profile);

/// Adds what hardware cuts of the value, such as "natRewriteId 5000 to 904", field by field.
void cutFields(Orb::AnyRef value, const FieldBits& bitsOf, std::vector<std::string>& cuts);

}  // namespace VelaAgent
