#include "Support.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "device/AclLookup.h"
#include "device/NatLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::HasSubstr;
using VelaSwitch::L3LagIndex;
using VelaSwitch::NatMatchKey;
using VelaTest::Chip;
using VelaTest::fatalText;
using VelaTest::Started;

NatMatchKey key(U8 natType, U8 proto, const char* source, const char* destination, U16 sport,
                U16 dport, U16 qualifier = 0) {
  return {natType,
          proto,
          Orb::fromText<Ipnet::IpAddr>(destination),
          Orb::fromText<Ipnet::IpAddr>(source),
          dport,
          sport,
          qualifier};
}

NatMatchResult result(U8 proto, U16 rewriteId, bool useAcl, bool trap, U16 lag, U8 rewrite) {
  return {true, proto, rewriteId, useAcl, trap, L3LagIndex(lag), rewrite};
}

NatDynMatchResult dynResult(U8 proto, U16 rewriteId, bool trap, U16 lag, U8 rewrite) {
  return {true, proto, rewriteId, trap, L3LagIndex(lag), rewrite};
}

template <class Table>
std::vector<U32> image(const Table& table, U32 index) {
  const auto& hwTable = *table.profileConvertorPtr()->hwTable(0);
  return {hwTable.image(index), hwTable.image(index) + hwTable.descriptor().rowWords};
}

TEST(NatMatch, rowsAreBitExact) {
  const struct {
    NatMatchKey at;
    NatMatchResult is;
    U32 row;
    std::vector<U32> image;
  } rows[] = {
      {key(1, 2, "10.1.2.3", "9.9.9.9", 4242, 77, 37),
       result(3, 0xABC, true, false, 12, 33),
       5,
       {0x0920a010, 0xeaf3ca91, 0x00000642, 0, 0x00020005, 0x0a010203}},
      {key(0, 1, "10.1.2.3", "9.9.9.9", 0, 0),
       result(0, 1, false, true, 56, 63),
       3759,
       {0x0000a010, 0x00048040, 0x00001c7f, 0, 0x00020eaf, 0x0a010203}},
      {key(2, 7, "9.9.9.9", "198.51.100.7", 0, 0, 63),
       result(1, 4095, false, false, 0, 0),
       1361,
       {0x000c6336, 0x3ffdffe0, 0, 0, 0x00020551, 0xc6336407}},
      {key(3, 1, "9.9.9.9", "198.51.100.7", 5, 443, 1),
       result(2, 7, false, false, 1, 2),
       8,
       {0x1bbc6336, 0x001e8270, 0x00000084, 0, 0x00020008, 0xc6336407}},
  };
  Started<NatMatchTable> chip;
  for (const auto& expected : rows) {
    chip.table->entryIs(expected.at, expected.is);
    EXPECT_EQ(image(*chip.table, expected.row), expected.image);
    const std::vector<U32> registers(expected.image.begin(), expected.image.begin() + 5);
    EXPECT_EQ(chip.row("NatMatch", 0, 0, expected.row), registers);
    EXPECT_EQ(chip.row("NatMatch", 0, 1, expected.row), registers);
    EXPECT_EQ(chip.table->cachedItem(expected.at)->hwCompareEncoding(),
              (U64{expected.image[1]} << 32 | expected.image[0]) & 0x7FFFFFFFFFFF);
    EXPECT_EQ(natMatch(chip.path, 0, expected.at)->natRewriteId(), expected.is.natRewriteId());
  }
}

TEST(NatDynMatch, rowsAreBitExact) {
  Chip chip;
  const auto first = NatDynMatchTableIs("dyn0", 0);
  const auto second = NatDynMatchTableIs("dyn1", 1);
  chip.start(*first);
  chip.start(*second);
  first->entryIs(key(1, 1, "10.1.2.3", "203.0.113.9", 50000, 443, 9),
                 dynResult(1, 0x7ff, true, 33, 21));
  EXPECT_EQ(image(*first, 368), (std::vector<U32>{0x42428040, 0xd432c01c, 0xd6406ef0, 0x008559ff,
                                                  0x00060170, 0x0a010203}));
  second->entryIs(key(3, 2, "10.1.2.3", "203.0.113.9", 50000, 53), dynResult(2, 5, false, 56, 0));
  EXPECT_EQ(image(*second, 965), (std::vector<U32>{0x42428040, 0xd432c01c, 0x7a800d70, 0x00e00001,
                                                   0x000a03c5, 0x0a010203}));
  EXPECT_TRUE(natDynMatch(chip.path, 1, key(0, 2, "10.1.2.3", "203.0.113.9", 50000, 53)));
  EXPECT_FALSE(natDynMatch(chip.path, 0, key(0, 2, "10.1.2.3", "203.0.113.9", 50000, 53)));
}

TEST(AclIndirectCounter, rowsAreBitExact) {
  Started<AclIndirectCounterHashTable> chip("vela-48-5.1",
                                            AclIndirectCounterHashTableIs("counter", 1));
  chip.table->entryIs({U16{0xBEEF}}, {U16{0x123}});
  chip.table->entryIs({U16{1}}, {U16{5000}});
  EXPECT_EQ(image(*chip.table, 783), (std::vector<U32>{0x2477, 0, 0, 0, 0, 0x0004830f, 0x6ef}));
  EXPECT_EQ(image(*chip.table, 1980), (std::vector<U32>{0x7100, 0, 0, 0, 0, 0x000487bc, 1}));
  EXPECT_EQ(chip.row("AclIndirectCounterHash", 1, 0, 783),
            (std::vector<U32>{0x2477, 0, 0, 0, 0, 0x0004830f}));
  EXPECT_EQ(aclCounter(chip.path, 1, 0xBEEF)->counterIndex(), 0x123);
  EXPECT_EQ(aclCounter(chip.path, 1, 1)->counterIndex(), 5000 & 4095);
  EXPECT_FALSE(aclCounter(chip.path, 1, 2));
  const auto properties = chip.table->helper()->doGetPhysTableProperties();
  EXPECT_EQ(properties->tableId(), 57u);
  EXPECT_EQ(chip.table->fwkType().sourceUnit(), "VelaTableAclIndirectCounterHash");
}

TEST(NatMatch, portsOfAddressOnlyKindsMustBeUnset) {
  Started<NatMatchTable> chip;
  const auto announce = [&](const NatMatchKey& at) {
    return fatalText([&] { chip.table->entryIs(at, result(0, 1, false, false, 1, 1)); });
  };
  EXPECT_THAT(announce(key(0, 1, "10.0.0.1", "0.0.0.0", 7, 0)),
              HasSubstr("key.sport() == 0: srcPort should be unset for address-only NAT"));
  EXPECT_THAT(announce(key(2, 1, "0.0.0.0", "10.0.0.1", 0, 7)),
              HasSubstr("key.dport() == 0: dstPort should be unset for address-only NAT"));
  // A row that says otherwise is not an entry, and no reason to stop.
  U32* row = chip.table->profileConvertorPtr()->hwTable(0)->image(9);
  row[0] = 1u << 20;
  row[1] = 1u << 15;
  EXPECT_FALSE(chip.table->helper()->decodeHwEntry(9)->valid());
}

TEST(NatMatch, fieldsAreTracedAndOddProtocolsReported) {
  Started<NatMatchTable> chip;
  const NatMatchKey at = key(1, 2, "10.1.2.3", "0.0.0.0", 4242, 0, 37);
  const auto lines = VelaTest::traced(NatMatchFamily::trace, 9, [&] {
    chip.table->entryIs(at, result(5, 0xABC, true, false, 12, 33));
  });
  for (const char* line :
       {"setHwBuffer 50:61 = 0xabc", "setHwBuffer 48:48 = 0x0", "setStaticBuffer 142:143 = 0x0",
        "getHash 5:36 = 0xa010203", "setHwBuffer unexpected proto=5"}) {
    EXPECT_THAT(lines, testing::Contains(line));
  }
  EXPECT_EQ(natMatch(chip.path, 0, at)->proto(), 0);
}

}  // namespace
