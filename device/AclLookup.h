#pragma once

#include "VelaSwitch/Keys.h"
#include "device/DataPath.h"

/// Access lists and their counters, and the test table.
namespace VelaDevice {

struct HashTestHit {
  static constexpr const char* typeName = "VelaDevice::HashTestHit";
  Orb::Field<"result", U32> result;
};
std::optional<HashTestHit> hashTest(DataPath& path, U32 key);

/// The ACL stage of a pipeline.
std::optional<VelaSwitch::AclHashResult> acl(DataPath& path, U32 pipeline,
                                             const VelaSwitch::AclHashKey& key);

struct CounterHit {
  static constexpr const char* typeName = "VelaDevice::CounterHit";
  Orb::Field<"counterIndex", U16> counterIndex;
};
/// The counter behind a key in a pipeline's ACL processor.
std::optional<CounterHit> aclCounter(DataPath& path, U32 pipeline, U16 key);

}  // namespace VelaDevice
