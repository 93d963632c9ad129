#include "DirectBase/PlainBase.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitchApi::KeyRecord;
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

U32 PlainConvertor::entriesUsed(U32) const { return swTable()->count(KeyRecord::desired); }
U32 PlainConvertor::entriesPeak(U32) const { return swTable()->peak(); }

void PlainConvertor::doCreateHwTables(VelaSwitchApi::TableState state) {
  createHwTables(state, Part::all);
  checkRows();
}

void PlainConvertor::createHwTables(VelaSwitchApi::TableState state, Part part) {
  const std::string family = traits_.table.name;
  for (const PlainHwTable& table : plainTables()) {
    declared_.insert_or_assign(table.id, table);
    if (!isPart(table.id, part)) continue;
    const std::string name = SwTable::hwTableName(family, "", table.suffix, table.id);
    createHwTable({family, 0, table.id, name}, state, table.first, table.last, table.rowWords,
                  mappingOf(name, table));
    layouts_[table.id] = makeLayout(table);
  }
}

// Writing entries.

bool PlainConvertor::rowsAre(const IndexedEntry& entry, Part part) {
  const Orb::Ptr<HwTableConfig> front = hwTable(0);
  if (part == Part::all && (!front || !front->active())) return true;
  const HwIndex first = indexOf(entry);
  bool good = true;
  bool any = false;
  for (const auto& [id, table] : hwTables()) {
    if (!isPart(id, part)) continue;
    forEachRow(*table, first, [&](HwTableConfig& of, HwIndex row) {
      good = writeRow(of, row, entry) && good;
      any = true;
    });
  }
  if (!any) trace()(3, "hwTableEntryIs ", entry, VelaSwitchApi::noRowText);
  return good;
}

bool PlainConvertor::writeRow(HwTableConfig& table, HwIndex index) {
  const Orb::Ptr<IndexedEntry> entry = newEntry(index);
  if (const KeyRecord* desired = record(KeyRecord::desired, index)) entry->resultIsOf(desired);
  return writeRow(table, index, *entry);
}

bool PlainConvertor::writeRow(HwTableConfig& table, HwIndex index, const IndexedEntry& entry) {
  // What could not be read is not lost to what nobody asked for: a default, or what other tables'
  // rows say of it.
  if (table.state(index) == Row::unread &&
      (hasEntry(index) ? record(KeyRecord::unclaimed, index) != nullptr
                       : entry.hasResultOf(*newEntry(index)))) {
    return false;
  }
  return writeImage(table, index, pack(entry, table.descriptor().identity.id, index), [&] {
    if (traits_.tracesHandling) trace()(9, "Set hwTableEntry key: ", entry);
  });
}

// What rows say.

bool PlainConvertor::ignored(HwTableId table, HwIndex index) const {
  return traits_.ignoresRows && says(table, index, *newEntry(index)) == RowSays::nothing;
}

void PlainConvertor::takeRow(HwTableConfig& table, HwIndex index, bool late) {
  unsoundForget(table, index);
  if (!late || !hasEntry(index) || record(KeyRecord::unclaimed, index)) rebuildKey(index);
}

/// Takes over what the rows of a row's key hold. They may disagree when a writer stopped amid a
/// change: the first that is sound counts, and of the others only what it cannot say.
void PlainConvertor::rebuildKey(HwIndex index) {
  const Orb::Ptr<IndexedEntry> nothing = newEntry(index);
  Orb::Ptr<IndexedEntry> result;
  forEachRow(indexOf(*nothing), [&](const HwTableConfig& table, HwIndex each) {
    if (table.state(each) != Row::held) return;
    const HwTableId id = table.descriptor().identity.id;
    const Orb::Ptr<IndexedEntry> row = newEntry(each);
    if (says(id, each, *row) != RowSays::result) return;
    if (!result) {
      result = row;
    } else {
      joinRow(id, *row, *result);
    }
  });
  if (!result) return;
  auto& table = static_cast<PlainTable&>(*swTable());
  const KeyRecord* taken = record(KeyRecord::desired, index);
  if (taken && taken->hasResultOf(*result)) return;
  if (traits_.rebuildsDefaults || !result->hasResultOf(*nothing)) {
    table.entryIsByRow(*result);
  } else if (taken) {
    table.entryDelByRow(*result);
  }
}

auto PlainConvertor::judge(const HwTableConfig&, HwIndex index, bool differs)
    -> std::optional<Finding::Kind> {
  trace()(3, "Inconsistent hw table entry for key: ", KeyOfRow{*this, index});
  markIs(index, true);
  if (hasEntry(index)) return Finding::Kind::inconsistent;
  if (differs) return Finding::Kind::unexpected;
  return std::nullopt;
}

void PlainConvertor::traceUnread(const HwTableConfig& table, HwIndex index, Read read) const {
  const auto& identity = table.descriptor().identity;
  if (read == Read::failed) {
    trace()(3, "Unreadable hw table entry for key: ", KeyOfRow{*this, index}, ", table ",
            identity.name);
  } else if (traits_.absentTrace == AbsentTrace::byKey) {
    trace()(3, "Missing hw table entry for key: ", KeyOfRow{*this, index}, ", table ",
            identity.name);
  } else if (traits_.absentTrace == AbsentTrace::byIndex) {
    trace()(5, " index ", index, " does not exist.");
  } else {
    trace()(5, "pipe ", identity.id, " index ", index, " does not exist.");
  }
}

}  // namespace VelaSwitchTable
