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

std::vector<std::pair<VelaSwitchApi::HwTableId, HwIndex>> HwTableAdapter::corruptRows() const {
  std::vector<std::pair<VelaSwitchApi::HwTableId, HwIndex>> rows;
  for (const auto& [id, hwTable] : convertor().hwTables()) {
    const auto& descriptor = hwTable->descriptor();
    for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
      // A row that cannot be is forgotten when it is read, so as to be written again.
      if (hwTable->state(index) == VelaSwitchApi::HwTableConfig::Row::absent ||
          hwTable->mapped(index).empty() || !listsRow(index)) {
        continue;
      }
      if (!convertor().rowSound(id, index)) rows.emplace_back(id, index);
    }
  }
  return rows;
}

}  // namespace VelaAgent
