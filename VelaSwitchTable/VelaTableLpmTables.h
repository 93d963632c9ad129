#pragma once

#include "VelaSwitchTable/VelaTableLpmBase.h"

/// The seven hashed levels: each is named after the longest real length that it serves, and is the
/// common base with the constants of its line in lpmLevels.
namespace VelaSwitchTable {

/// What a level says of itself to the templates below; ClassesOf names its classes.
template <U8 longest>
struct VELA_EXPORT LpmLevelFamily {
  static constexpr const char* sourceUnit = "VelaTableLpmTables";
  static constexpr const LpmLevel& level = lpmLevel<longest>;
  static_assert(level.longest() == longest);
};

template <class L>
class VELA_EXPORT LpmLevelTableCuckooEntry : public LpmBaseTableCuckooEntry {
 public:
  explicit LpmLevelTableCuckooEntry(const VelaSwitch::LpmKey& key)
      : LpmLevelTableCuckooEntry(nullptr, key) {}
  LpmLevelTableCuckooEntry(VelaSwitchApi::HashBaseTable* table, const VelaSwitch::LpmKey& key)
      : LpmBaseTableCuckooEntry(table, key, L::level) {}
};

template <class L>
class VELA_EXPORT LpmLevelPhysicalHashProperties : public LpmBasePhysicalHashProperties {
 public:
  LpmLevelPhysicalHashProperties() : LpmBasePhysicalHashProperties(L::level) {}
};

template <class L>
class VELA_EXPORT LpmLevelConvertor : public LpmBaseConvertor {
 public:
  LpmLevelConvertor() : LpmBaseConvertor(L::level) {}
};

template <class L>
class VELA_EXPORT LpmLevelHelper : public LpmBaseHelper {
 public:
  explicit LpmLevelHelper(U8 numVrfBits) : LpmBaseHelper(L::level, numVrfBits) {}

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<typename ClassesOf<L>::PhysicalHashProperties>();
  }
};

template <class L>
class VELA_EXPORT LpmLevelTable : public LpmBaseTable {
 public:
  explicit LpmLevelTable(std::string name) : LpmBaseTable(std::move(name)) {
    prefixBaseLenIs(L::level.prefixBaseLen);
  }

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<L>::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename ClassesOf<L>::Helper>(numVrfBits());
  }
  Orb::Ptr<LpmBaseTableCuckooEntry> newItem(const VelaSwitch::LpmKey& key) override {
    return makeItem<typename ClassesOf<L>::CuckooEntry>(key);
  }
};

// A level's classes and factories, the latter by either of their names (Lpm14TableIs and
// lpm14TableFactory).

/// A class of a level with its factories.
#define VELA_LPM_CLASS(longest, What, parameters)                          \
  VELA_CLASS(LpmLevelFamily<longest>, Lpm##longest##What, LpmLevel##What); \
  VELA_FACTORY(Lpm##longest##What, Lpm##longest##What##Is, parameters);    \
  VELA_FACTORY(Lpm##longest##What, lpm##longest##What##Factory, parameters)

#define VELA_LPM_LEVEL(longest)                                               \
  class Lpm##longest##Table;                                                  \
  class Lpm##longest##Convertor;                                              \
  class Lpm##longest##Helper;                                                 \
  class Lpm##longest##TableCuckooEntry;                                       \
  class Lpm##longest##PhysicalHashProperties;                                 \
  template <>                                                                 \
  struct ClassesOf<LpmLevelFamily<longest>> {                                 \
    using Table = Lpm##longest##Table;                                        \
    using Convertor = Lpm##longest##Convertor;                                \
    using Helper = Lpm##longest##Helper;                                      \
    using CuckooEntry = Lpm##longest##TableCuckooEntry;                       \
    using PhysicalHashProperties = Lpm##longest##PhysicalHashProperties;      \
  };                                                                          \
  VELA_LPM_CLASS(longest, TableCuckooEntry, (const VelaSwitch::LpmKey& key)); \
  VELA_LPM_CLASS(longest, PhysicalHashProperties, ());                        \
  VELA_LPM_CLASS(longest, Convertor, ());                                     \
  VELA_LPM_CLASS(longest, Helper, (U8 numVrfBits));                           \
  VELA_LPM_CLASS(longest, Table, (const std::string& name))

VELA_LPM_LEVEL(14);
VELA_LPM_LEVEL(17);
VELA_LPM_LEVEL(20);
VELA_LPM_LEVEL(23);
VELA_LPM_LEVEL(26);
VELA_LPM_LEVEL(29);
VELA_LPM_LEVEL(32);

/// Makes the level that serves real lengths up to `longest`: 14, 17, … 32.
VELA_EXPORT Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name);

}  // namespace VelaSwitchTable
