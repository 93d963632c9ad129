#pragma once

#include <iosfwd>

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagLookUpKey = PortKeyOf<"VelaSwitchTable::LagLookUpKey">;

/// The share of a LAG's frames that a port takes.
struct LagLookUpResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagLookUpResult";
  Orb::Field<"buckets", U32> buckets;  ///< Bit n: frames of bucket n leave by the port.
  auto operator<=>(const LagLookUpResult&) const = default;
};

/// The form for people.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const LagLookUpResult& result);

/// Which hash buckets of a LAG pick a port: in every pipeline and for the CPU, each with a block of
/// rows for every ingress pipe. A port without an entry is picked by the low eight.
struct VELA_EXPORT LagLookUpFamily
    : IndexedFamily<"VelaTableLagLookUp", LagLookUpKey, LagLookUpResult> {
  static constexpr PlainFamilyTraits traits{.table = {107, "LagLookUp"},
                                            .rowWords = 2,
                                            .staticWords = {0, 0xffffffff},
                                            .absentTrace = AbsentTrace::byTableAndIndex};
  static constexpr RowField fields[] = {{"buckets", 0, 32}, {"select", 32, 32}};
  static constexpr U32 allBuckets = 0xFF;

  static Result absentResult() { return {allBuckets}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static void packMore(const PlainRowContext& at, const Key& key, const Result& result,
                       RowWriterOf<LagLookUpFamily>& row);
};

VELA_PLAIN_FAMILY(LagLookUp, Layer2All);

}  // namespace VelaSwitchTable
