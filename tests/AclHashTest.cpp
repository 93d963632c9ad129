#include "Support.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "device/AclLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAreArray;
using testing::StartsWith;
using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaTest::fatalText;
using VelaTest::Started;

Ipnet::IpAddr ip(const char* text) { return Orb::fromText<Ipnet::IpAddr>(text); }

AclHashKey aclKey(U32 aclId, U8 type, const char* source, const char* destination, U8 qualifier,
                  U16 port, U32 natId = 0, U8 natDirection = 0) {
  return {.aclId = aclId,
          .type = type,
          .srcIp = ip(source),
          .dstIp = ip(destination),
          .qualifier = qualifier,
          .l4Port = port,
          .natId = natId,
          .natDirection = natDirection};
}

AclHashKey randomKey(VelaTest::Random& random) {
  return {.aclId = random() % 16,
          .type = static_cast<U8>(random() % 19),
          .srcIp = Ipnet::IpAddr(random()),
          .dstIp = Ipnet::IpAddr(random()),
          .qualifier = static_cast<U8>(random() % 16),
          .l4Port = static_cast<U16>(random()),
          .natId = random() % 8,
          .natDirection = static_cast<U8>(random() % 2)};
}

struct AclCase {
  AclHashKey key;
  AclHashResult result;
  U32 row;
  std::vector<U32> words;  ///< Five data words and the control word.
};

AclCase aclCase(U32 row, AclHashResult result, AclHashKey key, std::vector<U32> words) {
  return {key, result, row, std::move(words)};
}

/// All four key layouts at both borders of their type codes, wildcards, the qualifier that types 3,
/// 7 and 11 ignore, and the extremes of the result.
const AclCase aclCases[] = {
    aclCase(1983, {200, 4095}, aclKey(5, 6, "1.2.3.4", "10.1.2.3", 9, 443),
            {0x008101e5, 0x000ddc85, 0x10000000, 0x0003fff9, 0, 0x87bf}),
    aclCase(1851, {1, 1}, aclKey(5, 3, "1.2.3.4", "0.0.0.0", 9, 0),
            {0xffffffb5, 0x07ffffff, 0x30000000, 0x00020020, 0, 0x873b}),
    aclCase(419, {128, 2048}, aclKey(1, 15, "192.168.0.1", "10.1.2.3", 2, 80, 5, 1),
            {0x2a00004b, 0x804080f0, 0x1c000002, 0x00010010, 0, 0x81a3}),
    aclCase(434, {128, 2048}, aclKey(1, 18, "0.0.0.0", "0.0.0.0", 2, 80, 7, 0),
            {0xfffffffe, 0xffffffff, 0x1c00003f, 0x00010010, 0, 0x81b2}),
    aclCase(371, {255, 0x801}, aclKey(15, 7, "192.168.0.1", "10.1.2.3", 2, 80),
            {0x2a00004f, 0x000143f0, 0xf4000000, 0x0001003f, 0, 0x8173}),
    aclCase(1608, {0, 0}, aclKey(1, 10, "0.0.0.0", "10.1.2.3", 2, 0),
            {0xfffffff1, 0x03fffcbf, 0x14000000, 0x00000000, 0, 0x8648}),
    aclCase(15, {7, 99}, aclKey(1, 11, "192.168.0.1", "10.1.2.3", 2, 80),
            {0x804080c1, 0x2a000042, 0xf80143f0, 0x00000c60, 0, 0x800f}),
    aclCase(379, {7, 99}, aclKey(1, 14, "192.168.0.1", "10.1.2.3", 2, 80),
            {0x804080f1, 0x2a000042, 0xf80140b0, 0x00020c60, 0, 0x817b}),
};

TEST(AclHash, rowsAreBitExact) {
  for (const char* profile : {"vela-48-5.1", "vela-48-4.1"}) {
    for (const AclCase& expected : aclCases) {
      Started<AclHashTable> chip(profile, aclHashTableFactory("acl", 1, 1));
      chip.table->entryIs(expected.key, expected.result);
      std::vector<U32> words = expected.words;
      const bool wide = chip.profile->fields().aclWideRows();
      if (!wide) words.erase(words.begin() + 4);
      EXPECT_THAT(chip.row("AclHash", 1, 0, expected.row), ElementsAreArray(words))
          << Orb::text(expected.key);
      EXPECT_EQ(chip.chip.registerValue("ingress/processor_acl[1]/hash_ctl"), words.back());
      EXPECT_EQ(acl(chip.path, 1, expected.key), expected.result);
    }
  }
}

TEST(AclHash, anEmptyRowHasItsPlaceAlone) {
  Started<AclHashTable> chip;
  EXPECT_THAT(chip.row("AclHash", 0, 0, 2048 + 5), ElementsAreArray({0, 0, 0, 0, 0, 0x8805}));
}

TEST(AclHash, decodingGivesBackWhatWasPacked) {
  VelaTest::Random random;
  Started<AclHashTable> chip;
  for (int i = 0; i < 5000; ++i) {
    AclHashKey key = randomKey(random);
    const AclHashResult result{random() % 256, random() % 4096};
    chip.table->entryDelAll();
    chip.table->entryIs(key, result);
    const auto item = chip.table->cachedItem(key);
    const auto decoded = chip.table->helper()->decodeHwEntry(
        chip.table->profileConvertor().physicalTable().indexOf(*item));
    ASSERT_TRUE(decoded->valid());
    ASSERT_TRUE(decoded->isEqual(*item)) << Orb::text(key);
    const auto& entry = static_cast<const AclHashTableCuckooEntry&>(*decoded);
    ASSERT_EQ(entry.result(), result);
    // Spelled from the row alone, the key packs to the same row again.
    ASSERT_EQ(entry.key().type(), key.type());
    ASSERT_EQ(entry.getHash(0), item->getHash(0));
  }
}

TEST(AclHash, waitsForInitializationWithoutATrace) {
  VelaTest::Chip chip;
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.create(*table);
  auto lines = VelaTest::traced(AclHashFamily::trace, 8, [&] {
    table->entryIs(aclCases[0].key, {1, 1});
    EXPECT_EQ(table->tableStatus()->entryStatus(aclCases[0].key), std::nullopt);
  });
  EXPECT_TRUE(lines.empty());
  lines = VelaTest::traced(AclHashFamily::trace, 8, [&] {
    table->initHwEntries(true);
    table->initializedIs(true);
    EXPECT_EQ(acl(chip.path, 0, aclCases[0].key), (AclHashResult{1, 1}));
    table->entryDel(aclCases[0].key);
    table->handleEntry(aclCases[1].key);
  });
  for (std::string& line : lines) line.resize(std::min(line.find("Value"), line.size()));
  const std::string handle = "VelaSwitchTable::AclHashTable::handleEntry ";
  EXPECT_THAT(lines, testing::ElementsAre(handle, "entry has no status", "Programming Entry ",
                                          handle, "entry has status: ", "Removing Entry ", handle,
                                          "entry has no status", "Removing Entry "));
  EXPECT_EQ(table->tableStatus()->entryStatuses().size(), 0u);
}

TEST(AclHash, internalErrorsHaveTheirTexts) {
  AclHashTable unused("acl");
  const auto item = aclHashTableCuckooEntryFactory(aclCases[0].key);
  U8 buffer[13];
  EXPECT_THAT(fatalText([&] { item->copyKeyToBuffer(buffer, 12); }), StartsWith("bufSize >= 13"));
  EXPECT_EQ(item->copyKeyToBuffer(buffer, 13), 59);
  EXPECT_THAT(fatalText([&] { unused.entryIsByHashItem(*item); }), StartsWith("hashItem->valid()"));
}

}  // namespace
