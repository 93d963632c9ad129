#pragma once

#include <iosfwd>

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagLookUpKey = PortKeyOf<"VelaSwitchTable::LagLookUpKey">;

struct LagLookUpResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagLookUpResult";
  Orb::Field<"buckets", U32> buckets;
  auto operator<=>(const LagLookUpResult&) const = default;
};

/// The form for people.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const LagLookUpResult& result);

/// Which hash buckets of a LAG pick a port: in every pipeline and for the CPU, each with a block of
/// rows for every ingress pipe. A port without an entry is picked by the low eight.
struct VELA_EXPORT LagLookUpFamily
    : PlainFamilyTypes<LagLookUpKey, LagLookUpResult, class LagLookUpTable,
                       class LagLookUpConvertor, class LagLookUpConvertorLayer2All>,
      PortRows<LagLookUpKey> {
  static constexpr const char* sourceUnit = "VelaTableLagLookUp";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::lagLookUp,
                                            .staticWords = {0, 0xffffffff},
                                            .absentTrace = AbsentTrace::byTableAndIndex};
  static constexpr U32 allBuckets = 0xFF;

  static Result absentResult() { return {allBuckets}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PLAIN_FAMILY(LagLookUpFamily, LagLookUpTable, LagLookUpConvertor, LagLookUpConvertorLayer2All);

}  // namespace VelaSwitchTable
