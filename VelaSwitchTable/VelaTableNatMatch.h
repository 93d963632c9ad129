#pragma once

#include "VelaSwitchTable/family/NatRow.h"

namespace VelaSwitchTable {

/// What becomes of a packet whose address is translated.
struct NatMatchResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatMatchResult";
  Orb::Field<"valid", bool> valid;  ///< Whether the row answers lookups.
  /// Protocol class to rewrite as, 0 to 3. Others cannot be encoded and become 0.
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16, 12> natRewriteId;  ///< The `rewriteIndex` of NatRewrite.
  Orb::Field<"useAcl", bool> useAcl;                 ///< Whether the ACL is asked as well.
  Orb::Field<"trapToCpu", bool> trapToCpu;           ///< The packet goes to the CPU.
  Orb::Field<"l3LagIndex", VelaSwitch::L3LagIndex> l3LagIndex;  ///< The ports that it leaves by.
  Orb::Field<"rewriteIndex", U8, 6> rewriteIndex;               ///< As of a route's next hop.
  auto operator<=>(const NatMatchResult&) const = default;
};

/// Static translations, by one address and, for the kinds that translate ports, one port. What the
/// kind does not match takes no part in the key: two keys that differ in that alone are one to
/// hardware. Ports of the address-only kinds must be 0; others are a fatal assertion.
///
/// The table does not declare hit bits, yet records hits. Two tables share one physical table.
struct VELA_EXPORT NatMatchFamily : NatFamily<NatMatchFamily, "VelaTableNatMatch", NatMatchResult> {
  static constexpr HashFamilyTraits traits =
      natTraits({.table = {22, "NatMatch"}, .hashBits = 12, .ways = 3, .sharing = 2});
  static constexpr RowField fields[] = {
      {"compare", 0, 47},       {"valid", 47, 1},      {"proto0", 48, 1},  {"proto1", 49, 1},
      {"natRewriteId", 50, 12}, {"useAcl", 62, 1},     {"parity", 63, 1},  {"trapToCpu", 64, 1},
      {"rewriteIndex", 65, 6},  {"l3LagIndex", 71, 6}, {"row", 128, 12},   {"zeros", 140, 2, 0},
      {"way", 142, 2},          {"zero", 144, 1, 0},   {"one", 145, 1, 1}, {"selector", 146, 2, 0},
      {"wholeAddress", 160, 32}};

  static void sample(const VelaTableHashHelper& helper, U64 bits, Key& key, Result& result);
  static void packKey(const Key& key, KeyBits& bits);
  static constexpr auto hash = &VelaSwitch::crc12Hash;
  static bool unpackKey(KeyBits bits, const RowReaderOf<NatMatchFamily>&, Key& key);
  static Ipnet::IpAddr hashedAddress(const Key& key);
};

VELA_HASH_FAMILY(NatMatch);

}  // namespace VelaSwitchTable
