#include "agent/TableEntries.h"

#include <algorithm>
#include <array>
#include <utility>

#include "VelaSwitchApi/HashBase.h"

namespace VelaAgent {

using VelaSwitchApi::HashBaseCuckooEntry;

bool TableEntries::told(const KeyRecord& record) const {
  return !particulars_.rebuildsDefaults || !record.has(KeyRecord::unclaimed) || !isAbsent(record);
}

std::vector<AnyValue> TableEntries::keys(KeyRecord::Flag flag) const {
  std::vector<AnyValue> keys;
  for (const KeyRecord* record : records(flag)) keys.push_back(AnyValue::of(keyIn(*record)));
  return keys;
}

bool TableEntries::announced(AnyRef key) const {
  const KeyRecord* there = record(key);
  return there && there->has(KeyRecord::desired) && !there->has(KeyRecord::unclaimed);
}

/// Whether hardware lacks the entry since its announcement was refused.
void TableEntries::noteIs(AnyRef key, bool noted) {
  const KeyRecord* there = record(key);
  if (there && there->has(KeyRecord::desired)) table().noteIs(*there, noted);
}

EntryProgrammedStatus TableEntries::program(AnyRef key, AnyRef result) {
  noteIs(key, false);
  const bool changed = entryIs(key, result);
  return outcomeOf(key, changed, status(key));
}

/// The entry was announced and has the status: tries an unchanged one again, and notes a refusal.
EntryProgrammedStatus TableEntries::outcomeOf(AnyRef key, bool changed,
                                              EntryProgrammedStatus status) {
  if (particulars_.rebuildsDefaults) peak_ = std::max(peak_, used());
  if (status == EntryProgrammedStatus::programmed) return status;
  if (!changed) {
    handleEntry(key);
    status = this->status(key);
    if (status == EntryProgrammedStatus::programmed) return status;
  }
  watch();
  noteIs(key, true);
  return status;
}

void TableEntries::watch() {
  if (!std::exchange(watching_, true)) watchStatuses();
}

void TableEntries::statusListenerIs(AnyListener listener) {
  statusListener_ = std::move(listener);
  if (statusListener_) watch();
}

/// Does for each entry of a batch what program() does for one.
class TableEntries::Announcing final : public BatchListener {
 public:
  Announcing(TableEntries& entries, std::span<const Announcement> all, BatchListener& listener)
      : entries_(entries), all_(all), listener_(listener) {}

  void entryBegins(std::size_t number) override {
    listener_.entryBegins(number);
    if (entries_.table().count(KeyRecord::noted) != 0) entries_.noteIs(all_[number].key, false);
  }
  void entryDone(std::size_t number, const EntryOutcome& outcome) override {
    EntryOutcome told = outcome;
    // What is written now is written for this one.
    listener_.entryBegins(number);
    told.status = entries_.outcomeOf(all_[number].key, outcome.changed, outcome.status);
    listener_.entryDone(number, told);
  }

 private:
  TableEntries& entries_;
  std::span<const Announcement> all_;
  BatchListener& listener_;
};

void TableEntries::announceAll(std::span<const Announcement> all, BatchListener& listener) {
  Announcing announcing(*this, all, listener);
  entriesAre(all, announcing);
}

void TableEntries::statusChanged(AnyRef key) {
  if (statusListener_) statusListener_(key);
  const KeyRecord* there = record(key);
  if (!there || !there->has(KeyRecord::noted)) return;
  if (statusOf(there) != EntryProgrammedStatus::programmed) return;
  table().noteIs(*there, false);
  admittedIs(key);
}

bool TableEntries::withdraw(AnyRef key) {
  const KeyRecord* there = record(key);
  const bool known = there && there->has(KeyRecord::desired) && told(*there);
  if (!entryDel(key) && status(key) == EntryProgrammedStatus::hardwareError) handleEntry(key);
  return known;
}

void TableEntries::forEachEntry(const EntryVisitor& visit) const {
  for (const KeyRecord* each : records(KeyRecord::desired)) {
    if (told(*each)) visit(keyIn(*each), resultIn(*each));
  }
}

AnyValue TableEntries::resultOf(AnyRef key) const {
  const KeyRecord* there = record(key);
  return there && there->has(KeyRecord::desired) && told(*there) ? AnyValue::of(resultIn(*there))
                                                                 : AnyValue();
}

U32 TableEntries::entries() const {
  return table().count(KeyRecord::desired) - table().count(KeyRecord::unclaimed);
}

U32 TableEntries::programmed() const {
  U32 count = 0;
  table().forEachRecord(KeyRecord::desired, [&](const KeyRecord& each) {
    if (each.has(KeyRecord::unclaimed)) return;
    if (statusOf(&each) == EntryProgrammedStatus::programmed) ++count;
  });
  return count;
}

U32 TableEntries::unclaimed() const {
  U32 count = 0;
  table().forEachRecord(KeyRecord::unclaimed,
                        [&](const KeyRecord& each) { count += told(each) ? 1 : 0; });
  return count;
}

U32 TableEntries::refused() const {
  U32 count = 0;
  table().forEachRecord(KeyRecord::noted, [&](const KeyRecord& each) {
    if (statusOf(&each) != EntryProgrammedStatus::programmed) ++count;
  });
  return count;
}

void TableEntries::reconcile(const AnyListener& removing) {
  for (const AnyValue& key : keys(KeyRecord::unclaimed)) {
    const KeyRecord* there = record(key);
    if (!there || !there->has(KeyRecord::unclaimed)) continue;
    if (told(*there)) removing(key);
    entryDel(key);
  }
  // Rows of entries that are gone may be marked as well.
  for (const AnyValue& key : keys(KeyRecord::marked)) handleEntry(key);
  for (const AnyValue& key : keys(KeyRecord::desired)) {
    if (status(key) != EntryProgrammedStatus::programmed) handleEntry(key);
  }
}

void TableEntries::forEachDisagreeing(const AnyListener& visit) const {
  for (const KeyRecord* each : records(KeyRecord::marked)) {
    if (each->has(KeyRecord::desired)) visit(keyIn(*each));
  }
}

U32 TableEntries::capacity() const {
  U32 size = 0;
  for (const auto& counter : convertor().entryCounters()) size += counter.size;
  return size;
}

U32 TableEntries::used() const {
  const U32 all = table().count(KeyRecord::desired);
  if (!particulars_.rebuildsDefaults) return all;
  U32 silent = 0;
  table().forEachRecord(KeyRecord::unclaimed,
                        [&](const KeyRecord& each) { silent += told(each) ? 0 : 1; });
  return all - silent;
}

U32 TableEntries::peak() const {
  return particulars_.rebuildsDefaults ? std::max(peak_, used()) : table().peak();
}

double TableEntries::load() const {
  const Keel::Cuckoo::Table* rows = engine();
  const double size = rows ? rows->size() : used();
  const U32 room = capacity();
  return room == 0 ? 0 : 100 * size / room;
}

bool TableEntries::rowGood(VelaSwitchApi::HwTableId id, HwIndex index) {
  VelaSwitchApi::HwTableConfig& hwTable = *convertor().hwTable(id);
  if (hwTable.mapped(index).empty() || !listsRow(index)) return true;
  // What it holds may be new to the table, which takes it up when it audits.
  if (hwTable.unheard(index)) return false;
  switch (hwTable.readEntry(index)) {
    case VelaSwitchApi::RegisterBus::Read::failed:
      return false;
    case VelaSwitchApi::RegisterBus::Read::absent:
      return !keyAt(index);
    default:
      break;
  }
  std::array<U32, VelaSwitchApi::maxRowWords> expected{};
  convertor().expectedImage(id, index, expected.data());
  return hwTable.same(index, expected.data(), hwTable.image(index));
}

void TableEntries::repair() {
  for (const auto& finding : convertor().auditFindings()) convertor().repair(finding);
}

template <class Wanted>
std::vector<TableEntries::RowId> TableEntries::rowsThat(const Wanted& wanted) const {
  std::vector<RowId> rows;
  for (const auto& [id, hwTable] : convertor().hwTables()) {
    const auto& descriptor = hwTable->descriptor();
    for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
      if (hwTable->state(index) == VelaSwitchApi::HwTableConfig::Row::absent ||
          hwTable->mapped(index).empty() || !listsRow(index)) {
        continue;
      }
      if (wanted(*hwTable, id, index)) rows.emplace_back(id, index);
    }
  }
  return rows;
}

/// A row that cannot be is forgotten when it is read, so as to be written again.
std::vector<TableEntries::RowId> TableEntries::corruptRows() const {
  return rowsThat(
      [&](const auto&, auto id, HwIndex index) { return !convertor().rowSound(id, index); });
}

std::vector<TableEntries::RowId> TableEntries::strayRows() const {
  if (particulars_.ignoresRows) return {};
  return rowsThat([&](const auto& hwTable, auto id, HwIndex index) {
    if (hwTable.state(index) != VelaSwitchApi::HwTableConfig::Row::held) return false;
    std::array<U32, VelaSwitchApi::maxRowWords> expected{};
    convertor().expectedImage(id, index, expected.data());
    return !hwTable.same(index, expected.data(), hwTable.image(index)) && !keyAt(index) &&
           convertor().rowSound(id, index);
  });
}

/// A port mask that is shared out among hardware tables has all ports.
unsigned TableEntries::rowBits(std::string_view field, bool mask) const {
  if (rowBits_.empty()) {
    for (const auto& [id, hwTable] : convertor().hwTables()) {
      const auto& layout = convertor().rowLayout(id, hwTable->descriptor().first);
      for (const auto& each : layout.fields()) {
        const std::string_view name(each.name);
        unsigned& bits = rowBits_[std::string(name.substr(0, name.find('[')))];
        bits = std::max<unsigned>(bits, each.width);
      }
    }
  }
  const auto at = rowBits_.find(field);
  if (at == rowBits_.end()) return 64;
  return mask ? std::max(at->second, profile().ports()) : at->second;
}

/// Where it is part of the result whether the row answers, a row that does not is easily had by
/// mistake.
void TableEntries::warnOfMore(AnyRef key, AnyRef result) {
  warnOfKey(key);
  if (toldOfSilence_) return;
  for (const Orb::FieldShape& field : resultShape().fields) {
    if (field.name != "valid" || field.shape->number(field.in(result.value)) != 0) continue;
    toldOfSilence_ = true;
    warningIs("without \"valid\":true the entry does not answer lookups");
  }
}

const HashBaseCuckooEntry* HashTableEntries::item(AnyRef key) const {
  const KeyRecord* there = record(key);
  if (!there || !there->has(KeyRecord::cached)) return nullptr;
  return static_cast<const HashBaseCuckooEntry*>(there);
}

std::optional<TableEntries::Place> HashTableEntries::place(AnyRef key) const {
  const HashBaseCuckooEntry* there = item(key);
  if (!there || !there->placed()) return std::nullopt;
  const HwIndex index = physical().indexOf(*there);
  return Place{index, physical().location(index)};
}

AnyValue HashTableEntries::keyAt(HwIndex index) const {
  const HashBaseCuckooEntry* there = physical().entryAt(index);
  return there && &there->table() == &table() ? keyOf(*there) : AnyValue();
}

AnyValue HashTableEntries::keyOf(const HashBaseCuckooEntry& entry) const {
  return AnyValue::of(keyIn(entry));
}

AnyValue HashTableEntries::decodedKey(HwIndex index) const {
  const auto entry = hashTable().helper()->decodeHwEntry(index);
  return entry->valid() ? keyOf(*entry) : AnyValue();
}

Orb::Seconds HashTableEntries::lastHit(AnyRef key) const {
  const KeyRecord* there = record(key);
  if (!there || !there->has(KeyRecord::stated)) return {};
  return static_cast<const HashBaseCuckooEntry*>(there)->recordedHit();
}

std::vector<Competitor> HashTableEntries::competing(AnyRef key) const {
  return hashTable().competing(item(key));
}

std::size_t HashTableEntries::competitors(AnyRef key) const {
  return hashTable().competingRows(item(key)).size();
}

std::vector<Competitor> HashTableEntries::yielding(AnyRef key) const {
  return hashTable().yielding(item(key));
}

std::vector<HwIndex> HashTableEntries::candidates(AnyRef key) const {
  const auto fresh = newItem(key);
  std::vector<HwIndex> rows;
  for (U8 way = 0; way < physical().engine().ways(); ++way) {
    rows.push_back(physical().candidate(*fresh, way));
  }
  return rows;
}

void HashTableEntries::forEachStatus(const StatusVisitor& visit) const {
  for (const KeyRecord* each : records(KeyRecord::stated)) {
    const auto& entry = static_cast<const HashBaseCuckooEntry&>(*each);
    visit(keyIn(*each), entry.recordedStatus(), entry.recordedHit());
  }
}

void HashTableEntries::reconcile(const AnyListener& removing) {
  physical().settle();
  TableEntries::reconcile(removing);
}

AnyValue IndexedTableEntries::keyAt(HwIndex index) const {
  AnyValue key = keyOfRow(index);
  const KeyRecord* there = record(key);
  return there && there->has(KeyRecord::desired) ? std::move(key) : AnyValue();
}

void IndexedTableEntries::forEachStatus(const StatusVisitor& visit) const {
  for (const KeyRecord* each : records(KeyRecord::desired)) {
    if (told(*each)) visit(keyIn(*each), statusOf(each), Orb::Seconds{});
  }
}

/// Whether a hardware table will do, or there is none.
template <class Will>
bool IndexedTableEntries::inSomeTable(const Will& will) const {
  const auto& hwTables = convertor().hwTables();
  return hwTables.empty() || std::any_of(hwTables.begin(), hwTables.end(),
                                         [&](const auto& each) { return will(*each.second); });
}

std::string IndexedTableEntries::whyNoRow(AnyRef key) const {
  const HwIndex index = rowOf(key);
  // Behind the rows of all keys there may be copies of them.
  const bool row =
      inSomeTable([&](const auto& each) { return holds(each, index) && isRowOf(index, key); });
  return row ? "" : name() + " has rows 0 to " + std::to_string(lastIndex());
}

void IndexedTableEntries::warnOfKey(AnyRef key) {
  const HwIndex index = rowOf(key);
  const bool registers = inSomeTable(
      [&](const auto& each) { return holds(each, index) && !each.mapped(index).empty(); });
  if (!registers) warningIs("no register in this profile, nothing is written");
}

/// The last row that a key has.
HwIndex IndexedTableEntries::lastIndex() const {
  HwIndex last = 0;
  for (const auto& [id, hwTable] : convertor().hwTables()) {
    last = std::max(last, hwTable->descriptor().last);
  }
  while (last > 0 && rowOf(keyOfRow(last)) != last) --last;
  return last;
}

}  // namespace VelaAgent
