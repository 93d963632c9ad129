// A hash family and one of ports with one mistake: that whose macro is defined. It must not compile
// then. Macros that stand for a value have that of the family without a mistake else.

#include "VelaSwitch/Crc.h"
#include "VelaSwitchTable/family/HashFamily.h"
#include "VelaSwitchTable/family/PortTables.h"

#ifndef PLACEMENT
#define PLACEMENT once
#endif
#ifndef TRAITS
#define TRAITS .hashBits = 10, .ways = 2
#endif
#ifndef KEY_FIELD
#define KEY_FIELD "number", 32
#endif
#ifndef ROW_KEY
#define ROW_KEY "key", 0, 32
#endif
#ifndef CONTROL
#define CONTROL \
  {"row", 64, 10}, {"way", 78, 1}, { "one", 79, 1, 1 }
#endif
#ifndef PORT_FIELD
#define PORT_FIELD "rate", 0, 12
#endif
#ifndef PORT_TABLES
#define PORT_TABLES portRegisters[] = {{"", "pipeline[%d]/port[%d]/toy"}}
#endif

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
                                           .placement = HashPlacement::PLACEMENT,
                                           .prefix = "toy/",
                                           .rowWords = 3,
                                           .dataWords = 2,
                                           TRAITS};
  static constexpr KeyField keyFields[] = {{KEY_FIELD}};
  static constexpr auto hash = &VelaSwitch::crc10Hash;
  static constexpr RowField fields[] = {
      {ROW_KEY},
      {"colour", 32, 8},
#ifdef VALID
      {VALID},
#elif !defined(NO_VALID_BIT)
      {"valid", 40, 1},
#endif
      CONTROL,
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

struct ToyPortResult {
  static constexpr const char* typeName = "VelaSwitchTable::ToyPortResult";
  Orb::Field<"rate", U16, 12> rate;
  auto operator<=>(const ToyPortResult&) const = default;
};

struct VELA_EXPORT ToyPortFamily
    : IndexedFamily<"VelaTableToyPort", PortKeyOf<"VelaSwitchTable::ToyPortKey">, ToyPortResult> {
  static constexpr PlainFamilyTraits traits{.table = {160, "ToyPort"}, .rowWords = 1};
  static constexpr auto fields([[maybe_unused]] const RowShape& shape) {
    return std::to_array<RowField>({{PORT_FIELD}});
  }
  static constexpr PortRegister PORT_TABLES;
};

VELA_PLAIN_FAMILY(ToyPort, Layer2All);
VELA_PLAIN_FAMILY_DEFINE(ToyPort, Layer2All)

}  // namespace VelaSwitchTable
