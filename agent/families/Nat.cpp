#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"
#include "agent/families/Registrations.h"
#include "device/NatLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

auto lookupNatMatch(DataPath& dataPath, U32 instance, const VelaSwitch::NatMatchKey& key) {
  return VelaDevice::natMatch(dataPath, instance, key);
}

auto lookupNatDynMatch(DataPath& dataPath, U32 instance, const VelaSwitch::NatMatchKey& key) {
  return VelaDevice::natDynMatch(dataPath, instance, key);
}

auto lookupNatRewrite(DataPath& dataPath, U32, const VelaSwitch::NatRewriteKey& key) {
  return VelaDevice::natRewrite(dataPath, key.baseChipPortId().value(), key.rewriteIndex());
}

template <class Table>
void checkNatType(const Table&, const VelaSwitch::NatMatchKey& key) {
  constexpr U8 kinds = 4;
  refuseBeyond("natType", key.natType(), kinds, "kinds of translation");
}

void checkNatMatchKey(const NatMatchTable& table, const VelaSwitch::NatMatchKey& key) {
  checkNatType(table, key);
  if (key.natType() % 2 == 0 && (key.sport() != 0 || key.dport() != 0)) {
    throw InputException("natType " + std::to_string(key.natType()) +
                         " translates an address alone: sport and dport must be 0");
  }
}

/// A protocol class that cannot be encoded is not cut like other numbers.
template <class Table>
void checkNatResult(const Table&, const typename Table::Result& result,
                    std::vector<std::string>& warnings) {
  constexpr U8 classes = 4;
  if (result.proto() < classes) return;
  warnings.push_back(Orb::text("proto ", result.proto(), " cannot be encoded: 0 in its place"));
}

void checkNatRewriteKey(const NatRewriteTable&, const VelaSwitch::NatRewriteKey& key) {
  const U16 port = key.baseChipPortId().value();
  if (port % portsPerEgressProcessor != 0) {
    throw InputException(Orb::text("baseChipPortId: ", port, " is not the even port of a pair"));
  }
  refuseBeyond("rewriteIndex", key.rewriteIndex(), NatRewriteFamily::entriesPerPortPair,
               "rewrite rows");
}

}  // namespace

std::vector<FamilyRegistration> natFamilies() {
  return {
      hashFamily<NatMatchFamily>({lookupOf(lookupNatMatch)}, 2, {checkNatMatchKey, checkNatResult}),
      hashFamily<NatDynMatchFamily>({lookupOf(lookupNatDynMatch)}, 2,
                                    {checkNatType, checkNatResult}),
      indexedFamily<NatRewriteFamily>({lookupOf(lookupNatRewrite)}, {checkNatRewriteKey})};
}

}  // namespace VelaAgent
