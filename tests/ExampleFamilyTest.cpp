#include <fstream>
#include <sstream>

#include "Support.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaTableStormLimit.h"
#include "VelaTableTunnel.h"

/// The families of docs/adding-a-family.md do what that says.
namespace VelaSwitchTable {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using VelaTest::Chip;
using VelaTest::Random;
using VelaTest::Started;

TEST(ExampleFamily, portRowsAreBitExactAndComeBack) {
  Started<StormLimitTable> chip;
  const StormLimitResult limits{U16{0xABC}, U16{0x123}, true};
  chip.table->entryIs({VelaSwitch::ChipPortId(7)}, limits);
  EXPECT_THAT(chip.words(0, 7), ElementsAre(0x80123ABC));

  const auto again = Orb::make<StormLimitTable>("again");
  chip.start(*again, Chip::Start::restart);
  ASSERT_TRUE(again->entry({VelaSwitch::ChipPortId(7)}));
  EXPECT_EQ(*again->entry({VelaSwitch::ChipPortId(7)}), limits);
}

TEST(ExampleFamily, hashedRowsComeBackAsTheyWereAnnounced) {
  Started<TunnelTable> chip;
  Random random;
  std::map<TunnelKey, TunnelResult> tunnels;
  for (int i = 0; i < 3000; ++i) {
    const TunnelKey key{Ipnet::IpAddr(random()), random() & 0xFFFFFF};
    const TunnelResult result{Bridging::VlanIdOrNone(1 + random() % 4094), random() % 2 != 0};
    tunnels.insert_or_assign(key, result);
    chip.table->entryIs(key, result);
    ASSERT_EQ(chip.status(key), VelaSwitchApi::EntryProgrammedStatus::programmed);
  }
  const auto again = Orb::make<TunnelTable>("again");
  chip.start(*again, Chip::Start::restart);
  EXPECT_EQ(again->entries().size(), tunnels.size());
  for (const auto& [key, result] : tunnels) {
    ASSERT_TRUE(again->entry(key)) << Orb::text(key);
    EXPECT_EQ(*again->entry(key), result);
  }
}

TEST(ExampleFamily, standsInThePageAsItIs) {
  const auto text = [](const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string code =
      text(EXAMPLES "/family/VelaTableTunnel.h") + text(EXAMPLES "/family/VelaTableStormLimit.h");
  std::istringstream page(text(DOCS "/adding-a-family.md"));
  bool fenced = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("```")) {
      fenced = line == "```cpp";
    } else if (fenced) {
      EXPECT_THAT(code, testing::HasSubstr(line + "\n"));
    }
  }
}

}  // namespace

// Mistakes that no compiler sees are found when the table is made.

/// What is packed by hand and not read back.
struct VELA_EXPORT ForgetfulFamily : Family<"VelaTableForgetful", TunnelKey, TunnelResult> {
  static constexpr HashFamilyTraits traits = TunnelFamily::traits;
  static constexpr KeyField keyFields[] = {{"source", 32}, {"network", 24}};
  static constexpr auto hash = &VelaSwitch::crc12Hash;
  static constexpr RowField fields[] = {{"compare", 0, 44}, {"valid", 44, 1},  {"vlanId", 45, 12},
                                        {"trap", 57, 1},    {"parity", 58, 1}, {"row", 128, 12},
                                        {"way", 142, 2},    {"one", 145, 1, 1}};
  static constexpr std::array handPacked{"trapToCpu"};
  static void packMore(const VelaTableHashHelper&, const Key&, const Result& result, bool,
                       CuckooLocation, RowWriterOf<ForgetfulFamily>& row) {
    row.set<"trap">(result.trapToCpu());
  }
};
VELA_HASH_FAMILY(Forgetful);
VELA_HASH_FAMILY_DEFINE(Forgetful)

/// Keys whose upper half is another's.
struct VELA_EXPORT HalfKeyFamily : TunnelFamily {
  static void completeKey(const VelaSwitchApi::RowReader&, Key& key) {
    key.network = key.network() & 0xFFF;
  }
};
VELA_HASH_FAMILY(HalfKey);
VELA_HASH_FAMILY_DEFINE(HalfKey)

/// Its other format, which is no shape of it, has the control word elsewhere.
struct VELA_EXPORT MovedFamily : TunnelFamily {
  static constexpr RowShape shapes[] = {{}};
  static bool otherFormat(const VelaSwitch::ProfileInfo&) { return true; }
  static constexpr auto fields(const RowShape& shape) {
    auto fields = std::to_array(TunnelFamily::fields);
    for (RowField& field : fields) field.first -= shape.other && field.first >= 128 ? 64 : 0;
    return fields;
  }
};
VELA_HASH_FAMILY(Moved);
VELA_HASH_FAMILY_DEFINE(Moved)

/// What is listed as packed by hand, and packed by nobody.
struct VELA_EXPORT ForgetfulPortFamily
    : IndexedFamily<"VelaTableForgetfulPort", StormLimitKey, StormLimitResult> {
  static constexpr PlainFamilyTraits traits = StormLimitFamily::traits;
  static constexpr RowField fields[] = {{"broadcastRate", 0, 12}, {"multicastRate", 12, 12}};
  static constexpr auto portRegisters = std::to_array(StormLimitFamily::portRegisters);
  static constexpr std::array handPacked{"drop"};
};
VELA_PLAIN_FAMILY(ForgetfulPort, Layer2All);
VELA_PLAIN_FAMILY_DEFINE(ForgetfulPort, Layer2All)

struct VELA_EXPORT ExchangedFamily : StormLimitFamily {
  static RowSays unpackMore(const PlainRowContext&, const Key&, const RowReaderOf<ExchangedFamily>&,
                            Result& result) {
    std::swap(result.broadcastRate.value, result.multicastRate.value);
    return RowSays::result;
  }
};
VELA_PLAIN_FAMILY(Exchanged, Layer2All);
VELA_PLAIN_FAMILY_DEFINE(Exchanged, Layer2All)

struct VELA_EXPORT SilentFamily : StormLimitFamily {
  static RowSays unpackMore(const PlainRowContext&, const Key&, const RowReaderOf<SilentFamily>&,
                            Result&) {
    return RowSays::nothing;
  }
};
VELA_PLAIN_FAMILY(Silent, Layer2All);
VELA_PLAIN_FAMILY_DEFINE(Silent, Layer2All)

/// Each port has the row of another.
struct VELA_EXPORT CrossedFamily : StormLimitFamily {
  static HwIndex hwIndex(const Key& key) { return key.portId().value() ^ 1; }
};
VELA_PLAIN_FAMILY(Crossed, Layer2All);
VELA_PLAIN_FAMILY_DEFINE(Crossed, Layer2All)

/// No row without an entry is sound.
struct VELA_EXPORT OddLagFamily : L3LagFamily {
  static bool isSound(const VelaSwitchApi::RowReader& row) { return row.words()[0] != 0; }
};
VELA_DIRECT_FAMILY(OddLag);
VELA_DIRECT_FAMILY_DEFINE(OddLag)

TEST(ExampleFamily, rowsThatDoNotComeBackAreRefusedWhenTheTableIsMade) {
  const auto refusal = [](VelaSwitchApi::SwTable& table) {
    return VelaTest::fatalText([&] { Chip().create(table); });
  };
  const auto another = [&](VelaSwitchApi::SwTable& table, const char* unit, const char* what) {
    EXPECT_THAT(
        refusal(table),
        StartsWith(Orb::text(unit, ": the row of an entry unpacks to another entry: ", what)));
  };
  another(*ForgetfulTableIs("hash"), "VelaTableForgetful", "field trap");
  another(*HalfKeyTableIs("half"), "VelaTableTunnel", "field ");
  EXPECT_THAT(refusal(*MovedTableIs("moved")),
              StartsWith("VelaTableTunnel: the control word is where none of"));
  another(*ForgetfulPortTableIs("port"), "VelaTableForgetfulPort", "drop true becomes false");
  another(*ExchangedTableIs("exchanged"), "VelaTableStormLimit", "field broadcastRate");
  EXPECT_THAT(refusal(*CrossedTableIs("crossed")),
              StartsWith("VelaTableStormLimit: the key of a row has another row"));
  EXPECT_THAT(refusal(*SilentTableIs("silent")),
              StartsWith("VelaTableStormLimit: no row unpacks to an entry"));
  EXPECT_THAT(refusal(*OddLagTableIs("lag")),
              StartsWith("VelaTableL3Lag: an empty row is unsound"));
  EXPECT_EQ(refusal(*TunnelTableIs("right")), "");
}

}  // namespace VelaSwitchTable
