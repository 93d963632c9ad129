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
  using LpmBaseTableCuckooEntry::LpmBaseTableCuckooEntry;
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

/// The table of a level: Lpm14Table, made by Lpm14TableIs(name), to Lpm32Table.
template <class L>
class VELA_EXPORT LpmLevelTable : public LpmBaseTable {
 public:
  /// `name` is for traces.
  explicit LpmLevelTable(std::string name) : LpmBaseTable(std::move(name)) {
    prefixBaseLenIs(L::level.prefixBaseLen);
  }

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<L>::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename ClassesOf<L>::Helper>(numVrfBits());
  }

 protected:
  HashFamilyEntry<LpmBaseFamily>* newRecord(const VelaSwitch::LpmKey& key, U32 tag) override {
    return new (slab()) typename ClassesOf<L>::CuckooEntry(this, key, tag);
  }
};

/// A level's classes: what each is to the level, its name, and its factory. The latter goes by two
/// names, as Lpm14TableIs and lpm14TableFactory.
#define VELA_LPM_LIST(Do, longest)                                                    \
  Do(longest, CuckooEntry, TableCuckooEntry, (const VelaSwitch::LpmKey& key), (key)); \
  Do(longest, PhysicalHashProperties, PhysicalHashProperties, (), ());                \
  Do(longest, Convertor, Convertor, (), ());                                          \
  Do(longest, Helper, Helper, (U8 numVrfBits), (numVrfBits));                         \
  Do(longest, Table, Table, (const std::string& name), (name))
/// The levels.
#define VELA_LPM_LEVELS(Do) \
  Do(14);                   \
  Do(17);                   \
  Do(20);                   \
  Do(23);                   \
  Do(26);                   \
  Do(29);                   \
  Do(32)

#define VELA_LPM_FORWARD(longest, What, Class, parameters, arguments) class Lpm##longest##Class
#define VELA_LPM_NAME(longest, What, Class, parameters, arguments) using What = Lpm##longest##Class
#define VELA_LPM_CLASS(longest, What, Class, parameters, arguments)          \
  VELA_CLASS(LpmLevelFamily<longest>, Lpm##longest##Class, LpmLevel##Class); \
  VELA_FACTORY(Lpm##longest##Class, Lpm##longest##Class##Is, parameters);    \
  VELA_FACTORY(Lpm##longest##Class, lpm##longest##Class##Factory, parameters)
#define VELA_LPM_LEVEL(longest)               \
  VELA_LPM_LIST(VELA_LPM_FORWARD, longest);   \
  template <>                                 \
  struct ClassesOf<LpmLevelFamily<longest>> { \
    VELA_LPM_LIST(VELA_LPM_NAME, longest);    \
  };                                          \
  VELA_LPM_LIST(VELA_LPM_CLASS, longest)

VELA_LPM_LEVELS(VELA_LPM_LEVEL);

/// Makes the level that serves real lengths up to `longest`: 14, 17, … 32.
VELA_EXPORT Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name);

}  // namespace VelaSwitchTable
