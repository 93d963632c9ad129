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
                     directTable()->numEntries_ / counters, [this, i] {
                       U32 used = 0;
                       const HwTableConfig& table = *hwTable(0);
                       for (HwIndex index = table.descriptor().first;
                            index <= table.descriptor().last; ++index) {
                         const auto entry = nullDirectEntry(index);
                         if (capacityIndexFromEntry(*entry) == i &&
                             directTable()->entryHasByDirectItem(*entry)) {
                           ++used;
                         }
                       }
                       return used;
                     });
  }
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
    if (!table->entryIs(HwEntryConfig(index, image, maxRowWords))) good = false;
  }
  return good;
}

void DirectBaseConvertor::initHwEntries(bool overwrite, U32 start) {
  for (const auto& [id, table] : hwTables()) {
    const auto& descriptor = table->descriptor();
    for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
      if (!overwrite && table->state(index) == HwTableConfig::Row::held) continue;
      if (overwrite) table->entryForget(index);
      U32 image[maxRowWords];
      expectedImage(id, index, image);
      if (!table->entryIs(HwEntryConfig(index, image, maxRowWords))) {
        directTable()->hwInconsistentEntryIsFromDirectItem(*nullDirectEntry(index));
      }
    }
  }
}

void DirectBaseConvertor::handleRebuilt() {
  U32 expected[maxRowWords];
  for (const auto& [id, table] : hwTables()) {
    for (HwIndex index = table->descriptor().first; index <= table->descriptor().last; ++index) {
      if (table->state(index) != HwTableConfig::Row::held) continue;
      expectedImage(id, index, expected);
      if (table->same(index, expected, table->image(index))) continue;
      directTable()->hwInconsistentEntryIsFromDirectItem(*nullDirectEntry(index));
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
  directTable()->handleDirectEntry(*entry, 0);
}

void DirectBaseConvertor::syncEntries(U32 id) {
  HwTableConfig& table = *hwTable(id);
  for (HwIndex index = table.descriptor().first; index <= table.descriptor().last; ++index) {
    if (swTable()->initialized()) {
      auditRow(table, index);
    } else {
      rebuildRow(table, index);
    }
  }
}

void DirectBaseConvertor::rebuildRow(HwTableConfig& table, HwIndex index) {
  if (table.readEntry(index) != RegisterBus::Read::held) return;
  if (table.descriptor().identity.id != 0) return;
  const auto entry = decodeHwEntry(index);
  if (!entry) {
    table.entryForget(index);
  } else if (entry->valid()) {
    directTable()->entryIsByDirectItem(*entry);
  }
}

void DirectBaseConvertor::auditRow(HwTableConfig& table, HwIndex index) {
  const auto id = table.descriptor().identity.id;
  const RegisterBus::Read read = table.readEntry(index);
  if (read == RegisterBus::Read::failed) {
    auditFindingIs({AuditFinding::Kind::unreadable, id, index});
    return;
  }
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
