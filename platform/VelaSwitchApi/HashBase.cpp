#include "VelaSwitchApi/HashBase.h"

#include <algorithm>
#include <numeric>

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
  std::vector<Competitor> competing;
  const std::span<const HwIndex> rows = competingRows(item);
  competing.reserve(rows.size());
  for (const HwIndex row : rows) {
    competing.push_back({&hashConvertor_->physicalTable().entryAt(row)->table(), row});
  }
  return competing;
}

std::span<const HwIndex> HashBaseTable::competingRows(const HashBaseCuckooEntry* item) const {
  if (!item || item->placed()) return {};
  return hashConvertor_->physicalTable().competitors(*item);
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
  std::vector<HwIndex> rows(physical_->engine().capacity());
  std::iota(rows.begin(), rows.end(), 0);
  if (swTables() <= 1) return rows;
  std::erase_if(rows, [&](HwIndex index) {
    const HashBaseCuckooEntry* entry = physical_->entryAt(index);
    return entry && &entry->table() != swTable();
  });
  return rows;
}

/// Reads the rows, one hardware table after the other; notes those that could not be read.
void PhysicalHashTableConvertor::readRows(const HwTables& tables, const std::vector<HwIndex>& rows,
                                          Audit& audit) {
  RowReads reads;
  for (const auto& [id, table] : tables) {
    const auto flush = [&, id = id] {
      reads.flushUnread([&](const auto&, HwIndex row) { audit.unread.emplace(id, row); });
    };
    for (const HwIndex index : rows) {
      reads.add(*table, index);
      if (reads.full()) flush();
    }
    flush();
  }
}

/// All rows are read before any is looked at: then each is packed once and compared in all tables.
/// It is packed anew, for an image that was packed earlier may be wrong as well.
void PhysicalHashTableConvertor::audit(const HwTables& tables) {
  const std::vector<HwIndex> rows = rowsToAudit();
  Audit audit;
  readRows(tables, rows, audit);
  std::vector<const HwTableConfig*> compared;
  compared.reserve(tables.size());
  for (const auto& [id, table] : tables) compared.push_back(table.get());
  const bool allRead = audit.unread.empty();
  const bool shared = swTables() > 1;
  constexpr HwIndex ahead = 8;
  U32 expected[maxRowWords];
  for (const HwIndex index : rows) {
    physical_->entrySoon(index + ahead);
    if (shared && !physical_->entryAt(index) && physical_->owner(index) != swTable()) continue;
    physical_->expectedImage(index, expected);
    for (const HwTableConfig* table : compared) {
      if (allRead && table->same(index, expected, table->image(index))) [[likely]]
        continue;
      auditRow(*table, index, expected, audit);
    }
  }
  const bool last = tables.contains(hwTables().rbegin()->first);
  const HwTableId first = hwTables().begin()->first;
  for (const HashBaseCuckooEntry* entry : physical_->missing()) {
    if (&entry->table() != swTable() || !tables.contains(first)) continue;
    audit.found.push_back({.kind = AuditFinding::Kind::missing,
                           .table = first,
                           .index = AuditFinding::noRow,
                           .entry = entry});
  }
  std::stable_sort(audit.found.begin(), audit.found.end(),
                   [](const auto& one, const auto& other) { return one.table < other.table; });
  for (const AuditFinding& each : audit.found) auditFindingIs(each);
  // Last, since whoever hears of a status may change the entries.
  for (const HwIndex index : audit.different) physical_->markDifferent(index);
  if (!last) return;
  for (const HwIndex index : rows) {
    if (swTable()->count(KeyRecord::marked) != 0) physical_->recheck(index);
  }
}

/// Looks at a row that may not be as expected.
void PhysicalHashTableConvertor::auditRow(const HwTableConfig& table, HwIndex index,
                                          const U32* expected, Audit& audit) const {
  const HwTableId id = table.descriptor().identity.id;
  if (audit.unread.contains({id, index})) {
    audit.found.push_back({AuditFinding::Kind::unreadable, id, index});
  } else if (!table.same(index, expected, table.image(index))) {
    if (const auto kind = judge(table, index)) audit.found.push_back({*kind, id, index});
    if (physical_->entryAt(index)) audit.different.push_back(index);
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

}  // namespace VelaSwitchApi
