#include "HashBase/HashTables.h"

namespace VelaSwitchTable {

using namespace VelaSwitchApi;

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
  const std::string family = table().name;
  const U32 instance = traits_.instance(static_cast<const HashBaseTable*>(swTable())->tableIdx());
  const std::string name = SwTable::hwTableName(family, std::to_string(instance), "", id);
  const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
      {family, instance, id, name}, state, 0, tableSize - 1, static_cast<U8>(properties.rowWords),
      Orb::make<HwTableRegisterMappingConst>(name, registers(processor)));
  RegisterBus& bus = swTable()->types().bus();
  const auto& others = physicalTable().hwTables();
  const auto table =
      Orb::make<HwTableConfig>(descriptor, bus, others.empty() ? nullptr : others.front().get());
  physicalTable().hwTableIs(table);
  if (traits_.hitTableOffset == noHitTable) return;
  // Each read returns 64 hit bits, in two registers.
  constexpr U32 hitBitsPerRead = 64;
  const auto hitDescriptor = HwTableDescriptorConfig::hitBitTableDescIs(
      descriptor, SwTable::hitBitAccessModeMapping(state), hitTableOffset(),
      hitBits(processor, tableSize, hitBitsPerRead));
  physicalTable().hitTableIs(id, Orb::make<HitBitTableConfig>(hitDescriptor, *table, bus));
}

}  // namespace VelaSwitchTable
