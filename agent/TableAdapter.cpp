#include "agent/TableAdapter.h"

namespace VelaAgent {

std::vector<RowFinding> HwTableAdapter::findings() const {
  std::vector<RowFinding> all;
  for (const auto& finding : convertor().auditFindings()) {
    RowFinding row{finding.kind,
                   finding.corrupt,
                   nullptr,
                   nullptr,
                   convertor().hwTable(finding.table).get(),
                   std::nullopt,
                   {}};
    if (finding.entry) {
      row.key = keyOf(*finding.entry);
    } else {
      row.index = finding.index;
      row.key = keyAt(finding.index);
      if (finding.kind != RowFinding::Kind::unreadable) {
        row.fields = convertor().differences(finding.table, finding.index);
      }
      if (row.key.is_null()) row.holds = decodedKey(finding.index);
    }
    all.push_back(std::move(row));
  }
  return all;
}

void HwTableAdapter::repair() {
  for (const auto& finding : convertor().auditFindings()) convertor().repair(finding);
}

template <class Wanted>
std::vector<HwTableAdapter::RowId> HwTableAdapter::rowsThat(const Wanted& wanted) const {
  std::vector<RowId> rows;
  for (const auto& [id, hwTable] : convertor().hwTables()) {
    const auto& descriptor = hwTable->descriptor();
    for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
      if (hwTable->state(index) == VelaSwitchApi::HwTableConfig::Row::absent ||
          hwTable->mapped(index).empty() || !listsRow(index)) {
        continue;
      }
      if (wanted(*hwTable, id, index)) rows.emplace_back(id, index);
    }
  }
  return rows;
}

/// A row that cannot be is forgotten when it is read, so as to be written again.
std::vector<HwTableAdapter::RowId> HwTableAdapter::corruptRows() const {
  return rowsThat(
      [&](const auto&, auto id, HwIndex index) { return !convertor().rowSound(id, index); });
}

std::vector<HwTableAdapter::RowId> HwTableAdapter::strayRows() const {
  return rowsThat([&](const auto& hwTable, auto id, HwIndex index) {
    if (hwTable.state(index) != VelaSwitchApi::HwTableConfig::Row::held) return false;
    std::array<U32, VelaSwitchApi::maxRowWords> expected{};
    convertor().expectedImage(id, index, expected.data());
    return !hwTable.same(index, expected.data(), hwTable.image(index)) && keyAt(index).is_null() &&
           convertor().rowSound(id, index);
  });
}

}  // namespace VelaAgent
