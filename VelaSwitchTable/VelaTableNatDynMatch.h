#pragma once

#include "VelaSwitchTable/family/NatRow.h"

namespace VelaSwitchTable {

/// What becomes of a packet of a translated connection.
struct NatDynMatchResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatDynMatchResult";
  Orb::Field<"valid", bool> valid;  ///< Whether the row answers lookups.
  /// Protocol class to rewrite as, 0 to 3. Others cannot be encoded and become 0.
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16, 12> natRewriteId;  ///< The `rewriteIndex` of NatRewrite.
  Orb::Field<"trapToCpu", bool> trapToCpu;           ///< The packet goes to the CPU.
  Orb::Field<"l3LagIndex", VelaSwitch::L3LagIndex> l3LagIndex;  ///< The ports that it leaves by.
  Orb::Field<"rewriteIndex", U8, 6> rewriteIndex;               ///< As of a route's next hop.
  auto operator<=>(const NatDynMatchResult&) const = default;
};

/// Dynamic translations, by the whole connection. The kind takes no part in the key but comes back
/// from the row; the qualifier takes no part at all.
///
/// The table does not declare hit bits, yet records hits.
struct VELA_EXPORT NatDynMatchFamily
    : NatFamily<NatDynMatchFamily, "VelaTableNatDynMatch", NatDynMatchResult> {
  static constexpr HashFamilyTraits traits =
      natTraits({.table = {28, "NatDynMatch"}, .hashBits = 10, .ways = 4});
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>(
        {{"srcIp", 0, 22},         {"dstIp", 22, 32},
         {"sport", 54, 16},        {"dport", 70, 16},
         {"keyProto", 86, 3},      {"valid", 89, 1},
         {"proto0", 90, 1},        {"proto1", 91, 1},
         {"natType", 92, 2},       {"natRewriteId", 94, 12},
         {"parity", 106, 1},       {"trapToCpu", 107, 1},
         {"rewriteIndex", 108, 6}, {"l3LagIndex", 114, 6},
         {"row", 128, 10},         {"zeros", 138, 4, 0},
         {"way", 142, 2},          {"zero", 144, 1, 0},
         {"one", 145, 1, 1},       {"selector", 146, 2, 1u + shape.tableIdx % 2},
         {"wholeAddress", 160, 32}});
  }

  static constexpr KeyField keyFields[] = {
      {"srcIp", 32}, {"dstIp", 32}, {"sport", 16}, {"dport", 16}, {"proto", 3}};
  static constexpr std::string_view notCompared = "qualifier";
  static constexpr auto hash = &VelaSwitch::crc10Hash;
  static Ipnet::IpAddr hashedAddress(const Key& key) { return key.srcIp(); }
};

VELA_HASH_FAMILY(NatDynMatch);

}  // namespace VelaSwitchTable
