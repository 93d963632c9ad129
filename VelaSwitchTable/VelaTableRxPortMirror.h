#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using RxPortMirrorKey = PortKeyOf<"VelaSwitchTable::RxPortMirrorKey">;

struct RxPortMirrorResult {
  static constexpr const char* typeName = "VelaSwitchTable::RxPortMirrorResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Where copies go.
  Orb::Field<"enabled", bool> enabled;
  auto operator<=>(const RxPortMirrorResult&) const = default;
};

/// Where what a port receives is mirrored to, in the layer-2 processor that serves the port.
struct VELA_EXPORT RxPortMirrorFamily
    : PlainFamilyTypes<RxPortMirrorKey, RxPortMirrorResult, class RxPortMirrorTable,
                       class RxPortMirrorConvertor, class RxPortMirrorConvertorLayer2All>,
      PortRows<RxPortMirrorKey> {
  static constexpr const char* sourceUnit = "VelaTableRxPortMirror";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::rxPortMirror,
                                            .staticWords = {0, 0, 0xffffffff}};

  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PLAIN_FAMILY(RxPortMirrorFamily, RxPortMirrorTable, RxPortMirrorConvertor,
                  RxPortMirrorConvertorLayer2All);

}  // namespace VelaSwitchTable
