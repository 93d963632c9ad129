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

   protected:
    ~Rows() = default;
  };

  /// `rows` must outlive the tracker.
  explicit HitTracker(const Rows& rows) : rows_(rows) {}

  /// Declares the hit bits of a pipeline's rows.
  void hitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table, U32 rows);
  /// The hit bits of the pipeline's rows, or null.
  Orb::Ptr<HitBitTableConfig> hitTable(HwTableId id) const;

  /// A row is about to be written, to be `empty` or not: keeps the hits that would be lost or
  /// misread. A row that becomes empty and held nobody any more has none; its bit is read when it
  /// is next filled.
  void rowChanges(HwTableId id, HwIndex index, bool empty);
  /// A row was written: it is empty now, so that no lookup hits it, or it is not.
  void rowChanged(HwTableId id, HwIndex index, bool empty);
  /// An entry was removed: its hits are nobody's.
  void entryDel(HashBaseCuckooEntry& entry);
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
  /// What is known of a row's bit.
  enum class Bit : U8 {
    open,   ///< It may be set, and means a hit of what lies in the row.
    empty,  ///< The row is empty; the bit may be left from before.
    clear,  ///< The row is empty and the bit was read since.
  };
  struct Table {
    Orb::Ptr<HitBitTableConfig> bits;
    std::vector<Bit> rows;
    /// Entries that left a row whose bit could not be read.
    std::map<HwIndex, Entries> formers;
  };

  Table* tracked(HwTableId id);
  bool readBlock(Table& table, HwIndex index, Entries& hit);

  const Rows& rows_;
  std::map<HwTableId, Table> tables_;
  Entries kept_;  ///< Entries with a hit that no poll has reported.
  Entries hit_;   ///< Those of the read under way.
};

}  // namespace VelaSwitchApi
