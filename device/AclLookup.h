#pragma once

#include "VelaSwitch/Keys.h"
#include "device/DataPath.h"

/// Access lists and their counters, and the test table.
namespace VelaDevice {

/// What a row of the test table holds.
struct HashTestHit {
  static constexpr const char* typeName = "VelaDevice::HashTestHit";
  Orb::Field<"result", U32> result;  ///< All 32 bits.
};
std::optional<HashTestHit> hashTest(DataPath& path, U32 key);  ///< The test table's row of the key.

/// The ACL stage of a pipeline.
std::optional<VelaSwitch::AclHashResult> acl(DataPath& path, U32 pipeline,
                                             const VelaSwitch::AclHashKey& key);

/// Where an ACL counts.
struct CounterHit {
  static constexpr const char* typeName = "VelaDevice::CounterHit";
  Orb::Field<"counterIndex", U16> counterIndex;  ///< 1 to 4095; 0 for nowhere.
};
/// The counter behind a key in a pipeline's ACL processor.
std::optional<CounterHit> aclCounter(DataPath& path, U32 pipeline, U16 key);

}  // namespace VelaDevice
