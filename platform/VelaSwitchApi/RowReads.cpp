#include "VelaSwitchApi/RowReads.h"

namespace VelaSwitchApi {
namespace {

/// How often a row is read before the failure counts: at a restart a row that was not read is an
/// entry that was not found.
constexpr int readAttempts = 3;

}  // namespace

void RowReads::add(HwTableConfig& table, HwIndex index) {
  const auto& registers = table.registers(index);
  auto* values = &values_[count_ * maxRowWords];
  // Mostly they are there, of an earlier row.
  if (of_[count_].registers != registers.data()) {
    std::copy(registers.begin(), registers.end(), values);
  }
  rows_[count_] = {table.busHandle(), index, {values, registers.size()}};
  of_[count_++] = {&table, registers.data()};
}

/// A row is tried again before those behind it are read.
void RowReads::read() {
  int attempts = 0;
  for (std::size_t at = 0; at < count_;) {
    of_[at].table->bus().rows(std::span(rows_).subspan(at, count_ - at));
    for (; at < count_ && rows_[at].read != RegisterBus::Read::failed; ++at) attempts = 0;
    if (at == count_ || ++attempts < readAttempts) continue;
    attempts = 0;
    ++at;
  }
  for (std::size_t i = 0; i < count_; ++i) of_[i].late = of_[i].table->entryRead(rows_[i]);
}

}  // namespace VelaSwitchApi
