#pragma once

#include "device/DataPath.h"

/// Ports, link aggregation and policing.
namespace VelaDevice {

/// The port that a frame to a LAG leaves by.
struct LagMemberHit {
  static constexpr const char* typeName = "VelaDevice::LagMemberHit";
  Orb::Field<"portId", U32> portId;
};
/// The member of a group that a hash bucket picks for a frame that came in by the port.
std::optional<LagMemberHit> lagMember(DataPath& path, U32 ingressPort, U32 lagGroupId, U32 bucket);

/// A limiter of an ingress table. Without a scale factor the increment is the register's value.
struct CoppHit {
  static constexpr const char* typeName = "VelaDevice::CoppHit";
  Orb::Field<"value", U32> value;        ///< The limiter's register.
  Orb::Field<"interval", U32> interval;  ///< The table's refill interval.
  Orb::Field<"increment", U32> increment;
  Orb::Field<"scaleFactor", U32> scaleFactor;
};
/// A limiter of a pipeline, or of the CPU's transmit side behind the pipelines.
std::optional<CoppHit> copp(DataPath& path, U32 table, U32 index);

// What a port's own tables say of it.

struct LagGroupHit {
  static constexpr const char* typeName = "VelaDevice::LagGroupHit";
  Orb::Field<"lagGroupId", U32> lagGroupId;
};
std::optional<LagGroupHit> lagGroup(DataPath& path, U32 port);

struct LagLookUpHit {
  static constexpr const char* typeName = "VelaDevice::LagLookUpHit";
  Orb::Field<"buckets", U32> buckets;
};
std::optional<LagLookUpHit> lagLookUp(DataPath& path, U32 port);

struct LagMembershipHit {
  static constexpr const char* typeName = "VelaDevice::LagMembershipHit";
  Orb::Field<"port", std::vector<U32>> port;
};
std::optional<LagMembershipHit> lagMembership(DataPath& path, U32 port);

struct LagHashControlHit {
  static constexpr const char* typeName = "VelaDevice::LagHashControlHit";
  Orb::Field<"useVlanId", bool> useVlanId;
  Orb::Field<"unused", bool> unused;
  Orb::Field<"useSipAndDip", bool> useSipAndDip;
  Orb::Field<"hashSeed", U8> hashSeed;
};
std::optional<LagHashControlHit> lagHashControl(DataPath& path, U32 port);

struct NativeVlanHit {
  static constexpr const char* typeName = "VelaDevice::NativeVlanHit";
  Orb::Field<"nativeVlanId", U16> nativeVlanId;
  Orb::Field<"dei", U8> dei;
  Orb::Field<"pcp", U8> pcp;
};
std::optional<NativeVlanHit> nativeVlan(DataPath& path, U32 port);

struct PortConfigHit {
  static constexpr const char* typeName = "VelaDevice::PortConfigHit";
  Orb::Field<"portMode", std::string> portMode;
  Orb::Field<"txDisabled", bool> txDisabled;
  Orb::Field<"l2ForwardingDisabled", bool> l2ForwardingDisabled;
};
std::optional<PortConfigHit> portConfig(DataPath& path, U32 port);

struct RxPortMirrorHit {
  static constexpr const char* typeName = "VelaDevice::RxPortMirrorHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"enabled", bool> enabled;
};
std::optional<RxPortMirrorHit> rxPortMirror(DataPath& path, U32 port);

struct L2ControlHit {
  static constexpr const char* typeName = "VelaDevice::L2ControlHit";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;
  Orb::Field<"learnOnly", bool> learnOnly;
  Orb::Field<"learnDisabled", bool> learnDisabled;
};
std::optional<L2ControlHit> l2Control(DataPath& path, U32 port);

}  // namespace VelaDevice
