// A hash family with one mistake: that whose macro is defined. It must not compile then.

#include "VelaSwitch/Crc.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

struct ToyKey {
#ifndef NO_TYPE_NAME
  static constexpr const char* typeName = "VelaSwitchTable::ToyKey";
#endif
  Orb::Field<"number", U32> number;
  auto operator<=>(const ToyKey&) const = default;
};

struct ToyResult {
  static constexpr const char* typeName = "VelaSwitchTable::ToyResult";
  Orb::Field<"colour", U8> colour;
#ifdef FIELD_NOT_PACKED
  Orb::Field<"size", U8> size;
#endif
  auto operator<=>(const ToyResult&) const = default;
};

struct VELA_EXPORT ToyFamily : Family<"VelaTableToy", ToyKey, ToyResult> {
  static constexpr HashFamilyTraits traits{.table = {60, "Toy"},
                                           .placement = HashPlacement::once,
                                           .prefix = "toy/",
                                           .rowWords = 3,
                                           .dataWords = 2,
                                           .hashBits = 10,
#ifndef NO_WAYS
                                           .ways = 2
#endif
  };
#ifdef UNKNOWN_KEY_FIELD
  static constexpr KeyField keyFields[] = {{ "numbr", 32 }};
#else
  static constexpr KeyField keyFields[] = {{ "number", 32 }};
#endif
  static constexpr auto hash = &VelaSwitch::crc10Hash;
  static constexpr RowField fields[] = {
      {"key", 0, 32},   {"colour", 32, 8},
#ifdef OVERLAP
      {"valid", 39, 1},
#elif defined(TOO_WIDE)
      {"valid", 96, 1},
#elif !defined(NO_VALID_BIT)
      {"valid", 40, 1},
#endif
      {"row", 64, 10},  {"way", 78, 1},
  };
#ifdef HAND_PACKED
  static constexpr std::array handPacked{HAND_PACKED};
  static void packMore(const VelaTableHashHelper&, const Key&, const Result&, bool, CuckooLocation,
                       RowWriterOf<ToyFamily>&) {}
#endif
#ifdef MISSPELLED_HOOK
  static void packMor(const VelaTableHashHelper&, const Key&, const Result&, bool, CuckooLocation,
                      RowWriterOf<ToyFamily>&);
#endif
};

VELA_HASH_FAMILY(Toy);
VELA_HASH_FAMILY_DEFINE(Toy)

}  // namespace VelaSwitchTable
