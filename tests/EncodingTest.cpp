#include <cstring>

#include "Support.h"
#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchApi/RowLayout.h"
#include "VelaSwitchApi/TableConstants.h"
#include "VelaSwitchTable/VelaHitBitUtil.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using VelaTest::fatalText;

/// Published values, and keys of all lengths, with other things behind them, beside one bit after
/// another.
TEST(Crc, hashesAreThoseOfTheirPolynomials) {
  VelaTest::Random random;
  using Crcs = std::vector<U32>;
  const auto check = [&](VelaSwitch::CrcHash hash, const auto& tables, unsigned width,
                         const Crcs& polynomials, const Crcs& checkValues) {
    const U8* digits = reinterpret_cast<const U8*>("123456789");
    for (U8 way = 0; const U32 value : checkValues) EXPECT_EQ(hash(digits, way++, 72), value);
    const auto noWay = static_cast<U8>(polynomials.size());
    EXPECT_THAT(fatalText([&] { hash(digits, noWay, 72); }), StartsWith("way < ways"));
    for (U8 bytes = 0; bytes <= VelaSwitch::crcMaxBytes; ++bytes) {
      const auto word = [&] { return U64{random()} << 32 | random(); };
      const VelaSwitch::CrcKey key{word(), word(), bytes};
      const auto bits = static_cast<U8>(bytes == 0 ? 0 : 8 * bytes - random() % 8);
      const U64 all = VelaSwitch::crcHashes(tables, key);
      const U64 number = word() >> random() % 64;
      const U64 ofNumber = VelaSwitch::crcHashes(tables, number);
      for (U8 way = 0; const U32 polynomial : polynomials) {
        const auto crc = [&](unsigned length, const auto& bitAt) {
          U32 value = 0;
          for (unsigned i = 0; i < length; ++i) {
            const U32 carry = (value >> (width - 1) ^ bitAt(i)) & 1;
            value = (value << 1 ^ carry * polynomial) & ((1u << width) - 1);
          }
          return value;
        };
        const U32 expected = crc(8 * bytes, [&](unsigned i) {
          return static_cast<U32>((i < 64 ? key.first : key.second) >> (i % 64 ^ 7));
        });
        EXPECT_EQ(all >> 16 * way & 0xffff, expected) << +bytes << ' ' << +way;
        EXPECT_EQ(hash(reinterpret_cast<const U8*>(&key), way, bits), expected) << +bits;
        EXPECT_EQ(ofNumber >> 16 * way & 0xffff,
                  crc(64, [&](unsigned i) { return static_cast<U32>(number >> (63 - i)); }));
        ++way;
      }
    }
  };
  using namespace VelaSwitch;
  check(crc10Hash, crcTables<crc10Hash>(), 10, {0x06f, 0x0f3, 0x197, 0x1e5},
        {0x01dc, 0x01f1, 0x027c, 0x031f});
  check(crc11Hash, crcTables<crc11Hash>(), 11, {0x065, 0x1d9}, {0x0783, 0x03ce});
  check(crc12Hash, crcTables<crc12Hash>(), 12, {0x0eb, 0x161, 0x34d}, {0x09ad, 0x0fba, 0x03dc});
  check(crc13Hash, crcTables<crc13Hash>(), 13, {0x0bb, 0x13b, 0x197}, {0x17d0, 0x00dd, 0x1d39});
}

TEST(Parity, isOneForAnOddNumberOfBits) {
  EXPECT_EQ(VelaSwitch::parity32Bit(0), 0u);
  EXPECT_EQ(VelaSwitch::parity32Bit(0x80000000), 1u);
  EXPECT_EQ(VelaSwitch::parity32Bit(0xFFFFFFFF), 0u);
  const U32 words[] = {1, 2, 4, 8};
  EXPECT_EQ(VelaSwitch::parityU32Array(words, 3), 1u);
  EXPECT_EQ(VelaSwitch::parityU32Array(words, 4), 0u);
}

TEST(PortMask, hardwareHasThePortsAndTheCpuPort) {
  const VelaSwitch::IngressPortMask all(~U64{0});
  EXPECT_EQ(all.hardwareBitmask(20), 0x1fffffu);
  EXPECT_EQ(all.hardwareBitmask(48), 0x1ffffffffffffu);
}

TEST(BitStream, limitsAreFatal) {
  U8 bytes[16]{};
  U32 words[4]{};
  EXPECT_THAT(fatalText([&] { bitStreamSet(bytes, 0, 64, 1); }), StartsWith("len < 64"));
  EXPECT_EQ(bytes[0], 0) << "no partial write";
  EXPECT_EQ(fatalText([&] { bitStreamGet(words, 16, 70); }), "");
  const std::string text = fatalText([&] { bitStreamGet(words, 0, 96); });
  EXPECT_THAT(text, StartsWith("0 in "));
  EXPECT_THAT(text, HasSubstr("bitStreamGet"));
}

/// Both primitives against one bit at a time.
TEST(BitStream, agreesWithSingleBits) {
  VelaTest::Random random;
  for (int round = 0; round < 20000; ++round) {
    U32 words[4];
    for (U32& word : words) word = random();
    bool bits[128];
    for (U32 i = 0; i < 128; ++i) bits[i] = (words[i / 32] >> (i % 32) & 1) != 0;
    const U8 len = static_cast<U8>(1 + random() % 63);
    const U16 start = static_cast<U16>(random() % (128u - len));
    const U64 value = U64{random()} << 32 | random();
    bitStreamSet(reinterpret_cast<U8*>(words), start, len, value);
    for (U32 i = 0; i < len; ++i) bits[start + i] = (value >> i & 1) != 0;
    for (U32 i = 0; i < 128; ++i) {
      ASSERT_EQ((words[i / 32] >> (i % 32) & 1) != 0, bits[i]) << start << '+' << int{len};
    }
    if ((start + len - 1) / 32 - start / 32 <= 2) {
      ASSERT_EQ(bitStreamGet(words, start, start + len - 1u), value & ((U64{1} << len) - 1));
    }
  }
}

TEST(RowLayout, overlapAndOverrunAreFound) {
  using VelaSwitchApi::RowField;
  using VelaSwitchApi::wellFormed;
  static_assert(wellFormed(std::array{RowField{"a", 0, 8}, RowField{"b", 8, 24}}, 1));
  static_assert(!wellFormed(std::array{RowField{"a", 0, 8}, RowField{"b", 7, 1}}, 1));
  static_assert(!wellFormed(std::array{RowField{"a", 1, 32}}, 1));
  EXPECT_THAT(fatalText([] {
                VelaSwitchApi::RowLayout({{"a", 0, 33}}, 1);
              }),
              StartsWith("wellFormed"));
}

/// A whole row of random fields, written and read, against the bit primitives.
TEST(RowLayout, fieldsAreWrittenWhereTheBitPrimitivesPutThem) {
  VelaTest::Random random;
  static Trace::Handle handle("LayoutTest");
  for (int round = 0; round < 2000; ++round) {
    std::vector<VelaSwitchApi::RowField> fields;
    for (U16 next = static_cast<U16>(random() % 9); next < 250;) {
      const U16 width = static_cast<U16>(1 + random() % std::min<U32>(63, 256u - next));
      fields.push_back({"field", next, width});
      next = static_cast<U16>(next + width + random() % 3);
    }
    const VelaSwitchApi::RowLayout layout(fields, 8);
    U32 image[8];
    U32 expected[8];
    for (U32 i = 0; i < 8; ++i) image[i] = expected[i] = random();
    VelaSwitchApi::RowWriter writer(layout, reinterpret_cast<U8*>(image), handle, "test");
    for (U32 i = 0; i < fields.size(); ++i) {
      const U64 value = U64{random()} << 32 | random();
      writer.set(i, value);
      bitStreamSet(reinterpret_cast<U8*>(expected), static_cast<U16>(fields[i].first),
                   static_cast<U8>(fields[i].width), value);
      ASSERT_EQ(VelaSwitchApi::RowReader(layout, image).get(i),
                value & ((U64{1} << fields[i].width) - 1));
    }
    ASSERT_THAT(image, testing::ElementsAreArray(expected));
  }
}

TEST(RowLayout, aFieldTooWideForTheBitStreamIsFatal) {
  static Trace::Handle handle("LayoutTest");
  const VelaSwitchApi::RowLayout layout({{"wide", 0, 90}, {"mask", 96, 64}}, 8);
  U32 image[8]{};
  VelaSwitchApi::RowWriter writer(layout, reinterpret_cast<U8*>(image), handle, "test");
  EXPECT_THAT(fatalText([&] { writer.set(0, 1); }), StartsWith("startSlice >= endSlice - 8"));
  EXPECT_THAT(fatalText([&] { writer.set(1, 1); }), StartsWith("len < 64"));
  writer.setFirst({0x0807060504030201, 0xff0b0a09}, 90);
  EXPECT_THAT(image, testing::ElementsAre(0x04030201, 0x08070605, 0x030b0a09, 0, 0, 0, 0, 0));
}

TEST(RowLayout, tracesEachFieldAtLevelNine) {
  static Trace::Handle handle("LayoutTest");
  const VelaSwitchApi::RowLayout layout({{"a", 4, 12}}, 1);
  U32 image[4]{};
  const auto lines = VelaTest::traced(handle, 9, [&] {
    VelaSwitchApi::RowWriter(layout, reinterpret_cast<U8*>(image), handle, "setHwBuffer")
        .set(0, 0x1abc);
  });
  EXPECT_THAT(lines, testing::ElementsAre("setHwBuffer 4:15 = 0xabc"));
}

TEST(RegPrefix, takesTheInstance) {
  EXPECT_EQ(VelaSwitchTable::regPrefix("ingress/processor_acl[%d]/", 3),
            "ingress/processor_acl[3]/");
  EXPECT_EQ(VelaSwitchTable::regPrefix("cpu_pipeline[0]/vlan/", 3), "cpu_pipeline[0]/vlan/");
}

TEST(Profile, portRangesFollowThePipes) {
  const auto profile = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1");
  const auto vlan = VelaSwitchTable::portRangeOfVlanTable(profile.get(), 0);
  EXPECT_EQ(vlan.first, 0u);
  EXPECT_EQ(vlan.last, 47u);
  const auto layer2 = VelaSwitchTable::portRangeOfL2Table(profile.get(), 1);
  EXPECT_EQ(layer2.first, 24u);
  EXPECT_EQ(layer2.last, 47u);
  EXPECT_EQ(profile->numTables(VelaSwitch::TableKind::vlan), 1u);
  EXPECT_EQ(profile->numTables(VelaSwitch::TableKind::layer2), 2u);
  EXPECT_EQ(profile->portToIngressPipeId(23), 0u);
  EXPECT_EQ(profile->portToIngressPipeId(24), 1u);

  VelaSwitch::ProfileFields fields = profile->fields();
  fields.ports = 49u;
  using Range = VelaSwitch::IngressPipeRange;
  fields.ingressPipes = std::vector{Range{0u, 0u, 24u}, Range{1u, 25u, 48u}};
  const VelaSwitch::ProfileInfo wide(fields);
  EXPECT_THAT(fatalText([&] { VelaSwitchTable::portRangeOfVlanTable(&wide, 0); }),
              StartsWith("ppp <= 48"));
  fields.ingressPipes = std::vector<VelaSwitch::IngressPipeRange>{};
  const VelaSwitch::ProfileInfo none(fields);
  EXPECT_THAT(fatalText([&] { VelaSwitchTable::portRangeOfVlanTable(&none, 0); }),
              StartsWith("profileInfo->ingressPipeRangeInfos()"));
}

/// What the hardware tables cannot tell apart is no switch.
TEST(Profile, interleavedPortsAndWideLayer2TablesAreRefused) {
  using Range = VelaSwitch::IngressPipeRange;
  const auto refusal = [](std::vector<Range> pipes, U32 perVlanTable, U32 perL2Table) {
    VelaSwitch::ProfileFields fields = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1")->fields();
    fields.ingressPipes = std::move(pipes);
    fields.pipesPerVlanTable = perVlanTable;
    fields.pipesPerL2Table = perL2Table;
    return VelaTest::errorText([&] { VelaSwitch::ProfileInfo profile(fields); });
  };
  const Range quarter[] = {{0u, 0u, 11u}, {1u, 12u, 23u}, {0u, 24u, 35u}, {1u, 36u, 47u}};
  EXPECT_EQ(refusal({quarter[0], quarter[1]}, 2, 1), "");
  EXPECT_EQ(refusal({quarter[0], {0u, 12u, 23u}, {1u, 24u, 47u}}, 2, 1), "") << "one after another";
  EXPECT_EQ(refusal({std::begin(quarter), std::end(quarter)}, 2, 1),
            "ingressPipes: ports of pipes that interleave not allowed");
  EXPECT_EQ(refusal({{0u, 0u, 11u}, {1u, 24u, 35u}, {2u, 12u, 23u}}, 2, 1),
            "ingressPipes: ports of tables that interleave not allowed");
  EXPECT_EQ(refusal({{0u, 0u, 23u}, {1u, 24u, 47u}}, 2, 2),
            "pipesPerL2Table: a layer-2 table of more than 32 ports not allowed");
  EXPECT_EQ(refusal({{0u, 0u, 31u}, {1u, 32u, 47u}}, 2, 1), "") << "32 are not too many";
}

TEST(TableConstants, aNumberThatNoTableHasIsFatal) {
  using namespace VelaSwitchTable;
  EXPECT_STREQ(TableConstants::tableName(TableIndex{18}), "SG");
  EXPECT_STREQ(TableConstants::tableName(TableIndex{10}), "Lpm32");
  EXPECT_THAT(fatalText([] { TableConstants::tableName(TableIndex{94}); }),
              StartsWith("tableName"));
}

TEST(HitBits, mappingNamesTriggerDataAndBits) {
  const auto wrapper = VelaSwitchTable::getHitBitMapping("pipeline[0]/processor/", 16, 64, 3);
  const auto& paths = wrapper->addresses().addresses();
  EXPECT_EQ(paths.at(0), "pipeline[0]/processor/hash_ctl");
  EXPECT_EQ(paths.at(1), "pipeline[0]/processor/hash_data0");
  EXPECT_EQ(paths.at(2), "pipeline[0]/processor/hash_data1");
  EXPECT_EQ(wrapper->info().registration(), 3 + 0x24);
  EXPECT_THAT(wrapper->info().bitRegistrations(),
              testing::ElementsAre(VelaSwitchApi::HitBitRecord{0, 31, 2, 1},
                                   VelaSwitchApi::HitBitRecord{0, 31, 2, 2}));
  EXPECT_TRUE(
      VelaSwitchTable::getHitBitMapping("p/", 16, 64, 0)->info().bitRegistrations().empty());
}

}  // namespace
