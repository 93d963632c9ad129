#include "VelaSwitchApi/HashTable.h"

#include <utility>

namespace VelaSwitchApi {
namespace {

HashBaseCuckooEntry& entryOf(HashItem& item) { return static_cast<HashBaseCuckooEntry&>(item); }
const HashBaseCuckooEntry& entryOf(const HashItem& item) {
  return static_cast<const HashBaseCuckooEntry&>(item);
}

/// An entry's key as a part of traces.
struct KeyText {
  const HashBaseCuckooEntry& entry;
  friend void appendText(Orb::TextSink& sink, const KeyText& key) { key.entry.appendKey(sink); }
};

}  // namespace

HashTable::HashTable(std::string name, U8 tableIdx, U8 pipeline, const Options& options)
    : HashBaseTable(std::move(name), tableIdx, pipeline), options_(options) {
  hwTablesDuplicateIs(options.everyPipeline);
  statusSupportedIs(true);
  hitBitsSupportedIs(options.hitBits);
}

void HashTable::reactorTeardown() {
  if (profileConvertorPtr()) profileConvertor().swTableDel(this);
}

bool HashTable::entryHasByHashItem(const HashItem& item) const {
  return has(KeyRecord::desired, entryOf(item));
}

void HashTable::entryIsByHashItem(HashItem& hashItem) {
  HashBaseCuckooEntry& item = entryOf(hashItem);
  ORB_ASSERT_TEXT(item.valid(), "hashItem->valid()");
  if (options_.trace.enabled(8)) options_.trace(8, "entryIsByHashItem ", item.toStrep());
  const bool changed = !entryEqualByHashItem(item);
  const HashBaseCuckooEntry* known = record(item);
  itemsLost_ = itemsLost_ || (known && known != &item && (known->placed() || known->waits()));
  adopt(item);
  flagIs(item, KeyRecord::cached, true);
  flagIs(item, KeyRecord::unclaimed, true);
  flagIs(item, KeyRecord::desired, true);
  if (changed) entryChanged(item);
  if (isCurrent(item)) recordStatus(item);
}

/// Makes the item the record of its key.
void HashTable::adopt(HashBaseCuckooEntry& item) {
  HashBaseCuckooEntry* known = record(item);
  if (known == &item) return;
  if (!known) return add(item);
  item.recordedStatus_ = known->recordedStatus_;
  item.recordedHit_ = known->recordedHit_;
  replace(*known, item);
}

/// The record of the item's key. One that is made is another than the item, which may be anybody's.
HashBaseCuckooEntry& HashTable::recordFor(const HashBaseCuckooEntry& item) {
  if (HashBaseCuckooEntry* known = record(item)) return *known;
  const Orb::Ptr<HashBaseCuckooEntry> fresh = freshItem(item);
  add(*fresh);
  return *fresh;
}

bool HashTable::entryEqualByHashItem(const HashItem& item) const { return hasEqual(entryOf(item)); }

void HashTable::lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) {
  if (!options_.hits) return HashBaseTable::lastHitByHashItemIs(hashItem, time);
  HashBaseCuckooEntry& item = entryOf(hashItem);
  if (!isCurrent(item) || time < item.lastHit()) return;
  item.lastHitIs(time);
  if (!statusSupported()) return;
  recordStatus(item);
  // Whoever heard of it may have withdrawn the entry, or announced it anew.
  if (!isCurrent(item)) return;
  ORB_ASSERT_TEXT(item.lastHit() == record(item)->recordedHit(),
                  "item.lastHit() == status.lastHit()");
}

Orb::Ptr<HashBaseCuckooEntry> HashTable::cachedCuckooEntry(const HashItem& item) const {
  HashBaseCuckooEntry* known = record(item);
  return known && known->has(KeyRecord::cached) ? known : nullptr;
}

void HashTable::updateHashItem(HashItem& hashItem) const {
  HashBaseCuckooEntry& item = entryOf(hashItem);
  item.validIs(update(item));
}

bool HashTable::hwInconsistentEntryFromHashItem(const HashItem& item) const {
  return has(KeyRecord::marked, entryOf(item));
}

void HashTable::hwInconsistentEntryDelFromHashItem(const HashItem& item) {
  if (HashBaseCuckooEntry* known = record(item)) markIs(*known, false);
}

void HashTable::hwInconsistentEntryIsFromHashItem(const HashItem& item) {
  markIs(recordFor(entryOf(item)), true);
}

void HashTable::hashItemDelFromHashItem(const HashItem& item) {
  if (HashBaseCuckooEntry* known = record(item)) itemDel(*known);
}

void HashTable::hashItemDelAll() {
  itemsLost_ = true;
  flagDelAll(KeyRecord::cached);
}

void HashTable::itemDel(HashBaseCuckooEntry& record) {
  itemsLost_ = true;
  flagIs(record, KeyRecord::cached, false);
}

/// The item may be another one, which was dropped.
[[gnu::cold]] HashBaseCuckooEntry& HashTable::foundItemIs(HashBaseCuckooEntry& record) {
  HashBaseCuckooEntry* item = placedItem(record);
  if (!item || item == &record) {
    item = &record;
  } else {
    if (record.has(KeyRecord::desired)) item->resultIsOf(&record);
    adopt(*item);
  }
  flagIs(*item, KeyRecord::cached, true);
  return *item;
}

void HashTable::entryStatusIsByHashItem(HashItem& hashItem) {
  HashBaseCuckooEntry& item = entryOf(hashItem);
  if (!isCurrent(item)) return;
  if (item.programmedStatus() == EntryProgrammedStatus::programmed) {
    traceItem("Programming Entry ", item);
  }
  recordStatus(item);
}

bool HashTable::entryUnclaimedByHashItem(const HashItem& item) const {
  return has(KeyRecord::unclaimed, entryOf(item));
}

void HashTable::entryReleaseByHashItem(const HashItem& item) {
  const Orb::Ptr<HashBaseCuckooEntry> known = record(item);
  if (!known) return;
  if (known->has(KeyRecord::desired)) {
    entryGone(*known);
    entryChanged(*known);
    // Whoever heard of it may have announced the key.
    if (entryHasByHashItem(*known)) return;
  }
  flagIs(*known, KeyRecord::cached, false);
  flagIs(*known, KeyRecord::marked, false);
  statusDel(*known);
}

HashBaseCuckooEntry* HashTable::placedItem(const HashBaseCuckooEntry& item) const {
  if (!profileConvertorPtr()) return nullptr;
  for (const auto& placed : profileConvertor().physicalTable().equals(item)) {
    if (placed->isSpelledAs(item)) return placed.get();
  }
  return nullptr;
}

void HashTable::handleInitialized() {
  // So far there are items of what was read from hardware, and of what was withdrawn since.
  std::vector<Orb::Ptr<HashBaseCuckooEntry>> withdrawn;
  for (const KeyRecord* each : records(KeyRecord::cached)) {
    if (each->has(KeyRecord::desired)) continue;
    withdrawn.emplace_back(static_cast<HashBaseCuckooEntry*>(const_cast<KeyRecord*>(each)));
  }
  for (const auto& item : withdrawn) handleHashItem(*item);
  // What hardware has, and nobody announced, is as it is.
  std::vector<Orb::Ptr<HashBaseCuckooEntry>> announced;
  for (const KeyRecord* each : records(KeyRecord::desired)) {
    announced.emplace_back(static_cast<HashBaseCuckooEntry*>(const_cast<KeyRecord*>(each)));
  }
  for (const auto& item : announced) {
    if (!entryUnclaimedByHashItem(*item)) handleHashItem(*item);
  }
}

void HashTable::handleAbsentItem(HashBaseCuckooEntry& item) {
  if (!profileConvertor().physicalTable().mayHold(item)) return;
  if (initialized()) return handleHashItem(item);
  flagIs(recordFor(item), KeyRecord::cached, true);
}

/// The row of a marked key was written.
[[gnu::cold]] void HashTable::rewritten(HashBaseCuckooEntry& record) {
  // What came of it is told, whatever that is: the status of a marked key is not the recorded one.
  record.recordedStatus_ = EntryProgrammedStatus::notProgrammed;
  flagIs(record, KeyRecord::marked, false);
}

/// Records what came of programming an item, whose key's record is `known`.
[[gnu::always_inline]] inline void HashTable::programmed(HashBaseCuckooEntry& item,
                                                         HashBaseCuckooEntry& known) {
  if (known.has(KeyRecord::marked)) [[unlikely]]
    rewritten(known);
  const EntryProgrammedStatus status = item.programmedStatus();
  if (statusSupported()) statusIs(known, status, item.lastHit());
  if (status != EntryProgrammedStatus::programmed) [[unlikely]] {
    options_.trace(2, "Not programmed, ", status, ": ", KeyText{item});
  }
}

/// The same where whoever heard of other entries' statuses may have withdrawn this one, whose
/// handle the caller has.
[[gnu::noinline]] void HashTable::programmedAmongOthers(HashBaseCuckooEntry& item) {
  if (HashBaseCuckooEntry* known = current(item)) programmed(item, *known);
}

/// Records that an item was removed, whose handle the caller has.
[[gnu::always_inline]] inline void HashTable::removed(HashBaseCuckooEntry& item) {
  // Or announced it again.
  HashBaseCuckooEntry* known = record(item);
  if (known && known->has(KeyRecord::desired)) return;
  if (known) flagIs(*known, KeyRecord::cached, false);
  // A row that could not be cleared still answers lookups: the status says so until it is.
  // Asked of the rows, not of the item: clearing others may have cleared it meanwhile.
  if (profileConvertor().physicalTable().mayLinger(item)) [[unlikely]] {
    // Those rows keep the item: should the key come back, it does so as another one.
    if (item.known()) adopt(*freshItem(item));
    recordStatus(item);
  } else if (item.known()) [[likely]] {
    statusForget(item);
  } else if (known = record(item); known) {
    statusDel(*known);
  }
  if (count(KeyRecord::marked) != 0) hwInconsistentEntryDelFromHashItem(item);
}

void HashTable::programRecord(HashBaseCuckooEntry& record) {
  if (!record.has(KeyRecord::desired)) return removeItem(itemIs(record));
  HashBaseCuckooEntry& item = itemIs(record);
  item.validIs(true);
  profileConvertor().updateHashEntryCounter(item, false);
  traceItem("Programming Entry ", item);
  Orb::Ptr<HashItem> held;
  profileConvertor().handleHashEntry(item, held);
  if (held) [[unlikely]] {
    programmedAmongOthers(item);
  } else {
    programmed(item, item);
  }
}

[[gnu::noinline]] void HashTable::removeItem(HashBaseCuckooEntry& item) {
  item.validIs(false);
  profileConvertor().updateHashEntryCounter(item, false);
  traceItem("Removing Entry ", item);
  Orb::Ptr<HashItem> held;
  const bool success = profileConvertor().handleHashEntry(item, held);
  ORB_ASSERT_TEXT(success, "success");
  removed(item);
}

bool HashTable::stageable(const KeyRecord& record, bool desired) const {
  if (!initialized()) return true;
  // The item may be another one then.
  if (itemsLost_) return false;
  const auto& item = static_cast<const HashBaseCuckooEntry&>(record);
  return profileConvertor().physicalTable().stageable(item, desired);
}

void HashTable::stage(KeyRecord& record) {
  if (!initialized()) return;
  auto& item = static_cast<HashBaseCuckooEntry&>(record);
  flagIs(item, KeyRecord::cached, true);
  // The record is the item itself, with its key's result.
  item.validIs(item.has(KeyRecord::desired));
  profileConvertor().physicalTable().stage(item, types().run());
}

void HashTable::flush() {
  if (!initialized()) return;
  types().run().flush();
  profileConvertor().physicalTable().settleStaged();
  lastFailed_ = false;
}

void HashTable::settle(KeyRecord& record) {
  const Orb::Ptr<HashBaseCuckooEntry> item = &static_cast<HashBaseCuckooEntry&>(record);
  flagIs(record, KeyRecord::staged, false);
  if (!initialized()) return;
  // As each entry that is announced alone does with what failed before it.
  if (std::exchange(lastFailed_, false)) profileConvertor().physicalTable().retry();
  lastFailed_ = item->programmedStatus() == EntryProgrammedStatus::hardwareError;
  if (item->valid()) {
    traceItem("Programming Entry ", *item);
    programmedAmongOthers(*item);
  } else {
    traceItem("Removing Entry ", *item);
    removed(*item);
  }
}

bool HashTable::mayGroup() const {
  const bool plain = initialized() && !gathers() && !itemsLost_ && statusSupported();
  return plain && !statusWatched_ && !options_.trace.enabled(1) &&
         profileConvertor().physicalTable().concernsNobody();
}

/// Announces an entry, where that concerns no others.
inline bool HashTable::announcedInGroup(KeyRecord& record, EntryOutcome& outcome) {
  auto& item = static_cast<HashBaseCuckooEntry&>(record);
  if (item.known()) {
    outcome = {true, false, statusOf(&item)};
    return true;
  }
  item.validIs(true);
  if (!profileConvertor().physicalTable().placeAlone(item)) [[unlikely]]
    return false;
  item.recordedStatus_ = item.programmedStatus();
  item.recordedHit_ = item.lastHit();
  settledIs(item);
  outcome = {false, true, item.programmedStatus()};
  return true;
}

std::size_t HashTable::groupIs(std::span<KeyRecord* const> records, EntryOutcome* outcomes) {
  std::size_t done = 0;
  while (done != records.size() && announcedInGroup(*records[done], outcomes[done])) ++done;
  return done;
}

/// Likewise withdraws one.
inline bool HashTable::withdrawnInGroup(KeyRecord& record, EntryOutcome& outcome) {
  auto& item = static_cast<HashBaseCuckooEntry&>(record);
  const Orb::Ptr<HashItem> held = profileConvertor().physicalTable().removeAlone(item);
  if (!held) return false;
  item.validIs(false);
  outcome = {true, true, item.programmedStatus()};
  if (item.programmedStatus() == EntryProgrammedStatus::notProgrammed) [[likely]] {
    stagedGone(item);
  } else {
    flagIs(item, KeyRecord::staged, false);
    entryGone(item);
    removed(item);
  }
  return true;
}

std::size_t HashTable::groupDel(std::span<KeyRecord* const> records, EntryOutcome* outcomes) {
  std::size_t done = 0;
  while (done != records.size() && withdrawnInGroup(*records[done], outcomes[done])) ++done;
  for (KeyRecord* record : records.subspan(done)) flagIs(*record, KeyRecord::staged, false);
  return done;
}

EntryProgrammedStatus HashTable::statusOf(const KeyRecord* record) const {
  if (!record || !record->has(KeyRecord::stated)) return EntryProgrammedStatus::notProgrammed;
  if (record->has(KeyRecord::marked)) return EntryProgrammedStatus::hardwareError;
  return static_cast<const HashBaseCuckooEntry*>(record)->recordedStatus();
}

void HashTable::recordStatus(HashBaseCuckooEntry& item) {
  if (!statusSupported()) return;
  statusIs(recordFor(item), item.programmedStatus(), item.lastHit());
}

/// Marks a key or takes its mark; tells of its status when that is another one then.
void HashTable::markIs(HashBaseCuckooEntry& record, bool marked) {
  const Orb::Ptr<HashBaseCuckooEntry> held = &record;
  const EntryProgrammedStatus before = statusOf(&record);
  flagIs(record, KeyRecord::marked, marked);
  if (statusOf(&record) != before) tellStatus(record);
}

void HashTable::statusDel(HashBaseCuckooEntry& record) {
  if (!record.has(KeyRecord::stated)) return;
  const Orb::Ptr<HashBaseCuckooEntry> held = &record;
  statusForget(record);
}

[[gnu::cold]] void HashTable::emitItem(const char* what, const HashBaseCuckooEntry& item) const {
  if (options_.tracesItems) {
    options_.trace(1, what, item.toStrep());
  } else {
    options_.trace(1, what, KeyText{item});
  }
}

}  // namespace VelaSwitchApi
