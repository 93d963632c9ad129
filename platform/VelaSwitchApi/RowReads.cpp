#include "VelaSwitchApi/RowReads.h"

namespace VelaSwitchApi {
namespace {

/// How often a row is read before the failure counts: at a restart a row that was not read is an
/// entry that was not found.
constexpr int readAttempts = 3;

}  // namespace

/// The next place is one for such a row.
void RowReads::placeIs(HwTableConfig& table, HwIndex index) {
  const auto& registers = table.registers(index);
  auto* values = &values_[count_ * maxRowWords];
  std::fill(std::copy(registers.begin(), registers.end(), values), values + maxRowWords,
            RegisterBus::RegisterValue{});
  rows_[count_] = {table.busHandle(), index, {values, registers.size()}};
  of_[count_] = {&table, registers.data()};
}

/// A row is tried again before those behind it are read.
void RowReads::read() {
  const std::size_t count = count_;
  int attempts = 0;
  U64 late = 0;
  failed_ = 0;
  const auto tell = [&](std::size_t at) {
    late |= U64{of_[at].table->entryRead(rows_[at])} << at;
    attempts = 0;
  };
  for (std::size_t at = 0; at < count;) {
    of_[at].table->bus().rows(std::span(rows_).subspan(at, count - at));
    for (; at < count && rows_[at].read != RegisterBus::Read::failed; ++at) tell(at);
    if (at == count || ++attempts < readAttempts) continue;
    failed_ |= U64{1} << at;
    tell(at++);
  }
  late_ = late;
}

}  // namespace VelaSwitchApi
