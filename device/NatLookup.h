#pragma once

#include "VelaSwitch/Keys.h"
#include "device/DataPath.h"

/// Address translation.
namespace VelaDevice {

using VelaSwitch::NatMatchKey;

/// What a translated packet's match says.
struct NatHit {
  static constexpr const char* typeName = "VelaDevice::NatHit";
  Orb::Field<"valid", bool> valid;
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16> natRewriteId;
  Orb::Field<"useAcl", std::optional<bool>> useAcl;  ///< Static matches alone.
  Orb::Field<"trapToCpu", bool> trapToCpu;
  Orb::Field<"l3LagIndex", U16> l3LagIndex;
  Orb::Field<"rewriteIndex", U8> rewriteIndex;
};
/// The match of a static or dynamic table.
std::optional<NatHit> natMatch(DataPath& path, U32 instance, const NatMatchKey& key);
std::optional<NatHit> natDynMatch(DataPath& path, U32 instance, const NatMatchKey& key);

struct NatRewriteHit {
  static constexpr const char* typeName = "VelaDevice::NatRewriteHit";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;
  Orb::Field<"newPort", U16> newPort;
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;
  auto operator<=>(const NatRewriteHit&) const = default;
};
/// The rewrite of a port pair.
std::optional<NatRewriteHit> natRewrite(DataPath& path, U32 basePort, U32 index);

/// A packet that may be translated, and the port that it leaves by.
struct Flow {
  static constexpr const char* typeName = "VelaDevice::Flow";
  Orb::Field<"protoClass", U8> protoClass;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"qualifier", U16> qualifier;
  Orb::Field<"egressPort", U16> egressPort;
};

struct FlowHit {
  static constexpr const char* typeName = "VelaDevice::FlowHit";
  Orb::Field<"matchedBy", std::string> matchedBy;  ///< The family whose row matched.
  Orb::Field<"match", NatHit> match;
  /// Nothing when the row of the port's pair says nothing.
  Orb::Field<"rewrite", std::optional<NatRewriteHit>> rewrite;
};
/// A packet's way through both.
std::optional<FlowHit> flow(DataPath& path, const Flow& flow);

}  // namespace VelaDevice
