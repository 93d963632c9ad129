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
                                       "/platform " VELA_SOURCE "/tests/mistakes/Family.cpp " +
                              mistake + " 2>&1";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(popen(command.c_str(), "r"), pclose);
  std::string text;
  std::array<char, 4096> part;
  while (output && std::fgets(part.data(), part.size(), output.get())) text += part.data();
  return text;
}

struct Mistake {
  std::string define;  ///< Makes the mistake.
  const char* family;
  const char* field;
  const char* what;
};

class Mistakes : public testing::TestWithParam<Mistake> {};

/// A field's name as the compiler shows it.
std::string shown(const std::string& field) {
#ifdef __clang__
  std::string text;
  for (const char each : field) {
    text += text.empty() ? "<'" : ", '";
    text += each;
    text += "'";
  }
  return text + ">";
#else
  return "{\"" + field + "\"}";
#endif
}

/// To be compiled each; by one of two compilers is enough.
std::vector<Mistake> compiled(std::vector<Mistake> all) {
#ifdef __clang__
  all.resize(1);
#endif
  return all;
}

/// The first error, in its one line: what follows may only follow from it.
TEST_P(Mistakes, areToldInTheFirstError) {
  const auto& [define, family, field, what] = GetParam();
  const std::string text = compile(define);
  const std::size_t at = text.find("error: ");
  ASSERT_NE(at, std::string::npos) << text;
  const std::string line = text.substr(at, text.find('\n', at) - at);
  EXPECT_THAT(line, HasSubstr(Orb::text("VelaSwitchTable::", family, ", ")));
  EXPECT_THAT(line, HasSubstr(shown(field)));
  EXPECT_THAT(line, HasSubstr(Orb::text("Mistake::", what, ">")));
}

const std::string traits = "-DTRAITS=.hashBits=10,.ways=2";
const std::string control = R"('-DCONTROL={"row",64,10},{"way",78,1},{"one",79,1,1})";
const char* const unpacked = "resultFieldIsNeitherInTheRowNorHandPacked";

INSTANTIATE_TEST_SUITE_P(
    Family, Mistakes,
    testing::ValuesIn(compiled(
        {Mistake{R"('-DVALID="valid",39,1')", "ToyFamily", "valid",
                 "rowFieldOverlapsAnotherOrEndsBehindTheRow"},
         Mistake{R"('-DVALID="valid",96,1')", "ToyFamily", "valid",
                 "rowFieldOverlapsAnotherOrEndsBehindTheRow"},
         Mistake{"-DTRAITS=.hashBits=10", "ToyFamily", "traits",
                 "traitsDoNotSayPrefixHashBitsAndWays"},
         Mistake{"-DPLACEMENT=everyPipeline", "ToyFamily", "prefix",
                 "prefixHasNoPlaceForTheProcessor"},
         Mistake{"-DNO_VALID_BIT", "ToyFamily", "valid", "rowHasNoSuchField"},
         Mistake{traits + ",.staticWord=1", "ToyFamily", "colour", "staticWordHoldsAField"},
         Mistake{traits + ",.staticWord=7", "ToyFamily", "staticWord", "staticWordIsBehindTheRow"},
         Mistake{"-DTRAITS=.hashBits=11,.ways=2", "ToyFamily", "row",
                 "rowFieldIsTooNarrowForAllRows"},
         Mistake{"-DTRAITS=.hashBits=10,.ways=3", "ToyFamily", "way",
                 "wayFieldIsTooNarrowForAllWays"},
         Mistake{R"('-DCONTROL={"row",48,10},{"way",78,1},{"one",79,1,1}')", "ToyFamily", "row",
                 "controlWordIsNotBehindTheDataWords"},
         Mistake{R"('-DCONTROL={"row",64,10},{"way",78,1}')", "ToyFamily", "one",
                 "rowHasNoSuchField"},
         Mistake{control + R"(,{"parity",41,1}')", "ToyFamily", "parity",
                 "parityFieldWithoutParityWords"},
         Mistake{traits + ",.parityWords=1 " + control + R"(,{"parity",41,1}')", "ToyFamily",
                 "colour", "rowFieldIsBehindTheParityWords"},
         Mistake{traits + ",.parityWords=3 " + control + R"(,{"parity",41,1}')", "ToyFamily", "row",
                 "parityWordsHoldWhatIsWrittenAfterTheParity"},
         Mistake{control + R"(,{"size",41,3}')", "ToyFamily", "size", "rowFieldIsPackedByNobody"},
         Mistake{R"('-DKEY_FIELD="numbr",32')", "ToyFamily", "numbr", "keyHasNoSuchField"},
         Mistake{R"('-DKEY_FIELD="number",20')", "ToyFamily", "number",
                 "keyFieldIsHashedWithFewerBitsThanItHas"},
         Mistake{R"('-DKEY_FIELD=nullptr,32')", "ToyFamily", "number",
                 "keyFieldIsNeitherHashedNorInTheRow"},
         Mistake{R"('-DROW_KEY="key",0,24')", "ToyFamily", "key", "rowDoesNotBeginWithTheWholeKey"},
         Mistake{"-DFIELD_NOT_PACKED", "ToyFamily", "size", unpacked},
         // A hook that is not called packMore packs nothing, and one field that is packed by hand
         // does not excuse another.
         Mistake{"-DFIELD_NOT_PACKED -DMISSPELLED_HOOK", "ToyFamily", "size", unpacked},
         Mistake{R"(-DFIELD_NOT_PACKED '-DHAND_PACKED="colour"')", "ToyFamily", "size", unpacked},
         Mistake{R"('-DHAND_PACKED="clour"')", "ToyFamily", "handPacked",
                 "handPackedIsNoFieldOfTheResult"},
         Mistake{"-DNO_TYPE_NAME", "ToyKey", "typeName", "valueHasNoTypeNameOrIsNoListOfFields"},
         Mistake{R"('-DPORT_FIELD="rate",0,10')", "ToyPortFamily", "rate",
                 "rowFieldIsNarrowerThanItsValue"},
         Mistake{R"('-DPORT_FIELD="rate",0,shape.cpu?10u:12u')", "ToyPortFamily", "rate",
                 "rowFieldIsNarrowerThanItsValue"},
         Mistake{"'-DPORT_TABLES=portRegisters[]={{\"\",\"toy/port[%d]\"}};"
                 "static constexpr std::string_view notInHardware=\"rte\"'",
                 "ToyPortFamily", "notInHardware", "notInHardwareIsNoFieldOfTheResult"},
         Mistake{R"('-DPORT_TABLES=portRegister[]={{"","toy[%d]"}}')", "ToyPortFamily",
                 "portRegisters", "needsPortRegistersOrHwTables"},
         Mistake{R"('-DPORT_TABLES=portRegisters[]={{"","pipeline[%d]/toy"}}')", "ToyPortFamily",
                 "portRegisters", "pathHasNoPlaceForThePort"}})));

TEST(Mistake, aFamilyWithoutOneCompiles) { EXPECT_EQ(compile(""), ""); }

}  // namespace
}  // namespace VelaTest
