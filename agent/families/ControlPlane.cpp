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

class ProtocolRemapAdapter final : public IndexedAdapter<ProtocolRemapFamily> {
 public:
  using IndexedAdapter::IndexedAdapter;
  Json lookup(DataPath&, const Json& key) const override {
    return {{"remappedProtocol", table().remappedProtocol(fromJson<U8>(key))}};
  }
};

/// An index asks for the first limiter table, {"index", "table"} for another one; the CPU's
/// transmit table comes behind the pipelines'.
Json lookupCopp(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(copp(dataPath, 0, fromJson<U8>(key)));
  const auto limiter = fromJson<Limiter>(key);
  return hitToJson(copp(dataPath, limiter.table(), limiter.index()));
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

std::vector<FamilyRegistration> controlPlaneFamilies() {
  return {indexedFamily<CoppFamily>(lookupCopp), protocolRemap()};
}

}  // namespace VelaAgent
