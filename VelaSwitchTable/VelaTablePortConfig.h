#pragma once

#include "VelaSwitchTable/PortTables.h"

namespace VelaSwitchTable {

enum class PortMode : U8 { trunk, access, qinq };
VELA_EXPORT void appendText(Orb::TextSink& sink, PortMode mode);
/// Throws Orb::TextException for another word than "trunk", "access" and "qinq".
VELA_EXPORT void parseText(Orb::TextCursor& cursor, PortMode& mode);

struct PortConfigKey {
  static constexpr const char* typeName = "VelaSwitchTable::PortConfigKey";
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const PortConfigKey&) const = default;
};

struct VELA_EXPORT PortConfigResult {
  static constexpr const char* typeName = "VelaSwitchTable::PortConfigResult";
  Orb::Field<"portMode", PortMode> portMode;
  Orb::Field<"txDisabled", bool> txDisabled;
  Orb::Field<"l2ForwardingDisabled", bool> l2ForwardingDisabled;
  auto operator<=>(const PortConfigResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// A port's VLAN mode, and what is switched off at it. Both of the port's registers hold the same.
struct VELA_EXPORT PortConfigFamily
    : PlainFamilyTypes<PortConfigKey, PortConfigResult, class PortConfigTable,
                       class PortConfigConvertor, class PortConfigConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTablePortConfig";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::portConfig};

  static HwIndex hwIndex(const Key& key) { return key.portId().value(); }
  static Key keyOf(HwIndex index) { return Key{VelaSwitch::ChipPortId(index)}; }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

class VELA_EXPORT PortConfigTable final : public PlainFamilyTable<PortConfigFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::PortConfigTable";
  using PlainFamilyTable::PlainFamilyTable;
};

class VELA_EXPORT PortConfigConvertor : public PlainFamilyConvertor<PortConfigFamily> {};

class VELA_EXPORT PortConfigConvertorLayer2All final
    : public DeclaredLayerConvertor<PortConfigFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::PortConfigConvertorLayer2All";
};

VELA_EXPORT Orb::Ptr<PortConfigTable> PortConfigTableIs(const std::string& name);

}  // namespace VelaSwitchTable
