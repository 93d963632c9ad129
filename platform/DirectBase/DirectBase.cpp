#include "DirectBase/DirectBase.h"

#include <algorithm>

namespace VelaSwitchTable {

using VelaSwitchApi::AuditFinding;
using VelaSwitchApi::HwEntryConfig;
using VelaSwitchApi::HwTableConfig;
using VelaSwitchApi::maxRowWords;
using VelaSwitchApi::RegisterBus;

void DirectBaseTable::doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) {
  typesIs(std::move(types));
  profileConvertorPtrIs(profileConvertorFactory());
}

bool DirectBaseTable::handleDirectEntry(const DirectBaseEntry& entry, U32) {
  auto& convertor = static_cast<DirectBaseConvertor&>(*profileConvertorPtr());
  const bool written = convertor.rowIs(entry, convertor.hwIndexFromItem(entry));
  if (written) {
    hwInconsistentEntryDelFromDirectItem(entry);
  } else {
    hwInconsistentEntryIsFromDirectItem(entry);
  }
  return written;
}

U32 DirectBaseConvertor::capacityIndexFromEntry(const DirectBaseEntry&) const { return 0; }

void DirectBaseConvertor::initTableStatsPerEgressPort(U32 counters) {
  for (U32 i = 0; i < counters; ++i) {
    initEntryCounter(swTable()->name() + "/Port" + std::to_string(i),
                     directTable()->numEntries_ / counters, i);
  }
}

U32 DirectBaseConvertor::entriesUsed(U32 counter) const {
  U32 used = 0;
  const HwTableConfig& table = *hwTable(0);
  for (HwIndex index = table.descriptor().first; index <= table.descriptor().last; ++index) {
    const auto entry = nullDirectEntry(index);
    if (capacityIndexFromEntry(*entry) == counter && directTable()->entryHasByDirectItem(*entry)) {
      ++used;
    }
  }
  return used;
}

void DirectBaseConvertor::rowImage(const DirectBaseEntry& entry, HwIndex index, U32* image) const {
  std::fill_n(image, maxRowWords, 0);
  setHwBuffer(entry, reinterpret_cast<U8*>(image));
  setStaticBuffer(index, reinterpret_cast<U8*>(image));
}

bool DirectBaseConvertor::rowIs(const DirectBaseEntry& entry, HwIndex index) {
  U32 image[maxRowWords];
  rowImage(entry, index, image);
  bool good = true;
  for (const auto& [id, table] : hwTables()) {
    good = table->entryIs(HwEntryConfig(index, image, maxRowWords)) && good;
  }
  return good;
}

bool DirectBaseConvertor::unreadForget(HwIndex index) {
  bool unread = false;
  for (const auto& [id, table] : hwTables()) {
    if (table->state(index) != HwTableConfig::Row::unread) continue;
    table->entryForget(index);
    unread = true;
  }
  return unread;
}

void DirectBaseConvertor::initHwEntries(bool overwrite, U32 start) {
  if (!overwrite) readUnread(start);
  for (const auto& [id, table] : hwTables()) {
    const auto& descriptor = table->descriptor();
    for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
      if (overwrite) {
        table->entryForget(index);
      } else if (!takesDefault(*table, index)) {
        continue;
      }
      U32 image[maxRowWords];
      expectedImage(id, index, image);
      if (table->entryIs(HwEntryConfig(index, image, maxRowWords))) continue;
      directTable()->hwInconsistentEntryIsFromDirectItem(*nullDirectEntry(index));
    }
  }
  recheck(start);
}

/// Keys whose rows are as they should be lose their marks.
void DirectBaseConvertor::recheck(U32 start) {
  const auto& rows = hwTable(0)->descriptor();
  for (HwIndex index = std::max(start, rows.first); index <= rows.last; ++index) {
    const auto entry = nullDirectEntry(index);
    if (!directTable()->hwInconsistentEntryFromDirectItem(*entry)) continue;
    if (everyTableHolds(index)) directTable()->hwInconsistentEntryDelFromDirectItem(*entry);
  }
}

bool DirectBaseConvertor::everyTableHolds(HwIndex index) const {
  return std::all_of(hwTables().begin(), hwTables().end(),
                     [&](const auto& each) { return holds(*each.second, index); });
}

/// Takes up what rows hold that could not be read before.
void DirectBaseConvertor::readUnread(U32 start) {
  using Row = HwTableConfig::Row;
  for (const auto& [id, table] : hwTables()) {
    const auto& descriptor = table->descriptor();
    for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
      const Row state = table->state(index);
      if (state != Row::unread && state != Row::unknown) continue;
      if (table->readEntry(index) != RegisterBus::Read::failed) takeLate(*table, index);
    }
  }
}

/// The row answers, and did not before.
void DirectBaseConvertor::takeLate(HwTableConfig& table, HwIndex index) {
  const auto entry = nullDirectEntry(index);
  // Static words are not compared: a row that says nonsense there must be known as another.
  const HwTableId id = table.descriptor().identity.id;
  if (table.state(index) == HwTableConfig::Row::held && !rowSound(id, index)) {
    table.entryForget(index);
  }
  if (!directTable()->entryHasByDirectItem(*entry)) takeRow(table, index);
  if (!directTable()->entryHasByDirectItem(*entry)) return;
  if (everyTableHolds(index)) {
    directTable()->hwInconsistentEntryDelFromDirectItem(*entry);
  } else {
    directTable()->hwInconsistentEntryIsFromDirectItem(*entry);
  }
}

/// Whether a row belongs to no entry and may be written: hardware has said what it holds.
bool DirectBaseConvertor::takesDefault(const HwTableConfig& table, HwIndex index) const {
  return table.state(index) != HwTableConfig::Row::unread &&
         !directTable()->entryHasByDirectItem(*nullDirectEntry(index));
}

/// Whether hardware is known to hold what is desired in the row.
bool DirectBaseConvertor::holds(const HwTableConfig& table, HwIndex index) const {
  if (table.state(index) != HwTableConfig::Row::held) return false;
  U32 expected[maxRowWords];
  expectedImage(table.descriptor().identity.id, index, expected);
  return table.same(index, expected, table.image(index));
}

/// Marks keys whose rows are not all what they should be, since a writer may have stopped amid a
/// change.
void DirectBaseConvertor::handleRebuilt() {
  for (const auto& [id, table] : hwTables()) {
    for (HwIndex index = table->descriptor().first; index <= table->descriptor().last; ++index) {
      if (holds(*table, index)) continue;
      const auto entry = nullDirectEntry(index);
      const bool held = table->state(index) == HwTableConfig::Row::held;
      if (!held && !directTable()->entryHasByDirectItem(*entry)) continue;
      directTable()->hwInconsistentEntryIsFromDirectItem(*entry);
    }
  }
}

void DirectBaseConvertor::expectedImage(HwTableId, HwIndex index, U32* image) const {
  const auto entry = nullDirectEntry(index);
  directTable()->updateDirectItem(*entry);
  rowImage(*entry, index, image);
}

void DirectBaseConvertor::repair(const AuditFinding& finding) {
  if (finding.kind == AuditFinding::Kind::unreadable) return;
  const auto entry = nullDirectEntry(finding.index);
  directTable()->updateDirectItem(*entry);
  if (entry->valid()) {
    directTable()->handleDirectEntry(*entry, 0);
    return;
  }
  // Nobody withdrew it: copies that could not be read may hold an entry.
  U32 image[maxRowWords];
  rowImage(*entry, finding.index, image);
  bool good = true;
  for (const auto& [id, table] : hwTables()) {
    const bool unread = table->state(finding.index) == HwTableConfig::Row::unread;
    good = !unread && table->entryIs(HwEntryConfig(finding.index, image, maxRowWords)) && good;
  }
  if (good) {
    directTable()->hwInconsistentEntryDelFromDirectItem(*entry);
  } else {
    directTable()->hwInconsistentEntryIsFromDirectItem(*entry);
  }
}

void DirectBaseConvertor::syncEntries(U32 id) {
  const Orb::Ptr<HwTableConfig> table = hwTable(id);
  ORB_ASSERT(table);
  for (HwIndex index = table->descriptor().first; index <= table->descriptor().last; ++index) {
    if (swTable()->initialized()) {
      auditRow(*table, index);
    } else {
      table->readEntry(index);
      takeRow(*table, index);
    }
  }
  if (swTable()->initialized() && id == hwTables().rbegin()->first) recheck(0);
}

/// Takes over what the row holds, unless a hardware table in front of this one has said: they may
/// disagree when a writer stopped amid a change, and then the first that is sound counts.
void DirectBaseConvertor::takeRow(HwTableConfig& table, HwIndex index) {
  if (table.state(index) != HwTableConfig::Row::held) return;
  const HwTableId id = table.descriptor().identity.id;
  decoded_ = id;
  const auto entry = decodeHwEntry(index);
  decoded_ = 0;
  U32 empty[maxRowWords];
  rowImage(*nullDirectEntry(index), index, empty);
  const bool nothing = !entry || !entry->valid();
  if (nothing && !table.same(index, empty, table.image(index))) {
    // No row of the table can hold this: it gets written with what is desired of its key.
    table.entryForget(index);
  } else if (!nothing && isFirstSound(id, index)) {
    directTable()->entryIsByDirectItem(*entry);
  }
}

bool DirectBaseConvertor::isFirstSound(HwTableId id, HwIndex index) const {
  return std::none_of(hwTables().begin(), hwTables().find(id), [&](const auto& each) {
    return each.second->state(index) == HwTableConfig::Row::held;
  });
}

void DirectBaseConvertor::auditRow(HwTableConfig& table, HwIndex index) {
  const auto id = table.descriptor().identity.id;
  const bool late = table.state(index) == HwTableConfig::Row::unread;
  const RegisterBus::Read read = table.readEntry(index);
  if (read == RegisterBus::Read::failed) {
    auditFindingIs({AuditFinding::Kind::unreadable, id, index});
    return;
  }
  if (late) takeLate(table, index);
  const auto entry = nullDirectEntry(index);
  U32 empty[maxRowWords];
  rowImage(*entry, index, empty);
  directTable()->updateDirectItem(*entry);
  U32 expected[maxRowWords];
  expectedImage(id, index, expected);
  if (table.same(index, expected, table.image(index))) return;
  if (entry->valid()) {
    const bool missing =
        read == RegisterBus::Read::absent || table.same(index, empty, table.image(index));
    auditFindingIs(
        {missing ? AuditFinding::Kind::missing : AuditFinding::Kind::inconsistent, id, index});
    directTable()->hwInconsistentEntryIsFromDirectItem(*entry);
  } else if (read == RegisterBus::Read::held) {
    auditFindingIs({AuditFinding::Kind::unexpected, id, index});
  }
}

}  // namespace VelaSwitchTable
