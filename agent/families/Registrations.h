#pragma once

#include "agent/FamilyEntries.h"
#include "agent/Registry.h"

/// How families are registered.
namespace VelaAgent {

/// A family with `instances` tables, or one for each pipeline where tables serve one each.
template <class Family>
FamilyRegistration hashFamily(Lookups lookups, U32 instances = 1,
                              EntryRules<VelaSwitchTable::TableOf<Family>> rules = {}) {
  const std::string name = Family::traits.table.name;
  return {name, [](U32 instance) { return Family::traits.tableId(static_cast<U8>(instance)); },
          Family::trace,
          [=](U32 pipelines) {
            return Family::traits.placement == VelaSwitchTable::HashPlacement::ownPipeline
                       ? pipelines
                       : instances;
          },
          [=](U32 instance) {
            const auto number = static_cast<U8>(instance);
            return std::make_unique<HashEntries<Family>>(
                name, instance,
                Orb::make<VelaSwitchTable::TableOf<Family>>(name + "/" + std::to_string(instance),
                                                            number, number),
                lookups, rules);
          }};
}

/// A family of plain or direct tables.
template <class Family>
FamilyRegistration indexedFamily(Lookups lookups,
                                 EntryRules<VelaSwitchTable::TableOf<Family>> rules = {}) {
  const std::string name = Family::traits.table.name;
  return {name, [](U32) { return Family::traits.table.number; }, Family::trace,
          [](U32) { return 1u; },
          [=](U32 instance) {
            return std::make_unique<IndexedEntries<Family>>(
                name, instance, Orb::make<VelaSwitchTable::TableOf<Family>>(name), lookups, rules);
          }};
}

}  // namespace VelaAgent
