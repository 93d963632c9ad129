#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableProtocolRemap.h"
#include "agent/families/Registrations.h"
#include "device/PortLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// A rate limiter of one of the limiter tables.
struct Limiter {
  static constexpr const char* typeName = "VelaAgent::Limiter";
  Orb::Field<"index", U8> index;
  Orb::Field<"table", U32> table;
};

/// What an IP protocol becomes.
struct RemapHit {
  static constexpr const char* typeName = "VelaAgent::RemapHit";
  Orb::Field<"remappedProtocol", U8> remappedProtocol;
};

/// The first limiter table's.
auto lookupCopp(DataPath& dataPath, U32, const CoppEntryKey& key) {
  return VelaDevice::copp(dataPath, 0, key.index());
}

/// Another table's; the CPU's transmit table comes behind the pipelines'.
auto lookupLimiter(DataPath& dataPath, U32, const Limiter& limiter) {
  return VelaDevice::copp(dataPath, limiter.table(), limiter.index());
}

/// The remapping of protocols is software's own: its table answers, not the data path.
FamilyRegistration protocolRemap() {
  FamilyRegistration registration = indexedFamily<ProtocolRemapFamily>({});
  registration.make = [](U32 instance) -> std::unique_ptr<TableEntries> {
    const Orb::Ptr<ProtocolRemapTable> table = ProtocolRemapTableIs("ProtocolRemap");
    const auto remap = [&rows = *table](DataPath&, U32, U8 protocol) {
      return std::optional(RemapHit{rows.remappedProtocol(protocol)});
    };
    return std::make_unique<IndexedEntries<ProtocolRemapFamily>>("ProtocolRemap", instance, table,
                                                                 Lookups{lookupBy<U8>(remap)});
  };
  return registration;
}

}  // namespace

std::vector<FamilyRegistration> controlPlaneFamilies() {
  return {indexedFamily<CoppFamily>({lookupOf(lookupCopp), lookupOf(lookupLimiter)}),
          protocolRemap()};
}

}  // namespace VelaAgent
