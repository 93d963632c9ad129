#pragma once

#include "VelaSwitchTable/VelaTableLpm.h"
#include "VelaSwitchTable/family/ProcessorTraits.h"

/// The hashed levels of the ladder: their constants, and the row that they share.
namespace VelaSwitchTable {

/// Constants of one hashed level.
struct LpmLevel {
  U8 prefixBaseLen;        ///< Address bits of the key; the shortest real length served.
  U8 keyWidth;             ///< Bits of the key as it is hashed.
  U8 crcLength;            ///< Width of the hash: 10 or 12.
  TableIdentity table;     ///< The level's.
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
    {12, 17, 10, {16, "Lpm14"}},
    {15, 20, 10, {15, "Lpm17"}},
    {18, 23, 10, {14, "Lpm20"}},
    {21, 26, 10, {13, "Lpm23"}},
    {24, 29, 12, {12, "Lpm26"}},
    {27, 41, 12, {11, "Lpm29"}, 1, 29},
    {30, 35, 12, {10, "Lpm32"}},
}};

/// The level that serves real lengths up to `longest`.
template <U8 longest>
inline constexpr const LpmLevel& lpmLevel =
    lpmLevels[(longest - lpmLevels[0].longest()) / (LpmLevel::prefixRange + 1)];

class LpmBaseHelper;

/// The level whose keys have the prefix length; there must be one.
VELA_EXPORT const LpmLevel& lpmLevelOfKey(U8 prefixLen);

/// What all hashed levels share. Hardware keeps of a key what the row does not imply. The words
/// behind the control word have no register: they keep the whole address and the real lengths.
struct VELA_EXPORT LpmBaseFamily : Family<"VelaTableLpmBase", VelaSwitch::LpmKey, LpmResult> {
  /// Index, hash length and place of the hit bits are those of one level; the others have their
  /// own.
  static constexpr HashFamilyTraits traits = layer3Traits({.table = {10, "Lpm32"},
                                                           .rowWords = 7,
                                                           .hashBits = 12,
                                                           .ways = 2,
                                                           .leftAligned = true,
                                                           .hitTableOffset = 10,
                                                           .parityWords = 3,
                                                           .tracesItems = true});
  static constexpr U32 cellBits = 14;
  static constexpr U32 realLengthBits = 6;
  struct Shape {
    const LpmLevel& level = lpmLevels.back();
    U32 vrfBits = 5;
    U32 storedWidth = 23;  ///< Row bits in front of the valid bit.
  };
  static constexpr Shape shapes[] = {
      {lpmLevels.back(), 5, 23}, {lpmLevels.front(), 5, 7}, {lpmLevel<29>, 5, 29}};
  static Shape shape(const LpmBaseHelper& helper);
  static constexpr auto fields(const Shape& shape) {
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
                                    {"realLength0", 192, realLengthBits},
                                    {"realLength1", 192 + realLengthBits, realLengthBits},
                                    {"realLength2", 192 + 2 * realLengthBits, realLengthBits},
                                    {"realLength3", 192 + 3 * realLengthBits, realLengthBits}});
  }

  static constexpr std::array handPacked{"cells"};
  /// Address bits, and the VRF above them.
  static void packKey(const Key& key, KeyBits& bits);
  static void sample(const LpmBaseHelper& helper, U64 bits, Key& key, Result& result);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  /// The same by the CRC that keys of so many bits have, or null.
  static const VelaSwitch::CrcTables<U64>* crc(U8 bits);
  static bool unpackKey(KeyBits bits, const RowReaderOf<LpmBaseFamily>&, Key& key);
  /// A key of another level is a fatal assertion, and so are a VRF that there is not and cells that
  /// the level does not serve.
  static void check(const LpmBaseHelper& helper, const Key& key, const Result& result);
  static void packMore(const LpmBaseHelper& helper, const Key& key, const Result& result,
                       bool valid, CuckooLocation, RowWriterOf<LpmBaseFamily>& row);
  static void unpackMore(const LpmBaseHelper& helper, const RowReaderOf<LpmBaseFamily>& row,
                         Result& result);
};

}  // namespace VelaSwitchTable
