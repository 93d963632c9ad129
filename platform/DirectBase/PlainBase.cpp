#include "DirectBase/PlainBase.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitchApi::SwTable;

Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mappingOf(const std::string& name,
                                                               const PlainHwTable& table) {
  using namespace VelaSwitchApi;
  if (table.mapping) return table.mapping;
  if (!table.registersPerRow) {
    return Orb::make<HwTableRegisterMappingConst>(name, table.registers(table.first));
  }
  const auto rows = Orb::make<HwTableRegisterMappingColl>(name);
  for (HwIndex index = table.first; index <= table.last; ++index) {
    rows->regsIs(index, table.registers(index));
  }
  return rows;
}

}  // namespace

PlainConvertor::~PlainConvertor() = default;

void PlainConvertor::doInitTableStats() {
  HwIndex first = ~HwIndex{0};
  HwIndex end = 0;
  for (const auto& [id, table] : hwTables()) {
    first = std::min(first, table->descriptor().first);
    end = std::max(end, table->descriptor().last + 1);
  }
  if (end != 0) initEntryCounter(swTable()->name(), (end - first) / copies(), 0);
}

void PlainConvertor::syncEntries(U32 table) {
  ORB_ASSERT_TEXT(hwTable(table), traits_.tableText);
  IndexedRowsConvertor::syncEntries(table);
}

void PlainConvertor::createHwTable(const PlainHwTable& table, VelaSwitchApi::RowLayout layout,
                                   VelaSwitchApi::TableState state) {
  const std::string family = traits_.table.name;
  const std::string name = SwTable::hwTableName(family, "", table.suffix, table.id);
  IndexedRowsConvertor::createHwTable({family, 0, table.id, name}, state, table.first, table.last,
                                      table.rowWords, mappingOf(name, table));
  layouts_[table.id] = std::move(layout);
  declared_.insert_or_assign(table.id, table);
}

auto PlainConvertor::judge(const HwTableConfig&, HwIndex index, bool differs)
    -> std::optional<Finding::Kind> {
  trace_(3, "Inconsistent hw table entry for key: ", KeyOfRow{*this, index});
  markIs(index, true);
  if (hasEntry(index)) return Finding::Kind::inconsistent;
  if (differs) return Finding::Kind::unexpected;
  return std::nullopt;
}

void PlainConvertor::traceUnread(const HwTableConfig& table, HwIndex index, Read read) const {
  const auto& identity = table.descriptor().identity;
  if (read == Read::failed) {
    trace_(3, "Unreadable hw table entry for key: ", KeyOfRow{*this, index}, ", table ",
           identity.name);
  } else if (traits_.absentTrace == AbsentTrace::byKey) {
    trace_(3, "Missing hw table entry for key: ", KeyOfRow{*this, index}, ", table ",
           identity.name);
  } else if (traits_.absentTrace == AbsentTrace::byIndex) {
    trace_(5, " index ", index, " does not exist.");
  } else {
    trace_(5, "pipe ", identity.id, " index ", index, " does not exist.");
  }
}

}  // namespace VelaSwitchTable
