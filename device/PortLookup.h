#pragma once

#include "device/DataPath.h"

/// Ports, link aggregation and policing.
namespace VelaDevice {

/// The port that a frame to a LAG leaves by.
struct LagMemberHit {
  static constexpr const char* typeName = "VelaDevice::LagMemberHit";
  Orb::Field<"portId", U32> portId;  ///< A chip port.
};
/// The member of a group that a hash bucket picks for a frame that came in by the port.
std::optional<LagMemberHit> lagMember(DataPath& path, U32 ingressPort, U32 lagGroupId, U32 bucket);

/// A limiter of an ingress table. Without a scale factor the increment is the register's value.
struct CoppHit {
  static constexpr const char* typeName = "VelaDevice::CoppHit";
  Orb::Field<"value", U32> value;              ///< The limiter's register.
  Orb::Field<"interval", U32> interval;        ///< The table's refill interval.
  Orb::Field<"increment", U32> increment;      ///< Tokens added per interval.
  Orb::Field<"scaleFactor", U32> scaleFactor;  ///< 0 where there is none.
};
/// A limiter of a pipeline, or of the CPU's transmit side behind the pipelines.
std::optional<CoppHit> copp(DataPath& path, U32 table, U32 index);

// What a port's own tables say of it.

/// The LAG that a port belongs to.
struct LagGroupHit {
  static constexpr const char* typeName = "VelaDevice::LagGroupHit";
  Orb::Field<"lagGroupId", U32> lagGroupId;  ///< 63 for no group.
};
/// Nothing where the control word selects another port.
std::optional<LagGroupHit> lagGroup(DataPath& path, U32 port);

/// The buckets of a LAG's frames that a port takes.
struct LagLookUpHit {
  static constexpr const char* typeName = "VelaDevice::LagLookUpHit";
  Orb::Field<"buckets", U32> buckets;  ///< Bit n: bucket n.
};
/// As the pipeline of the port itself has it.
std::optional<LagLookUpHit> lagLookUp(DataPath& path, U32 port);

/// The ports of a port's LAG.
struct LagMembershipHit {
  static constexpr const char* typeName = "VelaDevice::LagMembershipHit";
  Orb::Field<"port", std::vector<U32>> port;  ///< Ascending.
};
/// Nothing where the control word selects another port.
std::optional<LagMembershipHit> lagMembership(DataPath& path, U32 port);

/// What enters the hash of a frame that comes in by a port.
struct LagHashControlHit {
  static constexpr const char* typeName = "VelaDevice::LagHashControlHit";
  Orb::Field<"useVlanId", bool> useVlanId;        ///< The VLAN id does.
  Orb::Field<"unused", bool> unused;              ///< No meaning.
  Orb::Field<"useSipAndDip", bool> useSipAndDip;  ///< Source and destination IP addresses do.
  Orb::Field<"hashSeed", U8> hashSeed;            ///< 6 bits.
};
/// Nothing when the row was never written.
std::optional<LagHashControlHit> lagHashControl(DataPath& path, U32 port);

/// The tag of a port's untagged frames.
struct NativeVlanHit {
  static constexpr const char* typeName = "VelaDevice::NativeVlanHit";
  Orb::Field<"nativeVlanId", U16> nativeVlanId;  ///< 1 to 4094.
  Orb::Field<"dei", U8> dei;                     ///< Drop-eligible indicator, a bit.
  Orb::Field<"pcp", U8> pcp;                     ///< Priority code point, 0 to 7.
};
/// Nothing where ingress and egress disagree.
std::optional<NativeVlanHit> nativeVlan(DataPath& path, U32 port);

/// What a port does.
struct PortConfigHit {
  static constexpr const char* typeName = "VelaDevice::PortConfigHit";
  /// "trunk", "access", "qinq", or "?" for bits that are no mode.
  Orb::Field<"portMode", std::string> portMode;
  Orb::Field<"txDisabled", bool> txDisabled;                      ///< Nothing is sent.
  Orb::Field<"l2ForwardingDisabled", bool> l2ForwardingDisabled;  ///< Nothing is bridged.
};
/// Nothing when the row was never written.
std::optional<PortConfigHit> portConfig(DataPath& path, U32 port);

/// The copies of what a port receives.
struct RxPortMirrorHit {
  static constexpr const char* typeName = "VelaDevice::RxPortMirrorHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Where they go.
  Orb::Field<"enabled", bool> enabled;                           ///< Whether there are any.
};
/// Nothing where the control word selects another port.
std::optional<RxPortMirrorHit> rxPortMirror(DataPath& path, U32 port);

/// What layer 2 does otherwise at a port.
struct L2ControlHit {
  static constexpr const char* typeName = "VelaDevice::L2ControlHit";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;  ///< The port leads to the other switch of an MLAG.
  Orb::Field<"learnOnly", bool> learnOnly;    ///< Frames are learned from, not forwarded.
  Orb::Field<"learnDisabled", bool> learnDisabled;  ///< Frames are not learned from.
};
/// Nothing when the row was never written.
std::optional<L2ControlHit> l2Control(DataPath& path, U32 port);

}  // namespace VelaDevice
