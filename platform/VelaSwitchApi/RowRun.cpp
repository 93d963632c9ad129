#include "VelaSwitchApi/RowRun.h"

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchApi {

RegisterBus::RegisterValue* RowRun::add(Owner& owner, HwTableConfig& table, HwIndex index,
                                        std::size_t values) {
  if (used_ + values > values_.size()) values_.resize(2 * values_.size() + 64 * maxRowWords);
  RegisterBus::RegisterValue* first = &values_[used_];
  used_ += values;
  // Where the values lie is settled when there are no more to come.
  rows_.push_back({table.busHandle(), index, {first, values}, number_});
  origins_.push_back({&owner, &table});
  return first;
}

void RowRun::flush() {
  if (rows_.empty()) return;
  const RegisterBus::RegisterValue* values = values_.data();
  for (RegisterBus::RowWrite& row : rows_) {
    row.writes = {values, row.writes.size()};
    values += row.writes.size();
  }
  bus_.rowsAre(rows_);
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    const auto& [owner, table] = origins_[i];
    table->entryWritten(rows_[i].index, rows_[i].written);
    if (!rows_[i].written) owner->rowWritten(*table, rows_[i].index, false);
  }
  rows_.clear();
  origins_.clear();
  used_ = 0;
}

}  // namespace VelaSwitchApi
