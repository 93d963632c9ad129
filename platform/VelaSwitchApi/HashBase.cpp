#include "VelaSwitchApi/HashBase.h"

namespace VelaSwitchApi {

HashBaseTable::~HashBaseTable() = default;
PhysicalHashTableConvertor::~PhysicalHashTableConvertor() = default;

void HashBaseTable::doSetProfileConvertor(Orb::Ptr<SwTableTypes> types) {
  typesIs(std::move(types));
  profileConvertorPtrIs(profileConvertorFactory());
  hashConvertor_ = dynamic_cast<PhysicalHashTableConvertor*>(profileConvertorPtr().get());
  ORB_ASSERT(hashConvertor_);
  helper_ = hashBaseHelperFactory();
  const auto properties = helper_->doGetPhysTableProperties();
  const auto physical =
      this->types().physicalHashTable(hashConvertor_->physicalTableId(*properties), *properties);
  helper_->tablesAre(this, physical.get());
  helper_->doInit();
  physical->helperIs(helper_);
  hashConvertor_->physicalTableIs(physical);
}

void HashBaseTable::doCreateHwTable() {
  SwTable::doCreateHwTable();
  if (statusSupported()) doInitStatus();
}

void HashBaseTable::syncEntries() {
  if (initialized()) {
    hashConvertor_->physicalTable().settle();
    SwTable::syncEntries();
  } else {
    hashConvertor_->physicalTable().rebuild();
  }
}

void HashBaseTable::lastHitByHashItemIs(HashItem&, Orb::Seconds) {}

U32 PhysicalHashTableConvertor::physicalTableId(const PhysicalHashProperties& properties) const {
  return properties.tableId();
}

void PhysicalHashTableConvertor::handleHitBitEntry(HwTableId, HwIndex index) {
  physical_->hit(index, pollTime());
}

bool PhysicalHashTableConvertor::pollHitBits(Orb::Seconds now) {
  pollTimeIs(now);
  bool good = true;
  for (const auto& [id, table] : hitBitTables()) good = physical_->pollHits(id, now) && good;
  return good;
}

void PhysicalHashTableConvertor::doInitTableStats() {
  initEntryCounter(swTable()->name(), physical_->engine().capacity(), 0);
}

U32 PhysicalHashTableConvertor::entriesUsed(U32) const {
  return physical_->entries(static_cast<const HashBaseTable*>(swTable()));
}

U32 PhysicalHashTableConvertor::entriesPeak(U32) const {
  return physical_->peak(static_cast<const HashBaseTable*>(swTable()));
}

void PhysicalHashTableConvertor::initHwEntries(bool overwrite, U32 start) {
  physical_->initRows(start, overwrite);
}

void PhysicalHashTableConvertor::syncEntries(U32 id) {
  const Orb::Ptr<HwTableConfig> held = hwTable(id);
  ORB_ASSERT_TEXT(held, "table");
  HwTableConfig& table = *held;
  U32 expected[maxRowWords];
  for (HwIndex index = 0; index < physical_->engine().capacity(); ++index) {
    HashBaseCuckooEntry* entry = physical_->entryAt(index);
    if (entry && &entry->table() != swTable()) continue;
    const RegisterBus::Read read = table.readEntry(index);
    if (!entry && physical_->owner(index) != swTable()) continue;
    physical_->expectedImage(index, expected);
    if (read == RegisterBus::Read::failed) {
      auditFindingIs({AuditFinding::Kind::unreadable, id, index});
    } else if (entry && !table.same(index, expected, table.image(index))) {
      U32 empty[maxRowWords];
      physical_->emptyImage(index, empty);
      const bool missing =
          read == RegisterBus::Read::absent || table.same(index, empty, table.image(index));
      auditFindingIs(
          {missing ? AuditFinding::Kind::missing : AuditFinding::Kind::inconsistent, id, index});
      entry->table().hwInconsistentEntryIsFromHashItem(*entry);
    } else if (!entry && read == RegisterBus::Read::held &&
               !table.same(index, expected, table.image(index))) {
      auditFindingIs({AuditFinding::Kind::unexpected, id, index});
    }
    if (id == hwTables().rbegin()->first) physical_->recheck(index);
  }
  if (id != hwTables().begin()->first) return;
  for (const HashBaseCuckooEntry* entry : physical_->missing()) {
    if (&entry->table() != swTable()) continue;
    auditFindingIs({.kind = AuditFinding::Kind::missing,
                    .table = id,
                    .index = AuditFinding::noRow,
                    .entry = entry});
  }
}

void PhysicalHashTableConvertor::expectedImage(HwTableId, HwIndex index, U32* image) const {
  physical_->expectedImage(index, image);
}

const RowLayout& PhysicalHashTableConvertor::rowLayout(HwTableId, HwIndex) const {
  return static_cast<const HashBaseTable*>(swTable())->helper()->layout();
}

bool PhysicalHashTableConvertor::rowSound(HwTableId table, HwIndex index) const {
  const HwTableConfig& rows = *hwTable(table);
  return static_cast<const HashBaseTable*>(swTable())->helper()->rowSound(rows.image(index));
}

void PhysicalHashTableConvertor::repair(const AuditFinding& finding) {
  if (finding.kind == AuditFinding::Kind::unreadable) return;
  const HashBaseCuckooEntry* entry =
      finding.entry ? finding.entry : physical_->entryAt(finding.index);
  if (entry) {
    entry->table().handleHashItem(*entry);
  } else {
    physical_->clearRow(finding.index);
  }
}

void PhysicalHashTableConvertor::takePlacement() {
  if (physical_->firstTable() == swTable()) physical_->takePlacement();
}

void PhysicalHashTableConvertor::updateHashEntryCounter(const HashBaseCuckooEntry&, bool) {}

bool PhysicalHashTableConvertor::handleHashEntry(HashBaseCuckooEntry& entry) {
  if (!entry.valid()) return physical_->remove(entry);
  physical_->place(entry);
  return true;
}

}  // namespace VelaSwitchApi
