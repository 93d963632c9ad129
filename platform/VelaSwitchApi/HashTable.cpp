#include "VelaSwitchApi/HashTable.h"

namespace VelaSwitchApi {

HashTable::HashTable(std::string name, U8 tableIdx, U8 pipeline, const Options& options)
    : HashBaseTable(std::move(name), tableIdx, pipeline), options_(options) {
  hwTablesDuplicateIs(options.everyPipeline);
  statusSupportedIs(true);
  hitBitsSupportedIs(options.hitBits);
}

void HashTable::reactorTeardown() {
  if (profileConvertorPtr()) profileConvertor().swTableDel(this);
}

void HashTable::lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) {
  if (!options_.hits) return HashBaseTable::lastHitByHashItemIs(hashItem, time);
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
  if (status != EntryProgrammedStatus::programmed && options_.trace.enabled(2)) {
    options_.trace(2, "Not programmed, ", status, ": ", keyText(item));
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
  if (!options_.trace.enabled(1)) return;
  options_.trace(1, what, options_.tracesItems ? item.toStrep() : keyText(item));
}

}  // namespace VelaSwitchApi
