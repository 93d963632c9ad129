#pragma once

#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

struct ProtocolRemapKey {
  static constexpr const char* typeName = "VelaSwitchTable::ProtocolRemapKey";
  static constexpr bool scalar = true;
  Orb::Field<"protocol", U8> protocol;
  auto operator<=>(const ProtocolRemapKey&) const = default;
};

struct ProtocolRemapResult {
  static constexpr const char* typeName = "VelaSwitchTable::ProtocolRemapResult";
  static constexpr bool scalar = true;
  Orb::Field<"remappedProtocol", U8, 3> remappedProtocol;
  auto operator<=>(const ProtocolRemapResult&) const = default;
};

/// The protocol class that NAT keys carry for an IP protocol. A mapping of software: no register
/// holds it.
struct VELA_EXPORT ProtocolRemapFamily
    : PlainFamilyTypes<ProtocolRemapKey, ProtocolRemapResult, class ProtocolRemapTable,
                       class ProtocolRemapConvertor, class ProtocolRemapConvertorLayer3> {
  static constexpr const char* sourceUnit = "VelaTableProtocolRemap";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::protocolRemap};
  /// The class of a protocol that no entry remaps: 1 for TCP, 2 for UDP, 3 for ICMP, else 0.
  static U8 usualClass(U8 protocol);

  static HwIndex hwIndex(const Key& key) { return key.protocol(); }
  static Key keyOf(HwIndex index) { return Key{static_cast<U8>(index)}; }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

class VELA_EXPORT ProtocolRemapTable final : public PlainFamilyTable<ProtocolRemapFamily> {
 public:
  VELA_REGISTERED(ProtocolRemapFamily, ProtocolRemapTable);
  using PlainFamilyTable::PlainFamilyTable;
  /// The class of a protocol, 0 to 7.
  U8 remappedProtocol(U8 protocol) const;
};

VELA_BASE_CLASS(ProtocolRemapFamily, ProtocolRemapConvertor, PlainFamilyConvertor);
VELA_PLAIN_TEMPLATES(extern, ProtocolRemapFamily);
VELA_CLASS(ProtocolRemapFamily, ProtocolRemapConvertorLayer3, PlainFamilyLayerConvertor);
VELA_PLAIN_FACTORIES(ProtocolRemapTable, ProtocolRemapConvertorLayer3);

}  // namespace VelaSwitchTable
