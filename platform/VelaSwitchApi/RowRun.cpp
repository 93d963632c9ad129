#include "VelaSwitchApi/RowRun.h"

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchApi {

void RowRun::add(Owner& owner, HwTableConfig& table, HwIndex index) {
  const U32* image = table.image(index);
  const auto& mapped = table.mapped(index);
  const std::size_t before = values_.size();
  values_.resize(before + mapped.size());
  auto* value = &values_[before];
  for (const auto& [word, reg] : mapped) *value++ = {reg, image[word]};
  // Where the values lie is settled when there are no more to come.
  rows_.push_back({table.busHandle(), index, {&values_[before], mapped.size()}, number_});
  origins_.push_back({&owner, &table});
  table.entryForget(index);
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
    owner->rowWritten(*table, rows_[i].index, rows_[i].written);
  }
  rows_.clear();
  origins_.clear();
  values_.clear();
}

}  // namespace VelaSwitchApi
