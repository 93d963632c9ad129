#include <array>
#include <cstdio>
#include <memory>

#include "Support.h"

/// What the compiler says of a family with a mistake: lines that name the family, the field and
/// what is wrong.
namespace VelaTest {
namespace {

using testing::HasSubstr;

std::string compile(const std::string& mistake) {
  const std::string command = VELA_CXX " -std=c++20 -fsyntax-only -I" VELA_SOURCE " -I" VELA_SOURCE
                                       "/platform " VELA_SOURCE "/tests/mistakes/Family.cpp -D" +
                              mistake + " 2>&1";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(popen(command.c_str(), "r"), pclose);
  std::string text;
  std::array<char, 4096> part;
  while (output && std::fgets(part.data(), part.size(), output.get())) text += part.data();
  return text;
}

struct Mistake {
  const char* name;
  std::vector<const char*> told;
};

class Mistakes : public testing::TestWithParam<Mistake> {};

TEST_P(Mistakes, areToldWhereTheyAreMade) {
  const std::string text = compile(GetParam().name);
  for (const char* part : GetParam().told) EXPECT_THAT(text, HasSubstr(part));
}

INSTANTIATE_TEST_SUITE_P(
    Family, Mistakes,
    testing::Values(
        Mistake{"OVERLAP", {"ToyFamily, Orb::FixedString<6>{\"valid\"}", "overlaps another"}},
        Mistake{"TOO_WIDE", {"ToyFamily, Orb::FixedString<6>{\"valid\"}", "ends behind the row"}},
        Mistake{"NO_WAYS", {"ToyFamily", "say its prefix, hashBits and ways"}},
        Mistake{"NO_VALID_BIT",
                {"F = VelaSwitchTable::ToyFamily", "{\"valid\"}", "no field of this name"}},
        Mistake{"FIELD_NOT_PACKED",
                {"ToyFamily, Orb::FixedString<5>{\"size\"}", "in no field of the row"}},
        // A hook that is not called packMore packs nothing.
        Mistake{"FIELD_NOT_PACKED -DMISSPELLED_HOOK",
                {"ToyFamily, Orb::FixedString<5>{\"size\"}", "in no field of the row"}},
        // One that is packed by hand does not excuse another one.
        Mistake{"FIELD_NOT_PACKED -DHAND_PACKED='\"colour\"'",
                {"ToyFamily, Orb::FixedString<5>{\"size\"}", "in no field of the row"}},
        Mistake{"HAND_PACKED='\"clour\"'", {"ToyFamily", "handPacked names a field that"}},
        Mistake{"UNKNOWN_KEY_FIELD", {"ToyFamily", "the key has no field of this name"}},
        Mistake{"NO_TYPE_NAME", {"ToyKey", "FamilyValue"}}),
    [](const auto& mistake) {
      const std::string name = mistake.param.name;
      return name.substr(0, name.find_first_of(" =")) + std::to_string(mistake.index);
    });

TEST(Mistake, aFamilyWithoutOneCompiles) { EXPECT_EQ(compile("NONE"), ""); }

}  // namespace
}  // namespace VelaTest
