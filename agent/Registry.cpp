#include "agent/Registry.h"

#include <map>
#include <set>

#include "VelaSwitchTable/VelaTableProtocolRemap.h"
#include "agent/Agent.h"
#include "device/ControlWord.h"
#include "device/NatLookup.h"
#include "device/PortLookup.h"
#include "device/RouteLookup.h"

namespace VelaAgent {
namespace {

using VelaDevice::DataPath;

constexpr U8 lagBuckets = 32;

/// A packet that may be translated, with what it carries: an IP protocol, or the class that the
/// remapping of protocols gives it.
struct FlowKey {
  static constexpr const char* typeName = "VelaAgent::FlowKey";
  Orb::Field<"proto", std::optional<U8>> proto;
  Orb::Field<"protoClass", std::optional<U8>> protoClass;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"qualifier", U16> qualifier;
  Orb::Field<"egressPort", VelaSwitch::ChipPortId> egressPort;
};

/// A frame to a LAG.
struct LagFrame {
  static constexpr const char* typeName = "VelaAgent::LagFrame";
  Orb::Field<"ingressPort", VelaSwitch::ChipPortId> ingressPort;
  Orb::Field<"lagGroupId", U32> lagGroupId;
  Orb::Field<"bucket", U8> bucket;
};

/// What can be looked up but not announced: a packet's way through several tables.
class PathEntries final : public Entries {
 public:
  PathEntries(std::string name, const VelaSwitch::ProfileInfo& profile, const Lookup& lookup)
      : Entries(std::move(name), 0, *lookup.asked, *lookup.asked, {lookup}), profile_(profile) {}

  const VelaSwitch::ProfileInfo& profile() const override { return profile_; }
  void checkChangeable() const override { refuse(); }
  void announceAll(std::span<const Announcement>, BatchListener&) override { refuse(); }
  bool withdraw(AnyRef) override { refuse(); }
  EntryProgrammedStatus status(AnyRef) const override {
    return EntryProgrammedStatus::notProgrammed;
  }
  bool announced(AnyRef) const override { return false; }
  bool pollHitBits(Orb::Seconds) override { refuse(); }
  bool fills(const VelaSwitchApi::SwTable&) const override { return false; }
  void forEachEntry(const EntryVisitor&) const override {}
  void forEachStatus(const StatusVisitor&) const override {}
  U32 entries() const override { return 0; }
  U32 programmed() const override { return 0; }
  U32 unclaimed() const override { return 0; }
  U32 refused() const override { return 0; }
  void reconcile(const AnyListener&) override {}

 private:
  EntryProgrammedStatus program(AnyRef, AnyRef) override { refuse(); }
  [[noreturn]] void refuse() const {
    throw InputException(name() +
                         " is no table but a way through several: it can be looked up, "
                         "no more");
  }

  const VelaSwitch::ProfileInfo& profile_;
};

U8 remapped(const Agent& agent, U8 protocol) {
  const auto& entries = dynamic_cast<const TableEntries&>(agent.entriesOf("ProtocolRemap", 0));
  const auto& table = dynamic_cast<const VelaSwitchTable::ProtocolRemapTable&>(entries.table());
  return table.remappedProtocol(protocol);
}

std::optional<VelaDevice::FlowHit> lookupFlow(const Agent& agent, DataPath& dataPath,
                                              const FlowKey& key) {
  constexpr U64 classes = 8;
  constexpr U64 qualifiers = 64;
  refuseBeyond("protoClass", key.protoClass().value_or(0), classes, "protocol classes");
  refuseBeyond("qualifier", key.qualifier(), qualifiers, "qualifiers");
  if (key.proto() && key.protoClass()) {
    throw InputException("proto and protoClass: a packet has one protocol, so give one of them");
  }
  VelaDevice::Flow flow;
  flow.protoClass = key.proto() ? remapped(agent, *key.proto()) : key.protoClass().value_or(0);
  flow.srcIp = key.srcIp();
  flow.dstIp = key.dstIp();
  flow.sport = key.sport();
  flow.dport = key.dport();
  flow.qualifier = key.qualifier();
  flow.egressPort = key.egressPort().value();
  return VelaDevice::flow(dataPath, flow);
}

auto lookupLagMember(DataPath& dataPath, U32, const LagFrame& frame) {
  refuseBeyond("bucket", frame.bucket(), lagBuckets, "LAG buckets");
  return VelaDevice::lagMember(dataPath, frame.ingressPort().value(), frame.lagGroupId(),
                               frame.bucket());
}

auto lookupMulticast(DataPath& dataPath, U32, const VelaSwitch::MrouteKey& key) {
  return VelaDevice::multicast(dataPath, key);
}

}  // namespace

std::vector<std::unique_ptr<Entries>> makePaths(const Agent& agent) {
  std::vector<std::unique_ptr<Entries>> paths;
  const auto add = [&](const char* name, const Lookup& lookup) {
    paths.push_back(std::make_unique<PathEntries>(name, agent.profile(), lookup));
  };
  add("Flow", lookupBy<FlowKey>([&agent](DataPath& dataPath, U32, const FlowKey& key) {
        return lookupFlow(agent, dataPath, key);
      }));
  add("Multicast", lookupBy<VelaSwitch::MrouteKey>(lookupMulticast));
  add("LagMember", lookupBy<LagFrame>(lookupLagMember));
  return paths;
}

void checkFamilies(const std::vector<FamilyRegistration>& families) {
  std::map<U32, std::string> numbers;
  std::set<std::string> names;
  const auto expect = [](bool good, const std::string& what) {
    if (!good) Orb::assertFailed(what.c_str(), "checkFamilies");
  };
  for (const FamilyRegistration& family : families) {
    expect(names.insert(family.name).second, "two families are called " + family.name);
    const U32 instances = family.instances(VelaSwitch::ProfileInfo::maxPipes);
    for (U32 instance = 0; instance < instances; ++instance) {
      const auto [number, added] = numbers.emplace(family.number(instance), family.name);
      expect(added || number->second == family.name,
             Orb::text(family.name, " and ", number->second, " have one number, ", number->first));
    }
  }
}

void checkControlWords(const VelaSwitchApi::SwTable& table) {
  const auto& convertor = *table.profileConvertorPtr();
  for (const auto& [id, hwTable] : convertor.hwTables()) {
    const auto& rows = hwTable->descriptor();
    const auto expect = [&](bool good, const std::string& what) {
      if (good) return;
      const std::string text = rows.identity.family + ": " + what;
      Orb::assertFailed(text.c_str(), "checkControlWords");
    };
    const auto& layout = convertor.rowLayout(id, rows.first);
    const auto* control = VelaDevice::ControlWord::of(rows.identity.family);
    // Where the row's number is a field of the row, the control word says it.
    const bool says = layout.find("row") || layout.find("index");
    expect(control || !says, "the simulated switch does not know its control word");
    for (const auto index : {rows.first, rows.last}) {
      const auto& registers = hwTable->mapped(index);
      if (!control || registers.empty()) continue;
      VelaSwitchApi::RowImage row{};
      convertor.expectedImage(id, index, row.data());
      const U32 block = control->rowsPerBlock == 0 ? 0 : index / control->rowsPerBlock;
      expect(control->select(row[registers.back().word], block) == index,
             Orb::text("the control word of row ", index, " does not select it"));
    }
  }
}

namespace {

/// What tells a table from others with the same control register.
struct Selected {
  const std::string& family;
  std::optional<U32> hitOffset;
  U32 selector = 0;  ///< 0 where the control word has none.
};

void checkApart(const Selected& a, const Selected& b) {
  if (a.family == b.family) return;
  const auto expect = [&](bool good, const char* what) {
    if (good) return;
    const std::string text = Orb::text(a.family, " and ", b.family, " have one ", what);
    Orb::assertFailed(text.c_str(), "checkSelectors");
  };
  expect(a.selector == 0 || a.selector != b.selector, "selector");
  expect(!a.hitOffset || a.hitOffset != b.hitOffset, "offset of hit bits");
}

}  // namespace

void checkSelectors(const std::vector<const VelaSwitchApi::SwTable*>& tables) {
  std::multimap<VelaSwitchApi::RegisterBus::RegisterHandle, Selected> selected;
  for (const VelaSwitchApi::SwTable* table : tables) {
    const auto& convertor = *table->profileConvertorPtr();
    for (const auto& [id, rows] : convertor.hwTables()) {
      const HwIndex first = rows->descriptor().first;
      const auto& layout = convertor.rowLayout(id, first);
      const auto* place = layout.find("row");
      if (!place) continue;
      Selected own{rows->descriptor().identity.family, std::nullopt};
      if (const auto* selector = layout.find("selector")) own.selector = selector->content;
      const auto hits = convertor.hitBitTables().find(id);
      if (hits != convertor.hitBitTables().end()) {
        own.hitOffset = hits->second->descriptor()->offset;
      }
      for (const auto& mapped : rows->mapped(first)) {
        if (mapped.word != place->first / 32) continue;
        const auto [begin, end] = selected.equal_range(mapped.reg);
        for (auto other = begin; other != end; ++other) checkApart(other->second, own);
        selected.emplace(mapped.reg, own);
      }
    }
  }
}

const std::vector<FamilyRegistration>& families() {
  static const std::vector<FamilyRegistration> all = [] {
    std::vector<FamilyRegistration> registrations;
    for (const auto group : {vlanFamilies, portFamilies, controlPlaneFamilies, aclFamilies,
                             routeFamilies, natFamilies, l3ResultFamilies}) {
      for (FamilyRegistration& family : group()) registrations.push_back(std::move(family));
    }
    checkFamilies(registrations);
    return registrations;
  }();
  return all;
}

}  // namespace VelaAgent
