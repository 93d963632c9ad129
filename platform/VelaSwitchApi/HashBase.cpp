#include "VelaSwitchApi/HashBase.h"

#include <algorithm>
#include <set>

#include "VelaSwitchApi/RowReads.h"

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
    hashConvertor_->auditFindingDelAll();
    hashConvertor_->audit(hashConvertor_->hwTables());
  } else {
    hashConvertor_->physicalTable().rebuild();
  }
}

std::vector<Competitor> HashBaseTable::competing(const HashBaseCuckooEntry* item) const {
  std::vector<Competitor> rows;
  if (!item || item->placed()) return rows;
  PhysicalHashTable& physical = hashConvertor_->physicalTable();
  for (const auto* entry : physical.competitors(*item)) {
    rows.push_back({&entry->table(), physical.indexOf(*entry)});
  }
  return rows;
}

std::vector<Competitor> HashBaseTable::yielding(const HashBaseCuckooEntry* item) const {
  std::vector<Competitor> rows = competing(item);
  PhysicalHashTable& physical = hashConvertor_->physicalTable();
  std::erase_if(rows,
                [&](const Competitor& each) { return physical.successor(each.index) != item; });
  return rows;
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
  return static_cast<const HashBaseTable*>(swTable())->placed();
}

U32 PhysicalHashTableConvertor::entriesPeak(U32) const {
  return static_cast<const HashBaseTable*>(swTable())->placedPeak();
}

void PhysicalHashTableConvertor::initHwEntries(bool overwrite, U32 start) {
  physical_->initRows(start, overwrite);
}

void PhysicalHashTableConvertor::syncEntries(U32 id) {
  ORB_ASSERT_TEXT(hwTable(id), "table");
  audit({{id, hwTable(id)}});
}

/// The rows in which no other software table has an entry.
std::vector<HwIndex> PhysicalHashTableConvertor::rowsToAudit() const {
  std::vector<HwIndex> rows;
  for (HwIndex index = 0; index < physical_->engine().capacity(); ++index) {
    const HashBaseCuckooEntry* entry = swTables() > 1 ? physical_->entryAt(index) : nullptr;
    if (!entry || &entry->table() == swTable()) rows.push_back(index);
  }
  return rows;
}

/// All rows are read, one hardware table after the other, before any is looked at: then each is
/// packed once and compared in all tables.
void PhysicalHashTableConvertor::audit(const HwTables& tables) {
  const std::vector<HwIndex> rows = rowsToAudit();
  std::set<std::pair<HwTableId, HwIndex>> unread;
  RowReads reads;
  for (const auto& [id, table] : tables) {
    for (const HwIndex index : rows) {
      reads.add(*table, index);
      if (!reads.full() && index != rows.back()) continue;
      reads.flush([&](const HwTableConfig& of, HwIndex row, RegisterBus::Read read, bool) {
        if (read == RegisterBus::Read::failed) unread.emplace(of.descriptor().identity.id, row);
      });
    }
  }
  std::vector<std::pair<HwTableId, HwTableConfig*>> compared;
  for (const auto& [id, table] : tables) compared.emplace_back(id, table.get());
  const bool last = tables.contains(hwTables().rbegin()->first);
  std::vector<AuditFinding> found;
  constexpr HwIndex ahead = 8;
  U32 expected[maxRowWords];
  std::vector<HwIndex> different;
  for (const HwIndex index : rows) {
    physical_->entrySoon(index + ahead);
    const HashBaseCuckooEntry* entry = physical_->entryAt(index);
    if (!entry && swTables() > 1 && physical_->owner(index) != swTable()) continue;
    physical_->expectedImage(index, expected);
    for (const auto& [id, table] : compared) {
      if (!unread.empty() && unread.contains({id, index})) {
        found.push_back({AuditFinding::Kind::unreadable, id, index});
      } else if (!table->same(index, expected, table->image(index))) {
        if (const auto kind = judge(*table, index)) found.push_back({*kind, id, index});
        if (entry) different.push_back(index);
      }
    }
  }
  const HwTableId first = hwTables().begin()->first;
  for (const HashBaseCuckooEntry* entry : physical_->missing()) {
    if (&entry->table() != swTable() || !tables.contains(first)) continue;
    found.push_back({.kind = AuditFinding::Kind::missing,
                     .table = first,
                     .index = AuditFinding::noRow,
                     .entry = entry});
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& one, const auto& other) { return one.table < other.table; });
  for (const AuditFinding& each : found) auditFindingIs(each);
  // Last, since whoever hears of a status may change the entries.
  for (const HwIndex index : different) physical_->markDifferent(index);
  if (!last) return;
  for (const HwIndex index : rows) {
    if (swTable()->count(KeyRecord::marked) != 0) physical_->recheck(index);
  }
}

/// What an audit reports of a row that was read and is not what it should be.
std::optional<AuditFinding::Kind> PhysicalHashTableConvertor::judge(const HwTableConfig& table,
                                                                    HwIndex index) const {
  const bool absent = table.state(index) == HwTableConfig::Row::absent;
  const HashBaseCuckooEntry* entry = physical_->entryAt(index);
  if (!entry) {
    if (absent) return std::nullopt;
    return AuditFinding::Kind::unexpected;
  }
  U32 empty[maxRowWords];
  physical_->emptyImage(index, empty);
  const bool missing = absent || table.same(index, empty, table.image(index));
  return missing ? AuditFinding::Kind::missing : AuditFinding::Kind::inconsistent;
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

bool PhysicalHashTableConvertor::handleHashEntry(HashBaseCuckooEntry& entry) {
  if (!entry.valid()) return physical_->remove(entry);
  physical_->place(entry);
  return true;
}

}  // namespace VelaSwitchApi
