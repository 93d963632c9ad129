#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/PortTables.h"

namespace VelaSwitchTable {

struct NativeVlanKey {
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanKey";
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;
  auto operator<=>(const NativeVlanKey&) const = default;
};

struct VELA_EXPORT NativeVlanResult {
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanResult";
  Orb::Field<"nativeVlanId", Bridging::VlanId> nativeVlanId;
  Orb::Field<"dei", U8, 1> dei;
  Orb::Field<"pcp", U8, 3> pcp;
  auto operator<=>(const NativeVlanResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// The tag that a port gives its untagged traffic: VLAN 1 unless told otherwise. Ingress and egress
/// each have a register of the port.
struct VELA_EXPORT NativeVlanFamily
    : PlainFamilyTypes<NativeVlanKey, NativeVlanResult, class NativeVlanTable,
                       class NativeVlanConvertor, class NativeVlanConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTableNativeVlan";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::nativeVlan};

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

class VELA_EXPORT NativeVlanTable final : public PlainFamilyTable<NativeVlanFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanTable";
  using PlainFamilyTable::PlainFamilyTable;
};

class VELA_EXPORT NativeVlanConvertor : public PlainFamilyConvertor<NativeVlanFamily> {};

class VELA_EXPORT NativeVlanConvertorLayer2All final
    : public DeclaredLayerConvertor<NativeVlanFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanConvertorLayer2All";
};

VELA_EXPORT Orb::Ptr<NativeVlanTable> NativeVlanTableIs(const std::string& name);

}  // namespace VelaSwitchTable
