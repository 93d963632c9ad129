#pragma once

#include "VelaSwitchTable/PortTables.h"

namespace VelaSwitchTable {

struct L2ControlKey {
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlKey";
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const L2ControlKey&) const = default;
};

struct VELA_EXPORT L2ControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlResult";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;
  Orb::Field<"learnOnly", bool> learnOnly;
  Orb::Field<"learnDisabled", bool> learnDisabled;
  auto operator<=>(const L2ControlResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// A port's layer-2 switches.
struct VELA_EXPORT L2ControlFamily
    : PlainFamilyTypes<L2ControlKey, L2ControlResult, class L2ControlTable,
                       class L2ControlConvertor, class L2ControlConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTableL2Control";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::l2Control};

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

class VELA_EXPORT L2ControlTable final : public PlainFamilyTable<L2ControlFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlTable";
  using PlainFamilyTable::PlainFamilyTable;
};

class VELA_EXPORT L2ControlConvertor : public PlainFamilyConvertor<L2ControlFamily> {};

class VELA_EXPORT L2ControlConvertorLayer2All final
    : public DeclaredLayerConvertor<L2ControlFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlConvertorLayer2All";
};

VELA_EXPORT Orb::Ptr<L2ControlTable> L2ControlTableIs(const std::string& name);

}  // namespace VelaSwitchTable
