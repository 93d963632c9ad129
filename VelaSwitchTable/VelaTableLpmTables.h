#pragma once

#include "VelaSwitchTable/VelaTableLpmBase.h"

/// The seven hashed levels: each is named after the longest real length that it serves, and is the
/// common base with the constants of its line in lpmLevels.
namespace VelaSwitchTable {

/// The level that serves real lengths up to `longest`.
template <U8 longest>
inline constexpr const LpmLevel& lpmLevel =
    lpmLevels[(longest - lpmLevels[0].longest()) / (LpmLevel::prefixRange + 1)];

/// What a level says of itself to the templates below.
template <U8 longest, class TableType, class ConvertorType, class HelperType, class CuckooEntryType,
          class PropertiesType>
struct LpmLevelTypes {
  static constexpr const char* sourceUnit = "VelaTableLpmTables";
  static constexpr const LpmLevel& level = lpmLevel<longest>;
  static_assert(level.longest() == longest);
  using Table = TableType;
  using Convertor = ConvertorType;
  using Helper = HelperType;
  using CuckooEntry = CuckooEntryType;
  using PhysicalHashProperties = PropertiesType;
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
    return Orb::make<typename L::PhysicalHashProperties>();
  }
};

template <class L>
class VELA_EXPORT LpmLevelTable : public LpmBaseTable {
 public:
  explicit LpmLevelTable(std::string name) : LpmBaseTable(std::move(name)) {
    prefixBaseLenIs(L::level.prefixBaseLen);
  }

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename L::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename L::Helper>(numVrfBits());
  }
  Orb::Ptr<LpmBaseTableCuckooEntry> newItem(const VelaSwitch::LpmKey& key) override {
    return Orb::make<typename L::CuckooEntry>(this, key);
  }
};

// A level's classes and factories, the latter by either of their names (Lpm14TableIs and
// lpm14TableFactory).

#define VELA_LPM_TEMPLATES(instantiate, Level)                \
  instantiate template class LpmLevelTable<Level>;            \
  instantiate template class LpmLevelConvertor<Level>;        \
  instantiate template class LpmLevelHelper<Level>;           \
  instantiate template class LpmLevelTableCuckooEntry<Level>; \
  instantiate template class LpmLevelPhysicalHashProperties<Level>

#define VELA_LPM_LEVEL(Level, longest, Table, Convertor, Helper, CuckooEntry, Properties)       \
  struct VELA_EXPORT Level : LpmLevelTypes<longest, class Table, class Convertor, class Helper, \
                                           class CuckooEntry, class Properties> {};             \
  VELA_LPM_TEMPLATES(extern, Level);                                                            \
  VELA_CLASS(Level, Table, LpmLevelTable);                                                      \
  VELA_CLASS(Level, Convertor, LpmLevelConvertor);                                              \
  VELA_CLASS(Level, Helper, LpmLevelHelper);                                                    \
  VELA_CLASS(Level, CuckooEntry, LpmLevelTableCuckooEntry);                                     \
  VELA_CLASS(Level, Properties, LpmLevelPhysicalHashProperties);                                \
  VELA_FACTORY(Table, Table##Is, (const std::string& name));                                    \
  VELA_FACTORY(Table, lpm##longest##TableFactory, (const std::string& name));                   \
  VELA_FACTORY(Convertor, Convertor##Is, ());                                                   \
  VELA_FACTORY(Convertor, lpm##longest##ConvertorFactory, ());                                  \
  VELA_FACTORY(Helper, Helper##Is, (U8 numVrfBits));                                            \
  VELA_FACTORY(Helper, lpm##longest##HelperFactory, (U8 numVrfBits));                           \
  VELA_FACTORY(CuckooEntry, CuckooEntry##Is, (const VelaSwitch::LpmKey& key));                  \
  VELA_FACTORY(CuckooEntry, lpm##longest##TableCuckooEntryFactory,                              \
               (const VelaSwitch::LpmKey& key));                                                \
  VELA_FACTORY(Properties, Properties##Is, ());                                                 \
  VELA_FACTORY(Properties, lpm##longest##PhysicalHashPropertiesFactory, ())

#define VELA_LPM_LEVEL_DEFINE(Level, longest, Table, Convertor, Helper, CuckooEntry, Properties) \
  VELA_LPM_TEMPLATES(, Level);                                                                   \
  VELA_REGISTERED_DEFINE(Table)                                                                  \
  VELA_REGISTERED_DEFINE(Convertor)                                                              \
  VELA_REGISTERED_DEFINE(Helper)                                                                 \
  VELA_REGISTERED_DEFINE(CuckooEntry)                                                            \
  VELA_REGISTERED_DEFINE(Properties)                                                             \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name), (name))                       \
  VELA_FACTORY_DEFINE(Table, lpm##longest##TableFactory, (const std::string& name), (name))      \
  VELA_FACTORY_DEFINE(Convertor, Convertor##Is, (), ())                                          \
  VELA_FACTORY_DEFINE(Convertor, lpm##longest##ConvertorFactory, (), ())                         \
  VELA_FACTORY_DEFINE(Helper, Helper##Is, (U8 numVrfBits), (numVrfBits))                         \
  VELA_FACTORY_DEFINE(Helper, lpm##longest##HelperFactory, (U8 numVrfBits), (numVrfBits))        \
  VELA_FACTORY_DEFINE(CuckooEntry, CuckooEntry##Is, (const VelaSwitch::LpmKey& key), (key))      \
  VELA_FACTORY_DEFINE(CuckooEntry, lpm##longest##TableCuckooEntryFactory,                        \
                      (const VelaSwitch::LpmKey& key), (key))                                    \
  VELA_FACTORY_DEFINE(Properties, Properties##Is, (), ())                                        \
  VELA_FACTORY_DEFINE(Properties, lpm##longest##PhysicalHashPropertiesFactory, (), ())

VELA_LPM_LEVEL(Lpm14Level, 14, Lpm14Table, Lpm14Convertor, Lpm14Helper, Lpm14TableCuckooEntry,
               Lpm14PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm17Level, 17, Lpm17Table, Lpm17Convertor, Lpm17Helper, Lpm17TableCuckooEntry,
               Lpm17PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm20Level, 20, Lpm20Table, Lpm20Convertor, Lpm20Helper, Lpm20TableCuckooEntry,
               Lpm20PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm23Level, 23, Lpm23Table, Lpm23Convertor, Lpm23Helper, Lpm23TableCuckooEntry,
               Lpm23PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm26Level, 26, Lpm26Table, Lpm26Convertor, Lpm26Helper, Lpm26TableCuckooEntry,
               Lpm26PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm29Level, 29, Lpm29Table, Lpm29Convertor, Lpm29Helper, Lpm29TableCuckooEntry,
               Lpm29PhysicalHashProperties);
VELA_LPM_LEVEL(Lpm32Level, 32, Lpm32Table, Lpm32Convertor, Lpm32Helper, Lpm32TableCuckooEntry,
               Lpm32PhysicalHashProperties);

/// Makes the level that serves real lengths up to `longest`: 14, 17, … 32.
VELA_EXPORT Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name);

}  // namespace VelaSwitchTable
