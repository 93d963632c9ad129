#include "agent/Entries.h"

#include <algorithm>
#include <array>

namespace VelaAgent {

EntryProgrammedStatus Entries::announce(AnyRef key, AnyRef result) {
  ORB_ASSERT(key.shape == &key_ && result.shape == &result_);
  checkKey(key);
  if (const std::string why = whyNoRow(key); !why.empty()) throw InputException(why);
  std::vector<std::string> odd;
  checkResult(result, odd);
  warnings_.clear();
  warnOfCuts(key, result);
  for (std::string& text : odd) warningIs(std::move(text));
  warnOfMore(key, result);
  announcedBefore_ = announced(key);
  return program(key, result);
}

/// Warns of what hardware cuts of key and result, because it has fewer bits for it.
void Entries::warnOfCuts(AnyRef key, AnyRef result) {
  const auto bitsOfType = [](std::string_view, bool) { return 64u; };
  std::vector<std::string> cuts;
  cutFields(key, bitsOfType, cuts);
  cutFields(
      result, [this](auto field, bool mask) { return rowBits(field, mask); }, cuts);
  if (cuts.empty()) return;
  std::string text = "hardware has fewer bits: cut ";
  for (const std::string& cut : cuts) text += (&cut == &cuts.front() ? "" : ", ") + cut;
  warningIs(text);
}

void TableEntries::repair() {
  for (const auto& finding : convertor().auditFindings()) convertor().repair(finding);
}

template <class Wanted>
std::vector<TableEntries::RowId> TableEntries::rowsThat(const Wanted& wanted) const {
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
std::vector<TableEntries::RowId> TableEntries::corruptRows() const {
  return rowsThat(
      [&](const auto&, auto id, HwIndex index) { return !convertor().rowSound(id, index); });
}

std::vector<TableEntries::RowId> TableEntries::strayRows() const {
  if (ignoresRows()) return {};
  return rowsThat([&](const auto& hwTable, auto id, HwIndex index) {
    if (hwTable.state(index) != VelaSwitchApi::HwTableConfig::Row::held) return false;
    std::array<U32, VelaSwitchApi::maxRowWords> expected{};
    convertor().expectedImage(id, index, expected.data());
    return !hwTable.same(index, expected.data(), hwTable.image(index)) && !keyAt(index) &&
           convertor().rowSound(id, index);
  });
}

/// A port mask that is shared out among hardware tables has all ports.
unsigned TableEntries::rowBits(std::string_view field, bool mask) const {
  if (rowBits_.empty()) {
    for (const auto& [id, hwTable] : convertor().hwTables()) {
      const auto& layout = convertor().rowLayout(id, hwTable->descriptor().first);
      for (const auto& each : layout.fields()) {
        const std::string_view name(each.name);
        unsigned& bits = rowBits_[std::string(name.substr(0, name.find('[')))];
        bits = std::max<unsigned>(bits, each.width);
      }
    }
  }
  const auto at = rowBits_.find(field);
  if (at == rowBits_.end()) return 64;
  return mask ? std::max(at->second, profile().ports()) : at->second;
}

/// Where it is part of the result whether the row answers, a row that does not is easily had by
/// mistake.
void TableEntries::warnOfMore(AnyRef key, AnyRef result) {
  warnOfKey(key);
  if (toldOfSilence_) return;
  for (const Orb::FieldShape& field : resultShape().fields) {
    if (field.name != "valid" || field.shape->number(field.in(result.value)) != 0) continue;
    toldOfSilence_ = true;
    warningIs("without \"valid\":true the entry does not answer lookups");
  }
}

}  // namespace VelaAgent
