#include "Generator.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaTableTunnel.h"
#include "agent/Events.h"
#include "agent/Profiles.h"
#include "agent/families/Registrations.h"

// Events that ask for more than the switch has: what is too big is cut with a warning, what is not
// there is refused in one line, and no event stops those that follow.

namespace {

using testing::HasSubstr;
using VelaAgent::Agent;
using VelaAgent::Json;

/// An agent that is told events, and what it says to each.
struct Told {
  explicit Told(const std::string& profileName = "vela-48-5.1")
      : profile(VelaAgent::loadProfile(profileName)) {
    agent.make();
    agent.start(Agent::Start::fresh);
    runner.warningListenerIs([this](const std::string& text) { warnings.push_back(text); });
    runner.resultListenerIs([this](const std::string& line) {
      result = Json::parse(line);
      results += line + '\n';
    });
  }

  /// Applies an event; returns why it was refused, or nothing.
  std::string operator()(const Json& event) { return apply(event.dump()); }
  std::string apply(const std::string& line) {
    warnings.clear();
    results.clear();
    result = nullptr;
    return VelaTest::errorText([&] { runner.applyLine(line); });
  }
  std::string set(const std::string& table, const Json& key, const Json& to) {
    return (*this)({{"op", "set"}, {"table", table}, {"key", key}, {"result", to}});
  }
  Json lookup(const std::string& table, const Json& key) {
    EXPECT_EQ((*this)({{"op", "lookup"}, {"table", table}, {"key", key}}), "");
    return result["hit"];
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile;
  VelaDevice::SimulatedSwitch chip;
  Agent agent{profile, chip};
  VelaAgent::EventRunner runner{agent};
  std::vector<std::string> warnings;
  std::string results;  ///< The lines, and
  Json result;          ///< the last of them.
};

/// Events told to two agents: one reads them straight into values where it can, the other reads
/// documents, as stories need. Nothing shows which is which.
struct ToldTwice {
  explicit ToldTwice(const std::string& profileName) : values(profileName), documents(profileName) {
    documents.runner.storyListenerIs([](const auto&, const auto&) { return true; });
  }

  std::string apply(const std::string& line) {
    std::string refusal = values.apply(line);
    EXPECT_EQ(documents.apply(line), refusal) << line;
    EXPECT_EQ(values.results, documents.results) << line;
    EXPECT_EQ(values.warnings, documents.warnings) << line;
    EXPECT_EQ(values.runner.eventNumber(), documents.runner.eventNumber()) << line;
    EXPECT_EQ(values.runner.repeats(), documents.runner.repeats()) << line;
    EXPECT_EQ(values.runner.refusals(), documents.runner.refusals()) << line;
    return refusal;
  }

  Told values;
  Told documents;
};

/// The line with something wrong, or but unusual, about it.
std::string mutated(std::string line, VelaTest::Random& random) {
  static const std::string letters("\"\\{}[]:,-+.059eEtfnux \t\r\0\1\x7f\x80\xc3", 29);
  static const char* const values[] = {"0",
                                       "1",
                                       "-1",
                                       "-0",
                                       "01",
                                       "2.0",
                                       "1e2",
                                       "256",
                                       "18446744073709551616",
                                       "65",
                                       "\"0x1\"",
                                       "\"0X1\"",
                                       "\"1\"",
                                       "\"01\"",
                                       "\"\"",
                                       "true",
                                       "null",
                                       "\"\\u0031\"",
                                       "[]",
                                       "[1,2]",
                                       "{}",
                                       " 7 ",
                                       "{\"0\":1,\"0x0\":2,\"0\":3}"};
  const std::size_t at = random.below(static_cast<U32>(line.size()));
  const char letter = letters[random.below(static_cast<U32>(letters.size()))];
  switch (random.below(5)) {
    case 0:
      return line.erase(at, 1 + random.below(3));
    case 1:
      return line.insert(at, 1, letter);
    case 2:
      line[at] = letter;
      return line;
    case 3: {
      // A member more, from elsewhere or a second time.
      const std::size_t from = line.find_first_of("{,", at);
      const std::size_t end = line.find_first_of(",}", std::min(from, line.size() - 1) + 1);
      if (end == std::string::npos) return line + letter;
      return line.insert(end, "," + line.substr(from + 1, end - from - 1));
    }
    default: {
      const std::size_t colon = line.find(':', at);
      if (colon == std::string::npos) return " " + line;
      return line.replace(colon + 1, line.find_first_of(",}", colon) - colon - 1,
                          values[random.below(std::size(values))]);
    }
  }
}

/// Short for JSON text.
Json json(const char* text) { return Json::parse(text); }

const Json someGroup = json(R"({"source":"10.0.0.1","group":"224.1.2.3","vlanId":7})");

TEST(Limits, portMasksAreCutToThePortsWithAWarning) {
  const struct {
    const char* table;
    Json key;
    std::vector<const char*> masks;
    U32 cpuPorts;  ///< Bits behind the ports'.
    Json others = Json::object();
  } tables[] = {
      {"SG", someGroup, {"portMask"}, 1},
      {"StarG", someGroup, {"portMask"}, 1},
      {"L3Lag", 5, {"portMask"}, 1},
      {"MacVlan", 5, {"portMask"}, 1, {{"valid", true}}},
      {"L3FloodBitmap", 5, {"portMask"}, 0},
      {"RxPortMirror", 5, {"portMask"}, 0},
      {"VlanMembership", 5, {"permitMask"}, 0},
      {"FloodSet", 5, {"uucPortMask", "umcPortMask"}, 0},
  };
  for (const std::string& profile : VelaTest::profileNames()) {
    Told told(profile);
    for (const auto& table : tables) {
      SCOPED_TRACE(profile + " " + table.table);
      const U64 all = (U64{1} << (told.profile->ports() + table.cpuPorts)) - 1;
      Json most = table.others;
      Json more = table.others;
      std::string cuts = "hardware has fewer bits: cut ";
      for (const char* mask : table.masks) {
        most[mask] = VelaAgent::hexText(all, 0);
        more[mask] = all << 1 | 1;
        cuts += Orb::text(mask == table.masks.front() ? "" : ", ", mask, " ",
                          VelaAgent::hexText(all << 1 | 1, 0), " to ", VelaAgent::hexText(all, 0));
      }
      EXPECT_EQ(told.set(table.table, table.key, most), "");
      EXPECT_THAT(told.warnings, testing::IsEmpty());
      EXPECT_EQ(told.set(table.table, table.key, more), "");
      EXPECT_THAT(told.warnings, testing::ElementsAre(cuts));
      EXPECT_TRUE(VelaAgent::meets(told.lookup(table.table, table.key), most));
    }
  }
}

TEST(Limits, numbersAreCutWhereTheModelHasFewerBits) {
  const Json nat = json(R"({"natType":1,"srcIp":"10.0.0.1","sport":7})");
  const Json first = json(R"({"prefix":"10.0.0.0/11"})");
  const struct {
    const char* table;
    Json key;
    Json most;
    Json more;
    const char* warning;
  } entries[] = {
      {"VlanMembership", 5, json(R"({"natId":{"1":7},"aclId":{"0":15},"aclEnable":{"0":1}})"),
       json(R"({"natId":{"1":8},"aclId":{"0":16},"aclEnable":{"0":2}})"),
       "hardware has fewer bits: cut aclEnable[0] 2 to 0, natId[1] 8 to 0"},
      {"LagGroup", 5, json(R"({"lagGroupId":63})"), json(R"({"lagGroupId":"0x40"})"),
       "hardware has fewer bits: cut lagGroupId 64 to 0"},
      {"NatMatch", nat, json(R"({"valid":true,"proto":3,"natRewriteId":4095})"),
       json(R"({"valid":true,"proto":3,"natRewriteId":4096})"),
       "hardware has fewer bits: cut natRewriteId 4096 to 0"},
      {"NatMatch", nat, json(R"({"valid":true,"proto":3})"), json(R"({"valid":true,"proto":5})"),
       "proto 5 cannot be encoded: 0 in its place"},
      {"Lpm11", first, json(R"({"cellResult":{"l3LagIndex":1,"maskLength":11}})"),
       json(R"({"cellResult":{"l3LagIndex":1,"maskLength":20}})"),
       "hardware has fewer bits: cut maskLength 20 to 4"},
  };
  Told told;
  for (const auto& entry : entries) {
    EXPECT_EQ(told.set(entry.table, entry.key, entry.most), "");
    EXPECT_THAT(told.warnings, testing::IsEmpty());
    EXPECT_EQ(told.set(entry.table, entry.key, entry.more), "");
    EXPECT_THAT(told.warnings, testing::ElementsAre(entry.warning));
  }
  EXPECT_EQ(told.lookup("NatMatch", nat)["proto"], 0);
  EXPECT_EQ(told.set("AclHash", json(R"({"type":15,"natId":8})"), nullptr), "");
  EXPECT_THAT(told.warnings, testing::ElementsAre("hardware has fewer bits: cut natId 8 to 0"));

  Told older("vela-48-4.1");
  EXPECT_EQ(older.set("VlanMembership", 5, json(R"({"aclId":{"0":3}})")), "");
  EXPECT_THAT(older.warnings, testing::ElementsAre("hardware has fewer bits: cut aclId[0] 3 to 0"));
}

/// The largest number that a type holds is taken, in either spelling.
TEST(Limits, theLargestNumberIsTaken) {
  Told told;
  for (const Json& most : {Json(0xffffffff), Json("0xffffffff")}) {
    EXPECT_EQ(told.set("HashTest", most, most), "");
    EXPECT_EQ(told.lookup("HashTest", most)["result"], 0xffffffff);
  }
  EXPECT_EQ(told.set("HashTest", 1, U64{1} << 32),
            "result 4294967296: allowed are 0 to 4294967295");
  EXPECT_NE(told.set("HashTest", 1, "0x100000000"), "");
  EXPECT_EQ(told.set("AclIndirectCounterHash", 0xffff, 1), "");
  EXPECT_NE(told.set("AclIndirectCounterHash", 0x10000, 1), "");
}

TEST(Limits, entriesThatAnswerNothingAreWarnedOfOnceATable) {
  Told told;
  const std::string warning = "without \"valid\":true the entry does not answer lookups";
  Json key = json(R"({"natType":1,"srcIp":"10.0.0.1","sport":7})");
  for (const char* table : {"NatMatch", "NatDynMatch", "MacVlan"}) {
    const auto warnings = [&](U32 number, const Json& result) {
      key["sport"] = number;
      EXPECT_EQ(told.set(table, table == std::string("MacVlan") ? Json(number) : key, result), "");
      return told.warnings;
    };
    EXPECT_THAT(warnings(1, {{"valid", true}}), testing::IsEmpty()) << table;
    EXPECT_THAT(warnings(2, nullptr), testing::ElementsAre(warning)) << table;
    EXPECT_THAT(warnings(3, {{"valid", false}}), testing::IsEmpty()) << table;
  }
}

struct Refused {
  const char* table;
  const char* key;
  const char* refusal;
  const char* result = "null";
};

TEST(Limits, resultsThatTheSwitchDoesNotHaveAreRefusedInAClearLine) {
  const Refused results[] = {
      {"VlanMembership", "5", "vrfBits 8: this switch has VRFs 0 to 7", R"({"vrfBits":8})"},
      {"VlanMembership", "5", "natEnable 2: this switch has ingress pipes 0 to 1",
       R"({"natEnable":{"2":1}})"},
      {"LagMembership", "5", "port 48: this switch has ports 0 to 47", R"({"port":[1,48]})"},
      {"Route", R"({"vrf":0,"prefix":"10.0.0.0/8"})",
       "cpuTrap belongs to a key of a level, such as Lpm26, not to a whole route",
       R"({"l3LagIndex":1,"cpuTrap":true})"},
      {"Lpm32", R"({"prefix":"10.0.0.0/30"})",
       "realPrefixLen: this level serves routes of 30 to 32 bits, not 29",
       R"({"cells":[{"l3LagIndex":1,"realPrefixLen":29}]})"},
      {"Lpm26", R"({"prefix":"10.0.0.0/24"})",
       "realPrefixLen: this level serves routes of 24 to 26 bits, not 27",
       R"({"cells":[{"l3LagIndex":1,"realPrefixLen":27}]})"},
      {"Lpm11", R"({"prefix":"10.0.0.0/11"})",
       "realPrefixLen: this level serves routes of 0 to 11 bits, not 12",
       R"({"cellResult":{"l3LagIndex":1,"realPrefixLen":12}})"},
  };
  Told told;
  for (const auto& each : results) {
    EXPECT_EQ(told.set(each.table, json(each.key), json(each.result)), each.refusal);
  }
  EXPECT_EQ(told.agent.programmed(), 0u);
}

TEST(Limits, keysThatTheSwitchDoesNotHaveAreRefusedWhateverIsAsked) {
  const Refused keys[] = {
      {"AclHash", R"({"type":19})", "type 19: this switch has ACL types 0 to 18"},
      {"NatMatch", R"({"natType":2,"sport":1})",
       "natType 2 translates an address alone: sport and dport must be 0"},
      {"NatMatch", R"({"natType":0,"dport":1})",
       "natType 0 translates an address alone: sport and dport must be 0"},
      {"NatRewrite", R"({"baseChipPortId":7})", "baseChipPortId: 7 is not the even port of a pair"},
      {"NatRewrite", R"({"baseChipPortId":0,"rewriteIndex":4096})",
       "rewriteIndex 4096: this switch has rewrite rows 0 to 4095"},
      {"NatRewrite", R"({"baseChipPortId":48})",
       "baseChipPortId 48: this switch has ports 0 to 47"},
      {"Lpm11", R"({"vrf":8,"prefix":"10.0.0.0/11"})", "vrf 8: this switch has VRFs 0 to 7"},
      {"Lpm11", R"({"prefix":"10.0.0.0/12"})",
       "prefix: the keys of this level have 11 bits, not 12"},
      {"Lpm14", R"({"vrf":8,"prefix":"10.0.0.0/12"})", "vrf 8: this switch has VRFs 0 to 7"},
      {"Lpm14", R"({"prefix":"10.0.0.0/15"})",
       "prefix: the keys of this level have 12 bits, not 15"},
      {"Lpm29", R"({"prefix":"0.0.0.0/0"})", "prefix: the keys of this level have 27 bits, not 0"},
      {"VlanGroup", "16", "key 16: VlanGroup has rows 0 to 15"},
      {"MacVlan", "1024", "key 1024: MacVlan has rows 0 to 1023"},
      {"L3FloodArp", "128", "key 128: L3FloodArp has rows 0 to 127"},
      {"L3FloodBitmap", "128", "key 128: L3FloodBitmap has rows 0 to 127"},
      {"RxPortMirror", "48", "portId 48: this switch has ports 0 to 47"},
      {"Copp", "13", "key 13: Copp has rows 0 to 12"},
  };
  Told told;
  for (const auto& each : keys) {
    SCOPED_TRACE(each.table);
    const Json key = json(each.key);
    EXPECT_EQ(told.set(each.table, key, nullptr), each.refusal);
    for (Json event : {Json{{"op", "del"}}, Json{{"op", "lookup"}}, Json{{"op", "hit"}, {"at", 1}},
                       Json{{"op", "corrupt"}, {"bit", 1}}}) {
      event["table"] = each.table;
      event["key"] = key;
      EXPECT_EQ(told(event), each.refusal) << event;
    }
  }
  EXPECT_EQ(told.agent.programmed(), 0u);
}

TEST(Limits, lookupsThatTheSwitchDoesNotHaveAreRefused) {
  const Refused lookups[] = {
      {"Route", R"({"vrf":8,"address":"10.0.0.1"})", "vrf 8: this switch has VRFs 0 to 7"},
      {"VlanMembership", R"({"vid":5,"port":48})", "port 48: this switch has ports 0 to 47"},
      {"FloodSet", R"({"vid":5,"port":48})", "port 48: this switch has ports 0 to 47"},
      {"Flow", R"({"egressPort":48})", "egressPort 48: this switch has ports 0 to 47"},
      {"LagMember", R"({"ingressPort":48})", "ingressPort 48: this switch has ports 0 to 47"},
      {"LagMember", R"({"ingressPort":1,"bucket":32})",
       "bucket 32: this switch has LAG buckets 0 to 31"},
  };
  Told told;
  for (const auto& each : lookups) {
    const Json key = json(each.key);
    EXPECT_EQ(told({{"op", "lookup"}, {"table", each.table}, {"key", key}}), each.refusal);
  }
}

/// The bit is flipped in the hardware table that has the entry's row.
TEST(Limits, aRowIsCorruptedWhereItIs) {
  Told told;
  ASSERT_EQ(told.set("LagGroup", 30, json(R"({"lagGroupId":5})")), "");
  Json event = json(R"({"op":"corrupt","table":"LagGroup","key":30,"bit":1})");
  EXPECT_EQ(told(event), "");
  EXPECT_EQ(told.lookup("LagGroup", 30)["lagGroupId"], 7);
  event["hwTableId"] = 0;
  EXPECT_EQ(told(event), "that hardware table has no row for the entry");
}

/// Values that a JSON text may have where others belong.
const std::vector<Json>& oddValues() {
  static const std::vector<Json> all =
      json(R"([null, true, 0, 1, -1, 2, 15, 48, 255, 32768, 65536, 4294967295, 18446744073709551615,
               1e300, -0.5, "", "0x", "0xffffffffffffffff", "255.255.255.255", "1.2.3.4/33",
               "0.0.0.0/0", "trunk", [], {}, [1, 2, 3, 4, 5, 6, 7, 8, 9], {"13": 1}, {"0": 255}])")
          .get<std::vector<Json>>();
  return all;
}

/// Calls `visit` with the value that has each of its parts replaced by each odd one in turn.
void forEachOddForm(const Json& value, const std::function<void(const Json&)>& visit) {
  for (const Json& odd : oddValues()) visit(odd);
  if (!value.is_structured()) return;
  for (const auto& [name, part] : value.items()) {
    Json changed = value;
    Json& place = value.is_array() ? changed[std::stoul(name)] : changed[name];
    forEachOddForm(part, [&](const Json& odd) {
      place = odd;
      visit(changed);
    });
  }
}

struct OddEvents : testing::TestWithParam<std::string> {
  void tellLine(const std::string& line);
  void tell(const Json& event) { tellLine(event.dump()); }
  void tellOddForms(const std::string& table);
  void tellMutated(const std::string& table);

  static Json event(const char* op, const std::string& table, const Json& key) {
    return {{"op", op}, {"table", table}, {"key", key}};
  }

  VelaTest::FatalGuard guard;
  ToldTwice twice{GetParam()};
  VelaTest::Random random;
  VelaTest::Generator generator{*twice.values.profile, random};
  VelaAgent::EventReader reader{twice.values.agent};
  VelaAgent::EntryEvent read;
  U32 done = 0;
  U32 refused = 0;
};

void OddEvents::tellLine(const std::string& line) {
  const std::string refusal = twice.apply(line);
  ++(refusal.empty() ? done : refused);
  ASSERT_EQ(VelaTest::FatalGuard::last(), "") << line;
  ASSERT_THAT(refusal, testing::Not(HasSubstr("\n"))) << line;
}

void OddEvents::tellOddForms(const std::string& table) {
  const Json key = generator.key(table, 1);
  const Json result = generator.result(table, key);
  forEachOddForm(key, [&](const Json& odd) {
    for (const char* op : {"set", "lookup", "del"}) tell(event(op, table, odd));
    Json hit = event("hit", table, odd);
    hit["at"] = 1;
    tell(hit);
    Json corrupt = event("corrupt", table, odd);
    corrupt["bit"] = ~0u;
    tell(corrupt);
  });
  forEachOddForm(result, [&](const Json& odd) {
    Json set = event("set", table, key);
    set["result"] = odd;
    tell(set);
  });
}

void OddEvents::tellMutated(const std::string& table) {
  Json ordinary = event("set", table, generator.key(table, random.below(60)));
  ordinary["result"] = generator.result(table, ordinary["key"]);
  const std::string set = ordinary.dump();
  const std::string del = event("del", table, ordinary["key"]).dump(random.flip() ? 1 : -1);
  for (std::string line : {set, del}) {
    std::replace(line.begin(), line.end(), '\n', ' ');
    tellLine(mutated(line, random));
    const U32 doneBefore = done;
    tellLine(line);
    if (done > doneBefore) {
      EXPECT_TRUE(reader.read(line, 0, read)) << line;
    }
    tellLine(mutated(mutated(line, random), random));
  }
  if (random.flip()) tellLine(set);
}

/// Whatever an event says: it is done or refused, no broken invariant comes of it, and hardware
/// holds what the tables say.
TEST_P(OddEvents, areDoneOrRefused) {
  VelaAgent::Agent& agent = twice.values.agent;
  for (VelaAgent::TableAdapter* table : agent.announced()) {
    if (table->instance() != 0) continue;
    SCOPED_TRACE(table->name());
    tellOddForms(table->name());
    for (U32 i = 0; i < 40; ++i) tellMutated(table->name());
  }
  for (const auto& table : agent.tables()) {
    table->audit();
    // A group beyond 63 is written as it is and read back as 6 bits, which an audit marks.
    if (table->name() == "LagGroup") continue;
    EXPECT_THAT(table->findings(), testing::IsEmpty()) << table->name();
  }
  EXPECT_GT(done, 1000u);
  EXPECT_GT(refused, 1000u);
}

INSTANTIATE_TEST_SUITE_P(Models, OddEvents, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

TEST(Registry, refusesFamiliesOfOneNameOrNumber) {
  const auto with = [](const char* name, U32 number) {
    auto all = VelaAgent::families();
    auto one = all.front();
    one.name = name;
    one.number = [number](U32) { return number; };
    all.push_back(one);
    return VelaTest::fatalText([&] { VelaAgent::checkFamilies(all); });
  };
  EXPECT_EQ(with("New", 60), "");
  EXPECT_THAT(with("New", 18), HasSubstr("New and SG have one number, 18"));
  EXPECT_THAT(with("SG", 60), HasSubstr("two families are called SG"));
  // The fifth ACL processor's.
  EXPECT_THAT(with("New", 94), HasSubstr("New and AclHash have one number, 94"));
}

TEST(Registry, refusesALookupWithoutAFunction) {
  std::optional<VelaSwitchTable::TunnelResult> (*none)(VelaDevice::DataPath&, U32,
                                                       const VelaSwitchTable::TunnelKey&) = nullptr;
  const auto family =
      VelaAgent::hashFamily<VelaSwitchTable::TunnelFamily>({VelaAgent::lookupOf(none)});
  EXPECT_THAT(VelaTest::fatalText([&] { family.make(0); }),
              HasSubstr("Tunnel has a lookup without a function"));
}

}  // namespace

namespace VelaSwitchTable {

/// Has the selector of tunnels, and the hit bits of (S,G) entries.
struct VELA_EXPORT TwinFamily : TunnelFamily {
  static constexpr HashFamilyTraits traits = [] {
    HashFamilyTraits twin = TunnelFamily::traits;
    twin.table = {61, "Twin"};
    twin.hitTableOffset = SGFamily::traits.hitTableOffset;
    return twin;
  }();
};
VELA_HASH_FAMILY(Twin);
VELA_HASH_FAMILY_DEFINE(Twin)

/// The bit is missing that makes hardware take a row.
struct VELA_EXPORT UncommittedFamily : L3LagFamily {
  static constexpr RowField fields[] = {
      {"portMask", 0, 50}, {"cpuPriority", 50, 1}, {"parity", 51, 1}, {"index", 64, 6}};
};
VELA_DIRECT_FAMILY(Uncommitted);
VELA_DIRECT_FAMILY_DEFINE(Uncommitted)

}  // namespace VelaSwitchTable

TEST(Registry, refusesTablesThatHardwareCannotTellApart) {
  VelaTest::Chip chip;
  const auto twin = VelaSwitchTable::TwinTableIs("twin");
  const auto tunnels = VelaSwitchTable::TunnelTableIs("tunnels");
  const auto groups = VelaSwitchTable::SGTableIs("groups");
  const auto refusal = [](const std::vector<const VelaSwitchApi::SwTable*>& tables) {
    return VelaTest::fatalText([&] { VelaAgent::checkSelectors(tables); });
  };
  chip.create(*twin);
  chip.create(*tunnels);
  chip.create(*groups);
  EXPECT_EQ(refusal({tunnels.get(), groups.get()}), "");
  EXPECT_THAT(refusal({tunnels.get(), twin.get()}), HasSubstr("Tunnel and Twin have one selector"));
  EXPECT_THAT(refusal({groups.get(), twin.get()}),
              HasSubstr("SG and Twin have one offset of hit bits"));
}

TEST(Registry, refusesATableWhoseRowsTheSwitchDoesNotTakeByTheControlWord) {
  VelaTest::Chip chip;
  const auto refusal = [&](const Orb::Ptr<VelaSwitchApi::SwTable>& table) {
    chip.create(*table);
    return VelaTest::fatalText([&] { VelaAgent::checkControlWords(*table); });
  };
  EXPECT_THAT(refusal(VelaSwitchTable::TunnelTableIs("tunnels")),
              HasSubstr("Tunnel: the simulated switch does not know its control word"));
  EXPECT_THAT(refusal(VelaSwitchTable::UncommittedTableIs("uncommitted")),
              HasSubstr("L3Lag: the control word of row 0 does not select it"));
}
