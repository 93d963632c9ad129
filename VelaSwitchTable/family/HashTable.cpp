#include "VelaSwitchTable/family/HashTable.h"

#include "VelaSwitchTable/VelaHitBitUtil.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"

namespace VelaSwitchTable {

using namespace VelaSwitchApi;

HashTable::HashTable(std::string name, U8 tableIdx, U8 pipeline, const HashFamilyTraits& traits,
                     const Trace::Handle& trace)
    : HashBaseTable(std::move(name), tableIdx, pipeline), traits_(traits), trace_(trace) {
  hwTablesDuplicateIs(traits.placement == HashPlacement::everyPipeline);
  statusSupportedIs(true);
  hitBitsSupportedIs(traits.hitBits);
}

void HashTable::reactorTeardown() {
  if (profileConvertorPtr()) profileConvertor().swTableDel(this);
}

void HashTable::lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) {
  // A family may record hits although its table does not declare hit bits.
  if (traits_.hitTableOffset == noHitTable)
    return HashBaseTable::lastHitByHashItemIs(hashItem, time);
  auto& item = static_cast<HashBaseCuckooEntry&>(hashItem);
  if (!isCurrent(item) || time < item.lastHit()) return;
  item.lastHitIs(time);
  if (!statusSupported()) return;
  statusIs(item);
  // Whoever heard of it may have withdrawn the entry, or announced it anew.
  if (!isCurrent(item)) return;
  ORB_ASSERT_TEXT(item.lastHit() == recordedHit(item), "item.lastHit() == status.lastHit()");
}

void HashTable::entryStatusIsByHashItem(HashItem& hashItem) {
  const auto& item = static_cast<const HashBaseCuckooEntry&>(hashItem);
  if (!isCurrent(item)) return;
  if (item.programmedStatus() == EntryProgrammedStatus::programmed) {
    traceItem("Programming Entry ", item);
  }
  recordStatus(item);
}

bool HashTable::isCurrent(const HashBaseCuckooEntry& item) const {
  if (!entryHasByHashItem(item)) return false;
  const Orb::Ptr<HashBaseCuckooEntry> cached = cachedCuckooEntry(item);
  return !cached || cached.get() == &item;
}

HashBaseCuckooEntry* HashTable::placedItem(const HashBaseCuckooEntry& item) const {
  if (!profileConvertorPtr()) return nullptr;
  for (const auto& placed : profileConvertor().physicalTable().equals(item)) {
    if (placed->isSpelledAs(item)) return placed.get();
  }
  return nullptr;
}

void HashTable::handleItem(HashBaseCuckooEntry& item) {
  profileConvertor().updateHashEntryCounter(item, false);
  if (item.valid()) {
    program(item);
  } else {
    remove(item);
  }
}

void HashTable::program(HashBaseCuckooEntry& item) {
  traceItem("Programming Entry ", item);
  profileConvertor().handleHashEntry(item);
  // Whoever heard of other entries' statuses meanwhile may have withdrawn this one.
  if (!isCurrent(item)) return;
  recordStatus(item);
  const EntryProgrammedStatus status = item.programmedStatus();
  if (status != EntryProgrammedStatus::programmed && trace_.enabled(2)) {
    trace_(2, "Not programmed, ", status, ": ", keyText(item));
  }
  hwInconsistentEntryDelFromHashItem(item);
}

void HashTable::remove(HashBaseCuckooEntry& item) {
  traceItem("Removing Entry ", item);
  const bool success = profileConvertor().handleHashEntry(item);
  ORB_ASSERT(success);
  // Or announced it again.
  if (entryHasByHashItem(item)) return;
  hashItemDelFromHashItem(item);
  // A row that could not be cleared still answers lookups: the status says so until it is.
  // Asked of the rows, not of the item: clearing others may have cleared it meanwhile.
  if (profileConvertor().physicalTable().mayLinger(item)) {
    recordStatus(item);
  } else if (statusSupported()) {
    statusDel(item);
  }
  hwInconsistentEntryDelFromHashItem(item);
}

void HashTable::traceItem(const char* what, const HashBaseCuckooEntry& item) const {
  if (!trace_.enabled(1)) return;
  trace_(1, what, traits_.tracesItems ? item.toStrep() : keyText(item));
}

void HashTableConvertor::doCreateHwTables(TableState state) {
  const SwTable* swTblBase = swTable();
  ORB_ASSERT(swTblBase);
  const auto* swTbl = dynamic_cast<const HashBaseTable*>(swTblBase);
  ORB_ASSERT(swTbl);
  if (!swTbl->hwTablesDuplicate()) return createHwTable(0, swTbl->tableIdx(), state);
  for (U32 pipeline = 0; pipeline < profile().pipelines(); ++pipeline) {
    createHwTable(pipeline, pipeline, state);
  }
}

void HashTableConvertor::handleInitialized() {
  if (traits_.staticWord >= 0) hwStaticWordIs(static_cast<U8>(traits_.staticWord), 0xFFFFFFFF);
}

/// Tables that share rows share the hardware tables as well: the first declares them.
void HashTableConvertor::createHwTable(HwTableId id, U32 processor, TableState state) {
  if (!physicalTable().hwTable(id)) makeHwTable(id, processor, state);
  const Orb::Ptr<HwTableConfig> table = physicalTable().hwTable(id);
  ORB_ASSERT(table);
  hwTableIs(id, table);
  descriptorIs(id, &table->descriptor());
  if (traits_.hitTableOffset == noHitTable) return;
  const Orb::Ptr<HitBitTableConfig> hitTable = physicalTable().hitTable(id);
  ORB_ASSERT(hitTable);
  hitBitTableIs(id, hitTable);
  hitDescriptorIs(id, hitTable->descriptor());
}

void HashTableConvertor::makeHwTable(HwTableId id, U32 processor, TableState state) {
  const auto& properties = physicalTable().properties();
  const U32 tableSize = properties.rowsPerWay * properties.ways * properties.banks;
  ORB_ASSERT(tableSize != 0);
  const std::string family = TableConstants::tableName(tableIndex());
  const U32 instance = traits_.instance(static_cast<const HashBaseTable*>(swTable())->tableIdx());
  const std::string prefix = regPrefix(traits_.prefix, processor);
  const std::string name = SwTable::hwTableName(family, std::to_string(instance), "", id);
  const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
      {family, instance, id, name}, state, 0, tableSize - 1, static_cast<U8>(properties.rowWords),
      Orb::make<HwTableRegisterMappingConst>(name,
                                             regAddresses(prefix, hashRegisters(dataWords()))));
  RegisterBus& bus = swTable()->types().bus();
  const auto table = Orb::make<HwTableConfig>(descriptor, bus);
  physicalTable().hwTableIs(table);
  if (traits_.hitTableOffset == noHitTable) return;
  // Each read returns 64 hit bits, in two registers.
  constexpr U32 hitBitsPerRead = 64;
  const auto hitDescriptor = HwTableDescriptorConfig::hitBitTableDescIs(
      descriptor, SwTable::hitBitAccessModeMapping(state), hitTableOffset(),
      getHitBitMapping(prefix, tableSize, hitBitsPerRead, hitTableOffset()));
  physicalTable().hitTableIs(id, Orb::make<HitBitTableConfig>(hitDescriptor, *table, bus));
}

}  // namespace VelaSwitchTable
