#include "DirectBase/DirectBase.h"

#include <algorithm>

namespace VelaSwitchTable {

using VelaSwitchApi::HwEntryConfig;
using VelaSwitchApi::maxRowWords;

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

auto DirectBaseConvertor::rowImage(const DirectBaseEntry& entry, HwIndex index) const -> Image {
  Image image{};
  setHwBuffer(entry, reinterpret_cast<U8*>(image.data()));
  setStaticBuffer(index, reinterpret_cast<U8*>(image.data()));
  return image;
}

auto DirectBaseConvertor::rowImage(HwTableId, HwIndex index, Content content) const -> Image {
  const auto entry = nullDirectEntry(index);
  if (content == Content::desired) directTable()->updateDirectItem(*entry);
  return rowImage(*entry, index);
}

bool DirectBaseConvertor::rowIs(const DirectBaseEntry& entry, HwIndex index) {
  const Image image = rowImage(entry, index);
  bool good = true;
  for (const auto& [id, table] : hwTables()) {
    good = table->entryIs(HwEntryConfig(index, image.data(), maxRowWords)) && good;
  }
  return good;
}

bool DirectBaseConvertor::hasEntry(HwIndex index) const {
  return directTable()->entryHasByDirectItem(*nullDirectEntry(index));
}

bool DirectBaseConvertor::marked(HwIndex index) const {
  return directTable()->hwInconsistentEntryFromDirectItem(*nullDirectEntry(index));
}

void DirectBaseConvertor::markIs(HwIndex index, bool marked) {
  const auto entry = nullDirectEntry(index);
  if (marked) {
    directTable()->hwInconsistentEntryIsFromDirectItem(*entry);
  } else {
    directTable()->hwInconsistentEntryDelFromDirectItem(*entry);
  }
}

void DirectBaseConvertor::program(HwIndex index) {
  const auto entry = nullDirectEntry(index);
  directTable()->updateDirectItem(*entry);
  directTable()->handleDirectEntry(*entry, 0);
}

/// Takes over what the row holds, unless a hardware table in front of this one has said: they may
/// disagree when a writer stopped amid a change, and then the first that is sound counts.
void DirectBaseConvertor::takeRow(HwTableConfig& table, HwIndex index, bool late) {
  if (late) unsoundForget(table, index);
  if ((late && hasEntry(index)) || table.state(index) != Row::held) return;
  const HwTableId id = table.descriptor().identity.id;
  decoded_ = id;
  const auto entry = decodeHwEntry(index);
  decoded_ = 0;
  const bool nothing = !entry || !entry->valid();
  if (nothing && !isEmpty(table, index)) {
    // No row of the table can hold this: it gets written with what is desired of its key.
    table.entryForget(index);
  } else if (!nothing && isFirstSound(id, index)) {
    directTable()->entryIsByDirectItem(*entry);
  }
}

bool DirectBaseConvertor::isFirstSound(HwTableId id, HwIndex index) const {
  return std::none_of(hwTables().begin(), hwTables().find(id),
                      [&](const auto& each) { return each.second->state(index) == Row::held; });
}

bool DirectBaseConvertor::isEmpty(const HwTableConfig& table, HwIndex index) const {
  const Image empty = rowImage(*nullDirectEntry(index), index);
  return table.same(index, empty.data(), table.image(index));
}

auto DirectBaseConvertor::judge(const HwTableConfig& table, HwIndex index, bool)
    -> std::optional<Finding::Kind> {
  if (!hasEntry(index)) return Finding::Kind::unexpected;
  markIs(index, true);
  return isEmpty(table, index) ? Finding::Kind::missing : Finding::Kind::inconsistent;
}

}  // namespace VelaSwitchTable
