#include "VelaSwitchApi/PhysicalHashTable.h"

#include <algorithm>
#include <bit>
#include <cstring>

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
    : properties_(properties.fields()), engine_(properties.rowsPerWay(), properties.ways()) {}

PhysicalHashTable::~PhysicalHashTable() = default;

void PhysicalHashTable::helperIs(Orb::Ptr<HashBaseHelper> helper) {
  helpers_.push_back(std::move(helper));
}

Orb::Ptr<HwTableConfig> PhysicalHashTable::hwTable(HwTableId id) const {
  for (const auto& table : hwTables_) {
    if (table->descriptor().identity.id == id) return table;
  }
  return nullptr;
}

Orb::Ptr<HitBitTableConfig> PhysicalHashTable::hitTable(HwTableId id) const {
  const auto table = hitTables_.find(id);
  return table == hitTables_.end() ? nullptr : table->second;
}

HashBaseCuckooEntry* PhysicalHashTable::entryAt(HwIndex index) const {
  return static_cast<HashBaseCuckooEntry*>(engine_.at(location(index)));
}

void PhysicalHashTable::swTableDel(HashBaseTable* table) {
  const auto owned = [&](const auto& entry) { return &entry->table() == table; };
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && &entry->table() == table) engine_.remove(*entry);
  }
  std::erase_if(waiting_, owned);
  std::erase_if(missing_, owned);
  for (StaleRow& row : staleRows_) {
    std::erase_if(row.holds, owned);
    std::erase_if(row.waits, owned);
  }
  std::erase_if(helpers_, [&](const auto& helper) { return helper->swTable() == table; });
}

U32 PhysicalHashTable::entries(const HashBaseTable* table) const {
  if (helpers_.size() == 1) return engine_.size();
  U32 count = 0;
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    const HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && &entry->table() == table) ++count;
  }
  return count;
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
  const HashBaseHelper& helper = entry.valid() ? *entry.table().helper() : *helpers_.front();
  helper.setHwBuffer(entry, location, reinterpret_cast<U8*>(image));
}

void PhysicalHashTable::emptyImage(HwIndex index, U32* image) const {
  pack(*helpers_.front()->nullHashEntry(), location(index), image);
}

void PhysicalHashTable::expectedImage(HwIndex index, U32* image) const {
  if (const HashBaseCuckooEntry* entry = entryAt(index)) {
    pack(*entry, location(index), image);
  } else {
    emptyImage(index, image);
  }
}

bool PhysicalHashTable::writeImage(HwIndex index, const U32* image) {
  bool good = true;
  for (const auto& table : hwTables_) {
    if (!table->entryIs(HwEntryConfig(index, image, maxRowWords))) good = false;
  }
  return good;
}

bool PhysicalHashTable::hashItemWrite(Keel::Cuckoo::HashItem& item, Location location) {
  U32 image[maxRowWords];
  pack(entryOf(item), location, image);
  if (!writeImage(hwIndex(location), image)) return false;
  HashBaseCuckooEntry& entry = entryOf(item);
  if (!staleRows_.empty()) staleRowDel(location);
  lastWritten_ = &entry;
  return true;
}

bool PhysicalHashTable::writeEmpty(Location location) {
  U32 image[maxRowWords];
  emptyImage(hwIndex(location), image);
  return writeImage(hwIndex(location), image);
}

void PhysicalHashTable::place(HashBaseCuckooEntry& entry) {
  clearStaleRows();
  if (const StaleRow* stale = staleRowOf(entry)) {
    entry.status_ = Status::hardwareError;
    addOnce(staleRowIs(stale->location).waits, &entry);
  } else if (entry.placed()) {
    const bool written = hashItemWrite(entry, engine_.location(entry));
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
    if (!holder.table().entryReleaseByHashItem(holder)) {
      if (!waits(entry)) waiting_.push_back(&entry);
      entry.status_ = Status::duplicateKey;
      return;
    }
    // What was read from hardware under another spelling of the key is this entry: its row stands.
    engine_.replace(holder, entry);
    const bool written = hashItemWrite(entry, engine_.location(entry));
    entry.status_ = written ? Status::programmed : Status::hardwareError;
    return;
  }
  std::erase_if(waiting_, [&](const auto& waiting) { return waiting.get() == &entry; });
  lastWritten_ = nullptr;
  const Keel::Cuckoo::InsertResult result = engine_.insert(entry, *this);
  switch (result.outcome) {
    case Keel::Cuckoo::Outcome::placed:
      entry.status_ = Status::programmed;
      break;
    case Keel::Cuckoo::Outcome::refused:
      entry.status_ = Status::tableFull;
      break;
    case Keel::Cuckoo::Outcome::failed: {
      entry.status_ = Status::hardwareError;
      StaleRow& stale = staleRowIs(result.failedAt);
      addOnce(stale.holds, &entryOf(*result.failedItem));
      addOnce(stale.holds, lastWritten_);
      addOnce(stale.waits, &entry);
      break;
    }
  }
}

bool PhysicalHashTable::remove(HashBaseCuckooEntry& entry) {
  clearStaleRows();
  const Orb::Ptr<HashBaseCuckooEntry> keep(&entry);
  std::erase_if(waiting_, [&](const auto& waiting) { return waiting.get() == &entry; });
  entry.status_ = staleRowOf(entry) ? Status::hardwareError : Status::notProgrammed;
  if (entry.placed()) {
    const Location location = engine_.location(entry);
    if (engine_.at(location) != &entry) return false;
    if (const auto next = nextWaiting(entry)) {
      engine_.replace(entry, *next);
      revisitIs(next.get());
    } else {
      engine_.remove(entry);
      if (!writeEmpty(location)) {
        entry.status_ = Status::hardwareError;
        addOnce(staleRowIs(location).holds, &entry);
      }
    }
  }
  revisit();
  return true;
}

bool PhysicalHashTable::waits(const HashBaseCuckooEntry& entry) const {
  return std::any_of(waiting_.begin(), waiting_.end(),
                     [&](const auto& waiting) { return waiting.get() == &entry; });
}

/// The entry that waited longest for the key of one that goes, taken off the list.
Orb::Ptr<HashBaseCuckooEntry> PhysicalHashTable::nextWaiting(const HashBaseCuckooEntry& gone) {
  const auto next = std::find_if(waiting_.begin(), waiting_.end(),
                                 [&](const auto& waiting) { return waiting->isEqual(gone); });
  if (next == waiting_.end()) return nullptr;
  Orb::Ptr<HashBaseCuckooEntry> entry = *next;
  waiting_.erase(next);
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

void PhysicalHashTable::staleRowDel(Location location) {
  const auto row = std::find_if(staleRows_.begin(), staleRows_.end(),
                                [&](const StaleRow& stale) { return stale.location == location; });
  if (row == staleRows_.end()) return;
  revisitAll(*row);
  staleRows_.erase(row);
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
  std::vector<StaleRow> rows;
  rows.swap(staleRows_);
  for (StaleRow& row : rows) {
    if (writeEmpty(row.location)) {
      revisitAll(row);
    } else {
      staleRows_.push_back(std::move(row));
    }
  }
}

void PhysicalHashTable::settle() {
  clearStaleRows();
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && entry->status_ == Status::hardwareError) revisitIs(entry);
  }
  revisit();
}

/// Lets tables handle entries again. Handling one may add others, which then wait their turn.
void PhysicalHashTable::revisit() {
  if (revisiting_ || revisit_.empty()) [[likely]]
    return;
  revisiting_ = true;
  for (std::size_t i = 0; i < revisit_.size(); ++i) {
    const Orb::Ptr<HashBaseCuckooEntry> entry = revisit_[i];
    entry->table().handleHashItem(*entry);
  }
  revisit_.clear();
  revisiting_ = false;
}

void PhysicalHashTable::initRows(HwIndex start, bool overwrite) {
  for (HwIndex index = start; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    // Without overwriting, neither an entry's row is touched nor one that could not be read.
    if (!overwrite && (entry || unread(index))) continue;
    if (overwrite) {
      for (const auto& table : hwTables_) table->entryForget(index);
    }
    if (entry) {
      const bool written = hashItemWrite(*entry, location(index));
      entry->status_ = written ? Status::programmed : Status::hardwareError;
    } else if (!writeEmpty(location(index))) {
      staleRowIs(location(index));
    }
  }
}

bool PhysicalHashTable::unread(HwIndex index) const {
  return std::any_of(hwTables_.begin(), hwTables_.end(), [&](const auto& table) {
    return table->state(index) == HwTableConfig::Row::unknown;
  });
}

void PhysicalHashTable::rebuild() {
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    auto first = RegisterBus::Read::failed;
    for (const auto& table : hwTables_) {
      const RegisterBus::Read read = table->readEntry(index);
      if (table == hwTables_.front()) first = read;
    }
    if (first == RegisterBus::Read::held) adopt(index);
  }
  // A writer that stopped amid a change may have left the pipelines apart.
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    HashBaseCuckooEntry* entry = entryAt(index);
    if (entry && !everyTableHolds(index)) entry->table().hwInconsistentEntryIsFromHashItem(*entry);
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
  Entries homeless;
  for (HwIndex index = 0; index < engine_.capacity(); ++index) {
    for (const auto& table : hwTables_) table->readEntry(index);
    if (HashBaseCuckooEntry* entry = entryAt(index)) homeless.emplace_back(entry);
  }
  for (const auto& entry : homeless) engine_.remove(*entry);
  std::erase_if(homeless, [&](const auto& entry) {
    for (U8 way = 0; way < engine_.ways(); ++way) {
      const Location at = engine_.candidate(*entry, way);
      if (!engine_.at(at) && holds(hwIndex(at), *entry)) return engine_.adopt(*entry, at);
    }
    return false;
  });
  takeDamagedRows(homeless);
  missing_.clear();
  for (const auto& entry : homeless) {
    if (entry->placed()) continue;
    entry->status_ = Status::notProgrammed;
    missing_.push_back(entry);
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
    engine_.adopt(*claim.entry, claim.at);
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
    engine_.remove(*entry);
    return engine_.adopt(*entry, at);
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
  const auto helper = std::find_if(helpers_.begin(), helpers_.end(),
                                   [&](const auto& each) { return each->entryOwned(index); });
  return helper == helpers_.end() ? firstTable() : (*helper)->swTable();
}

void PhysicalHashTable::clearRow(HwIndex index) {
  staleRowIs(location(index));
  clearStaleRows();
  revisit();
}

/// Takes up what a row holds. A row that is not where its key belongs, or that repeats a key, is
/// left free, and so gets cleared when the empty rows are written.
void PhysicalHashTable::adopt(HwIndex index) {
  for (const auto& helper : helpers_) {
    if (!helper->entryOwned(index)) continue;
    const Orb::Ptr<HashBaseCuckooEntry> entry = helper->decodeHwEntry(index);
    if (!entry->valid() || engine_.find(*entry)) continue;
    if (!engine_.adopt(*entry, location(index))) continue;
    entry->status_ = Status::programmed;
    entry->table().entryIsByHashItem(*entry);
    return;
  }
}

}  // namespace VelaSwitchApi
