#pragma once

#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/PlainFamily.h"

/// What plain families share whose keys are chip ports.
namespace VelaSwitchTable {

/// A chip port as the key of a table, under the table's own name.
template <Orb::FixedString Name>
struct PortKeyOf {
  static constexpr const char* typeName = Name.chars;
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const PortKeyOf&) const = default;
};

/// The convertor of a family that has its rows in the ingress pipelines and once more for the CPU.
template <class F>
class VELA_EXPORT PortPipelineConvertor : public PlainFamilyLayerConvertor<F> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  void getIngressPipelineHwTables(VelaSwitchApi::TableState state) {
    this->createHwTables(state, Part::pipelines);
  }
  void getCpuPipelineHwTables(VelaSwitchApi::TableState state) {
    this->createHwTables(state, Part::cpu);
  }
  /// Writes the port's row into the table that serves the port. False when the write failed.
  bool ingressPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return this->rowsAre(key, result, Part::pipelines);
  }
  bool cpuPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return this->rowsAre(key, result, Part::cpu);
  }

 private:
  using Part = PlainConvertor::Part;
};

}  // namespace VelaSwitchTable

// A plain family with a PortPipelineConvertor; see VELA_PLAIN_FAMILY.

#define VELA_PORT_PIPELINE_FAMILY(Xxx, Layer)                                         \
  VELA_PLAIN_CLASSES(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Convertor##Layer); \
  VELA_CLASS(Xxx##Family, Xxx##Table, PlainFamilyTable);                              \
  VELA_CLASS(Xxx##Family, Xxx##Convertor##Layer, PortPipelineConvertor)
