#pragma once

#include <map>
#include <vector>

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchApi {

class HashBaseCuckooEntry;
class HashBaseTable;

/// Hits belong to entries, hit bits to rows. Before a row is written its bit is read, unless the
/// row only becomes empty and held nobody. Reading clears the bits of a whole block, and each hit
/// found is kept for the entry that lies in its row at that moment. The next poll reports it,
/// wherever the entry lies by then. So no hit that was set before the read is lost or goes to
/// another entry, whether or not hardware clears a row's bit when the row is written.
///
/// When the read fails, the write goes on, and the next hit of the row is given to every entry that
/// lay in it since the last good read: rather a hit too many than a live flow aged out.
class VELA_EXPORT HitTracker {
 public:
  /// Held while their hits are to be told.
  using Entries = std::vector<Orb::Ptr<HashBaseCuckooEntry>>;

  /// Knows what lies in rows.
  class Rows {
   public:
    /// Adds each entry that the row may hold in hardware.
    virtual void addOccupants(HwIndex index, Entries& entries) const = 0;
    /// Whether there is any.
    virtual bool occupied(HwIndex index) const = 0;

   protected:
    ~Rows() = default;
  };

  /// What is known of 64 rows, a bit for each. The bit of a row that is in neither set may be set
  /// in hardware, and means a hit of what lies in the row.
  struct Marks {
    U64 empty = 0;  ///< Rows that are empty, whose bits may be left from before.
    U64 clear = 0;  ///< Those that are empty and whose bits were read since.
  };
  /// What is known of the hit bits of a pipeline's rows.
  struct Table {
    HwTableId id;                      ///< Of the rows.
    Orb::Ptr<HitBitTableConfig> bits;  ///< Where they are read.
    bool readable;                     ///< Whether there are any to be read.
    U32 rows;                          ///< How many rows there are.
    std::vector<Marks> marks;          ///< Of the rows, 64 by 64.
    /// Entries that left a row whose bit could not be read.
    std::map<HwIndex, Entries> formers;
  };
  /// What a row is written to be.
  enum class Becomes : U8 {
    entrys,     ///< Some entry's.
    empty,      ///< Empty.
    abandoned,  ///< Empty, and occupied() by nobody already.
  };

  /// `rows` must outlive the tracker.
  explicit HitTracker(const Rows& rows) : rows_(rows) {}

  /// Declares the hit bits of a pipeline's rows.
  void hitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table, U32 rows);
  /// The hit bits of the pipeline's rows, or null.
  Orb::Ptr<HitBitTableConfig> hitTable(HwTableId id) const;

  /// The pipeline's, or null when it has no bits to be read; there are few.
  Table* tracked(HwTableId id) {
    for (Table& table : tables_) {
      if (table.id == id) return table.readable ? &table : nullptr;
    }
    return nullptr;
  }
  /// A row of the pipeline that is tracked(), or null, is about to be written: keeps the hits that
  /// would be lost or misread. A row that becomes empty and held nobody any more has none; its bit
  /// is read when it is next filled.
  [[gnu::always_inline]] void rowChanges(Table* table, HwIndex index, Becomes becomes) {
    if (!table || (table->marks[index / 64].clear >> index % 64 & 1) != 0) return;
    const bool empty = becomes != Becomes::entrys;
    if (empty && table->formers.empty() &&
        (becomes == Becomes::abandoned || !rows_.occupied(index)))
      return;
    keepHits(*table, index, empty);
  }
  /// A row was written: it is empty now, so that no lookup hits it, or it is not.
  [[gnu::always_inline]] static void rowChanged(Table* table, HwIndex index, bool empty) {
    // Unlikely, lest the compiler works out the row's bit where there are none.
    if (table) [[unlikely]] {
      Marks& marks = table->marks[index / 64];
      const U64 bit = U64{1} << index % 64;
      marks.empty = empty ? marks.empty | bit : marks.empty & ~bit;
      if ((marks.clear & bit) != 0) marks.clear ^= bit;
    }
  }
  /// An entry was removed: its hits are nobody's.
  void entryDel(HashBaseCuckooEntry& entry) {
    bool any = !kept_.empty();
    for (const Table& table : tables_) any = any || !table.formers.empty();
    if (any) [[unlikely]]
      forgetHits(entry);
  }
  /// Another entry takes the place of one that is the same to hardware, and its hits.
  void entryReplace(HashBaseCuckooEntry& old, HashBaseCuckooEntry& entry);
  /// A software table goes, and its entries.
  void swTableDel(const HashBaseTable* table);
  /// Nothing is known of any row's bit any more: entries were put where hardware has them.
  void forget();

  /// Reads all bits of a pipeline's rows and adds who was hit, those that were kept among them.
  /// False when a read failed; its bits are reported by a later poll.
  bool poll(HwTableId id, Entries& hit);

 private:
  void keepHits(Table& table, HwIndex index, bool empty);
  void forgetHits(HashBaseCuckooEntry& entry);
  bool readBlock(Table& table, HwIndex index, Entries& hit);

  const Rows& rows_;
  std::vector<Table> tables_;
  Entries kept_;  ///< Entries with a hit that no poll has reported.
  Entries hit_;   ///< Those of the read under way.
};

}  // namespace VelaSwitchApi
