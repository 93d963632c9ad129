#pragma once

#include "Orb/Attribute.h"
#include "VelaSwitchTable/VelaTableLpm.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// Constants of one hashed level.
struct LpmLevel {
  U8 prefixBaseLen;        ///< Address bits of the key; the shortest real length served.
  U8 keyWidth;             ///< Bits of the key as it is hashed.
  U8 crcLength;            ///< Width of the hash: 10 or 12.
  TableIndex hashTableId;  ///< The level's table.
  U8 controlSelector = 0;  ///< Marks the level's rows in the control word.
  U8 paddedKeyWidth = 0;   ///< Row bits that the stored key takes; 0 for no padding.

  /// A level serves this many lengths beyond its shortest.
  static constexpr U8 prefixRange = 2;

  constexpr U8 ipv4DipShift() const { return static_cast<U8>(32 - prefixBaseLen); }
  constexpr U8 storedAddressBits() const { return static_cast<U8>(prefixBaseLen - crcLength); }
  constexpr U8 longest() const { return static_cast<U8>(prefixBaseLen + prefixRange); }
};

/// The hashed levels. Level 29 shares its table with the (*,G) entries: its keys are hashed with
/// zeros where those have a tag, and its stored key is padded to the length of theirs.
inline constexpr std::array<LpmLevel, 7> lpmLevels{{
    {12, 17, 10, TableIndex::lpm14},
    {15, 20, 10, TableIndex::lpm17},
    {18, 23, 10, TableIndex::lpm20},
    {21, 26, 10, TableIndex::lpm23},
    {24, 29, 12, TableIndex::lpm26},
    {27, 41, 12, TableIndex::lpm29, 1, 29},
    {30, 35, 12, TableIndex::lpm32},
}};

class LpmBaseHelper;

/// The level whose keys have the prefix length; there must be one.
VELA_EXPORT const LpmLevel& lpmLevelOfKey(U8 prefixLen);

/// What all hashed levels share; see VelaTableLpmTables.h for the levels.
///
/// Hardware keeps of a key what the row does not imply. The words behind the control word have no
/// register: they keep the whole address and the real lengths.
struct VELA_EXPORT LpmBaseFamily : Family<"VelaTableLpmBase", VelaSwitch::LpmKey, LpmResult> {
  /// Index, hash length and place of the hit bits are those of one level; the others have their
  /// own.
  static constexpr HashFamilyTraits traits{.index = TableIndex::lpm32,
                                           .placement = HashPlacement::everyPipeline,
                                           .prefix = "ingress/processor_l3[%d]/",
                                           .rowWords = 7,
                                           .hashBits = 12,
                                           .ways = 2,
                                           .leftAligned = true,
                                           .rowImpliesKey = true,
                                           .hitBits = true,
                                           .hitTableOffset = 10,
                                           .staticWord = 4,
                                           .parityWords = 3,
                                           .tracesItems = true};
  struct Shape {
    const LpmLevel& level = lpmLevels.back();
    U32 vrfBits = 5;
    U32 storedWidth = 23;  ///< Row bits in front of the valid bit.
  };
  static Shape shape(const LpmBaseHelper& helper);
  static constexpr auto fields(const Shape& shape) {
    constexpr U32 cellBits = 14;
    const U32 address = shape.level.storedAddressBits();
    const U32 cells = shape.storedWidth + 1;
    return std::to_array<RowField>({{"address", 0, address},
                                    {"vrf", address, shape.vrfBits},
                                    {"valid", shape.storedWidth, 1},
                                    {"cell0", cells, cellBits},
                                    {"cell1", cells + cellBits, cellBits},
                                    {"cell2", cells + 2 * cellBits, cellBits},
                                    {"cell3", cells + 3 * cellBits, cellBits},
                                    {"cpuTrap", cells + 4 * cellBits, 1},
                                    {"parity", cells + 4 * cellBits + 1, 1},
                                    {"row", 128, 12},
                                    {"way", 142, 2},
                                    {"one", 145, 1, 1},
                                    {"selector", 146, 4, shape.level.controlSelector},
                                    {"wholeAddress", 160, 32},
                                    {"realLength0", 192, 6},
                                    {"realLength1", 198, 6},
                                    {"realLength2", 204, 6},
                                    {"realLength3", 210, 6}});
  }

  /// Address bits, and the VRF above them.
  static void packKey(const Key& key, KeyBits& bits);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static bool unpackKey(KeyBits bits, const RowReaderOf<LpmBaseFamily>&, Key& key);
  /// A key of another level is a fatal assertion, and so are a VRF that there is not and cells that
  /// the level does not serve.
  static void check(const LpmBaseHelper& helper, const Key& key, const Result& result);
  static void packMore(const LpmBaseHelper& helper, const Key& key, const Result& result,
                       bool valid, CuckooLocation, RowWriterOf<LpmBaseFamily>& row);
  static void unpackMore(const LpmBaseHelper& helper, const RowReaderOf<LpmBaseFamily>& row,
                         Result& result);
};

VELA_HASH_NAMES(LpmBaseFamily, LpmBaseTable, LpmBaseConvertor, LpmBaseHelper,
                LpmBaseTableCuckooEntry, LpmBasePhysicalHashProperties, LpmTableStatus,
                LpmEntryStatus);
VELA_HASH_TEMPLATES(extern, LpmBaseFamily);

/// Keys have the level's prefix length; others are a fatal assertion.
class VELA_EXPORT LpmBaseTable : public HashFamilyTableBase<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBaseTable);

  const LpmLevel& level() const { return lpmLevelOfKey(prefixBaseLen()); }
  /// The shortest real length that the level serves. The level's constructor sets it, once.
  U8 prefixBaseLen() const { return prefixBaseLen_.value(); }
  void prefixBaseLenIs(U8 length) { prefixBaseLen_.is(length); }
  /// For those who want to hear when it changes.
  Orb::Attribute<U8>& prefixBaseLenAttribute() { return prefixBaseLen_; }

  VelaSwitch::LpmKey nullKey() const override;

 protected:
  explicit LpmBaseTable(std::string name) : HashFamilyTableBase(std::move(name)) {}

  /// log2 of the profile's VRF count, which must be 4, 8 or 32: any other is a fatal assertion.
  U8 numVrfBits() const;

 private:
  Orb::Attribute<U8> prefixBaseLen_;
};

class VELA_EXPORT LpmBaseConvertor : public HashFamilyConvertor<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBaseConvertor);

  /// The level's own table, whatever software table the rows are for.
  U32 physicalTableId(const VelaSwitchApi::PhysicalHashProperties& properties) const override;

 protected:
  explicit LpmBaseConvertor(const LpmLevel& level) : level_(level) {}

  TableIndex tableIndex() const override { return level_.hashTableId; }
  U32 hitTableOffset() const override { return static_cast<U32>(level_.hashTableId); }

 private:
  const LpmLevel& level_;
};

class VELA_EXPORT LpmBaseHelper : public HashFamilyHelperBase<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBaseHelper);

  const LpmLevel& level() const { return level_; }
  U8 numVrfBits() const { return numVrfBits_; }
  /// Row bits in front of the valid bit.
  U8 storedWidth() const {
    return std::max(level_.paddedKeyWidth,
                    static_cast<U8>(level_.storedAddressBits() + numVrfBits_));
  }

  /// False for a row with a (*,G) entry, which only level 29 can hold.
  bool entryOwned(HwIndex index) const override;

 protected:
  LpmBaseHelper(const LpmLevel& level, U8 numVrfBits) : level_(level), numVrfBits_(numVrfBits) {}

 private:
  const LpmLevel& level_;
  U8 numVrfBits_;
};

class VELA_EXPORT LpmBaseTableCuckooEntry : public HashFamilyEntry<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBaseTableCuckooEntry);

  LpmBaseTableCuckooEntry(VelaSwitchApi::HashBaseTable* table, const VelaSwitch::LpmKey& key,
                          const LpmLevel& level)
      : HashFamilyEntry(table, key), level_(level) {}

  /// A hash of another length than 10 or 12 is a fatal assertion.
  U32 getHash(U8 way) const override;

  U8 ipv4DipShift() const { return level_.ipv4DipShift(); }
  U8 keyWidth() const { return level_.keyWidth; }
  U8 crcLength() const { return level_.crcLength; }

 private:
  const LpmLevel& level_;
};

class VELA_EXPORT LpmBasePhysicalHashProperties : public HashFamilyProperties<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBasePhysicalHashProperties);

 protected:
  explicit LpmBasePhysicalHashProperties(const LpmLevel& level)
      : HashFamilyProperties(static_cast<U32>(level.hashTableId), level.crcLength) {}
};

VELA_CLASS(LpmBaseFamily, LpmTableStatus, HashFamilyTableStatus);
VELA_FACTORY(LpmTableStatus, LpmTableStatusIs, ());

}  // namespace VelaSwitchTable
