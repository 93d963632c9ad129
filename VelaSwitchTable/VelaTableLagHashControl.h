#pragma once

#include "VelaSwitchTable/PortTables.h"

namespace VelaSwitchTable {

struct LagHashControlKey {
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlKey";
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const LagHashControlKey&) const = default;
};

struct VELA_EXPORT LagHashControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlResult";
  Orb::Field<"useVlanId", bool> useVlanId;
  Orb::Field<"unused", bool> unused;  ///< Kept, and written like the others.
  Orb::Field<"useSipAndDip", bool> useSipAndDip;
  Orb::Field<"hashSeed", U8, 6> hashSeed;
  auto operator<=>(const LagHashControlResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// What of a frame enters the hash that picks a LAG member, by ingress port.
struct VELA_EXPORT LagHashControlFamily
    : PlainFamilyTypes<LagHashControlKey, LagHashControlResult, class LagHashControlTable,
                       class LagHashControlConvertor, class LagHashControlConvertorLayer3> {
  static constexpr const char* sourceUnit = "VelaTableLagHashControl";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::lagHashControl};

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

class VELA_EXPORT LagHashControlTable final : public PlainFamilyTable<LagHashControlFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlTable";
  using PlainFamilyTable::PlainFamilyTable;
};

class VELA_EXPORT LagHashControlConvertor : public PlainFamilyConvertor<LagHashControlFamily> {};

class VELA_EXPORT LagHashControlConvertorLayer3 final
    : public DeclaredLayerConvertor<LagHashControlFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlConvertorLayer3";
};

VELA_EXPORT Orb::Ptr<LagHashControlTable> LagHashControlTableIs(const std::string& name);

}  // namespace VelaSwitchTable
