#pragma once

#include <optional>
#include <string>

#include <string_view>
#include <vector>

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PipeMap.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Profile.h"
#include "device/SimulatedSwitch.h"

/// What the packet pipelines do with the tables: lookups from register words alone. Everything here
/// is written from the hardware's side, with bit arithmetic and hashes of its own, so that an error
/// in packing shows as a wrong answer.
namespace VelaDevice {

class Bits;

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

/// The next hop that a route lookup ends at.
struct RouteHit {
  static constexpr const char* typeName = "VelaDevice::RouteHit";
  Orb::Field<"l3LagIndex", U16> l3LagIndex;
  Orb::Field<"rewriteIndex", U8> rewriteIndex;
  /// Nothing where registers do not tell.
  Orb::Field<"realPrefixLen", std::optional<U8>> realPrefixLen;
  auto operator<=>(const RouteHit&) const = default;
};

/// A row of the first level.
struct Lpm11Hit {
  static constexpr const char* typeName = "VelaDevice::Lpm11Hit";
  Orb::Field<"cellResult", RouteHit> cellResult;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const Lpm11Hit&) const = default;
};

/// A row of a hashed level.
struct LpmRowHit {
  static constexpr const char* typeName = "VelaDevice::LpmRowHit";
  Orb::Field<"cells", std::vector<std::optional<RouteHit>>> cells;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const LpmRowHit&) const = default;
};

/// Who gets a copy of a multicast packet.
struct MrouteHit {
  static constexpr const char* typeName = "VelaDevice::MrouteHit";
  Orb::Field<"vlanGroupId", U8> vlanGroupId;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const MrouteHit&) const = default;
};

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
  auto operator<=>(const NatHit&) const = default;
};

struct NatRewriteHit {
  static constexpr const char* typeName = "VelaDevice::NatRewriteHit";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;
  Orb::Field<"newPort", U16> newPort;
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;
  auto operator<=>(const NatRewriteHit&) const = default;
};

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

struct CounterHit {
  static constexpr const char* typeName = "VelaDevice::CounterHit";
  Orb::Field<"counterIndex", U16> counterIndex;
  auto operator<=>(const CounterHit&) const = default;
};

struct FloodArpHit {
  static constexpr const char* typeName = "VelaDevice::FloodArpHit";
  Orb::Field<"ethAddr", Bridging::EthAddr> ethAddr;
  Orb::Field<"vlanId", U16> vlanId;
  auto operator<=>(const FloodArpHit&) const = default;
};

struct PortMaskHit {
  static constexpr const char* typeName = "VelaDevice::PortMaskHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const PortMaskHit&) const = default;
};

struct L3LagHit {
  static constexpr const char* typeName = "VelaDevice::L3LagHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"cpuPriority", bool> cpuPriority;
  auto operator<=>(const L3LagHit&) const = default;
};

/// Where a VLAN's frames of unknown destination go.
struct FloodSetHit {
  static constexpr const char* typeName = "VelaDevice::FloodSetHit";
  Orb::Field<"uucPortMask", U64> uucPortMask;
  Orb::Field<"umcPortMask", U64> umcPortMask;
  auto operator<=>(const FloodSetHit&) const = default;
};

struct NativeVlanHit {
  static constexpr const char* typeName = "VelaDevice::NativeVlanHit";
  Orb::Field<"nativeVlanId", U16> nativeVlanId;
  Orb::Field<"dei", U8> dei;
  Orb::Field<"pcp", U8> pcp;
  auto operator<=>(const NativeVlanHit&) const = default;
};

struct PortConfigHit {
  static constexpr const char* typeName = "VelaDevice::PortConfigHit";
  Orb::Field<"portMode", std::string> portMode;
  Orb::Field<"txDisabled", bool> txDisabled;
  Orb::Field<"l2ForwardingDisabled", bool> l2ForwardingDisabled;
  auto operator<=>(const PortConfigHit&) const = default;
};

struct L2ControlHit {
  static constexpr const char* typeName = "VelaDevice::L2ControlHit";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;
  Orb::Field<"learnOnly", bool> learnOnly;
  Orb::Field<"learnDisabled", bool> learnDisabled;
  auto operator<=>(const L2ControlHit&) const = default;
};

struct LagHashControlHit {
  static constexpr const char* typeName = "VelaDevice::LagHashControlHit";
  Orb::Field<"useVlanId", bool> useVlanId;
  Orb::Field<"unused", bool> unused;
  Orb::Field<"useSipAndDip", bool> useSipAndDip;
  Orb::Field<"hashSeed", U8> hashSeed;
  auto operator<=>(const LagHashControlHit&) const = default;
};

struct LagGroupHit {
  static constexpr const char* typeName = "VelaDevice::LagGroupHit";
  Orb::Field<"lagGroupId", U32> lagGroupId;
  auto operator<=>(const LagGroupHit&) const = default;
};

struct LagLookUpHit {
  static constexpr const char* typeName = "VelaDevice::LagLookUpHit";
  Orb::Field<"buckets", U32> buckets;
  auto operator<=>(const LagLookUpHit&) const = default;
};

struct LagMembershipHit {
  static constexpr const char* typeName = "VelaDevice::LagMembershipHit";
  Orb::Field<"port", std::vector<U32>> port;
  auto operator<=>(const LagMembershipHit&) const = default;
};

/// The port that a frame to a LAG leaves by.
struct LagMemberHit {
  static constexpr const char* typeName = "VelaDevice::LagMemberHit";
  Orb::Field<"portId", U32> portId;
  auto operator<=>(const LagMemberHit&) const = default;
};

/// A limiter of an ingress table. Without a scale factor the increment is the register's value.
struct CoppHit {
  static constexpr const char* typeName = "VelaDevice::CoppHit";
  Orb::Field<"value", U32> value;        ///< The limiter's register.
  Orb::Field<"interval", U32> interval;  ///< The table's refill interval.
  Orb::Field<"increment", U32> increment;
  Orb::Field<"scaleFactor", U32> scaleFactor;
  auto operator<=>(const CoppHit&) const = default;
};

struct VlanGroupHit {
  static constexpr const char* typeName = "VelaDevice::VlanGroupHit";
  Orb::Field<"vlanIds", std::vector<U32>> vlanIds;
  auto operator<=>(const VlanGroupHit&) const = default;
};

struct MacVlanHit {
  static constexpr const char* typeName = "VelaDevice::MacVlanHit";
  Orb::Field<"valid", bool> valid;
  Orb::Field<"vlanId", U16> vlanId;
  Orb::Field<"macAddr", Bridging::EthAddr> macAddr;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"multicast", bool> multicast;
  Orb::Field<"routed", bool> routed;
  auto operator<=>(const MacVlanHit&) const = default;
};

struct RxPortMirrorHit {
  static constexpr const char* typeName = "VelaDevice::RxPortMirrorHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"enabled", bool> enabled;
  auto operator<=>(const RxPortMirrorHit&) const = default;
};

/// A table that a lookup asked, and how it answered.
struct LookupStep {
  std::string_view family;              ///< What was looked for; the table may hold others as well.
  const SimulatedSwitch::Table* table;  ///< Null where the switch has no such table.
  std::optional<VelaSwitchApi::HwIndex> index;  ///< The row that holds the key.
  const char* refusal;                          ///< Why that was no answer; null when it was.
};

/// The lookups of one switch. A lookup that matches a row of a table with hit bits sets its bit.
class VELA_EXPORT DataPath {
 public:
  using Steps = std::vector<LookupStep>;
  struct HashedStage;

  /// Both must outlive the data path.
  DataPath(SimulatedSwitch& chip, const VelaSwitch::ProfileInfo& profile)
      : chip_(chip), profile_(profile) {}

  const VelaSwitch::ProfileInfo& profile() const { return profile_; }
  const SimulatedSwitch& chip() const { return chip_; }

  /// Where lookups note the tables that they ask, in the order in which they do; null for nowhere.
  void stepsIs(Steps* steps) { steps_ = steps; }

  std::optional<HashTestHit> hashTest(U32 key);
  /// The ACL stage of a pipeline.
  std::optional<VelaSwitch::AclHashResult> acl(U32 pipeline, const VelaSwitch::AclHashKey& key);
  /// The VLAN as the pipeline of a port sees it: its slice of the ports.
  std::optional<VlanHit> vlan(U32 port, Bridging::VlanId vid);
  /// The VLAN's row in every table: the ports of all slices, and the pipes' fields of all tables.
  std::optional<VlanHit> vlan(Bridging::VlanId vid);

  /// The longest route that covers the address: the hashed levels from the longest on, then the
  /// first level.
  std::optional<RouteHit> route(U32 vrf, Ipnet::IpAddr address);
  /// The row of a hashed level, such as "Lpm23", that the address falls into.
  std::optional<LpmRowHit> lpmRow(std::string_view family, U32 vrf, Ipnet::IpAddr address);
  /// The row of the first level that the address falls into.
  std::optional<Lpm11Hit> lpm11(U32 vrf, Ipnet::IpAddr address);

  /// The multicast route of the packet's source, or else that of any source.
  std::optional<MrouteHit> multicast(const VelaSwitch::MrouteKey& key);
  std::optional<MrouteHit> sg(const VelaSwitch::MrouteKey& key);
  std::optional<MrouteHit> starG(const VelaSwitch::MrouteKey& key);

  /// Address translation: the match of a static or dynamic table, the rewrite of a port pair, and a
  /// packet's way through both.
  std::optional<NatHit> natMatch(U32 instance, const VelaSwitch::NatMatchKey& key);
  std::optional<NatHit> natDynMatch(U32 instance, const VelaSwitch::NatMatchKey& key);
  std::optional<NatRewriteHit> natRewrite(U32 basePort, U32 index);
  std::optional<FlowHit> flow(const Flow& flow);

  /// The flood set of a VLAN.
  std::optional<FloodSetHit> floodSet(Bridging::VlanId vid);
  /// The ports that a frame of unknown destination goes to which came in by the port: those of the
  /// flood set that the VLAN permits, without the port itself.
  std::optional<PortMaskHit> flood(Bridging::VlanId vid, U32 port, bool multicast);

  std::optional<NativeVlanHit> nativeVlan(U32 port);
  std::optional<PortConfigHit> portConfig(U32 port);
  std::optional<L2ControlHit> l2Control(U32 port);
  std::optional<LagHashControlHit> lagHashControl(U32 port);
  std::optional<RxPortMirrorHit> rxPortMirror(U32 port);

  /// LAGs: what a port's own tables say of it, and the member of a group that a hash bucket picks
  /// for a frame that came in by the port.
  std::optional<LagGroupHit> lagGroup(U32 port);
  std::optional<LagLookUpHit> lagLookUp(U32 port);
  std::optional<LagMembershipHit> lagMembership(U32 port);
  std::optional<LagMemberHit> lagMember(U32 ingressPort, U32 lagGroupId, U32 bucket);

  /// A limiter of a pipeline, or of the CPU's transmit side behind the pipelines.
  std::optional<CoppHit> copp(U32 table, U32 index);

  std::optional<VlanGroupHit> vlanGroup(U32 processor, U32 group);
  std::optional<MacVlanHit> macVlan(U32 row);

  /// The counter behind a key in a pipeline's ACL processor.
  std::optional<CounterHit> aclCounter(U32 pipeline, U16 key);

  /// Layer-3 results. A row without an entry holds zeros, and the data path finds those.
  std::optional<FloodArpHit> l3FloodArp(U32 floodId);
  std::optional<PortMaskHit> l3FloodBitmap(U32 floodId);
  std::optional<L3LagHit> l3Lag(U32 index);

 private:
  struct StageRow;
  std::optional<StageRow> stageRow(const HashedStage& stage, U32 vrf, U32 address);
  U32 vrfBits() const;
  U32 layer2Table(U32 port) const;
  void note(std::string_view family, const SimulatedSwitch::Table* table,
            std::optional<VelaSwitchApi::HwIndex> index, const char* refusal = nullptr);
  void refuse(const char* why);
  template <std::size_t ways, class Match>
  std::optional<U32> search(std::string_view family, const SimulatedSwitch::Table* table,
                            const U32 (&polynomials)[ways], U32 hashWidth, const Bits& key,
                            const Match& match);
  const U32* rowAt(const char* family, U32 table, U32 index);
  const U32* selectedRow(const char* family, U32 port, U32 controlWord, U32 fixedBits);
  std::optional<VlanHit> vlanRow(U32 table, Bridging::VlanId vid);

  SimulatedSwitch& chip_;
  const VelaSwitch::ProfileInfo& profile_;
  Steps* steps_ = nullptr;
};

}  // namespace VelaDevice
