#include "agent/Registry.h"

#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableFloodSet.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaSwitchTable/VelaTableLagGroup.h"
#include "VelaSwitchTable/VelaTableLagHashControl.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableMacVlan.h"
#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"
#include "VelaSwitchTable/VelaTableNativeVlan.h"
#include "VelaSwitchTable/VelaTablePortConfig.h"
#include "VelaSwitchTable/VelaTableProtocolRemap.h"
#include "VelaSwitchTable/VelaTableRxPortMirror.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaSwitchTable/VelaTableStarG.h"
#include "VelaSwitchTable/VelaTableVlanGroup.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// A frame of unknown destination.
struct FloodedFrame {
  static constexpr const char* typeName = "VelaAgent::FloodedFrame";
  Orb::Field<"vid", Bridging::VlanId> vid;
  Orb::Field<"port", VelaSwitch::ChipPortId> port;
  Orb::Field<"multicast", bool> multicast;
};

/// A rate limiter of one of the limiter tables.
struct Limiter {
  static constexpr const char* typeName = "VelaAgent::Limiter";
  Orb::Field<"index", U8> index;
  Orb::Field<"table", U32> table;
};

/// A frame to a LAG.
struct LagFrame {
  static constexpr const char* typeName = "VelaAgent::LagFrame";
  Orb::Field<"ingressPort", VelaSwitch::ChipPortId> ingressPort;
  Orb::Field<"lagGroupId", U32> lagGroupId;
  Orb::Field<"bucket", U8> bucket;
};

/// A family with `instances` tables, or one for each pipeline where tables serve one each.
template <class Family>
FamilyRegistration hashFamily(typename EntryAdapter<typename Family::Table>::Lookup lookup,
                              U32 instances = 1) {
  const std::string name = TableConstants::tableName(Family::traits.index);
  return {name, Family::trace,
          [=](const VelaSwitch::ProfileInfo& profile) {
            return Family::traits.placement == HashPlacement::ownPipeline ? profile.pipelines()
                                                                          : instances;
          },
          [=](U32 instance) {
            const auto number = static_cast<U8>(instance);
            return std::make_unique<HashAdapter<Family>>(
                name, instance,
                Orb::make<typename Family::Table>(name + "/" + std::to_string(instance), number,
                                                  number),
                lookup);
          }};
}

class ProtocolRemapAdapter final : public IndexedAdapter<ProtocolRemapFamily> {
 public:
  using IndexedAdapter::IndexedAdapter;
  Json lookup(DataPath&, const Json& key) const override {
    return {{"remappedProtocol", table().remappedProtocol(fromJson<U8>(key))}};
  }
};

/// A hashed level of the route ladder.
FamilyRegistration hashedLevel(const LpmLevel& level) {
  const std::string name = TableConstants::tableName(level.hashTableId);
  const auto lookup = [](DataPath& dataPath, U32, const Json& key) {
    const auto at = fromJson<VelaSwitch::LpmKey>(key);
    const char* family = TableConstants::tableName(lpmLevelOfKey(at.prefix().len()).hashTableId);
    return hitToJson(dataPath.lpmRow(family, at.vrf(), at.prefix().address()));
  };
  return {name, LpmBaseFamily::trace, [](const VelaSwitch::ProfileInfo&) { return 1u; },
          [=, &level](U32 instance) {
            return std::make_unique<HashAdapter<LpmBaseFamily>>(
                name, instance, lpmLevelTableFactory(level.longest(), name), lookup);
          }};
}

/// A family of plain or direct tables.
template <class Family>
FamilyRegistration indexedFamily(typename EntryAdapter<typename Family::Table>::Lookup lookup) {
  const std::string name = TableConstants::tableName(Family::traits.index);
  return {name, Family::trace, [](const VelaSwitch::ProfileInfo&) { return 1u; },
          [=](U32 instance) {
            return std::make_unique<IndexedAdapter<Family>>(
                name, instance, Orb::make<typename Family::Table>(name), lookup);
          }};
}

Json lookupHashTest(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.hashTest(fromJson<HashTestKey>(key).value()));
}

Json lookupAcl(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.acl(instance, fromJson<VelaSwitch::AclHashKey>(key)));
}

Json lookupLpm11(DataPath& dataPath, U32, const Json& key) {
  const auto at = fromJson<VelaSwitch::LpmKey>(key);
  return hitToJson(dataPath.lpm11(at.vrf(), at.prefix().address()));
}

Json lookupSG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.sg(fromJson<VelaSwitch::MrouteKey>(key)));
}

Json lookupStarG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.starG(fromJson<VelaSwitch::MrouteKey>(key)));
}

Json lookupNatMatch(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.natMatch(instance, fromJson<VelaSwitch::NatMatchKey>(key)));
}

Json lookupNatDynMatch(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.natDynMatch(instance, fromJson<VelaSwitch::NatMatchKey>(key)));
}

Json lookupAclCounter(DataPath& dataPath, U32 instance, const Json& key) {
  const auto counter = fromJson<VelaSwitch::AclIndirectCounterHashKey>(key);
  return hitToJson(dataPath.aclCounter(instance, counter.counterKey()));
}

Json lookupL3FloodArp(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.l3FloodArp(fromJson<VelaSwitch::L3FloodId>(key).value()));
}

Json lookupL3FloodBitmap(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.l3FloodBitmap(fromJson<VelaSwitch::L3FloodId>(key).value()));
}

Json lookupL3Lag(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.l3Lag(fromJson<VelaSwitch::L3LagIndex>(key).value()));
}

Json lookupNatRewrite(DataPath& dataPath, U32, const Json& key) {
  const auto at = fromJson<VelaSwitch::NatRewriteKey>(key);
  return hitToJson(dataPath.natRewrite(at.baseChipPortId().value(), at.rewriteIndex()));
}

/// A VLAN id asks for its flood set, {"vid", "port", "multicast"} for the ports that a frame goes
/// to.
Json lookupFloodSet(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(dataPath.floodSet(fromJson<Bridging::VlanId>(key)));
  const auto frame = fromJson<FloodedFrame>(key);
  return hitToJson(dataPath.flood(frame.vid(), frame.port().value(), frame.multicast()));
}

/// Lookups of what a port's row says.
template <auto lookup>
Json lookupPort(DataPath& dataPath, U32, const Json& key) {
  return hitToJson((dataPath.*lookup)(fromJson<VelaSwitch::ChipPortId>(key).value()));
}

/// An index asks for the first limiter table, {"index", "table"} for another one; the CPU's
/// transmit table comes behind the pipelines'.
Json lookupCopp(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(dataPath.copp(0, fromJson<U8>(key)));
  const auto limiter = fromJson<Limiter>(key);
  return hitToJson(dataPath.copp(limiter.table(), limiter.index()));
}

Json lookupVlanGroup(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.vlanGroup(0, fromJson<U8>(key)));
}

Json lookupMacVlan(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.macVlan(fromJson<U16>(key)));
}

/// A VLAN id asks for the whole VLAN, {"vid", "port"} for what the port's pipeline holds of it.
Json lookupVlan(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(dataPath.vlan(fromJson<VlanMembershipKey>(key).vid()));
  if (!key.contains("vid") || !key.contains("port") || key.size() != 2) {
    throw InputException("expected a VLAN id or {\"vid\", \"port\"}, not " + key.dump());
  }
  const auto port = fromJson<VelaSwitch::ChipPortId>(key["port"]);
  return hitToJson(dataPath.vlan(port.value(), fromJson<VlanMembershipKey>(key["vid"]).vid()));
}

/// The remapping of protocols is software's own: its table answers, not the data path.
FamilyRegistration protocolRemap() {
  FamilyRegistration registration = indexedFamily<ProtocolRemapFamily>(nullptr);
  registration.make = [](U32 instance) -> std::unique_ptr<HwTableAdapter> {
    return std::make_unique<ProtocolRemapAdapter>("ProtocolRemap", instance,
                                                  ProtocolRemapTableIs("ProtocolRemap"), nullptr);
  };
  return registration;
}

}  // namespace

std::vector<std::unique_ptr<PathAdapter>> makePaths() {
  std::vector<std::unique_ptr<PathAdapter>> paths;
  paths.push_back(std::make_unique<PathAdapter>("Flow", [](DataPath& dataPath, const Json& key) {
    return hitToJson(dataPath.flow(fromJson<VelaDevice::Flow>(key)));
  }));
  paths.push_back(
      std::make_unique<PathAdapter>("Multicast", [](DataPath& dataPath, const Json& key) {
        return hitToJson(dataPath.multicast(fromJson<VelaSwitch::MrouteKey>(key)));
      }));
  paths.push_back(
      std::make_unique<PathAdapter>("LagMember", [](DataPath& dataPath, const Json& key) {
        const auto frame = fromJson<LagFrame>(key);
        return hitToJson(
            dataPath.lagMember(frame.ingressPort().value(), frame.lagGroupId(), frame.bucket()));
      }));
  return paths;
}

const std::vector<FamilyRegistration>& families() {
  static const std::vector<FamilyRegistration> all = [] {
    std::vector<FamilyRegistration> registrations{
        indexedFamily<VlanMembershipFamily>(lookupVlan),
        indexedFamily<FloodSetFamily>(lookupFloodSet),
        indexedFamily<NativeVlanFamily>(lookupPort<&DataPath::nativeVlan>),
        indexedFamily<PortConfigFamily>(lookupPort<&DataPath::portConfig>),
        indexedFamily<L2ControlFamily>(lookupPort<&DataPath::l2Control>),
        indexedFamily<LagGroupFamily>(lookupPort<&DataPath::lagGroup>),
        indexedFamily<LagLookUpFamily>(lookupPort<&DataPath::lagLookUp>),
        indexedFamily<LagMembershipFamily>(lookupPort<&DataPath::lagMembership>),
        indexedFamily<LagHashControlFamily>(lookupPort<&DataPath::lagHashControl>),
        indexedFamily<RxPortMirrorFamily>(lookupPort<&DataPath::rxPortMirror>),
        indexedFamily<MacVlanFamily>(lookupMacVlan),
        indexedFamily<VlanGroupFamily>(lookupVlanGroup),
        indexedFamily<CoppFamily>(lookupCopp),
        protocolRemap(),
        hashFamily<AclHashFamily>(lookupAcl),
        indexedFamily<Lpm11Family>(lookupLpm11),
        hashFamily<SGFamily>(lookupSG),
        hashFamily<NatMatchFamily>(lookupNatMatch, 2),
        hashFamily<NatDynMatchFamily>(lookupNatDynMatch, 2),
        hashFamily<AclIndirectCounterHashFamily>(lookupAclCounter),
        indexedFamily<L3FloodArpFamily>(lookupL3FloodArp),
        indexedFamily<L3FloodBitmapFamily>(lookupL3FloodBitmap),
        indexedFamily<L3LagFamily>(lookupL3Lag),
        indexedFamily<NatRewriteFamily>(lookupNatRewrite),
        hashFamily<HashTestFamily>(lookupHashTest),
    };
    for (const LpmLevel& level : lpmLevels) registrations.push_back(hashedLevel(level));
    registrations.push_back(hashFamily<StarGFamily>(lookupStarG));
    return registrations;
  }();
  return all;
}

}  // namespace VelaAgent
