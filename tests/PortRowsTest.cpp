#include <sstream>

#include "Support.h"
#include "agent/Agent.h"
#include "agent/Events.h"
#include "agent/Profiles.h"

namespace {

using VelaAgent::Json;

/// What is announced of a model with so many ports: of the last port but one, where there is one.
struct Announcement {
  Json key;
  Json result;
};

Announcement announcement(const std::string& table, const VelaSwitch::ProfileInfo& profile) {
  const U32 port = profile.ports() - 2;
  const U64 last = U64{1} << (port + 1);
  if (table == "NativeVlan") return {port, {{"nativeVlanId", 1234}, {"dei", 1}, {"pcp", 6}}};
  if (table == "FloodSet") return {77, {{"uucPortMask", last | 5}, {"umcPortMask", last / 2 | 3}}};
  if (table == "LagGroup") return {port, {{"lagGroupId", 33}}};
  if (table == "LagLookUp") return {port, {{"buckets", 129}}};
  if (table == "LagMembership") return {port, {{"port", {1, port + 1}}, {"lagGroupId", 3}}};
  if (table == "RxPortMirror") return {port, {{"portMask", last | 5}, {"enabled", true}}};
  if (table == "MacVlan") {
    return {515,
            {{"valid", true},
             {"vlanId", 100},
             {"macAddr", "02:a1:b2:c3:d4:e5"},
             {"portMask", last * 3 | 5},
             {"multicast", true}}};
  }
  if (profile.name() == "vela-48-5.1") return {4, {{"increment", 150}, {"scaleFactor", 2}}};
  return {4, {{"result", 1000}}};
}

/// What the announcement writes: every register with its value, in order. Braces stand for each of
/// what is between them.
struct Writes {
  const char* profile;
  const char* table;
  const char* registers;
};

// Worked out by a script of its own from the tables of the registers. Where two models have the
// same ones, one of them stands for both.
constexpr Writes expectedWrites[] = {
    {"vela-48-5.1", "NativeVlan",
     "egress/port[46]/vlan_tci=d4d2 pipeline[1]/port[46]/default_vlan=d4d2"},
    {"vela-48-5.1", "FloodSet",
     "{ingress/vlan[0],cpu_pipeline[0]/vlan}/"
     "floodset_{data0=5,data1=38000,data2=40000000,data3=0,ctl=804d}"},
    {"vela-48-5.1", "LagGroup",
     "ingress/processor_l2[1]/lag_{group_data0=21,ctl=80400000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-48-5.1", "LagLookUp",
     "{pipeline[0],pipeline[1],cpu_pipeline[0]}/lag_lut[1]/lag_lut_{data0=81,ctl=400000}"},
    {"vela-48-5.1", "LagMembership",
     "ingress/processor_l2[1]/lag_{mask_data0=2,mask_data1=8000,ctl=400000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_{data0=2,data1=8000}"},
    {"vela-48-5.1", "RxPortMirror",
     "ingress/processor_l2[1]/ingress_mirror_{data0=5,data1=18000,ctl=80400000}"},
    {"vela-48-5.1", "MacVlan",
     "{ingress/processor_l2[0],ingress/processor_l2[1],cpu_pipeline[0]/processor_l2}/"
     "hash_{data0=3d4e5064,data1=502a1b2c,data2=0,data3=b800,ctl=320203}"},
    {"vela-48-5.1", "Copp",
     "ingress/rate_limiter{[0],[1]}/l2_packet_limit=200063 "
     "cpu_tx_pipeline[0]/rate_limiter/l2_packet_limit=200096"},
    {"vela-48-4.1", "LagGroup",
     "pipeline[1]/processor/lag_{group_data0=21,ctl=80400000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-48-4.1", "LagMembership",
     "pipeline[1]/processor/lag_{mask_data0=2,mask_data1=8000,ctl=400000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_{data0=2,data1=8000}"},
    {"vela-48-4.1", "RxPortMirror",
     "pipeline[1]/processor/ingress_mirror_{data0=5,data1=18000,ctl=80400000}"},
    {"vela-48-4.1", "MacVlan",
     "{pipeline[0],pipeline[1],cpu_pipeline[0]}/processor/"
     "hash_{data0=3d4e5064,data1=502a1b2c,data2=0,data3=b800,ctl=320203}"},
    {"vela-48-4.1", "Copp",
     "pipeline{[0],[1]}/rate_limiter/l2_packet_limit=294 "
     "cpu_tx_pipeline[0]/rate_limiter/l2_packet_limit=3e8"},
    {"vela-20-4.0", "NativeVlan",
     "egress/port[18]/vlan_tci=d4d2 pipeline[0]/port[18]/default_vlan=d4d2"},
    {"vela-20-4.0", "FloodSet",
     "pipeline[0]/processor/floodset_{data0=380005,data1=40,data2=0,data3=0,ctl=804d}"},
    {"vela-20-4.0", "LagGroup",
     "pipeline[0]/processor/lag_{group_data0=21,ctl=80040000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-20-4.0", "LagLookUp",
     "{pipeline,cpu_pipeline}[0]/lag_lut[0]/lag_lut_{data0=81,ctl=40000}"},
    {"vela-20-4.0", "LagMembership",
     "pipeline[0]/processor/lag_{mask_data0=80002,mask_data1=0,ctl=40000} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_{data0=80002,data1=0}"},
    {"vela-20-4.0", "RxPortMirror",
     "pipeline[0]/processor/ingress_mirror_{data0=180005,data1=0,ctl=80040000}"},
    {"vela-20-4.0", "MacVlan",
     "pipeline[0]/processor/hash_{data0=3d4e5064,data1=502a1b2c,data2=b8000,data3=0,ctl=320203}"},
    {"vela-20-4.0", "Copp",
     "{pipeline,cpu_tx_pipeline}[0]/rate_limiter/packet_forwarding_limit=3e8"},
    {"vela-24-4.0", "NativeVlan",
     "egress/port[22]/vlan_tci=d4d2 pipeline[1]/port[22]/default_vlan=d4d2"},
    {"vela-24-4.0", "FloodSet",
     "{pipeline[0],pipeline[1],cpu_pipeline[0]}/processor/"
     "floodset_{data0=3800005,data1=4000,data2=0,data3=0,ctl=804d}"},
    {"vela-24-4.0", "LagGroup",
     "pipeline[1]/processor/lag_{group_data0=21,ctl=80000400} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-24-4.0", "LagLookUp",
     "{pipeline[0],pipeline[1],cpu_pipeline[0]}/lag_lut[1]/lag_lut_{data0=81,ctl=400}"},
    {"vela-24-4.0", "LagMembership",
     "pipeline[1]/processor/lag_{mask_data0=800002,mask_data1=0,ctl=400} "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_{data0=800002,data1=0}"},
    {"vela-24-4.0", "RxPortMirror",
     "pipeline[1]/processor/ingress_mirror_{data0=1800005,data1=0,ctl=80000400}"},
    {"vela-24-4.0", "MacVlan",
     "{pipeline[0],pipeline[1],cpu_pipeline[0]}/processor/"
     "hash_{data0=3d4e5064,data1=502a1b2c,data2=b80000,data3=0,ctl=320203}"},
    {"vela-24-4.0", "Copp",
     "pipeline{[0],[1]}/rate_limiter/packet_forwarding_limit=294 "
     "cpu_tx_pipeline[0]/rate_limiter/packet_forwarding_limit=3e8"},
};

/// The text with its braces put for each of what is between them, the first ones outermost.
std::vector<std::string> expanded(const std::string& text) {
  const auto open = text.find('{');
  if (open == std::string::npos) return {text};
  const auto close = text.find('}', open);
  std::vector<std::string> all;
  for (auto at = open; at != close;) {
    const auto end = std::min(text.find(',', at + 1), close);
    const std::string one = text.substr(at + 1, end - at - 1);
    for (auto& each : expanded(text.substr(0, open) + one + text.substr(close + 1))) {
      all.push_back(std::move(each));
    }
    at = end;
  }
  return all;
}

TEST(PortTables, writeTheseRegistersInEveryModel) {
  for (const Writes& each : expectedWrites) {
    SCOPED_TRACE(std::string(each.profile) + " " + each.table);
    VelaDevice::SimulatedSwitch chip;
    VelaAgent::Agent agent(VelaAgent::loadProfile(each.profile), chip);
    agent.make({each.table});
    agent.start(VelaAgent::Agent::Start::fresh);
    std::vector<std::string> writes;
    agent.recorder().listenerIs([&](const VelaAgent::Recorder::RowWrite& row) {
      for (const auto& [reg, value] : row.writes) {
        writes.push_back(agent.recorder().path(reg) + "=" + Orb::text(Orb::Hex{value}));
      }
    });
    const auto [key, result] = announcement(each.table, agent.profile());
    agent.table(each.table, 0).set(key, result);
    std::vector<std::string> registers;
    std::istringstream words(each.registers);
    for (std::string word; words >> word;) {
      for (auto& one : expanded(word)) registers.push_back(std::move(one));
    }
    EXPECT_EQ(writes, registers);
  }
}

}  // namespace
