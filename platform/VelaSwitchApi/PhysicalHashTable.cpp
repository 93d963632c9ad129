#include "VelaSwitchApi/PhysicalHashTable.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "VelaSwitch/Crc.h"
#include "VelaSwitchApi/HashBase.h"
#include "VelaSwitchApi/RowReads.h"

namespace VelaSwitchApi {
namespace {

using Status = EntryProgrammedStatus;

HashBaseCuckooEntry& entryOf(Keel::Cuckoo::HashItem& item) {
  return static_cast<HashBaseCuckooEntry&>(item);
}

}  // namespace

U32 HashBaseCuckooEntry::swTableId() const { return table_ ? table_->swTableId() : noSwTable; }

bool HashBaseCuckooEntry::isEqual(const Keel::Cuckoo::HashItem& other) const {
  const auto& entry = static_cast<const HashBaseCuckooEntry&>(other);
  U8 mine[VelaSwitch::crcMaxBytes]{};
  U8 theirs[VelaSwitch::crcMaxBytes]{};
  return copyKeyToBuffer(mine, sizeof mine) == entry.copyKeyToBuffer(theirs, sizeof theirs) &&
         std::memcmp(mine, theirs, sizeof mine) == 0;
}

bool HashBaseHelper::entryOwned(HwIndex) const { return true; }
bool HashBaseHelper::rowSound(const U32*) const { return true; }
void HashBaseHelper::setEmptyImage(Keel::Cuckoo::CuckooLocation location, U32* image) const {
  std::fill_n(image, maxRowWords, 0);
  setHwBuffer(*nullHashEntry(), location, reinterpret_cast<U8*>(image));
}

PhysicalHashTable::PhysicalHashTable(const PhysicalHashProperties& properties)
    : properties_(properties.fields()),
      engine_(properties.rowsPerWay(), properties.ways()),
      hits_(*this) {
  ORB_ASSERT(properties_.rowsPerWay == U64{1} << properties_.hashBits);
}

PhysicalHashTable::~PhysicalHashTable() = default;

void PhysicalHashTable::helperIs(Orb::Ptr<HashBaseHelper> helper) {
  helpers_.push_back(std::move(helper));
}

/// Looked up once, not for each row.
void PhysicalHashTable::findPipelines() {
  pipelines_.clear();
  pipelines_.reserve(hwTables_.size());
  for (const auto& table : hwTables_) {
    pipelines_.push_back({table.get(), hits_.tracked(table->descriptor().identity.id)});
  }
}

Orb::Ptr<HwTableConfig> PhysicalHashTable::hwTable(HwTableId id) const {
  for (const auto& table : hwTables_) {
    if (table->descriptor().identity.id == id) return table;
  }
  return nullptr;
}

void PhysicalHashTable::swTableDel(HashBaseTable* table) {
  const auto owned = [&](const auto& entry) { return &entry->table() == table; };
  if (helpers_.size() == 1 && helpers_.front()->swTable() == table) {
    engine_.waitDel();
  } else {
    Entries gone;
    engine_.waiting().forEach([&](Keel::Cuckoo::HashItem& item) {
      if (&entryOf(item).table() == table) gone.emplace_back(&entryOf(item));
    });
    for (const auto& entry : gone) engine_.waitDel(*entry);
  }
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    const Orb::Ptr<HashBaseCuckooEntry> entry = entryAt(index);
    if (entry && &entry->table() == table) engine_.remove(*entry);
  }
  for (auto& [rows, duplicates] : duplicates_) std::erase_if(duplicates, owned);
  std::erase_if(duplicates_, [](const auto& each) { return each.second.empty(); });
  for (Entries* entries : {&missing_, &revisit_, &cameIn_, &mended_})
    std::erase_if(*entries, owned);
  hits_.swTableDel(table);
  for (auto* rows : {&stale_, &undecided_}) {
    for (auto& [index, row] : *rows) {
      std::erase_if(row.holds, owned);
      std::erase_if(row.waits, owned);
    }
  }
  std::erase_if(helpers_, [&](const auto& helper) { return helper->swTable() == table; });
  table->placed_ = 0;
}

bool PhysicalHashTable::pollHits(HwTableId id, Orb::Seconds now) {
  Entries hit;
  const bool good = hits_.poll(id, hit);
  for (const auto& entry : hit) entry->table().lastHitByHashItemIs(*entry, now);
  return good;
}

void PhysicalHashTable::hit(HwIndex index, Orb::Seconds now) {
  Entries hit;
  addOccupants(index, hit);
  for (const auto& entry : hit) entry->table().lastHitByHashItemIs(*entry, now);
}

U32 PhysicalHashTable::waiting(const HashBaseTable* table) const {
  if (helpers_.size() == 1) return engine_.waiting().size();
  U32 count = 0;
  engine_.waiting().forEach([&](Keel::Cuckoo::HashItem& item) {
    if (&entryOf(item).table() == table) ++count;
  });
  return count;
}

/// An entry came into a row or went out of one.
inline void PhysicalHashTable::counted(const HashBaseCuckooEntry& entry, int change) {
  HashBaseTable& table = entry.table();
  const U32 placed = table.placed_ += static_cast<U32>(change);
  if (change > 0) table.placedPeak_ = std::max(table.placedPeak_, placed);
}

bool PhysicalHashTable::adoptAt(HashBaseCuckooEntry& entry, Location location) {
  if (!engine_.adopt(entry, location)) return false;
  counted(entry, 1);
  return true;
}

[[gnu::always_inline]] inline Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::takeOut(
    HashBaseCuckooEntry& entry) {
  counted(entry, -1);
  return engine_.remove(entry);
}

PhysicalHashTable::Entries PhysicalHashTable::equals(const HashBaseCuckooEntry& entry) const {
  Entries equal;
  if (auto* placed = engine_.find(entry)) equal.emplace_back(&entryOf(*placed));
  if (auto* waiting = engine_.findWaiting(entry)) equal.emplace_back(&entryOf(*waiting));
  if (duplicates_.empty()) return equal;
  const auto at = duplicates_.find(rowsOf(entry));
  if (at == duplicates_.end()) return equal;
  std::copy_if(at->second.begin(), at->second.end(), std::back_inserter(equal),
               [&](const auto& each) { return each->isEqual(entry); });
  return equal;
}

const HashBaseCuckooEntry* PhysicalHashTable::successor(HwIndex index) {
  const HashBaseCuckooEntry& gone = *entryAt(index);
  const Entries same = equals(gone);
  if (same.size() > 1) return same[1].get();
  return static_cast<const HashBaseCuckooEntry*>(engine_.successor(gone));
}

inline void PhysicalHashTable::pack(const HashBaseCuckooEntry& entry, Location location,
                                    U32* image) const {
  std::fill_n(image, maxRowWords, 0);
  const HashBaseHelper& helper = entry.valid() ? *entry.table().helper() : *helpers_.front();
  helper.setHwBuffer(entry, location, reinterpret_cast<U8*>(image));
}

void PhysicalHashTable::emptyImage(HwIndex index, U32* image) const {
  helpers_.front()->setEmptyImage(location(index), image);
}

void PhysicalHashTable::expectedImage(HwIndex index, U32* image) const {
  if (const HashBaseCuckooEntry* entry = entryAt(index)) {
    pack(*entry, location(index), image);
  } else {
    emptyImage(index, image);
  }
}

/// Inlined, like the next, for what the row becomes and whether it is written at once is known
/// where it is called.
[[gnu::always_inline]] inline bool PhysicalHashTable::writeImage(HwIndex index, const U32* image,
                                                                 Becomes becomes, RowRun* run) {
  auto each = pipelines_.begin();
  const auto end = pipelines_.end();
  if (each == end) [[unlikely]]
    return true;
  const bool unchanged = each->rows->imageIs(index, image);
  bool good = true;
  do {
    if (!writeTo(*each, index, image, unchanged, becomes, run)) [[unlikely]]
      good = false;
  } while (++each != end);
  return good;
}

[[gnu::always_inline]] inline bool PhysicalHashTable::writeTo(const Pipeline& pipeline,
                                                              HwIndex index, const U32* image,
                                                              bool unchanged, Becomes becomes,
                                                              RowRun* run) {
  const auto [rows, hits] = pipeline;
  const auto keepHits = [&, hits = hits ]() __attribute__((always_inline)) {
    hits_.rowChanges(hits, index, becomes);
  };
  const bool good = rows->entryIs(index, image, unchanged, keepHits, {run, this});
  HitTracker::rowChanged(hits, index, good && becomes != Becomes::entrys);
  return good;
}

bool PhysicalHashTable::hashItemWrite(Keel::Cuckoo::HashItem& item, Location location) {
  HashBaseCuckooEntry& entry = entryOf(item);
  for (const Pipeline& each : pipelines_) each.rows->soon(hwIndex(location));
  U32 image[maxRowWords];
  pack(entry, location, image);
  if (!writeImage(hwIndex(location), image, Becomes::entrys)) return false;
  rowDecided(hwIndex(location));
  if (entry.table().hwInconsistentEntryFromHashItem(entry)) toTell(mended_, entry);
  lastWritten_ = &entry;
  if (entry.placed()) vacated_ = engine_.location(entry);
  return true;
}

/// What may answer lookups in the row: the entry that lies there, or whatever has just left it and
/// was not written over yet.
void PhysicalHashTable::addOccupants(HwIndex index, Entries& entries) const {
  if (HashBaseCuckooEntry* entry = entryAt(index)) {
    entries.emplace_back(entry);
    return;
  }
  if (lastWritten_ && hwIndex(vacated_) == index) entries.emplace_back(lastWritten_);
  const auto stale = stale_.find(index);
  if (stale == stale_.end()) return;
  entries.insert(entries.end(), stale->second.holds.begin(), stale->second.holds.end());
}

bool PhysicalHashTable::occupied(HwIndex index) const {
  if (entryAt(index) || (lastWritten_ && hwIndex(vacated_) == index)) return true;
  if (stale_.empty()) [[likely]]
    return false;
  const auto stale = stale_.find(index);
  return stale != stale_.end() && !stale->second.holds.empty();
}

/// Brings a row to its empty form, in all pipelines when it was an entry's. A row that was nobody's
/// is left alone where it could not be read.
bool PhysicalHashTable::writeEmpty(HwIndex index, bool entrys) {
  U32 image[maxRowWords];
  emptyImage(index, image);
  const auto leftAlone = [&](const Pipeline& pipeline) {
    return !entrys && pipeline.rows->state(index) == HwTableConfig::Row::unread;
  };
  const bool unchanged = pipelines_.empty() || pipelines_.front().rows->imageIs(index, image);
  bool good = true;
  for (const Pipeline& each : pipelines_) {
    if (leftAlone(each)) continue;
    good = writeTo(each, index, image, unchanged, Becomes::empty, nullptr) && good;
  }
  return good;
}

/// The row that an entry is written to, or that it leaves to nobody, where nothing else is
/// concerned; otherwise noRow.
[[gnu::always_inline]] inline HwIndex PhysicalHashTable::plainRow(const HashBaseCuckooEntry& entry,
                                                                  bool desired) const {
  if (!plain()) [[unlikely]]
    return noRow;
  if (!entry.placed()) return desired ? engine_.freeRow(entry) : noRow;
  const HwIndex row = indexOf(entry);
  if (!desired && (engine_.at(row) != &entry || !engine_.waiting().empty())) [[unlikely]]
    return noRow;
  return row;
}

/// A row that takes long to pack is to be fetched meanwhile.
[[gnu::always_inline]] inline bool PhysicalHashTable::placePlainly(HashBaseCuckooEntry& entry,
                                                                   bool fetches) {
  const HwIndex row = plainRow(entry, true);
  if (row == noRow) [[unlikely]]
    return false;
  if (fetches) {
    for (const Pipeline& each : pipelines_) each.rows->soon(row);
  }
  U32 image[maxRowWords];
  pack(entry, location(row), image);
  if (writeImage(row, image, Becomes::entrys)) [[likely]] {
    entry.status_ = Status::programmed;
    if (!entry.placed()) {
      engine_.placedAt(entry, row);
      counted(entry, 1);
    }
  } else if (!entry.placed()) {
    failedAt(entry, location(row));
  } else {
    entry.status_ = Status::hardwareError;
  }
  return true;
}

Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::place(HashBaseCuckooEntry& entry) {
  if (!placePlainly(entry, true)) [[unlikely]]
    return placeAmongOthers(entry);
  if (!pending_ && entry.status_ == Status::programmed) [[likely]]
    return nullptr;
  Orb::Ptr<Keel::Cuckoo::HashItem> held(&entry);
  revisit();
  return held;
}

/// Places an entry that concerns others, or whose rows are not all known.
[[gnu::noinline]] Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::placeAmongOthers(
    HashBaseCuckooEntry& entry) {
  Orb::Ptr<Keel::Cuckoo::HashItem> held(&entry);
  clearStaleRows();
  if (const auto stale = rowOf(stale_, entry)) {
    engine_.waitDel(entry);
    entry.status_ = Status::hardwareError;
    addOnce(stale_[*stale].waits, &entry);
  } else if (entry.placed()) {
    const bool written = hashItemWrite(entry, engine_.location(entry));
    lastWritten_ = nullptr;
    entry.status_ = written ? Status::programmed : Status::hardwareError;
  } else {
    // Those that it moves lie anywhere in memory.
    for (U8 way = 0; way < engine_.ways(); ++way) entrySoon(candidate(entry, way));
    placeNew(entry);
  }
  revisit();
  return held;
}

bool PhysicalHashTable::concernsNobody() const {
  return plain() && !pending_ &&
         std::all_of(helpers_.begin(), helpers_.end(), [](const auto& each) {
           return each->swTable()->count(KeyRecord::marked) == 0;
         });
}

bool PhysicalHashTable::placeAlone(HashBaseCuckooEntry& entry) {
  if (placePlainly(entry, false)) [[likely]]
    return true;
  if (!plain() || engine_.find(entry) || engine_.findWaiting(entry)) return false;
  placeWithMoves(entry);
  return true;
}

bool PhysicalHashTable::stageable(const HashBaseCuckooEntry& entry, bool desired) {
  stageable_ = plainRow(entry, desired);
  if (stageable_ == noRow) return false;
  for (const Pipeline& each : pipelines_) each.rows->soon(stageable_);
  return true;
}

void PhysicalHashTable::stage(HashBaseCuckooEntry& entry, RowRun& run) {
  const HwIndex index = std::exchange(stageable_, noRow);
  ORB_ASSERT(index != noRow);
  const bool isNew = !entry.placed();
  U32 image[maxRowWords];
  if (entry.valid()) {
    pack(entry, location(index), image);
  } else {
    emptyImage(index, image);
  }
  staged_.push_back({&entry, index, isNew});
  if (!entry.valid()) {
    hits_.entryDel(entry);
    takeOut(entry);
  }
  writeImage(index, image, entry.valid() ? Becomes::entrys : Becomes::abandoned, &run);
  // What lies in the row until now may have been hit: only then it is the entry's.
  if (isNew) engine_.placedAt(entry, index);
}

/// A staged row could not be written.
void PhysicalHashTable::rowWritten(HwTableConfig&, HwIndex index, bool) {
  // In the order in which they were staged.
  while (staged_[failed_].index != index) ++failed_;
  staged_[failed_].failed = true;
}

void PhysicalHashTable::settleStaged() {
  for (const auto& [entry, index, isNew, failed] : staged_) {
    if (!entry->valid()) rowLeft(index, !failed);
    if (!failed) {
      entry->status_ = entry->valid() ? Status::programmed : Status::notProgrammed;
      if (isNew) counted(*entry, 1);
      continue;
    }
    entry->status_ = Status::hardwareError;
    if (entry->valid() && !isNew) continue;
    // As for one that is written alone: what the row holds is unknown, and it is nobody's.
    DoubtfulRow& stale = staleRowIs(index);
    addOnce(stale.holds, entry.get());
    if (!isNew) continue;
    engine_.remove(*entry);
    addOnce(stale.waits, entry.get());
  }
  staged_.clear();
  failed_ = 0;
}

/// A staged row is empty now, or may hold what it held: until then it could be hit.
void PhysicalHashTable::rowLeft(HwIndex index, bool empty) {
  for (const Pipeline& each : pipelines_) HitTracker::rowChanged(each.hits, index, empty);
}

void PhysicalHashTable::placeNew(HashBaseCuckooEntry& entry) {
  if (auto* item = engine_.find(entry)) {
    HashBaseCuckooEntry& holder = entryOf(*item);
    const Orb::Ptr<HashBaseCuckooEntry> keep(&holder);
    if (!holder.table().entryUnclaimedByHashItem(holder)) {
      duplicateIs(entry);
      return;
    }
    // What was read from hardware under another spelling of the key is this entry: its row stands.
    counted(holder, -1);
    engine_.replace(holder, entry);
    counted(entry, 1);
    entry.lastHit_ = holder.lastHit_;
    hits_.entryReplace(holder, entry);
    const bool written = hashItemWrite(entry, engine_.location(entry));
    lastWritten_ = nullptr;
    entry.status_ = written ? Status::programmed : Status::hardwareError;
    holder.table().entryReleaseByHashItem(holder);
    return;
  }
  if (auto* item = engine_.findWaiting(entry); item && item != &entry) {
    duplicateIs(entry);
    return;
  }
  duplicateDel(entry);
  if (!placeOverUndecided(entry)) placeWithMoves(entry);
}

/// Places an entry of a hardware key that nobody else has.
void PhysicalHashTable::placeWithMoves(HashBaseCuckooEntry& entry) {
  lastWritten_ = nullptr;
  const Keel::Cuckoo::InsertResult result = engine_.insert(entry, *this);
  switch (result.outcome) {
    case Keel::Cuckoo::Outcome::placed:
      entry.status_ = Status::programmed;
      counted(entry, 1);
      break;
    case Keel::Cuckoo::Outcome::refused:
      entry.status_ = Status::tableFull;
      engine_.waitIs(entry);
      break;
    case Keel::Cuckoo::Outcome::failed:
      engine_.waitDel(entry);
      failed(result, entry);
      break;
  }
  lastWritten_ = nullptr;
}

/// A row of the entry that could not be read may hold the entry already: written there it does not
/// stand in two rows.
bool PhysicalHashTable::placeOverUndecided(HashBaseCuckooEntry& entry) {
  for (U8 way = 0; way < engine_.ways() && !undecided_.empty(); ++way) {
    const Location at = engine_.candidate(entry, way);
    if (!undecided_.contains(hwIndex(at))) continue;
    engine_.waitDel(entry);
    lastWritten_ = nullptr;
    if (hashItemWrite(entry, at)) {
      entry.status_ = Status::programmed;
      adoptAt(entry, at);
    } else {
      failedAt(entry, at);
    }
    lastWritten_ = nullptr;
    return true;
  }
  return false;
}

/// The entry's own row could not be written.
void PhysicalHashTable::failedAt(HashBaseCuckooEntry& entry, Location at) {
  failed(
      {.outcome = Keel::Cuckoo::Outcome::failed, .moves = 0, .failedAt = at, .failedItem = &entry},
      entry);
}

/// The entry could not be placed because a row could not be written.
void PhysicalHashTable::failed(const Keel::Cuckoo::InsertResult& result,
                               HashBaseCuckooEntry& entry) {
  entry.status_ = Status::hardwareError;
  DoubtfulRow& stale = staleRowIs(hwIndex(result.failedAt));
  addOnce(stale.holds, &entryOf(*result.failedItem));
  addOnce(stale.holds, lastWritten_);
  addOnce(stale.waits, &entry);
}

/// Removes an entry from a row that it leaves to nobody.
[[gnu::always_inline]] inline Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::removePlainly(
    HashBaseCuckooEntry& entry, HwIndex row) {
  hits_.entryDel(entry);
  Orb::Ptr<Keel::Cuckoo::HashItem> held = takeOut(entry);
  U32 image[maxRowWords];
  emptyImage(row, image);
  if (writeImage(row, image, Becomes::abandoned)) [[likely]] {
    entry.status_ = Status::notProgrammed;
  } else {
    entry.status_ = Status::hardwareError;
    addOnce(staleRowIs(row).holds, &entry);
  }
  return held;
}

Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::removeAlone(HashBaseCuckooEntry& entry) {
  const HwIndex row = plainRow(entry, false);
  if (row == noRow) [[unlikely]]
    return nullptr;
  return removePlainly(entry, row);
}

Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::remove(HashBaseCuckooEntry& entry) {
  const HwIndex row = plainRow(entry, false);
  if (row == noRow) [[unlikely]]
    return removeAmongOthers(entry);
  Orb::Ptr<Keel::Cuckoo::HashItem> held = removePlainly(entry, row);
  revisit();
  return held;
}

/// Removes an entry that concerns others, or whose rows are not all known.
[[gnu::noinline]] Orb::Ptr<Keel::Cuckoo::HashItem> PhysicalHashTable::removeAmongOthers(
    HashBaseCuckooEntry& entry) {
  clearStaleRows();
  Orb::Ptr<Keel::Cuckoo::HashItem> held(&entry);
  const bool duplicate = duplicateDel(entry);
  Orb::Ptr<HashBaseCuckooEntry> guess;
  if (entry.placed()) {
    if (engine_.at(engine_.location(entry)) != &entry) return nullptr;
    giveWay(entry);
  } else if (!duplicate) {
    engine_.waitDel(entry);
    guess = guessOf(entry);
    if (guess) {
      giveWay(*guess);
    } else if (!engine_.find(entry) && !engine_.findWaiting(entry)) {
      // Those behind an equal entry that is there stay behind it.
      if (const auto next = nextDuplicate(entry)) revisitIs(next.get());
    }
  }
  withdraw(entry);
  entry.status_ = mayLinger(entry) ? Status::hardwareError : Status::notProgrammed;
  // Last, since whoever hears of it may announce or withdraw something.
  if (guess) guess->table().entryReleaseByHashItem(*guess);
  revisit();
  return held;
}

/// What was read from hardware, and not announced since, under another spelling of the entry's key.
Orb::Ptr<HashBaseCuckooEntry> PhysicalHashTable::guessOf(const HashBaseCuckooEntry& entry) const {
  auto* item = engine_.find(entry);
  if (!item || !entryOf(*item).table().entryUnclaimedByHashItem(entryOf(*item))) return nullptr;
  return Orb::Ptr<HashBaseCuckooEntry>(&entryOf(*item));
}

/// A placed entry goes: its row passes on to an equal entry or to one that waits, or is cleared.
void PhysicalHashTable::giveWay(HashBaseCuckooEntry& gone) {
  const Location location = engine_.location(gone);
  counted(gone, -1);
  if (const auto next = nextDuplicate(gone)) {
    // The row changes hands even if its words stay the same.
    for (const Pipeline& each : pipelines_) {
      hits_.rowChanges(each.hits, hwIndex(location), Becomes::entrys);
    }
    hits_.entryDel(gone);
    engine_.replace(gone, *next);
    counted(*next, 1);
    revisitIs(next.get());
    return;
  }
  hits_.entryDel(gone);
  lastWritten_ = nullptr;
  const Keel::Cuckoo::SuccessionResult next = engine_.succeed(gone, *this);
  cameIn(next);
  const bool left = next.item ? next.insert.outcome == Keel::Cuckoo::Outcome::failed &&
                                    next.insert.failedAt == location
                              : !writeEmpty(hwIndex(location), true);
  if (left) addOnce(staleRowIs(hwIndex(location)).holds, &gone);
}

/// Rows that nobody knows may hold the entry: what they say of it when they answer is no entry.
void PhysicalHashTable::withdraw(HashBaseCuckooEntry& entry) {
  if (undecided_.empty() || !equals(entry).empty()) [[likely]]
    return;
  for (U8 way = 0; way < engine_.ways(); ++way) {
    const auto row = undecided_.find(candidate(entry, way));
    if (row == undecided_.end()) continue;
    // Each spelling of the key has a status of its own, which is to go when the row answers.
    Entries& holds = row->second.holds;
    const bool known = std::any_of(holds.begin(), holds.end(),
                                   [&](const auto& held) { return held->isSpelledAs(entry); });
    if (!known) holds.push_back(&entry);
  }
}

bool PhysicalHashTable::mayHold(const HashBaseCuckooEntry& entry) const {
  for (U8 way = 0; way < engine_.ways() && !undecided_.empty(); ++way) {
    if (undecided_.contains(candidate(entry, way))) return true;
  }
  return bool{guessOf(entry)};
}

void PhysicalHashTable::cameIn(const Keel::Cuckoo::SuccessionResult& next) {
  if (!next.item) return;
  HashBaseCuckooEntry& entry = entryOf(*next.item);
  if (next.insert.outcome == Keel::Cuckoo::Outcome::placed) {
    entry.status_ = Status::programmed;
    counted(entry, 1);
  } else {
    failed(next.insert, entry);
  }
  lastWritten_ = nullptr;
  toTell(cameIn_, entry);
}

/// Rows that were stale are free again. While they were not, others became free that nobody could
/// get to, and whatever comes in now may open a way to those: all are tried until none is filled.
void PhysicalHashTable::fillRows() {
  if (!std::exchange(cleared_, false)) return;
  while (!engine_.waiting().empty()) {
    std::vector<Location> free;
    for (HwIndex index = 0; index < engine_.capacity(); ++index) {
      if (!entryAt(index) && !stale_.contains(index)) free.push_back(location(index));
    }
    const Keel::Cuckoo::SuccessionResult next = engine_.fill(free, *this);
    if (!next.item) return;
    cameIn(next);
  }
}

U64 PhysicalHashTable::rowsOf(const HashBaseCuckooEntry& entry) const {
  U64 rows = 0;
  for (U8 way = 0; way < engine_.ways(); ++way) {
    rows = rows << 16 | engine_.candidate(entry, way).row;
  }
  return rows;
}

/// Hardware cannot tell the entry from another that came before: it is taken up when that goes.
void PhysicalHashTable::duplicateIs(HashBaseCuckooEntry& entry) {
  engine_.waitDel(entry);
  addOnce(duplicates_[rowsOf(entry)], &entry);
  entry.status_ = Status::duplicateKey;
}

/// Returns whether it was a duplicate.
bool PhysicalHashTable::duplicateDel(HashBaseCuckooEntry& entry) {
  if (duplicates_.empty()) [[likely]]
    return false;
  const auto at = duplicates_.find(rowsOf(entry));
  if (at == duplicates_.end()) return false;
  const auto gone =
      std::erase_if(at->second, [&](const auto& each) { return each.get() == &entry; });
  if (at->second.empty()) duplicates_.erase(at);
  return gone != 0;
}

/// The duplicate that arrived first of an entry that goes, taken off the list.
Orb::Ptr<HashBaseCuckooEntry> PhysicalHashTable::nextDuplicate(const HashBaseCuckooEntry& gone) {
  if (duplicates_.empty()) [[likely]]
    return nullptr;
  const auto at = duplicates_.find(rowsOf(gone));
  if (at == duplicates_.end()) return nullptr;
  const auto next = std::find_if(at->second.begin(), at->second.end(),
                                 [&](const auto& each) { return each->isEqual(gone); });
  if (next == at->second.end()) return nullptr;
  Orb::Ptr<HashBaseCuckooEntry> entry = *next;
  duplicateDel(*entry);
  return entry;
}

bool PhysicalHashTable::DoubtfulRow::mayHold(const HashBaseCuckooEntry& entry) const {
  return std::any_of(holds.begin(), holds.end(),
                     [&](const auto& held) { return held->isEqual(entry); });
}

/// What an undecided row may hold it may hold still.
PhysicalHashTable::DoubtfulRow& PhysicalHashTable::staleRowIs(HwIndex index) {
  if (auto row = undecided_.extract(index)) stale_.insert(std::move(row));
  return stale_[index];
}

void PhysicalHashTable::addOnce(Entries& entries, HashBaseCuckooEntry* entry) {
  const Orb::Ptr<HashBaseCuckooEntry> added(entry);
  if (added && std::find(entries.begin(), entries.end(), added) == entries.end()) {
    entries.push_back(added);
  }
}

/// What the row holds is known again.
void PhysicalHashTable::rowDecided(HwIndex index) {
  for (auto* rows : {&stale_, &undecided_}) {
    if (rows->empty()) [[likely]]
      continue;
    const auto row = rows->extract(index);
    if (!row) continue;
    revisitAll(row.mapped());
    if (rows == &stale_) rowsAreCleared();
  }
}

/// What a row stood in the way of can go on.
void PhysicalHashTable::revisitAll(const DoubtfulRow& row) {
  for (const Entries* entries : {&row.holds, &row.waits}) {
    for (const auto& entry : *entries) {
      if (entry->status_ != Status::programmed) revisitIs(entry.get());
    }
  }
}

/// The row of the entry's own that may hold it.
std::optional<HwIndex> PhysicalHashTable::rowOf(const DoubtfulRows& rows,
                                                const HashBaseCuckooEntry& entry) const {
  for (U8 way = 0; way < engine_.ways() && !rows.empty(); ++way) {
    const auto row = rows.find(candidate(entry, way));
    if (row != rows.end() && row->second.mayHold(entry)) return row->first;
  }
  return std::nullopt;
}

void PhysicalHashTable::clearStaleRows() {
  if (stale_.empty()) [[likely]]
    return;
  std::erase_if(stale_, [&](const auto& each) {
    const auto& [index, row] = each;
    if (!writeEmpty(index, !row.holds.empty())) return false;
    revisitAll(row);
    rowsAreCleared();
    return true;
  });
}

void PhysicalHashTable::settle() {
  clearStaleRows();
  std::vector<HwIndex> undecided;
  for (const auto& [index, row] : undecided_) undecided.push_back(index);
  for (const HwIndex index : undecided) decide(index);
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && entry->status_ == Status::hardwareError) revisitIs(entry);
  }
  revisit();
}

/// Lets tables handle entries again, and tells them of those that came in or whose rows are right
/// again. Handling one may add others, which then wait their turn.
void PhysicalHashTable::revisitThose() {
  if (revisiting_) return;
  revisiting_ = true;
  while (std::exchange(pending_, false)) {
    const Entries mended = std::exchange(mended_, {});
    const Entries cameIn = std::exchange(cameIn_, {});
    const Entries again = std::exchange(revisit_, {});
    for (const auto& entry : mended) entry->table().hwInconsistentEntryDelFromHashItem(*entry);
    for (const auto& entry : cameIn) entry->table().entryStatusIsByHashItem(*entry);
    for (const auto& entry : again) entry->table().handleHashItem(*entry);
    if (revisit_.empty()) fillRows();
  }
  revisiting_ = false;
}

void PhysicalHashTable::initRows(HwIndex start, bool overwrite) {
  for (HwIndex index = start; index < engine_.capacity(); ++index) {
    const Orb::Ptr<HashBaseCuckooEntry> entry(entryAt(index));
    if (!overwrite) {
      if (entry) {
        readRow(index);
        recheck(index);
      } else {
        writeDefault(index);
      }
      continue;
    }
    for (const auto& table : hwTables_) table->entryForget(index);
    if (!entry) {
      if (writeEmpty(index, true)) {
        rowDecided(index);
      } else {
        staleRowIs(index);
      }
      continue;
    }
    const bool written = hashItemWrite(*entry, location(index));
    lastWritten_ = nullptr;
    const Status before =
        std::exchange(entry->status_, written ? Status::programmed : Status::hardwareError);
    if (entry->status_ != before) entry->table().entryStatusIsByHashItem(*entry);
  }
  revisit();
}

void PhysicalHashTable::recheck(HwIndex index) {
  HashBaseCuckooEntry* entry = entryAt(index);
  if (!entry || !entry->table().hwInconsistentEntryFromHashItem(*entry)) return;
  if (everyTableHolds(index)) entry->table().hwInconsistentEntryDelFromHashItem(*entry);
}

void PhysicalHashTable::markDifferent(HwIndex index) {
  HashBaseCuckooEntry* entry = entryAt(index);
  if (entry && !everyTableHolds(index)) entry->table().hwInconsistentEntryIsFromHashItem(*entry);
}

/// Brings a row that no entry lies in to its empty form, once a pipeline says what it holds.
void PhysicalHashTable::writeDefault(HwIndex index) {
  using Row = HwTableConfig::Row;
  const bool open = undecided_.contains(index) ||
                    std::all_of(hwTables_.begin(), hwTables_.end(), [&](const auto& table) {
                      return table->state(index) == Row::unknown;
                    });
  if (open && !decide(index)) return;
  readRow(index);
  if (!entryAt(index) && !writeEmpty(index, false)) staleRowIs(index);
}

/// Reads a row again, and takes up what it holds. Returns whether a pipeline said what that is.
bool PhysicalHashTable::decide(HwIndex index) {
  if (entryAt(index)) {
    rowDecided(index);
  } else {
    readRow(index);
    adopt(index);
  }
  return !undecided_.contains(index);
}

/// Reads a row where nothing is known of it yet.
void PhysicalHashTable::readRow(HwIndex index) {
  for (const auto& table : hwTables_) {
    if (table->unheard(index)) table->readEntry(index);
  }
}

/// Reads the rows from `first` up to `end` that are `wanted(table, index)`.
template <class Wanted>
void PhysicalHashTable::readRows(HwIndex first, HwIndex end, const Wanted& wanted) {
  RowReads reads;
  for (HwIndex index = first; index < end; ++index) {
    for (const auto& table : hwTables_) {
      if (wanted(*table, index)) reads.add(*table, index);
      if (reads.full()) reads.flush();
    }
  }
  reads.flush();
}

void PhysicalHashTable::rebuild() {
  constexpr HwIndex together = 64;
  for (HwIndex first = 0; first < engine_.capacity(); first += together) {
    const HwIndex end = std::min(first + together, engine_.capacity());
    readRows(first, end, [&](const HwTableConfig& table, HwIndex index) {
      return !entryAt(index) && table.unheard(index);
    });
    for (HwIndex index = first; index < end; ++index) {
      if (!entryAt(index)) adopt(index);
    }
  }
}

/// Whether all pipelines' rows are what the entry in the row asks for.
bool PhysicalHashTable::everyTableHolds(HwIndex index) const {
  U32 expected[maxRowWords];
  expectedImage(index, expected);
  return std::all_of(hwTables_.begin(), hwTables_.end(), [&](const auto& table) {
    return table->state(index) == HwTableConfig::Row::held &&
           table->same(index, expected, table->image(index));
  });
}

void PhysicalHashTable::takePlacement() {
  hits_.forget();
  Entries homeless;
  readRows(0, engine_.capacity(), [](const auto&, HwIndex) { return true; });
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    if (HashBaseCuckooEntry* entry = entryAt(index)) homeless.emplace_back(entry);
  }
  for (const auto& entry : homeless) takeOut(*entry);
  engine_.waiting().forEach(
      [&](Keel::Cuckoo::HashItem& item) { homeless.emplace_back(&entryOf(item)); });
  std::erase_if(homeless, [&](const auto& entry) {
    for (U8 way = 0; way < engine_.ways(); ++way) {
      const Location at = engine_.candidate(*entry, way);
      if (!engine_.at(at) && holds(hwIndex(at), *entry)) return adoptAt(*entry, at);
    }
    return false;
  });
  takeDamagedRows(homeless);
  missing_.clear();
  for (const auto& entry : homeless) {
    if (entry->placed()) {
      entry->status_ = Status::programmed;
    } else if (engine_.hasRoom(*entry)) {
      engine_.waitDel(*entry);
      entry->status_ = Status::notProgrammed;
      missing_.push_back(entry);
    } else {
      entry->status_ = Status::tableFull;
      engine_.waitIs(*entry);
    }
  }
}

/// Gives entries the rows that are nearest to them, the least damaged first. A row that is nearer
/// to an empty one than to the entry is not taken for the entry's.
void PhysicalHashTable::takeDamagedRows(const Entries& homeless) {
  struct Claim {
    U32 damage;
    Location at;
    HashBaseCuckooEntry* entry;
  };
  std::vector<Claim> claims;
  for (const auto& entry : homeless) {
    for (U8 way = 0; way < engine_.ways(); ++way) {
      const Location at = engine_.candidate(*entry, way);
      const U32 bits = damage(hwIndex(at), *entry);
      if (bits != ~0u) claims.push_back({bits, at, entry.get()});
    }
  }
  std::stable_sort(claims.begin(), claims.end(),
                   [](const Claim& a, const Claim& b) { return a.damage < b.damage; });
  for (const Claim& claim : claims) {
    if (claim.entry->placed() || !makeWay(hwIndex(claim.at))) continue;
    adoptAt(*claim.entry, claim.at);
  }
}

/// Whether the row is free, or the entry in it has another row that holds it: damage can make one
/// entry's row look like another's.
bool PhysicalHashTable::makeWay(HwIndex index) {
  HashBaseCuckooEntry* entry = entryAt(index);
  if (!entry) return true;
  for (U8 way = 0; way < engine_.ways(); ++way) {
    const Location at = engine_.candidate(*entry, way);
    if (engine_.at(at) || !holds(hwIndex(at), *entry)) continue;
    const Orb::Ptr<HashBaseCuckooEntry> keep(entry);
    takeOut(*entry);
    return adoptAt(*entry, at);
  }
  return false;
}

/// Whether a pipeline's row is the entry's as it should be.
bool PhysicalHashTable::holds(HwIndex index, const HashBaseCuckooEntry& entry) const {
  U32 image[maxRowWords];
  pack(entry, location(index), image);
  return std::any_of(hwTables_.begin(), hwTables_.end(), [&](const auto& table) {
    return table->state(index) == HwTableConfig::Row::held &&
           table->same(index, image, table->image(index));
  });
}

/// How many bits the nearest pipeline's row is from the entry's; ~0 when all are nearer to empty.
U32 PhysicalHashTable::damage(HwIndex index, const HashBaseCuckooEntry& entry) const {
  const auto bits = [&](const HwTableConfig& table, const U32* image) {
    U32 count = 0;
    for (const U32 word : table.differentBits(index, image)) {
      count += static_cast<U32>(std::popcount(word));
    }
    return count;
  };
  U32 image[maxRowWords];
  U32 empty[maxRowWords];
  pack(entry, location(index), image);
  emptyImage(index, empty);
  U32 least = ~0u;
  for (const auto& table : hwTables_) {
    const U32 count = bits(*table, image);
    const U32 content = bits(*table, empty);
    if (content > 0 && count <= content) least = std::min(least, count);
  }
  return least;
}

std::vector<const HashBaseCuckooEntry*> PhysicalHashTable::missing() const {
  std::vector<const HashBaseCuckooEntry*> entries;
  for (const auto& entry : missing_) {
    if (!entry->placed()) entries.push_back(entry.get());
  }
  return entries;
}

const HashBaseTable* PhysicalHashTable::owner(HwIndex index) const {
  if (const HashBaseCuckooEntry* entry = entryAt(index)) return &entry->table();
  const auto at = std::find_if(helpers_.begin(), helpers_.end(),
                               [&](const auto& helper) { return helper->entryOwned(index); });
  return at == helpers_.end() ? firstTable() : (*at)->swTable();
}

void PhysicalHashTable::clearRow(HwIndex index) {
  if (!undecided_.contains(index) || decide(index)) {
    if (!entryAt(index)) staleRowIs(index);
    clearStaleRows();
  }
  revisit();
}

/// Takes up what a row holds, as the first pipeline says whose row is sound, and marks the entry
/// when not all of them hold it. While none says anything, and one was not heard, the row is
/// undecided.
void PhysicalHashTable::adopt(HwIndex index) {
  using Row = HwTableConfig::Row;
  Says says = Says::unsound;
  bool open = false;
  for (decoded_ = 0; decoded_ < hwTables_.size() && says == Says::unsound; ++decoded_) {
    const Row state = decodedTable().state(index);
    open = open || state == Row::unread;
    if (state == Row::absent) says = Says::nothing;
    if (state == Row::held) says = adoptFrom(index);
  }
  decoded_ = 0;
  if (open && says == Says::unsound) {
    undecided_.try_emplace(index);
    return;
  }
  if (const auto row = undecided_.extract(index)) revisitAll(row.mapped());
  if (says != Says::entry) return;
  const Orb::Ptr<HashBaseCuckooEntry> entry(entryAt(index));
  if (!everyTableHolds(index)) entry->table().hwInconsistentEntryIsFromHashItem(*entry);
  // Last, since whoever hears of it may withdraw it.
  entry->table().entryIsByHashItem(*entry);
}

/// The entries of the key that were announced or withdrawn before the row said that it holds one.
PhysicalHashTable::Entries PhysicalHashTable::knownBefore(HashBaseCuckooEntry& entry,
                                                          HwIndex index) const {
  Entries known = equals(entry);
  const auto row = undecided_.find(index);
  if (row != undecided_.end()) {
    std::copy_if(row->second.holds.begin(), row->second.holds.end(), std::back_inserter(known),
                 [&](const auto& held) { return held->isEqual(entry); });
  }
  const HashBaseTable& owner = entry.table();
  if (known.empty() && owner.initialized() && owner.entryHasByHashItem(entry)) {
    known.emplace_back(&entry);
  }
  return known;
}

/// A row that is not where its key belongs is none, and neither is one that is no entry's and not
/// empty. One of a key that is known says nothing: it is cleared, during a restart when the empty
/// rows are written.
PhysicalHashTable::Says PhysicalHashTable::adoptFrom(HwIndex index) {
  HwTableConfig& table = decodedTable();
  U32 empty[maxRowWords];
  emptyImage(index, empty);
  if (table.same(index, empty, table.image(index))) return Says::nothing;
  for (const auto& helper : helpers_) {
    if (!helper->entryOwned(index) || !helper->rowSound(table.image(index))) continue;
    const Orb::Ptr<HashBaseCuckooEntry> entry = helper->decodeHwEntry(index);
    if (!entry->valid()) continue;
    if (const Entries known = knownBefore(*entry, index); !known.empty()) {
      for (const auto& held : known) {
        if (!entry->table().initialized()) break;
        addOnce(staleRowIs(index).holds, held.get());
        revisitIs(held.get());
      }
      return Says::nothing;
    }
    if (!adoptAt(*entry, location(index))) continue;
    entry->status_ = Status::programmed;
    return Says::entry;
  }
  return Says::unsound;
}

}  // namespace VelaSwitchApi
