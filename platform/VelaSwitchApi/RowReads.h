#pragma once

#include <array>

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchApi {

/// Rows that are read from the bus together, in the order in which they were added.
class RowReads {
 public:
  /// Adds a row, of the same bus as the others, while they are not full().
  void add(HwTableConfig& table, HwIndex index);
  bool full() const { return count_ == rows_.size(); }
  /// Reads the rows, those that fail a few times, and tells their tables. Then calls
  /// `done(table, index, read, late)` for each; `late` is one that could not be read before.
  template <class Done>
  void flush(const Done& done) {
    read();
    for (std::size_t i = 0; i < count_; ++i) {
      done(*of_[i].table, rows_[i].index, rows_[i].read, of_[i].late);
    }
    count_ = 0;
  }
  void flush() {
    flush([](const auto&...) {});
  }

 private:
  struct Of {
    HwTableConfig* table = nullptr;
    const RegisterBus::RegisterValue* registers = nullptr;  ///< Those that its values begin with.
    bool late = false;
  };
  static constexpr std::size_t most = 64;

  void read();

  std::size_t count_ = 0;
  std::array<RegisterBus::RowRead, most> rows_;
  std::array<Of, most> of_;
  std::array<RegisterBus::RegisterValue, most * maxRowWords> values_;
};

}  // namespace VelaSwitchApi
