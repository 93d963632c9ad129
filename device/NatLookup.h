#pragma once

#include "VelaSwitch/Keys.h"
#include "device/DataPath.h"

/// Address translation.
namespace VelaDevice {

using VelaSwitch::NatMatchKey;

/// What a translated packet's match says.
struct NatHit {
  static constexpr const char* typeName = "VelaDevice::NatHit";
  Orb::Field<"valid", bool> valid;               ///< True: rows that are not valid do not match.
  Orb::Field<"proto", U8> proto;                 ///< Protocol class to rewrite as, 0 to 3.
  Orb::Field<"natRewriteId", U16> natRewriteId;  ///< The `rewriteIndex` of NatRewrite, 0 to 4095.
  Orb::Field<"useAcl", std::optional<bool>> useAcl;  ///< Static matches alone.
  Orb::Field<"trapToCpu", bool> trapToCpu;           ///< The packet goes to the CPU.
  Orb::Field<"l3LagIndex", U16> l3LagIndex;          ///< The ports that it leaves by; 57 for none.
  Orb::Field<"rewriteIndex", U8> rewriteIndex;       ///< As of a route's next hop.
};
/// The match of a static or dynamic table.
std::optional<NatHit> natMatch(DataPath& path, U32 instance, const NatMatchKey& key);
/// The same of a dynamic table, which looks at the whole connection.
std::optional<NatHit> natDynMatch(DataPath& path, U32 instance, const NatMatchKey& key);

/// What egress writes into a translated packet.
struct NatRewriteHit {
  static constexpr const char* typeName = "VelaDevice::NatRewriteHit";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;  ///< In place of the address that the match is of.
  Orb::Field<"newPort", U16> newPort;        ///< In place of the port.
  /// Added to the IP checksum for the new address.
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;
  auto operator<=>(const NatRewriteHit&) const = default;
};
/// The rewrite of a port pair.
std::optional<NatRewriteHit> natRewrite(DataPath& path, U32 basePort, U32 index);

/// A packet that may be translated, and the port that it leaves by.
struct Flow {
  static constexpr const char* typeName = "VelaDevice::Flow";
  Orb::Field<"protoClass", U8> protoClass;   ///< 0 to 7, as ProtocolRemapTable tells it.
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;  ///< As the packet comes in.
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;  ///< Likewise.
  Orb::Field<"sport", U16> sport;            ///< 0 for protocols without.
  Orb::Field<"dport", U16> dport;            ///< Likewise.
  Orb::Field<"qualifier", U16> qualifier;    ///< 0 to 63; static tables alone look at it.
  Orb::Field<"egressPort", U16> egressPort;  ///< Its pair of ports has the rewrite.
};

/// What becomes of a packet that is translated.
struct FlowHit {
  static constexpr const char* typeName = "VelaDevice::FlowHit";
  Orb::Field<"matchedBy", std::string> matchedBy;  ///< The family whose row matched.
  Orb::Field<"match", NatHit> match;               ///< What the row says.
  /// Nothing when the row of the port's pair says nothing.
  Orb::Field<"rewrite", std::optional<NatRewriteHit>> rewrite;
};
/// A packet's way through both.
std::optional<FlowHit> flow(DataPath& path, const Flow& flow);

}  // namespace VelaDevice
