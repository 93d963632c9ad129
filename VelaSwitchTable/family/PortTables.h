#pragma once

#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/PlainFamily.h"

/// Hardware tables whose rows are chip ports, as several families declare them.
namespace VelaSwitchTable {

/// A chip port as the key of a table, under the table's own name.
template <Orb::FixedString Name>
struct PortKeyOf {
  static constexpr const char* typeName = Name.chars;
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const PortKeyOf&) const = default;
};

/// The rows of a family whose keys are ports.
template <class Key>
struct PortRows {
  static HwIndex hwIndex(const Key& key) { return key.portId().value(); }
  static Key keyOf(HwIndex index) { return Key{VelaSwitch::ChipPortId(index)}; }
};

/// One row and one register for each port; `path` has the places of the port's pipe, if any, and of
/// the port.
inline PlainHwTable portRegisterTable(const VelaSwitch::ProfileInfo& profile, HwTableId id,
                                      const char* suffix, const char* path, U8 rowWords) {
  return {id,
          suffix,
          0,
          profile.ports() - 1,
          rowWords,
          [&profile, format = std::string(path)](HwIndex port) {
            const bool ofPipe = format.starts_with("pipeline");
            const std::string half =
                ofPipe ? regPrefix(format, profile.portToIngressPipeId(port)) : format;
            return regAddresses(regPrefix(half, port), {""});
          },
          true};
}

/// The register prefix of a layer-2 processor's tables.
inline const char* layer2Prefix(const VelaSwitch::ProfileInfo& profile) {
  return profile.fields().ingressL2Processor() ? "ingress/processor_l2[%u]/"
                                               : "pipeline[%u]/processor/";
}

/// The tables of the layer-2 processors, each with the rows of the ports that it serves.
inline std::vector<PlainHwTable> layer2PortTables(const VelaSwitch::ProfileInfo& profile,
                                                  const std::vector<std::string>& registers) {
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t < profile.numTables(VelaSwitch::TableKind::layer2); ++t) {
    const VelaSwitch::PortRange ports = portRangeOfL2Table(&profile, t);
    tables.push_back({t, "", ports.first, ports.last, static_cast<U8>(registers.size()),
                      [prefix = regPrefix(layer2Prefix(profile), t), registers](HwIndex) {
                        return regAddresses(prefix, registers);
                      }});
  }
  return tables;
}

/// The CPU pipeline's table of all ports, behind `count` others; it has no control word.
inline PlainHwTable cpuPortTable(const VelaSwitch::ProfileInfo& profile, std::size_t count,
                                 const std::vector<std::string>& registers) {
  return {
      .id = static_cast<HwTableId>(count),
      .suffix = "Cpu",
      .first = 0,
      .last = profile.ports() - 1,
      .rowWords = static_cast<U8>(registers.size()),
      .registers =
          [registers](HwIndex) { return regAddresses("cpu_pipeline[0]/lag_cpu[0]/", registers); },
      .cpu = true};
}

/// The bit of a control word that selects a port of the table.
inline U32 portSelection(const PlainHwTable& table, VelaSwitch::ChipPortId port) {
  return 1u << (port.value() - table.first) % 32;
}

/// A hardware table with a register for each port.
struct PortRegister {
  const char* suffix;  ///< Part of the hardware table's name.
  const char* path;    ///< With places for the port's pipe, if any, and for the port.
};

/// A value from its bits in a row. A type whose values are fewer than its bits has a version that
/// throws Orb::RangeException.
template <class T>
void fromRowBits(T& value, U64 bits) {
  if constexpr (Orb::IsRanged<T>) {
    value = T(bits);
  } else {
    value = static_cast<T>(bits);
  }
}

/// What families share whose rows are one register a port, with the fields of the result in their
/// order. F says the rest:
///
///   rowWords      words of the row image
///   fields        where each field of the result stands
///   registers     the hardware tables; all hold the same
template <class F, class Key, class Result>
struct PortWordFamily : PortRows<Key> {
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile) {
    std::vector<PlainHwTable> tables;
    for (const PortRegister& each : F::registers) {
      tables.push_back(portRegisterTable(profile, static_cast<HwTableId>(tables.size()),
                                         each.suffix, each.path, F::rowWords));
    }
    return tables;
  }
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo&, U32) {
    return {{std::begin(F::fields), std::end(F::fields)}, F::rowWords};
  }
  static void pack(const PlainRowContext&, const Key&, const Result& result,
                   VelaSwitchApi::RowWriter& row) {
    using Orb::hashWord;
    std::size_t field = 0;
    Orb::forEachField(result, [&](const auto& each) { row.set(field++, hashWord(each())); });
  }
  static RowSays unpack(const PlainRowContext&, const Key&, const VelaSwitchApi::RowReader& row,
                        Result& result) {
    std::size_t field = 0;
    Orb::forEachField(result, [&](auto& each) { fromRowBits(each.value, row.get(field++)); });
    return RowSays::result;
  }
};

/// The convertor of a family that has its rows in the ingress pipelines and once more for the CPU.
template <class F>
class VELA_EXPORT PortPipelineConvertor : public PlainFamilyLayerConvertor<F> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    getIngressPipelineHwTables(state);
    getCpuPipelineHwTables(state);
  }
  void getIngressPipelineHwTables(VelaSwitchApi::TableState state) {
    this->createHwTables(state, [](const PlainHwTable& table) { return !table.cpu; });
  }
  void getCpuPipelineHwTables(VelaSwitchApi::TableState state) {
    this->createHwTables(state, [](const PlainHwTable& table) { return table.cpu; });
  }

  bool hwTableEntryIs(const Key& key, const Result& result) override {
    if (!this->programs(key)) return true;
    const bool good = ingressPipelineHwTableEntryIs(key, result);
    return cpuPipelineHwTableEntryIs(key, result) && good;
  }
  /// Writes the port's row into the table that serves the port. False when the write failed.
  bool ingressPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return writeRows(key, result, false);
  }
  bool cpuPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return writeRows(key, result, true);
  }

 private:
  bool writeRows(const Key& key, const Result& result, bool cpu) {
    bool good = true;
    for (const auto& [id, hwTable] : this->hwTables()) {
      if (this->declared(id).cpu != cpu) continue;
      good &= PlainFamilyLayerConvertor<F>::writeRows(*hwTable, key, result);
    }
    return good;
  }
};

}  // namespace VelaSwitchTable

// A plain family with a PortPipelineConvertor; see VELA_PLAIN_FAMILY.

#define VELA_PORT_PIPELINE_FAMILY(Family, Table, Convertor, LayerConvertor) \
  VELA_CLASS(Family, Table, PlainFamilyTable);                              \
  VELA_BASE_CLASS(Family, Convertor, PlainFamilyConvertor);                 \
  VELA_PLAIN_TEMPLATES(extern, Family);                                     \
  extern template class PortPipelineConvertor<Family>;                      \
  VELA_CLASS(Family, LayerConvertor, PortPipelineConvertor);                \
  VELA_PLAIN_FACTORIES(Table, LayerConvertor)

#define VELA_PORT_PIPELINE_FAMILY_DEFINE(Family, Table, Convertor, LayerConvertor) \
  template class PortPipelineConvertor<Family>;                                    \
  VELA_PLAIN_FAMILY_DEFINE(Family, Table, Convertor, LayerConvertor)
