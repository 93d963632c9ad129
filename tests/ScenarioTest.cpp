#include "Ipnet/IpPrefix.h"
#include "Tool.h"
#include "device/SimulatedSwitch.h"

// What users meet with: a few lines of events, a saved switch, a question.

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using VelaAgent::Json;
using VelaTest::Tool;

const std::string nat =
    R"({"op":"set","table":"NatMatch","key":{"natType":1,"proto":1,"srcIp":"10.0.0.1","sport":80},"result":{"valid":true,"natRewriteId":9}}
)";
const std::string natKey = R"({"natType":1,"proto":1,"srcIp":"10.0.0.1","sport":80})";
/// For tests that list every row of a switch, which takes the sanitizers long.
const std::string fewRows = "--profile vela-20-4.0";

struct Scenario : Tool {
  /// Runs events on a switch that is kept in "image". Returns the exit code.
  int apply(const std::string& text, const std::string& options = {}) const {
    events(text);
    return run("run events --device sim:image --results results " + options);
  }
  std::string corrupt(const std::string& table, const std::string& key, U32 bit,
                      U32 hwTableId = 0) const {
    return R"({"op":"corrupt","table":")" + table + R"(","key":)" + key + R"(,"hwTableId":)" +
           std::to_string(hwTableId) + R"(,"bit":)" + std::to_string(bit) + "}\n";
  }
  /// The results of lookups of the saved switch.
  std::vector<Json> lookup(const std::string& arguments) const {
    EXPECT_EQ(run("lookup --device sim:image " + arguments), 0) << read("err");
    return lines("out");
  }
};

TEST_F(Scenario, lookingChangesNoByte) {
  ASSERT_EQ(apply(nat + R"({"op":"set","table":"FloodSet","key":7,"result":{"uucPortMask":6}}
)" + corrupt("NatMatch", natKey, 3) +
                  corrupt("FloodSet", "7", 1, 1)),
            0);
  {
    // A writer that was killed amid a row left it to be finished.
    std::fstream image(file("image"), std::ios::in | std::ios::out | std::ios::binary);
    image.seekp(offsetof(VelaDevice::ImageHeader, pending));
    const U32 state = 1;
    image.write(reinterpret_cast<const char*>(&state), sizeof state);
  }
  events(nat);
  const std::string before = read("image");
  for (const std::string& command :
       {"lookup --device sim:image --explain NatMatch '" + natKey + "'",
        std::string("show vlan 7 --device sim:image"), std::string("decode --device sim:image"),
        std::string("diff --device sim:image --device sim:image"),
        std::string("diff --device sim:image --events events"),
        std::string("audit --device sim:image --events events"),
        std::string("audit --device sim:image --events events --repair --dry-run"),
        std::string("run events --device sim:image --reconcile --dry-run")}) {
    EXPECT_NE(run(command), 2) << command << read("err");
    EXPECT_TRUE(read("image") == before) << command;
  }
  EXPECT_EQ(run("run events --device sim:image --dry-run --results results"), 0);
  EXPECT_EQ(run("run events --device sim:none --dry-run --results results " + fewRows), 0);
  EXPECT_FALSE(std::filesystem::exists(file("none")));
}

TEST_F(Scenario, lookupsSetHitBitsOnlyWhenTheyMay) {
  ASSERT_EQ(apply(nat), 0);
  const std::string before = read("image");
  EXPECT_EQ(lookup("NatMatch '" + natKey + "'")[0]["hit"]["natRewriteId"], 9);
  EXPECT_TRUE(read("image") == before);
  lookup("--hits NatMatch '" + natKey + "'");
  EXPECT_FALSE(read("image") == before);
}

/// Of copies that disagree the first sound one counts, the other stays as it is, and all say so.
TEST_F(Scenario, damageIsToldAndStaysWhereItIs) {
  const std::string flood = R"({"op":"set","table":"FloodSet","key":7,"result":{"uucPortMask":6}}
)";
  ASSERT_EQ(apply(nat + flood), 0);
  ASSERT_EQ(apply(corrupt("NatMatch", natKey, 60) + corrupt("FloodSet", "7", 1, 1)), 0);
  EXPECT_THAT(lookup("FloodSet 7")[0]["hit"]["uucPortMask"], "0x000000000006");
  EXPECT_EQ(run("decode --device sim:image"), 1);
  EXPECT_THAT(read("err"), HasSubstr("NatMatch/0 was found with 1 corrupt row, 1 entry whose copies"
                                     " disagree\n"));
  EXPECT_THAT(read("err"), HasSubstr("FloodSet/0 7: copies disagree\n"));
  EXPECT_THAT(read("out"), HasSubstr(R"("natRewriteId":9)")) << "as the whole copy has it";

  events(nat + flood);
  EXPECT_EQ(run("audit --device sim:image --events events --json"), 1);
  std::vector<std::string> disagreeing;
  for (const Json& line : lines("out")) {
    if (line.contains("table") && line.contains("disagreeing")) {
      disagreeing.push_back(line["table"].get<std::string>() + line["disagreeing"].dump());
    }
  }
  EXPECT_THAT(disagreeing, Contains("FloodSet[7]"));
  EXPECT_THAT(disagreeing, SizeIs(2));
  EXPECT_EQ(lines("out").back()["disagreeing"], 2);

  ASSERT_EQ(run("run events --device sim:image --verbose --results results --writes writes"), 0);
  EXPECT_THAT(read("err"), HasSubstr("FloodSet/0 7: copies disagree"));
  EXPECT_THAT(lines("writes"), SizeIs(2)) << "the copies that were damaged";
}

/// A row that repeats another one's key is nobody's: said before it is cleared.
TEST_F(Scenario, rowsOfNobodyAreTold) {
  ASSERT_EQ(apply(R"({"op":"set","table":"HashTest","key":5,"result":1}
{"op":"set","table":"HashTest","key":13,"result":1}
{"op":"set","table":"HashTest","key":69,"result":1}
)" + corrupt("HashTest", "69", 6)),
            0);
  EXPECT_EQ(run("decode --device sim:image"), 1);
  EXPECT_THAT(read("err"), HasSubstr("HashTest/0 was found with 1 row of no entry\n"));
}

/// Of keys with the same two rows a third has no place. Lists of prefixes will do as well as
/// events.
TEST_F(Scenario, whatDoesNotFitIsProved) {
  events(R"({"op":"set","table":"HashTest","key":0,"result":1}
{"op":"fail","writes":9}
{"op":"set","table":"HashTest","key":64,"result":1}
)");
  events("# a comment\n10.0.0.0/8\n\n  10.1.0.0/24 5\r\n", "list");
  EXPECT_EQ(run("fit events list"), 0) << read("err");
  EXPECT_THAT(read("out"), AllOf(HasSubstr("all fits"), HasSubstr("Route/0")));
  events(R"({"op":"set","table":"HashTest","key":128,"result":1})", "more");
  EXPECT_EQ(run("fit events list more --json"), 1);
  const auto out = lines("out");
  EXPECT_THAT(out, Contains(Json{{"set", 1}, {"keys", {{0}, {64}}}}));
  EXPECT_EQ(out.back()["refused"], 1);
  EXPECT_EQ(out.back()["fullest"]["taken"], 2);
  EXPECT_EQ(run("fit --all-profiles events list more"), 1);
  EXPECT_THAT(read("out"), HasSubstr("\nvela-20-4.0    no           1  HashTest/0"));
  events("10.0.0.0/8\n# one\n\n10.1.0.1/16\n", "list");
  EXPECT_EQ(run("fit events list"), 2);
  EXPECT_EQ(read("err"), "list:4: \"10.1.0.1/16\" has address bits behind its length\n");
}

TEST_F(Scenario, whatHardwareLacksFailsAnAudit) {
  // Keys of the same two rows.
  const std::string three = R"({"op":"set","table":"HashTest","key":0,"result":1}
{"op":"set","table":"HashTest","key":64,"result":1}
{"op":"set","table":"HashTest","key":128,"result":1}
)";
  ASSERT_EQ(apply(three), 1);
  EXPECT_EQ(run("audit --device sim:image --events events --json"), 1);
  const auto out = lines("out");
  ASSERT_THAT(out, SizeIs(2));
  EXPECT_EQ(
      out[0].dump(),
      R"({"table":"HashTest","instance":0,"waiting":[{"key":128,"status":"tableFull","competing":{"entries":3,"rows":2}}]})");
  EXPECT_EQ(out[1]["missing"], 0);
  EXPECT_EQ(out[1]["waiting"], 1);
  ASSERT_EQ(apply(three + R"({"op":"sync","table":"HashTest"})"
                          "\n"),
            1);
  EXPECT_EQ(lines("results").back()["waiting"][0]["key"], 128);
  EXPECT_EQ(lines("results").back()["missing"].size(), 0u);
}

TEST_F(Scenario, anEmptyDesiredStateWipesNothing) {
  ASSERT_EQ(apply(nat), 0);
  std::filesystem::create_directory(file("folder"));
  events("\n");
  const std::string before = read("image");
  for (const char* input : {"events", "/dev/null", "nofile", "folder"}) {
    EXPECT_EQ(run(std::string("run --device sim:image --reconcile --results results ") + input), 2);
    EXPECT_NE(read("err"), "") << input;
    EXPECT_TRUE(read("image") == before) << input;
  }
  ASSERT_EQ(
      run("run events --device sim:image --reconcile=empty --results results --writes writes"), 0);
  EXPECT_THAT(read("out"), HasSubstr("reconcile: del NatMatch {\"natType\":1"));
  for (const Json& write : lines("writes")) EXPECT_EQ(write["event"], 0);
  EXPECT_THAT(lines("writes"), SizeIs(2));
  EXPECT_TRUE(lookup("NatMatch '" + natKey + "'")[0]["hit"].is_null());
}

TEST_F(Scenario, pathsSayWhereTheyEnd) {
  ASSERT_EQ(
      apply(
          nat +
          R"({"op":"set","table":"NatRewrite","key":{"baseChipPortId":4,"rewriteIndex":9},"result":{"newIp":"1.2.3.4"}}
{"op":"set","table":"ProtocolRemap","key":99,"result":1}
{"op":"lookup","table":"Flow","key":{"proto":99,"srcIp":"10.0.0.1","sport":80,"egressPort":5}}
)"),
      0);
  EXPECT_EQ(lines("results")[0]["hit"]["matchedBy"], "NatMatch") << "as the protocol is remapped";
  const auto ask = [&](const std::string& rest) {
    return lookup(R"(Flow '{"srcIp":"10.0.0.1","sport":80,)" + rest + "}'")[0];
  };
  EXPECT_EQ(ask(R"("proto":6,"egressPort":4)")["hit"]["rewrite"]["newIp"], "1.2.3.4");
  EXPECT_EQ(ask(R"("protoClass":1,"egressPort":5)")["hit"]["rewrite"]["newIp"], "1.2.3.4");
  const Json noRewrite = ask(R"("proto":6,"egressPort":6)");
  EXPECT_TRUE(noRewrite["hit"]["rewrite"].is_null());
  EXPECT_EQ(noRewrite["ended"]["table"], "NatRewrite");
  const Json noMatch = ask(R"("proto":17,"egressPort":4)");
  EXPECT_TRUE(noMatch["hit"].is_null());
  EXPECT_EQ(noMatch["ended"].dump(), R"({"table":"NatMatch","why":"no row holds the key"})");
  for (const char* wrong : {R"("egressPort":48)", R"("protoClass":8)",
                            R"("proto":6,"protoClass":1)", R"("qualifier":64)", R"("proto":256)"}) {
    EXPECT_EQ(run(std::string("lookup --device sim:image Flow '{") + wrong + "}'"), 2) << wrong;
  }
}

/// The story, the counts and the statuses agree.
TEST_F(Scenario, whatIsToldHappened) {
  ASSERT_EQ(apply(R"({"op":"del","table":"HashTest","key":5}
{"op":"set","table":"AclHash","key":{"type":1,"dstIp":"1.1.1.1"},"result":{"priority":1}}
{"op":"hit","table":"AclHash","key":{"type":1,"dstIp":"1.1.1.1"},"at":3}
{"op":"set","table":"HashTest","key":0,"result":1}
{"op":"set","table":"HashTest","key":64,"result":1}
{"op":"set","table":"HashTest","key":128,"result":1}
{"op":"del","table":"HashTest","key":0}
{"op":"set","table":"HashTest","key":64,"result":2}
)",
                  "--verbose --status status"),
            1);
  const std::string out = read("out");
  EXPECT_THAT(out, HasSubstr("1. del HashTest 5\n    there is no such entry\n"));
  EXPECT_THAT(out, HasSubstr("no hit bits: nothing is reported"));
  EXPECT_THAT(out, HasSubstr("7. del HashTest 0\n    removed; wrote 1 row, with those of 1 entry "
                             "that comes in\ncomes in: HashTest 128\n    programmed in way"));
  EXPECT_THAT(out, HasSubstr("refused: 1, of which hardware still lacks 0"));
  EXPECT_THAT(out, HasSubstr("entries announced once more: 1"));
  EXPECT_THAT(read("err"), HasSubstr("events:8: warning: announced before; this one counts"));
  for (const Json& status : lines("status")) EXPECT_EQ(status["status"], "programmed");
  EXPECT_EQ(lines("results").back().dump(),
            R"({"op":"admitted","table":"HashTest","key":128,"status":"programmed"})");
}

/// A refusal names routes, and each set that it names makes room indeed.
TEST_F(Scenario, refusedRoutesNameWhatWouldLetThemIn) {
  std::string all;
  std::vector<std::string> prefixes;
  for (U32 i = 0; i < 1400; ++i) {
    const Ipnet::IpAddr address(i * 2654435761u);
    prefixes.push_back(Orb::text(Ipnet::IpPrefix(address, static_cast<U8>(18 + i % 3))));
    all += R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":")" + prefixes.back() +
           R"("},"result":{"l3LagIndex":1}})" + "\n";
  }
  ASSERT_EQ(apply(all, "--explain"), 1);
  const Json refusal = lines("results").front();
  const Json& competing = refusal["competing"];
  EXPECT_EQ(competing["level"], "Lpm20");
  for (const Json& key : competing["keys"]) {
    EXPECT_THAT(prefixes, Contains(key["prefix"].get<std::string>()));
  }
  ASSERT_EQ(competing["withdraw"].size(), competing["rows"].get<U32>());
  // Up to the refused one, so that nobody else waits.
  const std::string upTo = all.substr(0, all.find('\n', all.find(refusal["key"].dump())) + 1);
  for (const std::size_t choice : {std::size_t{0}, competing["withdraw"].size() - 1}) {
    std::string withdrawals;
    for (const Json& key : competing["withdraw"][choice]) {
      withdrawals += Json{{"op", "del"}, {"table", "Route"}, {"key", key}}.dump() + "\n";
    }
    events(upTo + withdrawals);
    EXPECT_EQ(run("run events --json --results results"), 1);
    EXPECT_EQ(lines("results").back()["key"], refusal["key"]) << choice;
    EXPECT_EQ(lines("results").back()["op"], "admitted");
    EXPECT_EQ(lines("out")[0]["refused"], 0);
  }
}

/// A level that is audited names the routes that it has no room for.
TEST_F(Scenario, routesThatWaitAreNamedByTheirLevel) {
  std::string all;
  for (U32 i = 0; i < 1400; ++i) {
    const Ipnet::IpPrefix prefix(Ipnet::IpAddr(i * 2654435761u), 18);
    all += R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":")" + Orb::text(prefix) +
           R"("},"result":{"l3LagIndex":1}})" + "\n";
  }
  ASSERT_EQ(apply(all + R"({"op":"sync","table":"Lpm20"})" + "\n"), 1);
  const auto results = lines("results");
  const Json& waiting = results.back()["waiting"];
  EXPECT_EQ(waiting.size(), results.size() - 1);
  EXPECT_EQ(waiting[0]["level"], "Lpm20");
  EXPECT_THAT(waiting[0]["key"]["prefix"].get<std::string>(), testing::EndsWith("/18"));
}

/// What decode prints announces the same switch.
TEST_F(Scenario, rowsOfTheirOwnDoNotComeBackAsRoutes) {
  std::string text =
      R"({"op":"set","table":"Route","key":{"vrf":1,"prefix":"10.0.0.0/8"},"result":{"l3LagIndex":2}}
{"op":"set","table":"Route","key":{"vrf":1,"prefix":"10.1.2.0/23"},"result":{"l3LagIndex":3}}
{"op":"set","table":"Lpm23","key":{"vrf":1,"prefix":"20.1.0.0/21"},"result":{"cells":[{"l3LagIndex":4,"realPrefixLen":21},{"l3LagIndex":5,"realPrefixLen":21}]}}
)";
  for (U32 i = 0; i < 200; ++i) {
    const Ipnet::IpPrefix prefix(Ipnet::IpAddr((i * 7 + 300) << 21), 11);
    const U32 length = i % 12;
    text += Json{{"op", "set"},
                 {"table", "Lpm11"},
                 {"key", {{"vrf", 2}, {"prefix", Orb::text(prefix)}}},
                 {"result",
                  {{"cellResult",
                    {{"l3LagIndex", i % 50}, {"maskLength", length}, {"realPrefixLen", length}}}}}}
                .dump() +
            "\n";
  }
  ASSERT_EQ(apply(text), 0);
  ASSERT_EQ(run("decode --device sim:image"), 0);
  std::map<std::string, U32> tables;
  for (const Json& line : lines("out")) ++tables[line["table"]];
  EXPECT_EQ(tables["Route"], 2u + 200 / 12) << "rows of 11 bits are routes of that length";
  EXPECT_EQ(tables["Lpm23"], 1u);
  std::filesystem::copy_file(file("out"), file("decoded"));
  ASSERT_EQ(run("run decoded --device sim:again --results results"), 0);
  EXPECT_EQ(run("diff --device sim:image --device sim:again"), 0) << read("out").substr(0, 1000);
  ASSERT_EQ(run("decode --device sim:image --levels"), 0);
  for (const Json& line : lines("out")) ++tables["all " + line["table"].get<std::string>()];
  EXPECT_EQ(tables["all Lpm11"], 200u + 8);
  EXPECT_EQ(tables["all Lpm23"], 2u);
}

TEST_F(Scenario, rowsThatHoldNothingAreLeftOut) {
  ASSERT_EQ(apply(nat, "--rows rows"), 0);
  EXPECT_THAT(lines("rows"), SizeIs(2));
  for (const Json& row : lines("rows")) EXPECT_EQ(row["table"], "NatMatch");
  std::filesystem::remove(file("image"));
  ASSERT_EQ(apply(nat, "--rows rows --all-rows " + fewRows), 0);
  const std::string rows = read("rows");
  EXPECT_GT(std::count(rows.begin(), rows.end(), '\n'), 100000);
}

TEST_F(Scenario, messagesAreShortAndNameWhatIsMeant) {
  const std::string longText(300, 'x');
  for (const auto& [event, text] : std::initializer_list<std::pair<std::string, std::string>>{
           {R"({"op":"set","table":"NativeVlan","key":50})",
            "events:1: portId 50: this switch has ports 0 to 47\n"},
           {R"({"op":"st","table":"HashTest","key":1})",
            "events:1: unknown op \"st\" (did you mean set?)\n"},
           {R"({"op":"set","table":"Natmatch","key":1})",
            "events:1: unknown table \"Natmatch\" (did you mean NatMatch?)\n"},
           {R"({"op":"set","table":"AclHash","key":{"l4port":1}})",
            "events:1: unknown field \"l4port\" (did you mean l4Port?)\n"},
           {R"({"op":"set","table":"HashTest","key":1)",
            "events:1: not a JSON object: column 39 of "
            R"({"op":"set","table":"HashTest","key":1)"
            "\n"}}) {
    events(event + "\n");
    EXPECT_EQ(run("run events --json"), 2);
    EXPECT_EQ(read("err"), text);
  }
  for (const std::string& event :
       {longText, R"({"op":")" + longText + R"("})",
        R"({"op":"set","table":")" + longText + R"("})",
        R"({"op":"set","table":"HashTest","key":")" + longText + R"("})",
        R"({"op":"set","table":"Route","key":{"prefix":")" + longText + R"("}})"}) {
    events(event + "\n");
    EXPECT_EQ(run("run events --json"), 2);
    EXPECT_LT(read("err").size(), 220u) << read("err");
  }
}

TEST_F(Scenario, diffNamesKeysAndFields) {
  ASSERT_EQ(apply(nat + R"({"op":"set","table":"L3Lag","key":5,"result":{"portMask":6}}
)"),
            0);
  std::filesystem::copy_file(file("image"), file("other"));
  ASSERT_EQ(apply(R"({"op":"del","table":"NatMatch","key":)" + natKey + R"(}
{"op":"set","table":"L3Lag","key":5,"result":{"portMask":14}}
{"op":"set","table":"HashTest","key":1,"result":2}
)"),
            0);
  EXPECT_EQ(run("diff --device sim:other --device sim:image --json"), 1);
  const auto out = lines("out");
  EXPECT_EQ(out.back().dump(), R"({"entries":3,"rows":5})");
  EXPECT_THAT(
      read("out"),
      HasSubstr(
          R"({"differs":"entry","table":"L3Lag","instance":0,"key":5,"fields":[{"field":"portMask","before":"0x000000000006","after":"0x00000000000e"}]})"));
  events(nat + R"({"op":"set","table":"L3Lag","key":5,"result":{"portMask":6}}
)");
  EXPECT_EQ(run("diff --device sim:other --events events"), 0);
  EXPECT_EQ(run("diff --device sim:image --events events"), 1);
  EXPECT_EQ(run("diff --device sim:image"), 2);
}

/// Whoever starts the tool may have closed its streams: the switch's file must not take their
/// place.
TEST_F(Scenario, closedStreamsDoNoHarm) {
  ASSERT_EQ(apply(nat), 0);
  events("not json\n", "bad");
  for (const char* how : {"run events --device sim:image >&-", "run bad --device sim:image 2>&-",
                          "run events --device sim:image <&- >&- 2>&-"}) {
    std::system(("cd " + directory.string() + " && " VELATABLE " " + how).c_str());
    EXPECT_EQ(lookup("NatMatch '" + natKey + "'")[0]["hit"]["natRewriteId"], 9) << how;
  }
  EXPECT_EQ(
      WEXITSTATUS(std::system(("cd " + directory.string() +
                               " && " VELATABLE " decode --device sim:image > /dev/full 2> err")
                                  .c_str())),
      2)
      << "what did not arrive is no success";
  EXPECT_EQ(run("run events --rows /dev/full"), 2);
  EXPECT_EQ(run("run events --results events"), 2) << "a file that is read";
  EXPECT_NE(read("events"), "");
  EXPECT_EQ(run("run events nofile --device sim:new"), 2);
  EXPECT_FALSE(std::filesystem::exists(file("new"))) << "nothing begins that cannot go on";
}

TEST_F(Scenario, oddInputGetsOneLine) {
  ASSERT_EQ(
      apply(
          nat +
          R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/8"},"result":{"l3LagIndex":1}}
)"),
      0);
  const std::string deep(200000, '[');
  for (const std::string& event :
       {deep, R"({"op":"lookup","table":"L3Lag","key":)" + deep + std::string(200000, ']') + "}",
        std::string(R"({"op":"hit","table":"HashTest","key":1,"at":1e400})"),
        std::string(R"({"op":"set","table":"L3Lag","key":64})"),
        std::string(R"({"op":"set","table":"AclHash","key":{"aclId":16}})"),
        std::string(R"({"op":"set","table":"NatDynMatch","key":{"natType":4}})"),
        std::string(R"({"op":"set","table":"Route","key":{"vrf":999,"prefix":"10.0.0.0/8"}})"),
        std::string(R"({"op":"set","table":"Route","key":{"vrf":1},"result":{"l3LagIndex":1}})")}) {
    events(event + "\n", "odd");
    EXPECT_EQ(run("run odd --json"), 2);
    const std::string err = read("err");
    EXPECT_TRUE(err.starts_with("odd:1: ")) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_LT(err.size(), 260u);
    EXPECT_THAT(err, Not(HasSubstr("exception")));
  }
  for (const char* key : {R"('{"prefix":"10.0.0.0/8"}')", "10.0.0.0/8"}) {
    EXPECT_EQ(run(std::string("show route ") + key + " --device sim:image --json"), 0);
    EXPECT_THAT(lines("out")[0]["Route"], SizeIs(1)) << key;
  }
  for (const char* key : {R"('"x"')", "'[1]'", R"('{"prefix":5}')", "$'\\xff'"}) {
    EXPECT_EQ(run(std::string("show route ") + key + " --device sim:image"), 2) << key;
    EXPECT_THAT(read("err"), Not(HasSubstr("exception"))) << key;
  }
  EXPECT_EQ(run("show vlan 0 --device sim:image"), 2);
  EXPECT_EQ(run("layout LagGroup --row 35"), 0);
  EXPECT_THAT(read("out"), HasSubstr("key 5 "));
}

TEST_F(Scenario, aBadLineAmidAnAuditIsPassedOver) {
  ASSERT_EQ(apply(nat + R"({"op":"set","table":"HashTest","key":1,"result":1}
)"),
            0);
  events(nat + "not json\n");
  EXPECT_EQ(run("audit --device sim:image --events events"), 2);
  EXPECT_EQ(read("out"), "");
  EXPECT_EQ(run("audit --device sim:image --events events --keep-going"), 2);
  EXPECT_THAT(read("out"), HasSubstr("0 missing, 1 unexpected"));
  EXPECT_EQ(run("run events --device sim:image --keep-going --reconcile --results results"), 2);
  EXPECT_THAT(read("err"), HasSubstr("nothing is reconciled: not all events could be read"));
  EXPECT_FALSE(lookup("HashTest 1")[0]["hit"].is_null());
}

}  // namespace
