#pragma once

#include <vector>

#include "VelaSwitchApi/RegisterBus.h"

namespace VelaSwitchApi {

class HwTableConfig;

/// Rows that are handed to the bus together, in the order in which they were added. Every one is
/// written, whatever becomes of the others: so none of them may need another one written first.
class VELA_EXPORT RowRun {
 public:
  /// Who added a row hears of it when it could not be written, and of no other.
  class Owner {
   public:
    /// Its image is what hardware holds, or not known to be.
    virtual void rowWritten(HwTableConfig& table, HwIndex index, bool good) = 0;

   protected:
    ~Owner() = default;
  };

  /// A run that a row is to be added to, if any, and for whom.
  struct Later {
    RowRun* run = nullptr;   ///< Null: the row is written at once.
    Owner* owner = nullptr;  ///< Of meaning with a run.
  };

  /// `bus` must outlive the run.
  explicit RowRun(RegisterBus& bus) : bus_(bus) {}

  /// Rows that are to be written.
  std::size_t size() const { return rows_.size(); }
  /// Which entry of a batch the next rows are for.
  void numberIs(std::size_t number) { number_ = static_cast<U32>(number); }
  /// Adds a row with what is to be written to its registers, which is in no run yet. The owner must
  /// be there until it is written. The values are the caller's to fill in, before the next call.
  RegisterBus::RegisterValue* add(Owner& owner, HwTableConfig& table, HwIndex index,
                                  std::size_t values);
  /// Writes the rows, and tells their tables and owners.
  void flush();

 private:
  struct Origin {
    Owner* owner;
    HwTableConfig* table;
  };

  RegisterBus& bus_;
  U32 number_ = 0;
  std::vector<RegisterBus::RowWrite> rows_;
  std::vector<Origin> origins_;                     ///< Of the rows.
  std::vector<RegisterBus::RegisterValue> values_;  ///< Room; `used_` of them are those of rows.
  std::size_t used_ = 0;
};

}  // namespace VelaSwitchApi
