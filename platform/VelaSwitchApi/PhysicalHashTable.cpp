#include "VelaSwitchApi/PhysicalHashTable.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "VelaSwitch/Crc.h"
#include "VelaSwitchApi/HashBase.h"

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

PhysicalHashTable::PhysicalHashTable(const PhysicalHashProperties& properties)
    : properties_(properties.fields()),
      engine_(properties.rowsPerWay(), properties.ways()),
      hits_(*this) {}

PhysicalHashTable::~PhysicalHashTable() = default;

void PhysicalHashTable::helperIs(Orb::Ptr<HashBaseHelper> helper) {
  joined_.push_back({std::move(helper)});
}

PhysicalHashTable::Joined& PhysicalHashTable::joined(const HashBaseTable* table) {
  return const_cast<Joined&>(std::as_const(*this).joined(table));
}

const PhysicalHashTable::Joined& PhysicalHashTable::joined(const HashBaseTable* table) const {
  const auto at = std::find_if(joined_.begin(), joined_.end(),
                               [&](const Joined& each) { return each.helper->swTable() == table; });
  ORB_ASSERT(at != joined_.end());
  return *at;
}

Orb::Ptr<HwTableConfig> PhysicalHashTable::hwTable(HwTableId id) const {
  for (const auto& table : hwTables_) {
    if (table->descriptor().identity.id == id) return table;
  }
  return nullptr;
}

HashBaseCuckooEntry* PhysicalHashTable::entryAt(HwIndex index) const {
  return static_cast<HashBaseCuckooEntry*>(engine_.at(location(index)));
}

void PhysicalHashTable::swTableDel(HashBaseTable* table) {
  const auto owned = [&](const auto& entry) { return &entry->table() == table; };
  Entries gone;
  engine_.waiting().forEach([&](Keel::Cuckoo::HashItem& item) {
    if (&entryOf(item).table() == table) gone.emplace_back(&entryOf(item));
  });
  for (const auto& entry : gone) engine_.waitDel(*entry);
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    const Orb::Ptr<HashBaseCuckooEntry> entry = entryAt(index);
    if (entry && &entry->table() == table) engine_.remove(*entry);
  }
  for (auto& [rows, duplicates] : duplicates_) std::erase_if(duplicates, owned);
  for (auto& [rows, withdrawn] : withdrawn_) std::erase_if(withdrawn, owned);
  std::erase_if(duplicates_, [](const auto& each) { return each.second.empty(); });
  for (Entries* entries : {&missing_, &revisit_, &cameIn_}) std::erase_if(*entries, owned);
  hits_.swTableDel(table);
  for (StaleRow& row : staleRows_) {
    std::erase_if(row.holds, owned);
    std::erase_if(row.waits, owned);
  }
  std::erase_if(joined_, [&](const Joined& each) { return each.helper->swTable() == table; });
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

U32 PhysicalHashTable::entries(const HashBaseTable* table) const { return joined(table).entries; }
U32 PhysicalHashTable::peak(const HashBaseTable* table) const { return joined(table).peak; }

U32 PhysicalHashTable::waiting(const HashBaseTable* table) const {
  if (joined_.size() == 1) return engine_.waiting().size();
  U32 count = 0;
  engine_.waiting().forEach([&](Keel::Cuckoo::HashItem& item) {
    if (&entryOf(item).table() == table) ++count;
  });
  return count;
}

/// An entry came into a row or went out of one.
void PhysicalHashTable::counted(const HashBaseCuckooEntry& entry, int change) {
  Joined& table = joined(&entry.table());
  table.entries += static_cast<U32>(change);
  table.peak = std::max(table.peak, table.entries);
}

bool PhysicalHashTable::adoptAt(HashBaseCuckooEntry& entry, Location location) {
  if (!engine_.adopt(entry, location)) return false;
  counted(entry, 1);
  return true;
}

void PhysicalHashTable::takeOut(HashBaseCuckooEntry& entry) {
  engine_.remove(entry);
  counted(entry, -1);
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

std::vector<const HashBaseCuckooEntry*> PhysicalHashTable::competitors(
    const HashBaseCuckooEntry& entry) {
  std::vector<const HashBaseCuckooEntry*> competing;
  for (const auto* item : engine_.competitors(entry)) {
    competing.push_back(static_cast<const HashBaseCuckooEntry*>(item));
  }
  return competing;
}

void PhysicalHashTable::pack(const HashBaseCuckooEntry& entry, Location location,
                             U32* image) const {
  std::fill_n(image, maxRowWords, 0);
  const HashBaseHelper& helper = entry.valid() ? *entry.table().helper() : *joined_.front().helper;
  helper.setHwBuffer(entry, location, reinterpret_cast<U8*>(image));
}

void PhysicalHashTable::emptyImage(HwIndex index, U32* image) const {
  pack(*joined_.front().helper->nullHashEntry(), location(index), image);
}

void PhysicalHashTable::expectedImage(HwIndex index, U32* image) const {
  if (const HashBaseCuckooEntry* entry = entryAt(index)) {
    pack(*entry, location(index), image);
  } else {
    emptyImage(index, image);
  }
}

bool PhysicalHashTable::writeImage(HwIndex index, const U32* image, bool empty) {
  bool good = true;
  for (const auto& table : hwTables_) good = writeTo(*table, index, image, empty) && good;
  return good;
}

bool PhysicalHashTable::writeTo(HwTableConfig& table, HwIndex index, const U32* image, bool empty) {
  const HwTableId id = table.descriptor().identity.id;
  const bool good = table.entryIs(HwEntryConfig(index, image, maxRowWords),
                                  [&] { hits_.rowChanges(id, index, empty); });
  hits_.rowChanged(id, index, good && empty);
  return good;
}

bool PhysicalHashTable::hashItemWrite(Keel::Cuckoo::HashItem& item, Location location) {
  HashBaseCuckooEntry& entry = entryOf(item);
  U32 image[maxRowWords];
  pack(entry, location, image);
  if (!writeImage(hwIndex(location), image, false)) return false;
  if (!staleRows_.empty()) staleRowDel(location);
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
  for (const StaleRow& row : staleRows_) {
    if (hwIndex(row.location) != index) continue;
    entries.insert(entries.end(), row.holds.begin(), row.holds.end());
  }
}

/// Not over what could not be read.
bool PhysicalHashTable::writeEmpty(Location location) {
  const HwIndex index = hwIndex(location);
  U32 image[maxRowWords];
  emptyImage(index, image);
  bool good = true;
  for (const auto& table : hwTables_) {
    const bool unread = table->state(index) == HwTableConfig::Row::unread &&
                        table->readEntry(index) == RegisterBus::Read::failed;
    good = !unread && writeTo(*table, index, image, true) && good;
  }
  return good;
}

void PhysicalHashTable::place(HashBaseCuckooEntry& entry) {
  clearStaleRows();
  if (const StaleRow* stale = staleRowOf(entry)) {
    engine_.waitDel(entry);
    entry.status_ = Status::hardwareError;
    addOnce(staleRowIs(stale->location).waits, &entry);
  } else if (entry.placed()) {
    const bool written = hashItemWrite(entry, engine_.location(entry));
    lastWritten_ = nullptr;
    entry.status_ = written ? Status::programmed : Status::hardwareError;
  } else {
    placeNew(entry);
  }
  revisit();
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
  if (placeOverUnread(entry)) return;
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
bool PhysicalHashTable::placeOverUnread(HashBaseCuckooEntry& entry) {
  for (U8 way = 0; way < engine_.ways() && !undecided_.empty(); ++way) {
    const Location at = engine_.candidate(entry, way);
    if (!undecided_.contains(hwIndex(at)) || engine_.at(at)) continue;
    undecided_.erase(hwIndex(at));
    engine_.waitDel(entry);
    if (hashItemWrite(entry, at)) {
      entry.status_ = Status::programmed;
      adoptAt(entry, at);
    } else {
      entry.status_ = Status::hardwareError;
      StaleRow& stale = staleRowIs(at);
      addOnce(stale.holds, &entry);
      addOnce(stale.waits, &entry);
    }
    lastWritten_ = nullptr;
    return true;
  }
  return false;
}

/// The entry could not be placed because a row could not be written.
void PhysicalHashTable::failed(const Keel::Cuckoo::InsertResult& result,
                               HashBaseCuckooEntry& entry) {
  entry.status_ = Status::hardwareError;
  StaleRow& stale = staleRowIs(result.failedAt);
  addOnce(stale.holds, &entryOf(*result.failedItem));
  addOnce(stale.holds, lastWritten_);
  addOnce(stale.waits, &entry);
}

bool PhysicalHashTable::remove(HashBaseCuckooEntry& entry) {
  clearStaleRows();
  const Orb::Ptr<HashBaseCuckooEntry> keep(&entry);
  const bool duplicate = duplicateDel(entry);
  if (!undecided_.empty()) {
    Entries& withdrawn = withdrawn_[rowsOf(entry)];
    std::erase_if(withdrawn, [&](const auto& each) { return each->isEqual(entry); });
    withdrawn.push_back(keep);
  }
  entry.status_ = staleRowOf(entry) ? Status::hardwareError : Status::notProgrammed;
  if (entry.placed()) {
    const Location location = engine_.location(entry);
    if (engine_.at(location) != &entry) return false;
    counted(entry, -1);
    if (const auto next = nextDuplicate(entry)) {
      // The row changes hands even if its words stay the same.
      for (const auto& table : hwTables_) {
        hits_.rowChanges(table->descriptor().identity.id, hwIndex(location), false);
      }
      hits_.entryDel(entry);
      engine_.replace(entry, *next);
      counted(*next, 1);
      revisitIs(next.get());
    } else {
      hits_.entryDel(entry);
      letIn(entry, location);
    }
  } else if (!duplicate) {
    engine_.waitDel(entry);
    // Those behind an equal entry that is there stay behind it.
    if (!engine_.find(entry) && !engine_.findWaiting(entry)) {
      if (const auto next = nextDuplicate(entry)) revisitIs(next.get());
    }
  }
  revisit();
  return true;
}

/// A placed entry goes: clears its row, or gives the room to one that waits.
void PhysicalHashTable::letIn(HashBaseCuckooEntry& gone, Location location) {
  lastWritten_ = nullptr;
  const Keel::Cuckoo::SuccessionResult next = engine_.succeed(gone, *this);
  cameIn(next);
  const bool left = next.item ? next.insert.outcome == Keel::Cuckoo::Outcome::failed &&
                                    next.insert.failedAt == location
                              : !writeEmpty(location);
  if (!left) return;
  gone.status_ = Status::hardwareError;
  addOnce(staleRowIs(location).holds, &gone);
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
  cameIn_.emplace_back(&entry);
}

/// Rows that were stale are free again. While they were not, others became free that nobody could
/// get to, and whatever comes in now may open a way to those: all are tried until none is filled.
void PhysicalHashTable::fillRows() {
  if (!std::exchange(cleared_, false)) return;
  for (bool filled = true; filled && !engine_.waiting().empty();) {
    filled = false;
    for (HwIndex index = 0; index < engine_.capacity(); ++index) {
      const Location row = location(index);
      if (engine_.at(row) || isStale(row)) continue;
      const Keel::Cuckoo::SuccessionResult next = engine_.fill(row, *this);
      filled = filled || next.item;
      cameIn(next);
    }
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
  const Orb::Ptr<HashBaseCuckooEntry> entry = *next;
  duplicateDel(*entry);
  return entry;
}

PhysicalHashTable::StaleRow& PhysicalHashTable::staleRowIs(Location location) {
  for (StaleRow& row : staleRows_) {
    if (row.location == location) return row;
  }
  return staleRows_.emplace_back(StaleRow{location, {}, {}});
}

void PhysicalHashTable::addOnce(Entries& entries, HashBaseCuckooEntry* entry) {
  const Orb::Ptr<HashBaseCuckooEntry> added(entry);
  if (added && std::find(entries.begin(), entries.end(), added) == entries.end()) {
    entries.push_back(added);
  }
}

bool PhysicalHashTable::isStale(Location location) const {
  return std::any_of(staleRows_.begin(), staleRows_.end(),
                     [&](const StaleRow& row) { return row.location == location; });
}

void PhysicalHashTable::staleRowDel(Location location) {
  const auto row = std::find_if(staleRows_.begin(), staleRows_.end(),
                                [&](const StaleRow& stale) { return stale.location == location; });
  if (row == staleRows_.end()) return;
  revisitAll(*row);
  staleRows_.erase(row);
  cleared_ = true;
}

/// The row is stale no more: what it stood in the way of can go on.
void PhysicalHashTable::revisitAll(const StaleRow& row) {
  for (const Entries* entries : {&row.holds, &row.waits}) {
    for (const auto& entry : *entries) {
      if (entry->status_ != Status::programmed) revisitIs(entry.get());
    }
  }
}

const PhysicalHashTable::StaleRow* PhysicalHashTable::staleRowOf(
    const HashBaseCuckooEntry& entry) const {
  for (const StaleRow& row : staleRows_) {
    for (const auto& held : row.holds) {
      if (held->isEqual(entry)) return &row;
    }
  }
  return nullptr;
}

void PhysicalHashTable::clearStaleRows() {
  if (staleRows_.empty()) [[likely]]
    return;
  std::erase_if(staleRows_, [&](const StaleRow& row) {
    if (!writeEmpty(row.location)) return false;
    revisitAll(row);
    cleared_ = true;
    return true;
  });
}

void PhysicalHashTable::settle() {
  clearStaleRows();
  const std::vector<HwIndex> undecided(undecided_.begin(), undecided_.end());
  for (const HwIndex index : undecided) {
    if (entryAt(index)) {
      undecided_.erase(index);
      continue;
    }
    readRow(index);
    adopt(index);
  }
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && entry->status_ == Status::hardwareError) revisitIs(entry);
  }
  revisit();
}

/// Lets tables handle entries again, and tells them of those that came in. Handling one may add
/// others, which then wait their turn.
void PhysicalHashTable::revisit() {
  const auto done = [&] { return revisit_.empty() && cameIn_.empty() && !cleared_; };
  if (revisiting_ || done()) [[likely]]
    return;
  revisiting_ = true;
  while (!done()) {
    const Entries cameIn = std::exchange(cameIn_, {});
    const Entries again = std::exchange(revisit_, {});
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
        recheck(*entry, index);
      } else if (!writeDefault(index)) {
        staleRowIs(location(index));
      }
      continue;
    }
    for (const auto& table : hwTables_) table->entryForget(index);
    if (!entry) {
      if (!writeEmpty(location(index))) staleRowIs(location(index));
      continue;
    }
    const bool written = hashItemWrite(*entry, location(index));
    lastWritten_ = nullptr;
    const Status before =
        std::exchange(entry->status_, written ? Status::programmed : Status::hardwareError);
    if (entry->status_ != before) entry->table().entryStatusIsByHashItem(*entry);
    if (written) entry->table().hwInconsistentEntryDelFromHashItem(*entry);
  }
  revisit();
}

/// An entry whose row could not be read everywhere is as it should be when it can.
void PhysicalHashTable::recheck(HashBaseCuckooEntry& entry, HwIndex index) {
  if (!entry.table().hwInconsistentEntryFromHashItem(entry)) return;
  readRow(index);
  if (everyTableHolds(index)) entry.table().hwInconsistentEntryDelFromHashItem(entry);
}

/// Brings a row that no entry lies in to its empty form, but for pipelines that cannot say what
/// they hold. False when a write failed.
bool PhysicalHashTable::writeDefault(HwIndex index) {
  using Row = HwTableConfig::Row;
  const auto unread = [&](const auto& table) {
    const Row state = table->state(index);
    return state == Row::unread || state == Row::unknown;
  };
  const bool undecided =
      undecided_.contains(index) || std::all_of(hwTables_.begin(), hwTables_.end(), unread);
  readRow(index);
  if (undecided && adopt(index)) return true;
  U32 image[maxRowWords];
  emptyImage(index, image);
  bool good = true;
  for (const auto& table : hwTables_) {
    if (!unread(table)) good = writeTo(*table, index, image, true) && good;
  }
  return good;
}

/// Reads a row where nothing is known of it yet.
void PhysicalHashTable::readRow(HwIndex index) {
  using Row = HwTableConfig::Row;
  for (const auto& table : hwTables_) {
    const Row state = table->state(index);
    if (state == Row::unknown || state == Row::unread) table->readEntry(index);
  }
}

void PhysicalHashTable::rebuild() {
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    if (entryAt(index)) continue;
    readRow(index);
    adopt(index);
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
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    for (const auto& table : hwTables_) table->readEntry(index);
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
  const auto at = std::find_if(joined_.begin(), joined_.end(),
                               [&](const Joined& each) { return each.helper->entryOwned(index); });
  return at == joined_.end() ? firstTable() : at->helper->swTable();
}

void PhysicalHashTable::clearRow(HwIndex index) {
  staleRowIs(location(index));
  clearStaleRows();
  revisit();
}

/// Takes up what a row holds, as the first pipeline says whose row is sound, and marks the entry
/// when not all of them hold it. Returns whether an entry was taken up.
bool PhysicalHashTable::adopt(HwIndex index) {
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
  // A pipeline that did not answer comes before those that have no entry.
  if (open && says != Says::entry) {
    undecided_.insert(index);
  } else {
    undecided_.erase(index);
  }
  if (undecided_.empty()) withdrawn_.clear();
  if (says != Says::entry) return false;
  // Those who heard of it may have withdrawn it.
  HashBaseCuckooEntry* entry = entryAt(index);
  if (entry && !everyTableHolds(index)) entry->table().hwInconsistentEntryIsFromHashItem(*entry);
  return true;
}

bool PhysicalHashTable::isWithdrawn(const HashBaseCuckooEntry& entry) const {
  if (withdrawn_.empty()) [[likely]]
    return false;
  const auto at = withdrawn_.find(rowsOf(entry));
  return at != withdrawn_.end() &&
         std::any_of(at->second.begin(), at->second.end(),
                     [&](const auto& gone) { return gone->isEqual(entry); });
}

/// A row that is not where its key belongs is none, and neither is one that is no entry's and not
/// empty. One that repeats a key says nothing: it gets cleared when the empty rows are written.
PhysicalHashTable::Says PhysicalHashTable::adoptFrom(HwIndex index) {
  HwTableConfig& table = decodedTable();
  U32 empty[maxRowWords];
  emptyImage(index, empty);
  if (table.same(index, empty, table.image(index))) return Says::nothing;
  for (const Joined& each : joined_) {
    const HashBaseHelper& helper = *each.helper;
    if (!helper.entryOwned(index) || !helper.rowSound(table.image(index))) continue;
    const Orb::Ptr<HashBaseCuckooEntry> entry = helper.decodeHwEntry(index);
    if (!entry->valid()) continue;
    if (engine_.find(*entry)) return Says::nothing;
    // What was announced or withdrawn since is what counts.
    const HashBaseTable& owner = entry->table();
    if (owner.initialized() && owner.entryHasByHashItem(*entry)) return Says::nothing;
    if (isWithdrawn(*entry)) return Says::nothing;
    if (!adoptAt(*entry, location(index))) continue;
    entry->status_ = Status::programmed;
    entry->table().entryIsByHashItem(*entry);
    return Says::entry;
  }
  return Says::unsound;
}

}  // namespace VelaSwitchApi
