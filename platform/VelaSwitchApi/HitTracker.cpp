#include "VelaSwitchApi/HitTracker.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "VelaSwitchApi/PhysicalHashTable.h"

namespace VelaSwitchApi {

void HitTracker::hitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table, U32 rows) {
  std::erase_if(tables_, [&](const Table& each) { return each.id == id; });
  const bool readable = table->readable();
  // A block's rows are marked in one word.
  ORB_ASSERT(!readable || 64 % table->blockRows() == 0);
  tables_.push_back(
      {id, std::move(table), readable, rows, std::vector<Marks>((rows + 63) / 64), {}});
}

Orb::Ptr<HitBitTableConfig> HitTracker::hitTable(HwTableId id) const {
  const auto table = std::find_if(tables_.begin(), tables_.end(),
                                  [&](const Table& each) { return each.id == id; });
  return table == tables_.end() ? nullptr : table->bits;
}

void HitTracker::keepHits(Table& table, HwIndex index, bool empty) {
  hit_.clear();
  if (empty && !table.formers.contains(index) && !rows_.occupied(index)) return;
  if (readBlock(table, index, hit_)) {
    for (const auto& entry : hit_) {
      if (entry->keptHit_ != HashBaseCuckooEntry::noKeptHit) continue;
      entry->keptHit_ = static_cast<U32>(kept_.size());
      kept_.push_back(entry);
    }
    return;
  }
  Entries& formers = table.formers[index];
  rows_.addOccupants(index, formers);
  std::sort(formers.begin(), formers.end(),
            [](const auto& a, const auto& b) { return a.get() < b.get(); });
  formers.erase(std::unique(formers.begin(), formers.end()), formers.end());
}

void HitTracker::forgetHits(HashBaseCuckooEntry& entry) {
  if (entry.keptHit_ != HashBaseCuckooEntry::noKeptHit) {
    kept_.back()->keptHit_ = entry.keptHit_;
    std::swap(kept_[entry.keptHit_], kept_.back());
    entry.keptHit_ = HashBaseCuckooEntry::noKeptHit;
    kept_.pop_back();
  }
  for (Table& table : tables_) {
    for (auto& [index, formers] : table.formers) {
      std::erase_if(formers, [&](const auto& former) { return former.get() == &entry; });
    }
  }
}

void HitTracker::entryReplace(HashBaseCuckooEntry& old, HashBaseCuckooEntry& entry) {
  constexpr U32 none = HashBaseCuckooEntry::noKeptHit;
  if (old.keptHit_ != none && entry.keptHit_ == none) {
    entry.keptHit_ = std::exchange(old.keptHit_, none);
    kept_[entry.keptHit_] = &entry;
  }
  for (Table& table : tables_) {
    for (auto& [index, formers] : table.formers) {
      std::replace_if(
          formers.begin(), formers.end(), [&](const auto& each) { return each.get() == &old; },
          Orb::Ptr<HashBaseCuckooEntry>(&entry));
    }
  }
  entryDel(old);
}

void HitTracker::swTableDel(const HashBaseTable* table) {
  const auto owned = [&](const auto& entry) { return &entry->table() == table; };
  std::erase_if(kept_, owned);
  for (U32 i = 0; i < kept_.size(); ++i) kept_[i]->keptHit_ = i;
  for (Table& rows : tables_) {
    for (auto& [index, formers] : rows.formers) std::erase_if(formers, owned);
  }
}

void HitTracker::forget() {
  for (Table& table : tables_) {
    std::fill(table.marks.begin(), table.marks.end(), Marks{});
    table.formers.clear();
  }
}

/// Reads the block of bits that the row's is in and adds whoever was hit there.
bool HitTracker::readBlock(Table& table, HwIndex index, Entries& hit) {
  const HwIndex first = index - index % table.bits->blockRows();
  U64 bits = 0;
  if (!table.bits->readBlock(first, bits)) return false;
  for (U64 left = bits; left != 0; left &= left - 1) {
    const HwIndex row = first + static_cast<HwIndex>(std::countr_zero(left));
    rows_.addOccupants(row, hit);
    const auto formers = table.formers.find(row);
    if (formers != table.formers.end()) {
      hit.insert(hit.end(), formers->second.begin(), formers->second.end());
    }
  }
  const auto end = std::min(first + table.bits->blockRows(), table.rows);
  const U64 read = ~U64{0} >> (64 - (end - first)) << first % 64;
  Marks& marks = table.marks[first / 64];
  marks.clear |= marks.empty & read;
  marks.empty &= ~read;
  if (!table.formers.empty()) {
    table.formers.erase(table.formers.lower_bound(first), table.formers.lower_bound(end));
  }
  return true;
}

bool HitTracker::poll(HwTableId id, Entries& hit) {
  Table* table = tracked(id);
  if (!table) return true;
  for (const auto& entry : kept_) entry->keptHit_ = HashBaseCuckooEntry::noKeptHit;
  hit.insert(hit.end(), kept_.begin(), kept_.end());
  kept_.clear();
  bool good = true;
  for (HwIndex first = 0; first < table->rows; first += table->bits->blockRows()) {
    if (!readBlock(*table, first, hit)) good = false;
  }
  return good;
}

}  // namespace VelaSwitchApi
