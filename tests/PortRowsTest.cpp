#include "Support.h"
#include "agent/Agent.h"
#include "agent/Events.h"
#include "agent/Profiles.h"

namespace {

/// What one announcement writes: every register with its value, in order.
struct Announcement {
  const char* profile;
  const char* event;
  const char* writes;
};

// Worked out by a script of its own from the tables of the registers.
constexpr Announcement announcements[] = {
    {"vela-48-5.1",
     R"({"table":"NativeVlan","key":46,"result":{"nativeVlanId":1234,"dei":1,"pcp":6}})",
     "egress/port[46]/vlan_tci=d4d2 pipeline[1]/port[46]/default_vlan=d4d2"},
    {"vela-48-5.1",
     R"({"table":"FloodSet","key":77,"result":{"uucPortMask":"0x800000000005","umcPortMask":"0x400000000003"}})",
     "ingress/vlan[0]/floodset_data0=5 ingress/vlan[0]/floodset_data1=38000 "
     "ingress/vlan[0]/floodset_data2=40000000 ingress/vlan[0]/floodset_data3=0 "
     "ingress/vlan[0]/floodset_ctl=804d cpu_pipeline[0]/vlan/floodset_data0=5 "
     "cpu_pipeline[0]/vlan/floodset_data1=38000 "
     "cpu_pipeline[0]/vlan/floodset_data2=40000000 "
     "cpu_pipeline[0]/vlan/floodset_data3=0 cpu_pipeline[0]/vlan/floodset_ctl=804d"},
    {"vela-48-5.1", R"({"table":"LagGroup","key":46,"result":{"lagGroupId":33}})",
     "ingress/processor_l2[1]/lag_group_data0=21 "
     "ingress/processor_l2[1]/lag_ctl=80400000 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-48-5.1", R"({"table":"LagLookUp","key":46,"result":{"buckets":129}})",
     "pipeline[0]/lag_lut[1]/lag_lut_data0=81 "
     "pipeline[0]/lag_lut[1]/lag_lut_ctl=400000 "
     "pipeline[1]/lag_lut[1]/lag_lut_data0=81 "
     "pipeline[1]/lag_lut[1]/lag_lut_ctl=400000 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_data0=81 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_ctl=400000"},
    {"vela-48-5.1", R"({"table":"LagMembership","key":46,"result":{"port":[1,47],"lagGroupId":3}})",
     "ingress/processor_l2[1]/lag_mask_data0=2 "
     "ingress/processor_l2[1]/lag_mask_data1=8000 "
     "ingress/processor_l2[1]/lag_ctl=400000 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0=2 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1=8000"},
    {"vela-48-5.1",
     R"({"table":"RxPortMirror","key":46,"result":{"portMask":"0x800000000005","enabled":true}})",
     "ingress/processor_l2[1]/ingress_mirror_data0=5 "
     "ingress/processor_l2[1]/ingress_mirror_data1=18000 "
     "ingress/processor_l2[1]/ingress_mirror_ctl=80400000"},
    {"vela-48-5.1",
     R"({"table":"MacVlan","key":515,"result":{"valid":true,"vlanId":100,"macAddr":"02:a1:b2:c3:d4:e5","portMask":"0x1800000000005","multicast":true,"routed":false}})",
     "ingress/processor_l2[0]/hash_data0=3d4e5064 "
     "ingress/processor_l2[0]/hash_data1=502a1b2c ingress/processor_l2[0]/hash_data2=0 "
     "ingress/processor_l2[0]/hash_data3=b800 ingress/processor_l2[0]/hash_ctl=320203 "
     "ingress/processor_l2[1]/hash_data0=3d4e5064 "
     "ingress/processor_l2[1]/hash_data1=502a1b2c ingress/processor_l2[1]/hash_data2=0 "
     "ingress/processor_l2[1]/hash_data3=b800 ingress/processor_l2[1]/hash_ctl=320203 "
     "cpu_pipeline[0]/processor_l2/hash_data0=3d4e5064 "
     "cpu_pipeline[0]/processor_l2/hash_data1=502a1b2c "
     "cpu_pipeline[0]/processor_l2/hash_data2=0 "
     "cpu_pipeline[0]/processor_l2/hash_data3=b800 "
     "cpu_pipeline[0]/processor_l2/hash_ctl=320203"},
    {"vela-48-5.1", R"({"table":"Copp","key":4,"result":{"increment":150,"scaleFactor":2}})",
     "ingress/rate_limiter[0]/l2_packet_limit=200063 "
     "ingress/rate_limiter[1]/l2_packet_limit=200063 "
     "cpu_tx_pipeline[0]/rate_limiter/l2_packet_limit=200096"},
    {"vela-48-4.1",
     R"({"table":"NativeVlan","key":46,"result":{"nativeVlanId":1234,"dei":1,"pcp":6}})",
     "egress/port[46]/vlan_tci=d4d2 pipeline[1]/port[46]/default_vlan=d4d2"},
    {"vela-48-4.1",
     R"({"table":"FloodSet","key":77,"result":{"uucPortMask":"0x800000000005","umcPortMask":"0x400000000003"}})",
     "ingress/vlan[0]/floodset_data0=5 ingress/vlan[0]/floodset_data1=38000 "
     "ingress/vlan[0]/floodset_data2=40000000 ingress/vlan[0]/floodset_data3=0 "
     "ingress/vlan[0]/floodset_ctl=804d cpu_pipeline[0]/vlan/floodset_data0=5 "
     "cpu_pipeline[0]/vlan/floodset_data1=38000 "
     "cpu_pipeline[0]/vlan/floodset_data2=40000000 "
     "cpu_pipeline[0]/vlan/floodset_data3=0 cpu_pipeline[0]/vlan/floodset_ctl=804d"},
    {"vela-48-4.1", R"({"table":"LagGroup","key":46,"result":{"lagGroupId":33}})",
     "pipeline[1]/processor/lag_group_data0=21 pipeline[1]/processor/lag_ctl=80400000 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-48-4.1", R"({"table":"LagLookUp","key":46,"result":{"buckets":129}})",
     "pipeline[0]/lag_lut[1]/lag_lut_data0=81 "
     "pipeline[0]/lag_lut[1]/lag_lut_ctl=400000 "
     "pipeline[1]/lag_lut[1]/lag_lut_data0=81 "
     "pipeline[1]/lag_lut[1]/lag_lut_ctl=400000 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_data0=81 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_ctl=400000"},
    {"vela-48-4.1", R"({"table":"LagMembership","key":46,"result":{"port":[1,47],"lagGroupId":3}})",
     "pipeline[1]/processor/lag_mask_data0=2 pipeline[1]/processor/lag_mask_data1=8000 "
     "pipeline[1]/processor/lag_ctl=400000 cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0=2 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1=8000"},
    {"vela-48-4.1",
     R"({"table":"RxPortMirror","key":46,"result":{"portMask":"0x800000000005","enabled":true}})",
     "pipeline[1]/processor/ingress_mirror_data0=5 "
     "pipeline[1]/processor/ingress_mirror_data1=18000 "
     "pipeline[1]/processor/ingress_mirror_ctl=80400000"},
    {"vela-48-4.1",
     R"({"table":"MacVlan","key":515,"result":{"valid":true,"vlanId":100,"macAddr":"02:a1:b2:c3:d4:e5","portMask":"0x1800000000005","multicast":true,"routed":false}})",
     "pipeline[0]/processor/hash_data0=3d4e5064 "
     "pipeline[0]/processor/hash_data1=502a1b2c pipeline[0]/processor/hash_data2=0 "
     "pipeline[0]/processor/hash_data3=b800 pipeline[0]/processor/hash_ctl=320203 "
     "pipeline[1]/processor/hash_data0=3d4e5064 "
     "pipeline[1]/processor/hash_data1=502a1b2c pipeline[1]/processor/hash_data2=0 "
     "pipeline[1]/processor/hash_data3=b800 pipeline[1]/processor/hash_ctl=320203 "
     "cpu_pipeline[0]/processor/hash_data0=3d4e5064 "
     "cpu_pipeline[0]/processor/hash_data1=502a1b2c "
     "cpu_pipeline[0]/processor/hash_data2=0 cpu_pipeline[0]/processor/hash_data3=b800 "
     "cpu_pipeline[0]/processor/hash_ctl=320203"},
    {"vela-48-4.1", R"({"table":"Copp","key":4,"result":{"result":1000}})",
     "pipeline[0]/rate_limiter/l2_packet_limit=294 "
     "pipeline[1]/rate_limiter/l2_packet_limit=294 "
     "cpu_tx_pipeline[0]/rate_limiter/l2_packet_limit=3e8"},
    {"vela-20-4.0",
     R"({"table":"NativeVlan","key":18,"result":{"nativeVlanId":1234,"dei":1,"pcp":6}})",
     "egress/port[18]/vlan_tci=d4d2 pipeline[0]/port[18]/default_vlan=d4d2"},
    {"vela-20-4.0",
     R"({"table":"FloodSet","key":77,"result":{"uucPortMask":"0x80005","umcPortMask":"0x40003"}})",
     "pipeline[0]/processor/floodset_data0=380005 "
     "pipeline[0]/processor/floodset_data1=40 pipeline[0]/processor/floodset_data2=0 "
     "pipeline[0]/processor/floodset_data3=0 pipeline[0]/processor/floodset_ctl=804d"},
    {"vela-20-4.0", R"({"table":"LagGroup","key":18,"result":{"lagGroupId":33}})",
     "pipeline[0]/processor/lag_group_data0=21 pipeline[0]/processor/lag_ctl=80040000 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-20-4.0", R"({"table":"LagLookUp","key":18,"result":{"buckets":129}})",
     "pipeline[0]/lag_lut[0]/lag_lut_data0=81 pipeline[0]/lag_lut[0]/lag_lut_ctl=40000 "
     "cpu_pipeline[0]/lag_lut[0]/lag_lut_data0=81 "
     "cpu_pipeline[0]/lag_lut[0]/lag_lut_ctl=40000"},
    {"vela-20-4.0", R"({"table":"LagMembership","key":18,"result":{"port":[1,19],"lagGroupId":3}})",
     "pipeline[0]/processor/lag_mask_data0=80002 "
     "pipeline[0]/processor/lag_mask_data1=0 pipeline[0]/processor/lag_ctl=40000 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0=80002 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1=0"},
    {"vela-20-4.0",
     R"({"table":"RxPortMirror","key":18,"result":{"portMask":"0x80005","enabled":true}})",
     "pipeline[0]/processor/ingress_mirror_data0=180005 "
     "pipeline[0]/processor/ingress_mirror_data1=0 "
     "pipeline[0]/processor/ingress_mirror_ctl=80040000"},
    {"vela-20-4.0",
     R"({"table":"MacVlan","key":515,"result":{"valid":true,"vlanId":100,"macAddr":"02:a1:b2:c3:d4:e5","portMask":"0x180005","multicast":true,"routed":false}})",
     "pipeline[0]/processor/hash_data0=3d4e5064 "
     "pipeline[0]/processor/hash_data1=502a1b2c pipeline[0]/processor/hash_data2=b8000 "
     "pipeline[0]/processor/hash_data3=0 pipeline[0]/processor/hash_ctl=320203"},
    {"vela-20-4.0", R"({"table":"Copp","key":4,"result":{"result":1000}})",
     "pipeline[0]/rate_limiter/packet_forwarding_limit=3e8 "
     "cpu_tx_pipeline[0]/rate_limiter/packet_forwarding_limit=3e8"},
    {"vela-24-4.0",
     R"({"table":"NativeVlan","key":22,"result":{"nativeVlanId":1234,"dei":1,"pcp":6}})",
     "egress/port[22]/vlan_tci=d4d2 pipeline[1]/port[22]/default_vlan=d4d2"},
    {"vela-24-4.0",
     R"({"table":"FloodSet","key":77,"result":{"uucPortMask":"0x800005","umcPortMask":"0x400003"}})",
     "pipeline[0]/processor/floodset_data0=3800005 "
     "pipeline[0]/processor/floodset_data1=4000 pipeline[0]/processor/floodset_data2=0 "
     "pipeline[0]/processor/floodset_data3=0 pipeline[0]/processor/floodset_ctl=804d "
     "pipeline[1]/processor/floodset_data0=3800005 "
     "pipeline[1]/processor/floodset_data1=4000 pipeline[1]/processor/floodset_data2=0 "
     "pipeline[1]/processor/floodset_data3=0 pipeline[1]/processor/floodset_ctl=804d "
     "cpu_pipeline[0]/processor/floodset_data0=3800005 "
     "cpu_pipeline[0]/processor/floodset_data1=4000 "
     "cpu_pipeline[0]/processor/floodset_data2=0 "
     "cpu_pipeline[0]/processor/floodset_data3=0 "
     "cpu_pipeline[0]/processor/floodset_ctl=804d"},
    {"vela-24-4.0", R"({"table":"LagGroup","key":22,"result":{"lagGroupId":33}})",
     "pipeline[1]/processor/lag_group_data0=21 pipeline[1]/processor/lag_ctl=80000400 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_group_data0=21"},
    {"vela-24-4.0", R"({"table":"LagLookUp","key":22,"result":{"buckets":129}})",
     "pipeline[0]/lag_lut[1]/lag_lut_data0=81 pipeline[0]/lag_lut[1]/lag_lut_ctl=400 "
     "pipeline[1]/lag_lut[1]/lag_lut_data0=81 pipeline[1]/lag_lut[1]/lag_lut_ctl=400 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_data0=81 "
     "cpu_pipeline[0]/lag_lut[1]/lag_lut_ctl=400"},
    {"vela-24-4.0", R"({"table":"LagMembership","key":22,"result":{"port":[1,23],"lagGroupId":3}})",
     "pipeline[1]/processor/lag_mask_data0=800002 "
     "pipeline[1]/processor/lag_mask_data1=0 pipeline[1]/processor/lag_ctl=400 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0=800002 "
     "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1=0"},
    {"vela-24-4.0",
     R"({"table":"RxPortMirror","key":22,"result":{"portMask":"0x800005","enabled":true}})",
     "pipeline[1]/processor/ingress_mirror_data0=1800005 "
     "pipeline[1]/processor/ingress_mirror_data1=0 "
     "pipeline[1]/processor/ingress_mirror_ctl=80000400"},
    {"vela-24-4.0",
     R"({"table":"MacVlan","key":515,"result":{"valid":true,"vlanId":100,"macAddr":"02:a1:b2:c3:d4:e5","portMask":"0x1800005","multicast":true,"routed":false}})",
     "pipeline[0]/processor/hash_data0=3d4e5064 "
     "pipeline[0]/processor/hash_data1=502a1b2c "
     "pipeline[0]/processor/hash_data2=b80000 pipeline[0]/processor/hash_data3=0 "
     "pipeline[0]/processor/hash_ctl=320203 pipeline[1]/processor/hash_data0=3d4e5064 "
     "pipeline[1]/processor/hash_data1=502a1b2c "
     "pipeline[1]/processor/hash_data2=b80000 pipeline[1]/processor/hash_data3=0 "
     "pipeline[1]/processor/hash_ctl=320203 "
     "cpu_pipeline[0]/processor/hash_data0=3d4e5064 "
     "cpu_pipeline[0]/processor/hash_data1=502a1b2c "
     "cpu_pipeline[0]/processor/hash_data2=b80000 "
     "cpu_pipeline[0]/processor/hash_data3=0 cpu_pipeline[0]/processor/hash_ctl=320203"},
    {"vela-24-4.0", R"({"table":"Copp","key":4,"result":{"result":1000}})",
     "pipeline[0]/rate_limiter/packet_forwarding_limit=294 "
     "pipeline[1]/rate_limiter/packet_forwarding_limit=294 "
     "cpu_tx_pipeline[0]/rate_limiter/packet_forwarding_limit=3e8"},
};

TEST(PortTables, writeTheseRegistersInEveryModel) {
  for (const Announcement& announcement : announcements) {
    SCOPED_TRACE(std::string(announcement.profile) + " " + announcement.event);
    auto event = VelaAgent::Json::parse(announcement.event);
    event["op"] = "set";
    VelaDevice::SimulatedSwitch chip;
    VelaAgent::Agent agent(VelaAgent::loadProfile(announcement.profile), chip);
    agent.make({event["table"].get<std::string>()});
    agent.start(VelaAgent::Agent::Start::fresh);
    std::string writes;
    agent.recorder().listenerIs([&](const VelaAgent::Recorder::RowWrite& row) {
      for (const auto& [reg, value] : row.writes) {
        if (!writes.empty()) writes += ' ';
        writes += agent.recorder().path(reg) + "=" + Orb::text(Orb::Hex{value});
      }
    });
    VelaAgent::EventRunner(agent).apply(event.dump());
    EXPECT_EQ(writes, announcement.writes);
  }
}

}  // namespace
