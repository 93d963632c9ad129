#pragma once

#include "Orb/Attribute.h"
#include "VelaSwitchTable/family/LpmRow.h"

/// The classes that all hashed levels share; see VelaTableLpmTables.h for the levels.
namespace VelaSwitchTable {

VELA_HASH_NAMES(LpmBaseFamily, LpmBaseTable, LpmBaseConvertor, LpmBaseHelper,
                LpmBaseTableCuckooEntry, LpmBasePhysicalHashProperties, LpmTableStatus,
                LpmEntryStatus);
extern template class HashFamilyTableBase<LpmBaseFamily>;
extern template class HashFamilyHelperBase<LpmBaseFamily>;
extern template class HashFamilyEntry<LpmBaseFamily>;
extern template class HashFamilyProperties<LpmBaseFamily>;

/// Keys have the level's prefix length; others are a fatal assertion.
class VELA_EXPORT LpmBaseTable : public HashFamilyTableBase<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBaseTable);

  /// Widths and lengths of the level.
  const LpmLevel& level() const { return lpmLevelOfKey(prefixBaseLen()); }
  /// The shortest real length that the level serves. The level's constructor sets it, once.
  U8 prefixBaseLen() const { return prefixBaseLen_.value(); }
  /// Others than that of a level are refused by level().
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

  TableIdentity table() const override { return level_.table; }
  U32 hitTableOffset() const override { return level_.table.number; }

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

  using HashFamilyEntry::HashFamilyEntry;

  /// A hash of another length than 10 or 12 is a fatal assertion.
  U32 getHash(U8 way) const override;

  /// Widths and lengths of the level.
  const LpmLevel& level() const { return lpmLevelOfKey(key().prefix().len()); }
  U8 ipv4DipShift() const { return level().ipv4DipShift(); }
  U8 keyWidth() const { return level().keyWidth; }
  U8 crcLength() const { return level().crcLength; }
};
static_assert(sizeof(LpmBaseTableCuckooEntry) + Orb::Slab::inFront == 2 * Orb::Slab::line);

class VELA_EXPORT LpmBasePhysicalHashProperties : public HashFamilyProperties<LpmBaseFamily> {
 public:
  VELA_REGISTERED(LpmBaseFamily, LpmBasePhysicalHashProperties);

 protected:
  explicit LpmBasePhysicalHashProperties(const LpmLevel& level)
      : HashFamilyProperties(level.table.number, level.crcLength) {}
};

VELA_DECLARE(LpmBaseFamily, TableStatus, LpmTableStatus, HashFamilyTableStatus, (), ());
VELA_CLASS(LpmBaseFamily, LpmTableStatus, HashFamilyTableStatus);

}  // namespace VelaSwitchTable
