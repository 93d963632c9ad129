#pragma once

#include <array>
#include <bit>

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchApi {

/// Rows that are read from the bus together, in the order in which they were added.
class RowReads {
 public:
  /// Adds a row, of the same bus as the others, while they are not full().
  void add(HwTableConfig& table, HwIndex index) {
    // Mostly the registers are there, of an earlier row; no other table has them.
    if (of_[count_].registers != table.registers(index).data()) placeIs(table, index);
    rows_[count_].index = index;
    rows_[count_++].read = RegisterBus::Read::failed;
  }
  bool full() const { return count_ == rows_.size(); }
  /// Reads the rows, those that fail a few times, and tells their tables. Then calls
  /// `done(table, index, read, late)` for each; `late` is one that could not be read before.
  template <class Done>
  void flush(const Done& done) {
    read();
    for (std::size_t i = 0; i < count_; ++i) {
      done(*of_[i].table, rows_[i].index, rows_[i].read, (late_ >> i & 1) != 0);
    }
    count_ = 0;
  }
  void flush() {
    flushUnread([](const auto&...) {});
  }
  /// As flush(), but calls `unread(table, index)` for those alone that could not be read.
  template <class Unread>
  void flushUnread(const Unread& unread) {
    read();
    for (; failed_ != 0; failed_ &= failed_ - 1) {
      const auto at = static_cast<std::size_t>(std::countr_zero(failed_));
      unread(*of_[at].table, rows_[at].index);
    }
    count_ = 0;
  }

 private:
  struct Of {
    HwTableConfig* table = nullptr;
    const RegisterBus::RegisterValue* registers = nullptr;  ///< Those that its values begin with.
  };
  static constexpr std::size_t most = 64;

  void placeIs(HwTableConfig& table, HwIndex index);
  void read();

  std::size_t count_ = 0;
  std::array<RegisterBus::RowRead, most> rows_;
  std::array<Of, most> of_;
  U64 late_ = 0;    ///< A bit for each that could not be read before.
  U64 failed_ = 0;  ///< A bit for each that could not be read.
  std::array<RegisterBus::RegisterValue, most * maxRowWords> values_;
};

}  // namespace VelaSwitchApi
