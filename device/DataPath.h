#pragma once

#include <optional>

#include "Bridging/VlanId.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PipeMap.h"
#include "VelaSwitch/Profile.h"
#include "device/SimulatedSwitch.h"

/// What the packet pipelines do with the tables: lookups from register words alone. Everything here
/// is written from the hardware's side, with bit arithmetic and hashes of its own, so that an error
/// in packing shows as a wrong answer.
namespace VelaDevice {

struct HashTestHit {
  static constexpr const char* typeName = "VelaDevice::HashTestHit";
  Orb::Field<"result", U32> result;
  auto operator<=>(const HashTestHit&) const = default;
};

/// A VLAN's row as a port's pipeline sees it, or the whole VLAN put together from all slices.
struct VlanHit {
  static constexpr const char* typeName = "VelaDevice::VlanHit";
  Orb::Field<"permitMask", U64> permitMask;
  Orb::Field<"learnToCpu", bool> learnToCpu;
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress;
  Orb::Field<"vrfBits", U8> vrfBits;
  Orb::Field<"unicastRoute", bool> unicastRoute;
  Orb::Field<"multicastRoute", bool> multicastRoute;
  Orb::Field<"aclId", VelaSwitch::PipeMap<U8>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<U8>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;
  auto operator<=>(const VlanHit&) const = default;
};

/// The lookups of one switch. A lookup that matches a row of a table with hit bits sets its bit.
class VELA_EXPORT DataPath {
 public:
  /// Both must outlive the data path.
  DataPath(SimulatedSwitch& chip, const VelaSwitch::ProfileInfo& profile)
      : chip_(chip), profile_(profile) {}

  std::optional<HashTestHit> hashTest(U32 key);
  /// The ACL stage of a pipeline.
  std::optional<VelaSwitch::AclHashResult> acl(U32 pipeline, const VelaSwitch::AclHashKey& key);
  /// The VLAN as the pipeline of a port sees it: its slice of the ports.
  std::optional<VlanHit> vlan(U32 port, Bridging::VlanId vid);
  /// The VLAN's row in every table: the ports of all slices, and the pipes' fields of all tables.
  std::optional<VlanHit> vlan(Bridging::VlanId vid);

 private:
  std::optional<VlanHit> vlanRow(U32 table, Bridging::VlanId vid);

  SimulatedSwitch& chip_;
  const VelaSwitch::ProfileInfo& profile_;
};

}  // namespace VelaDevice
