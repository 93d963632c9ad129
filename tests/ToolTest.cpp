#include <algorithm>
#include <map>

#include "Tool.h"
#include "agent/Profiles.h"

// The tool as its users run it: arguments and files in; exit code, output and files out.

namespace {

using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using VelaAgent::Json;
using VelaTest::Tool;

TEST_F(Tool, theExamplesDoWhatTheySay) {
  EXPECT_EQ(run("run " EXAMPLES "/first-light.jsonl --results results"), 0);
  EXPECT_THAT(read("out"), HasSubstr("out of the way"));
  EXPECT_THAT(lines("results"), SizeIs(4));
  EXPECT_EQ(run("run " EXAMPLES "/routes.jsonl"), 0);
  EXPECT_EQ(run("run " EXAMPLES "/nat.jsonl"), 0);
  EXPECT_EQ(run("run " EXAMPLES "/faults.jsonl --results results"), 1);
  EXPECT_EQ(lines("results").front()["status"], "tableFull");
  EXPECT_THAT(read("out"), HasSubstr("announcements refused: 2, of which hardware still lacks 0"));
}

TEST_F(Tool, linesHaveTheirShape) {
  events(R"({"op":"set","table":"HashTest","key":"0x45","result":7}
{"op":"set","table":"HashTest","key":5,"result":1}
{"op":"set","table":"HashTest","key":13,"result":2}
{"op":"hit","table":"HashTest","key":69,"at":12.5}
{"op":"corrupt","table":"HashTest","key":69,"bit":33}
{"op":"sync","table":"HashTest"}
{"op":"fail","writes":1}
{"op":"set","table":"HashTest","key":69,"result":7}
{"op":"set","table":"HashTest","key":69,"result":7}
{"op":"set","table":"HashTest","key":197,"result":7}
{"op":"lookup","table":"HashTest","key":69,"expect":{"result":7}}
{"op":"lookup","table":"HashTest","key":70,"expect":{"result":7}}
)");
  EXPECT_EQ(run("run --profile vela-20-4.0 events --explain --json --rows rows --writes writes "
                "--status status --results results"),
            1);
  const auto results = lines("results");
  ASSERT_THAT(results, SizeIs(5));
  EXPECT_EQ(
      results[0].dump(),
      R"({"op":"sync","table":"HashTest","instance":0,"inconsistent":[69],"missing":[],"unexpected":[],)"
      R"("waiting":[],"differences":[{"finding":"inconsistent","hwTableId":0,"index":5,"key":69,)"
      R"("fields":[{"field":"result","expected":"0x7","found":"0x5"}]}]})");
  EXPECT_EQ(results[1].dump(),
            R"({"op":"set","table":"HashTest","key":69,"status":"hardwareError"})");
  EXPECT_EQ(
      results[2].dump(),
      R"({"op":"set","table":"HashTest","key":197,"status":"tableFull","competing":{"entries":3,"rows":2,"keys":[69,5],"withdraw":[[69],[5]]}})");
  EXPECT_TRUE(results[3]["met"]);
  EXPECT_FALSE(results[4]["met"]);
  EXPECT_TRUE(results[4]["hit"].is_null());

  const auto statuses = lines("status");
  ASSERT_THAT(statuses, SizeIs(4));
  EXPECT_EQ(statuses[2].dump(),
            R"({"table":"HashTest","instance":0,"key":69,"status":"programmed","lastHit":12.5})");
  EXPECT_EQ(statuses[3]["status"], "tableFull");

  EXPECT_THAT(
      read("rows"),
      HasSubstr(
          R"({"table":"HashTest","instance":0,"hwTable":"HashTest[0]-0","hwTableId":0,"index":8,"way":1,"row":0,"registers":[["pipeline[0]/processor/hash_data0","0x00000005"],["pipeline[0]/processor/hash_data1","0x00000001"],["pipeline[0]/processor/hash_ctl","0x0000c000"]],"image":["0x00000005","0x00000001","0x0000c000"],"key":5})"));

  const auto writes = lines("writes");
  EXPECT_EQ(writes.front()["seq"], 1);
  EXPECT_EQ(writes.front()["event"], 0) << "while tables start";
  EXPECT_EQ(writes.back()["event"], 9);
  EXPECT_TRUE(writes[writes.size() - 2]["failed"]);
  EXPECT_EQ(writes[writes.size() - 2]["event"], 8);

  const Json summary = Json::parse(read("out"));
  EXPECT_EQ(summary["events"], 12);
  EXPECT_EQ(summary["programmed"], 3);
  EXPECT_EQ(summary["refusals"], 2);
  EXPECT_EQ(summary["refused"], 1) << "one was mended";
  EXPECT_EQ(summary["rowWrites"], writes.size() - 1);
}

TEST_F(Tool, aBadLineStopsTheRunAndKeepsWhatWasApplied) {
  const std::string bad[] = {
      R"({"op":"set","table":"VlanMembership","key":4095})",
      R"({"op":"set","table":"AclHash","key":{"aclId":17}})",
      R"({"op":"set","table":"AclHash","key":{"aclId":-1}})",
      R"({"op":"set","table":"AclHash","key":{"colour":1}})",
      R"({"op":"set","table":"AclHash","key":{"srcIp":"1.2.3"}})",
      R"({"op":"set","table":"AclHash","instance":2,"key":{}})",
      R"({"op":"set","table":"NoTable","key":1})",
      R"({"op":"set","table":"HashTest"})",
      R"({"op":"fly"})",
      R"({"op":"corrupt","table":"HashTest","key":77,"bit":1})",
      R"(not json)",
      R"([1,2])",
  };
  const char* texts[] = {
      "vid 4095: allowed are 1 to 4094 (Bridging::VlanId::value < 1 or > 4094 not allowed)",
      "aclId 17: allowed are 0 to 16 (VelaSwitch::HwAclId::value < VelaSwitch::HwAclId::min or > "
      "VelaSwitch::HwAclId::invalid not allowed)",
      "aclId -1: allowed are 0 to 16 (VelaSwitch::HwAclId::value < VelaSwitch::HwAclId::min or > "
      "VelaSwitch::HwAclId::invalid not allowed)",
      "unknown field \"colour\"",
      "srcIp: \"1.2.3\" is not an IPv4 address",
      "table AclHash has no instance 2",
      "unknown table \"NoTable\"",
      "\"key\" is missing",
      "unknown op \"fly\"",
      "the entry has no row",
      "not a JSON object: column 2 of not json",
      "not a JSON object: [1,2]",
  };
  for (std::size_t i = 0; i < std::size(bad); ++i) {
    events(R"({"op":"set","table":"HashTest","key":1,"result":1})"
           "\n\n" +
           bad[i] + "\n" + R"({"op":"set","table":"HashTest","key":2,"result":2})" + "\n");
    EXPECT_EQ(run("run events --json --status status"), 2);
    EXPECT_EQ(read("err"), std::string("events:3: ") + texts[i] + "\n");
    EXPECT_THAT(lines("status"), SizeIs(1)) << "nothing after the bad line";
    EXPECT_EQ(run("run events --json --status status --keep-going"), 2);
    EXPECT_THAT(lines("status"), SizeIs(2));
  }
}

/// Longer than what is read at a time, across its ends, and without an end of its own.
TEST_F(Tool, linesAreReadWhereverTheyEnd) {
  const std::string set = R"({"op":"set","table":"HashTest","key":1,"result":1})";
  std::string text = std::string(700000, ' ') + set + "\r\n\n";
  for (U32 i = 0; i < 20000; ++i) text += set + std::string(i % 7, ' ') + "\n";
  events(text + set);
  EXPECT_EQ(run("run events --json"), 0);
  EXPECT_EQ(Json::parse(read("out"))["events"], 20002);
  EXPECT_EQ(run("run - --json < events"), 0);
  EXPECT_EQ(Json::parse(read("out"))["events"], 20002);
  events(text + "{");
  EXPECT_EQ(run("run - --json < events"), 2);
  EXPECT_EQ(read("err"), "stdin:20003: not a JSON object: column 2 of {\n");
}

TEST_F(Tool, whatIsReadAheadIsToldInItsTurn) {
  std::string text;
  std::string refusals;
  for (U32 i = 1; i <= 12000; ++i) {
    const std::string number = std::to_string(i);
    const bool bad = i % 2000 == 0;
    text += bad ? "{\n" : R"({"op":"set","table":"HashTest","key":)" + number + "}\n";
    if (bad) refusals += "events:" + number + ": not a JSON object: column 2 of {\n";
  }
  events(text);
  EXPECT_EQ(run("run events --keep-going --json --results results"), 2);
  EXPECT_EQ(read("err"), refusals);
  EXPECT_EQ(Json::parse(read("out"))["events"], 11994);
  std::vector<U64> refused;
  for (const Json& line : lines("results")) refused.push_back(line["key"]);
  EXPECT_EQ(refused.size(), Json::parse(read("out"))["refusals"]);
  EXPECT_TRUE(std::is_sorted(refused.begin(), refused.end()));
  EXPECT_GT(refused.size(), 5000u);
}

TEST_F(Tool, theSwitchIsKeptAcrossRuns) {
  events(R"({"op":"set","table":"VlanMembership","key":10,"result":{"permitMask":15}}
{"op":"set","table":"AclHash","instance":1,"key":{"type":7,"srcIp":"255.255.255.255"},"result":{"priority":3}}
{"op":"set","table":"HashTest","key":77,"result":1}
)");
  EXPECT_EQ(run("run events --device sim:image"), 0);
  EXPECT_EQ(run("run events --device sim:image --json --writes writes --reconcile"), 0);
  EXPECT_EQ(read("writes"), "") << "the second run has nothing to do";
  EXPECT_EQ(Json::parse(read("out"))["programmed"], 3);

  events(R"({"op":"set","table":"VlanMembership","key":10,"result":{"permitMask":31}})");
  EXPECT_EQ(run("run events --device sim:image --json --writes writes"), 0);
  EXPECT_THAT(lines("writes"), SizeIs(2));
  EXPECT_EQ(Json::parse(read("out"))["programmed"], 1);
  U32 unclaimed = 0;
  const Json summary = Json::parse(read("out"));
  for (const Json& table : summary["tables"]) unclaimed += table["unclaimed"].get<U32>();
  EXPECT_EQ(unclaimed, 2u) << "without --reconcile entries stay";
  EXPECT_EQ(run("run events --device sim:image --json --writes writes --reconcile"), 0);
  EXPECT_EQ(Json::parse(read("out"))["programmed"], 1);
  EXPECT_EQ(Json::parse(read("out"))["reconciled"], 2);
  EXPECT_THAT(lines("writes"), SizeIs(2)) << "the rows of the two that went";

  EXPECT_EQ(run("run events --device sim:image --profile vela-48-4.1"), 2);
  EXPECT_EQ(read("err"), "velatable: the saved switch is a vela-48-5.1, not a vela-48-4.1\n");

  std::string image = read("image");
  image.replace(image.find("switch-2"), 8, "switch-1");
  events(image, "old");
  EXPECT_EQ(run("run events --device sim:old"), 2);
  EXPECT_THAT(read("err"), StartsWith("velatable: old: this switch was saved in layout 1, and this "
                                      "program knows layout 2 alone"));
  EXPECT_EQ(read("old"), image);

  std::filesystem::resize_file(file("image"), 100000);
  EXPECT_EQ(run("run events --device sim:image"), 2);
  EXPECT_EQ(read("err"), "velatable: image: this is no saved switch: it ends early\n");
  std::ofstream(file("image")) << "{}";
  EXPECT_EQ(run("run events --device sim:image"), 2);
  EXPECT_EQ(read("err"), "velatable: image: this is no saved switch: it is too short\n");
}

/// What is decoded is what was announced, and announcing it anew changes nothing.
TEST_F(Tool, aSavedSwitchDecodesIntoTheEventsThatMadeIt) {
  events(
      R"({"op":"set","table":"Route","key":{"vrf":1,"prefix":"10.1.0.0/16"},"result":{"l3LagIndex":3,"rewriteIndex":4}}
{"op":"set","table":"NatMatch","key":{"natType":1,"proto":2,"srcIp":"10.0.0.1","sport":80},"result":{"valid":true,"natRewriteId":9}}
{"op":"set","table":"HashTest","key":77,"result":1}
{"op":"set","table":"L3Lag","key":5,"result":{"portMask":6}}
)");
  ASSERT_EQ(run("run events --device sim:image"), 0);
  ASSERT_EQ(run("decode --device sim:image"), 0);
  std::map<std::string, Json> decoded;
  for (const Json& line : lines("out")) {
    EXPECT_EQ(line["op"], "set");
    decoded[line["table"]] = line;
  }
  EXPECT_EQ(decoded["Route"]["key"], Json::parse(R"({"vrf":1,"prefix":"10.1.0.0/16"})"));
  EXPECT_EQ(decoded["Route"]["result"], Json::parse(R"({"l3LagIndex":3,"rewriteIndex":4})"));
  EXPECT_EQ(decoded["NatMatch"]["result"]["natRewriteId"], 9);
  EXPECT_EQ(decoded["NatMatch"]["key"]["srcIp"], "10.0.0.1");
  EXPECT_EQ(decoded["L3Lag"]["result"]["portMask"], "0x000000000006");
  EXPECT_FALSE(decoded.contains("Lpm17")) << "the route stands for its cells";
  ASSERT_EQ(run("decode --device sim:image L3Lag"), 0);
  EXPECT_THAT(lines("out"), SizeIs(1));
  ASSERT_EQ(run("decode --device sim:image"), 0);
  std::ofstream(file("again")) << read("out");
  ASSERT_EQ(run("run again --device sim:image --reconcile --json --writes writes"), 0);
  EXPECT_EQ(read("writes"), "");
  ASSERT_EQ(run("run again --device sim:copy"), 0);
  ASSERT_EQ(run("audit --device sim:copy --events events"), 0);
  EXPECT_THAT(read("out"), HasSubstr("0 inconsistent, 0 missing, 0 unexpected"));
}

TEST_F(Tool, anAuditNamesWhatIsWrongAndRepairsThat) {
  events(
      R"({"op":"set","table":"NatMatch","key":{"natType":1,"proto":2,"srcIp":"10.0.0.1","sport":80},"result":{"valid":true,"l3LagIndex":5}}
{"op":"set","table":"HashTest","key":77,"result":1}
{"op":"set","table":"HashTest","key":78,"result":1}
)");
  ASSERT_EQ(run("run events --device sim:image"), 0);
  std::ofstream(file("damage"))
      << R"({"op":"corrupt","table":"NatMatch","key":{"natType":1,"proto":2,"srcIp":"10.0.0.1","sport":80},"bit":71}
{"op":"set","table":"HashTest","key":77,"result":3}
{"op":"del","table":"HashTest","key":78}
{"op":"set","table":"L2Control","key":5,"result":{"learnOnly":true}}
)";
  ASSERT_EQ(run("run damage --device sim:image"), 0);
  EXPECT_EQ(run("audit --device sim:image --events events"), 1);
  EXPECT_THAT(read("out"), HasSubstr(R"("sport":80,"qualifier":0})"));
  EXPECT_THAT(read("out"), HasSubstr("is corrupt: l3LagIndex is 0x4, should be 0x5\n"));
  EXPECT_THAT(read("out"),
              HasSubstr("HashTest/0 77: row 5 of HashTest[0]-0 (way 0, row 5) differs: "
                        "result is 0x3, should be 0x1\n"));
  EXPECT_THAT(read("out"), HasSubstr("HashTest/0 78: missing, it is in no row\n"));
  EXPECT_THAT(read("out"), HasSubstr("L2Control/0 5: row 5 of L2Control-0 is no entry's that is "
                                     "desired: learnOnly is 0x1, should be 0x0\n"));
  EXPECT_THAT(read("out"),
              HasSubstr("2 inconsistent, 1 missing, 1 unexpected, 0 unreadable; 1 of "
                        "them corrupt; 1 entry with copies that disagree, 0 waiting\n"));
  EXPECT_EQ(run("decode --device sim:image NatMatch"), 1);
  EXPECT_THAT(read("out"), HasSubstr(R"("l3LagIndex":5)")) << "as the other pipeline has it";
  EXPECT_THAT(read("err"), HasSubstr("is corrupt\n"));

  EXPECT_EQ(run("audit --device sim:image --events events --repair --json"), 1);
  const Json sum = lines("out").back();
  EXPECT_EQ(sum["rowWrites"], 4);
  EXPECT_EQ(sum["left"], 0);
  EXPECT_EQ(run("audit --device sim:image --events events"), 0);
  EXPECT_EQ(run("audit --device sim:none --events events"), 2);
  EXPECT_FALSE(std::filesystem::exists(file("none")));
}

/// What is told stops where it is too much to read, and says how to get the rest.
TEST_F(Tool, longStoriesAreCutShortWithAHint) {
  const std::string told = "(events from here on are told with --verbose)\n";
  std::string text;
  for (U32 key = 1; key <= 202; ++key) {
    text += Json{{"op", "set"}, {"table", "AclIndirectCounterHash"}, {"key", key}, {"result", 1}}
                .dump() +
            "\n";
    if (key < 200) continue;
    events(text);
    ASSERT_EQ(run("run events --results none --device sim:image" + std::to_string(key)), 0);
    const std::string out = read("out");
    EXPECT_THAT(out, HasSubstr("\n200. set"));
    EXPECT_THAT(out, testing::Not(HasSubstr("\n201. set")));
    EXPECT_EQ(out.find(told) != std::string::npos, key > 200) << key;
    EXPECT_EQ(out.find(told), out.rfind(told)) << "once";
  }
  EXPECT_EQ(run("run events --verbose --results none"), 0);
  EXPECT_THAT(read("out"), HasSubstr("\n202. set"));
  EXPECT_THAT(read("out"), testing::Not(HasSubstr(told)));

  const std::string more = "AclIndirectCounterHash/0: more is told with --verbose\n";
  const auto missing = [&] {
    const std::string out = read("out");
    std::size_t count = 0;
    for (std::size_t at = 0; (at = out.find(": missing,", at)) != std::string::npos; ++at) ++count;
    return count;
  };
  const auto without = [&](U32 entries) {
    std::string lines = read("events");
    for (U32 i = 0; i < entries; ++i) lines.erase(0, lines.find('\n') + 1);
    std::ofstream(file("fewer")) << lines;
    std::filesystem::remove(file("image"));
    ASSERT_EQ(run("run fewer --device sim:image"), 0);
  };
  without(20);
  EXPECT_EQ(run("audit --device sim:image --events events"), 1);
  EXPECT_EQ(missing(), 20u);
  EXPECT_THAT(read("out"), testing::Not(HasSubstr(more)));
  without(22);
  EXPECT_EQ(run("audit --device sim:image --events events"), 1);
  EXPECT_EQ(missing(), 20u);
  EXPECT_THAT(read("out"), HasSubstr(more));
  EXPECT_EQ(run("audit --verbose --device sim:image --events events"), 1);
  EXPECT_EQ(missing(), 22u);
  EXPECT_THAT(read("out"), testing::Not(HasSubstr(more)));
}

TEST_F(Tool, usageErrorsHaveExitCode2) {
  for (const char* arguments :
       {"", "fly", "run --device bus", "run nofile", "run --profile none /dev/null",
        "run --trace Nothing /dev/null", "layout NoTable", "run --rows /no/such/place /dev/null"}) {
    EXPECT_EQ(run(arguments), 2) << arguments;
    EXPECT_NE(read("err"), "") << arguments;
  }
}

TEST_F(Tool, describesProfilesTablesAndRows) {
  EXPECT_EQ(run("profiles"), 0);
  for (const char* name : {"vela-48-5.1", "vela-48-4.1", "vela-20-4.0", "vela-48-32vrf"}) {
    EXPECT_THAT(read("out"), HasSubstr(name));
  }
  EXPECT_EQ(run("profiles vela-20-4.0"), 0);
  std::filesystem::copy(file("out"), file("profile.json"));
  EXPECT_EQ(run("tables --profile profile.json"), 0);
  EXPECT_THAT(read("out"), HasSubstr("pipeline[0]/processor/"));
  EXPECT_EQ(VelaAgent::profileToJson(*VelaAgent::loadProfile(file("profile.json"))),
            VelaAgent::profileToJson(*VelaSwitch::ProfileInfo::builtIn("vela-20-4.0")));
  EXPECT_EQ(run("layout VlanMembership --profile vela-48-4.1"), 0);
  EXPECT_THAT(read("out"), HasSubstr("54              1  parity"));
}

TEST_F(Tool, tracesToStandardError) {
  events(R"({"op":"set","table":"HashTest","key":1,"result":1})");
  EXPECT_EQ(run("run events --trace HashTest/1"), 0);
  EXPECT_EQ(read("err"),
            "VelaTableHashTest/1: Programming Entry Value('VelaSwitchTable::HashTestKey', ** "
            "{'value': 1})\n");
}

TEST_F(Tool, aListOfPrefixesBecomesRoutes) {
  std::ofstream(file("list"))
      << "# a comment\n0.0.0.0/0 3\r\n10.0.0.0/8\n10.1.0.0/16\n10.1.2.0/24 7\n";
  ASSERT_EQ(run("routes list --vrf 2 --nexthops 2"), 0);
  EXPECT_THAT(lines("out"), SizeIs(4));
  EXPECT_EQ(lines("out")[2]["result"]["l3LagIndex"], 0);
  EXPECT_EQ(lines("out")[3]["result"]["l3LagIndex"], 7);
}

TEST_F(Tool, routesThatCannotBeAreRefusedWithTheirLine) {
  for (
      const auto& [event, text] : std::initializer_list<std::pair<const char*, const char*>>{
          {R"({"op":"set","table":"Route","key":{"vrf":8,"prefix":"10.0.0.0/8"},"result":{"l3LagIndex":1}})",
           "vrf 8: this switch has VRFs 0 to 7"},
          {R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/8"}})",
           "a route needs a next hop: l3LagIndex 57 is none"},
          {R"({"op":"sync","table":"Route"})", "table Route has no rows of its own"},
          {R"({"op":"set","table":"Lpm11","key":{"vrf":0,"prefix":"10.0.0.0/12"}})",
           "prefix: the keys of this level have 11 bits, not 12"},
          {R"({"op":"set","table":"Lpm32","key":{"vrf":0,"prefix":"10.0.0.0/30"},"result":{"cells":[null,null,null,{"l3LagIndex":1,"realPrefixLen":29}]}})",
           "realPrefixLen: this level serves routes of 30 to 32 bits, not 29"},
          {R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/8"},"result":{"l3LagIndex":64}})",
           "l3LagIndex 64: allowed are 0 to 63 (VelaSwitch::L3LagIndex::value < "
           "VelaSwitch::L3LagIndex::min or > VelaSwitch::L3LagIndex::mcastSnat not allowed)"}}) {
    events(std::string(event) + "\n");
    EXPECT_EQ(run("run events"), 2) << event;
    EXPECT_THAT(read("err"), HasSubstr("events:1: "));
    EXPECT_THAT(read("err"), HasSubstr(text));
  }
  std::ofstream(file("list")) << "10.0.0.0/8\n10.0.0.1/8\n";
  EXPECT_EQ(run("routes list"), 2);
  EXPECT_THAT(read("err"), HasSubstr("list:2: "));
}

TEST_F(Tool, aWholeSmallSwitchIsLeftAloneByTheSecondRun) {
  const std::string command =
      "run --device sim:image --json --results results " EXAMPLES "/small-switch.jsonl";
  ASSERT_EQ(run(command), 0);
  EXPECT_EQ(lines("out")[0]["programmed"], 469);
  ASSERT_EQ(run(command), 0);
  EXPECT_EQ(lines("out")[0]["registerWrites"], 0);
  EXPECT_EQ(lines("out")[0]["programmed"], 469);
}

/// Every block of registers that the library knows is some table's under some built-in profile.
TEST_F(Tool, tablesShowEveryRegister) {
  std::string all;
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) {
    ASSERT_EQ(run("tables --profile " + profile->name()), 0);
    for (const char c : read("out")) {
      // What a line has no room for stands on the next.
      if (c != '\n' && (c != ' ' || all.empty() || all.back() != ' ')) all += c;
      if (c == '\n' && all.back() != ' ') all += ' ';
    }
  }
  for (const char* registers :
       {"ingress/processor_acl[0]/ hash_data0 hash_data1 hash_data2 hash_data3 hash_data4 hash_ctl",
        "ingress/processor_acl[0]/ hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl",
        "ingress/processor_l4[1]/ hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl",
        "ingress/processor_l3[1]/ hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl",
        "ingress/processor_l3[0]/ hash_data0 hash_ctl",
        "ingress/processor_l3[0]/ hash_data0 hash_data1 hash_ctl",
        "pipeline[0]/processor/ hash_data0 hash_data1 hash_ctl",
        "pipeline[0]/processor/ hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl",
        "cpu_pipeline[0]/processor/ hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl",
        "cpu_pipeline[0]/processor_l2/ hash_data0",
        "ingress/processor_l2[1]/ hash_data0",
        "egress/processor[23]/ lum_data lum_ctl_addr_data",
        "egress/processor[0]/ nat_lum_ip nat_lum_chksm_prt nat_lum_ctl_addr_data",
        "ingress/vlan[0]/ vlan_data0 vlan_data1 vlan_data2 vlan_ctl",
        "cpu_pipeline[0]/vlan/ vlan_data0",
        "pipeline[1]/processor/ vlan_data0 vlan_data1 vlan_ctl",
        "cpu_pipeline[0]/processor/ vlan_data0",
        "ingress/vlan[0]/ floodset_data0 floodset_data1 floodset_data2 floodset_data3 floodset_ctl",
        "cpu_pipeline[0]/vlan/ floodset_data0",
        "cpu_pipeline[0]/processor/ floodset_data0",
        "pipeline[0]/processor/ floodset_data0",
        "egress/port[0]/vlan_tci",
        "pipeline[0]/port[0]/default_vlan",
        "egress/port[0]/cfg",
        "egress/port[0]/vlan_cfg",
        "pipeline[0]/port[0]/l2_control",
        "pipeline[0]/port[0]/lhash_ctl",
        "pipeline[1]/lag_lut[0]/ lag_lut_data0 lag_lut_ctl",
        "cpu_pipeline[0]/lag_lut[0]/ lag_lut_data0",
        "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0",
        "cpu_pipeline[0]/lag_cpu[0]/ lag_mask_data0 lag_mask_data1",
        "pipeline[1]/processor/ lag_group_data0 lag_ctl",
        "ingress/processor_l2[1]/ lag_group_data0 lag_ctl",
        "pipeline[0]/processor/ lag_mask_data0 lag_mask_data1 lag_ctl",
        "ingress/processor_l2[0]/ lag_mask_data0",
        "ingress/processor_l2[0]/ ingress_mirror_data0 ingress_mirror_data1 ingress_mirror_ctl",
        "pipeline[0]/processor/ ingress_mirror_data0",
        "pipeline[0]/rate_limiter/ interval_period reserved_mac_limit igmp_limit link_local_limit "
        "packet_forwarding_limit mac_learn_limit",
        "ingress/rate_limiter[1]/ interval_period reserved_mac_limit igmp_limit link_local_limit "
        "l2_packet_limit cpu_critical_limit ptp_limit",
        "cpu_tx_pipeline[0]/rate_limiter/ interval_period"}) {
    EXPECT_THAT(all, HasSubstr(registers));
  }
}

TEST_F(Tool, layoutsShowTheFieldsOfEveryKindOfTable) {
  for (const char* table :
       {"VlanGroup", "Copp", "MacVlan", "LagLookUp", "FloodSet", "NatRewrite"}) {
    EXPECT_EQ(run(std::string("layout ") + table), 0);
    EXPECT_THAT(read("out"), HasSubstr("width  field"));
  }
}

TEST_F(Tool, aLimiterWithoutARegisterGetsAWarning) {
  events(R"({"op":"set","table":"Copp","key":12,"result":{"result":5}})");
  EXPECT_EQ(run("run --profile vela-20-4.0 events"), 0);
  EXPECT_THAT(read("err"), HasSubstr("warning: no register in this profile, nothing is written"));
}

/// As bash asks for it, where a word ends at each colon.
TEST_F(Tool, theShellCompletesWords) {
  const auto completed = [&](const std::string& words, int last) {
    const std::string script =
        "PATH=$(dirname " VELATABLE "):$PATH; . " COMPLETION "; COMP_WORDS=(velatable " + words +
        "); COMP_CWORD=" + std::to_string(last) + "; _velatable; echo ${COMPREPLY[*]}";
    events(script, "script");
    EXPECT_EQ(
        std::system(("cd " + directory.string() + " && bash script 2>/dev/null > out").c_str()), 0);
    return read("out");
  };
  events("", "switch");
  EXPECT_EQ(completed("lo", 1), "lookup\n");
  EXPECT_EQ(completed("lookup F", 2), "FloodSet Flow\n");
  EXPECT_EQ(completed("lookup --device sim : x NatD", 6), "NatDynMatch\n");
  EXPECT_EQ(completed("run --profile vela-48-5", 3), "vela-48-5.1\n");
  EXPECT_EQ(completed("audit --device sim : sw", 5), "switch\n");
  EXPECT_EQ(completed("run --profile = vela-48-5", 4), "vela-48-5.1\n");
  EXPECT_EQ(completed("run --keep", 2), "--keep-going\n");
  EXPECT_EQ(completed("--", 1), "--help --version\n");
  // Every command has a page.
  std::istringstream commands(completed("''", 1));
  for (std::string command; commands >> command;) {
    const std::string examples = Orb::text(DOCS "/man/velatable-", command, ".txt");
    EXPECT_TRUE(std::filesystem::exists(examples)) << command;
    EXPECT_EQ(run(Orb::text("manual ", command, " --examples ", examples)), 0);
    EXPECT_THAT(read("out"), HasSubstr(".SH EXAMPLES"));
  }
}

}  // namespace
