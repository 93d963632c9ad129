#pragma once

#include "VelaSwitchTable/VelaTableLpmBase.h"

/// The seven hashed levels: each is named after the longest real length that it serves, and is the
/// common base with the constants of its line in lpmLevels.
namespace VelaSwitchTable {

/// The level that serves real lengths up to `longest`.
template <U8 longest>
inline constexpr const LpmLevel& lpmLevel =
    lpmLevels[(longest - lpmLevels[0].longest()) / (LpmLevel::prefixRange + 1)];

/// "VelaSwitchTable::LpmNN" and the suffix, with the level's number for NN.
template <U8 longest, Orb::FixedString suffix>
struct LpmLevelName {
  static_assert(lpmLevel<longest>.longest() == longest);
  static constexpr auto chars = [] {
    constexpr std::string_view start = "VelaSwitchTable::Lpm";
    std::array<char, start.size() + 2 + suffix.view().size() + 1> name{};
    char* end = std::copy(start.begin(), start.end(), name.begin());
    *end++ = '0' + longest / 10;
    *end++ = '0' + longest % 10;
    std::copy(suffix.view().begin(), suffix.view().end(), end);
    return name;
  }();
};

template <U8 longest>
class LpmLevelTableCuckooEntry final : public LpmBaseTableCuckooEntry {
 public:
  LpmLevelTableCuckooEntry(VelaSwitchApi::HashBaseTable* table, const VelaSwitch::LpmKey& key)
      : LpmBaseTableCuckooEntry(table, key, lpmLevel<longest>) {}
};

template <U8 longest>
class LpmLevelPhysicalHashProperties final : public LpmBasePhysicalHashProperties {
 public:
  LpmLevelPhysicalHashProperties() : LpmBasePhysicalHashProperties(lpmLevel<longest>) {}
};

template <U8 longest>
class LpmLevelConvertor final : public LpmBaseConvertor {
 public:
  static constexpr const char* typeName = LpmLevelName<longest, "Convertor">::chars.data();
  static constexpr const char* sourceUnit = "VelaTableLpmTables";
  const Orb::Type& fwkType() const override { return Orb::registeredType<LpmLevelConvertor>; }

  LpmLevelConvertor() : LpmBaseConvertor(lpmLevel<longest>) {}
};

template <U8 longest>
class LpmLevelHelper final : public LpmBaseHelper {
 public:
  explicit LpmLevelHelper(U8 numVrfBits) : LpmBaseHelper(lpmLevel<longest>, numVrfBits) {}

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<LpmLevelPhysicalHashProperties<longest>>();
  }
};

template <U8 longest>
class LpmLevelTable final : public LpmBaseTable {
 public:
  static constexpr const char* typeName = LpmLevelName<longest, "Table">::chars.data();
  static constexpr const char* sourceUnit = "VelaTableLpmTables";
  const Orb::Type& fwkType() const override { return Orb::registeredType<LpmLevelTable>; }

  explicit LpmLevelTable(std::string name) : LpmBaseTable(std::move(name), lpmLevel<longest>) {}

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<LpmLevelConvertor<longest>>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<LpmLevelHelper<longest>>(numVrfBits());
  }
  Orb::Ptr<LpmBaseTableCuckooEntry> newItem(const VelaSwitch::LpmKey& key) override {
    return Orb::make<LpmLevelTableCuckooEntry<longest>>(this, key);
  }
};

using Lpm14Table = LpmLevelTable<14>;
using Lpm14Convertor = LpmLevelConvertor<14>;
using Lpm14Helper = LpmLevelHelper<14>;
using Lpm14TableCuckooEntry = LpmLevelTableCuckooEntry<14>;
using Lpm14PhysicalHashProperties = LpmLevelPhysicalHashProperties<14>;

using Lpm17Table = LpmLevelTable<17>;
using Lpm17Convertor = LpmLevelConvertor<17>;
using Lpm17Helper = LpmLevelHelper<17>;
using Lpm17TableCuckooEntry = LpmLevelTableCuckooEntry<17>;
using Lpm17PhysicalHashProperties = LpmLevelPhysicalHashProperties<17>;

using Lpm20Table = LpmLevelTable<20>;
using Lpm20Convertor = LpmLevelConvertor<20>;
using Lpm20Helper = LpmLevelHelper<20>;
using Lpm20TableCuckooEntry = LpmLevelTableCuckooEntry<20>;
using Lpm20PhysicalHashProperties = LpmLevelPhysicalHashProperties<20>;

using Lpm23Table = LpmLevelTable<23>;
using Lpm23Convertor = LpmLevelConvertor<23>;
using Lpm23Helper = LpmLevelHelper<23>;
using Lpm23TableCuckooEntry = LpmLevelTableCuckooEntry<23>;
using Lpm23PhysicalHashProperties = LpmLevelPhysicalHashProperties<23>;

using Lpm26Table = LpmLevelTable<26>;
using Lpm26Convertor = LpmLevelConvertor<26>;
using Lpm26Helper = LpmLevelHelper<26>;
using Lpm26TableCuckooEntry = LpmLevelTableCuckooEntry<26>;
using Lpm26PhysicalHashProperties = LpmLevelPhysicalHashProperties<26>;

using Lpm29Table = LpmLevelTable<29>;
using Lpm29Convertor = LpmLevelConvertor<29>;
using Lpm29Helper = LpmLevelHelper<29>;
using Lpm29TableCuckooEntry = LpmLevelTableCuckooEntry<29>;
using Lpm29PhysicalHashProperties = LpmLevelPhysicalHashProperties<29>;

using Lpm32Table = LpmLevelTable<32>;
using Lpm32Convertor = LpmLevelConvertor<32>;
using Lpm32Helper = LpmLevelHelper<32>;
using Lpm32TableCuckooEntry = LpmLevelTableCuckooEntry<32>;
using Lpm32PhysicalHashProperties = LpmLevelPhysicalHashProperties<32>;

/// Makes the level that serves real lengths up to `longest`: 14, 17, … 32.
VELA_EXPORT Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name);

}  // namespace VelaSwitchTable
