#pragma once

#include <vector>

#include "VelaSwitchApi/SwTable.h"

namespace VelaSwitchApi {

/// The software tables of one switch, brought up together: tables may share rows, so each step is
/// done for all of them before the next. In the order in which they were added.
///
/// On a switch that nothing is known of: make(), start(true), then announce what is desired. After
/// a restart of the agent: make(), rebuild(), start(false), announce, complete().
class VELA_EXPORT SwitchTables {
 public:
  /// Of one switch.
  explicit SwitchTables(Orb::Ptr<SwTableTypes> types) : types_(std::move(types)) {}

  const Orb::Ptr<SwTableTypes>& types() const { return types_; }  ///< As they were given.
  /// To be added before make().
  void tableIs(Orb::Ptr<SwTable> table) { tables_.push_back(std::move(table)); }
  /// In the order in which they were added.
  const std::vector<Orb::Ptr<SwTable>>& tables() const { return tables_; }

  /// Makes convertors and declares the hardware; nothing is read or written yet.
  void make();
  /// Reads the rows back and takes over the entries that they hold.
  void rebuild();
  /// Entries are programmed from now on. With `overwrite` every row is written first, to what it
  /// holds without an entry; else what hardware holds stands until complete().
  void start(bool overwrite);
  /// All that is desired was announced: brings rows that belong to no entry to their default, but
  /// for those that could not be read. Entries that were rebuilt and not announced stay: see
  /// unclaimedKeys() of each table.
  void complete();
  /// Reads and forgets the hit bits of all tables; `now` becomes the last hit of the entries hit.
  /// False when a read failed.
  bool pollHitBits(Orb::Seconds now);

 private:
  Orb::Ptr<SwTableTypes> types_;
  std::vector<Orb::Ptr<SwTable>> tables_;
};

}  // namespace VelaSwitchApi
