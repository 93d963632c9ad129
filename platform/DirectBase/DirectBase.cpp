#include "DirectBase/DirectBase.h"

#include <algorithm>

namespace VelaSwitchTable {

using VelaSwitchApi::KeyRecord;

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

bool DirectBaseTable::entryHasByDirectItem(const DirectBaseEntry& item) const {
  return has(KeyRecord::desired, item);
}

bool DirectBaseTable::entryEqualByDirectItem(const DirectBaseEntry& item) const {
  return hasEqual(item);
}

void DirectBaseTable::updateDirectItem(DirectBaseEntry& item) const { item.validIs(update(item)); }

bool DirectBaseTable::hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const {
  return has(KeyRecord::marked, item);
}

void DirectBaseTable::hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item) {
  if (KeyRecord* record = recordOf(item)) flagIs(*record, KeyRecord::marked, false);
}

void DirectBaseTable::hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item) {
  auto& convertor = static_cast<DirectBaseConvertor&>(*profileConvertorPtr());
  convertor.markIs(convertor.hwIndexFromItem(item), true);
}

DirectBaseConvertor::~DirectBaseConvertor() = default;

void DirectBaseConvertor::doInitTableStats() {
  ORB_ASSERT_TEXT(directTable()->capacitySupported(), "capacitySupported()");
  initTableStatsPerEgressPort(sharedOut() ? egressBlocks() : 1);
}

void DirectBaseConvertor::doCreateHwTables(VelaSwitchApi::TableState state) {
  ORB_ASSERT_TEXT(swTable(), "table");
  layout_ = makeLayout();
  const bool pipelines = traits_.placement == DirectPlacement::everyPipeline;
  const U32 blocks = pipelines ? profile().pipelines() : egressBlocks();
  if (sharedOut()) {
    const auto rows = Orb::make<VelaSwitchApi::HwTableRegisterMappingRange>(hwTableName(0));
    for (U32 block = 0; block < blocks; ++block) {
      rows->regsIs(block * traits_.rowsPerBlock, registers(block));
    }
    createRows(0, rows, state);
  } else {
    for (U32 block = 0; block < blocks; ++block) {
      createRows(block,
                 Orb::make<VelaSwitchApi::HwTableRegisterMappingConst>(hwTableName(block),
                                                                       registers(block)),
                 state);
    }
  }
  checkRows();
}

std::string DirectBaseConvertor::hwTableName(HwTableId id) const {
  return VelaSwitchApi::SwTable::hwTableName(traits_.table.name, "", "", id);
}

void DirectBaseConvertor::createRows(HwTableId id,
                                     Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping,
                                     VelaSwitchApi::TableState state) {
  createHwTable({traits_.table.name, 0, id, hwTableName(id)}, state, 0,
                directTable()->numEntries() - 1, traits_.rowWords, std::move(mapping));
}

U32 DirectBaseConvertor::capacityIndexFromEntry(const DirectBaseEntry& entry) const {
  return blockOf(hwIndexFromItem(entry));
}

void DirectBaseConvertor::initTableStatsPerEgressPort(U32 counters) {
  for (U32 i = 0; i < counters; ++i) {
    initEntryCounter(swTable()->name() + "/Port" + std::to_string(i),
                     directTable()->numEntries() / counters, i);
  }
}

U32 DirectBaseConvertor::entriesUsed(U32 counter) const {
  if (swTable()->count(KeyRecord::desired) == 0) return 0;
  // By rows: a key may have none.
  const HwIndex first = sharedOut() ? counter * traits_.rowsPerBlock : 0;
  const HwIndex end = sharedOut() ? first + traits_.rowsPerBlock : directTable()->numEntries();
  U32 used = 0;
  for (HwIndex index = first; index < end; ++index) {
    const KeyRecord* record = entries().recordAt(index);
    if (!record || !record->has(KeyRecord::desired)) continue;
    if (capacityIndexFromEntry(static_cast<const DirectBaseEntry&>(*record)) == counter) ++used;
  }
  return used;
}

/// Of a part of the table only its present use is known.
U32 DirectBaseConvertor::entriesPeak(U32 counter) const {
  return entryCounters().size() > 1 ? entriesUsed(counter) : swTable()->peak();
}

auto DirectBaseConvertor::pack(const IndexedEntry& entry, HwTableId, HwIndex index) const -> Image {
  Image image{};
  setHwBuffer(static_cast<const DirectBaseEntry&>(entry), reinterpret_cast<U8*>(image.data()));
  setStaticBuffer(index, reinterpret_cast<U8*>(image.data()));
  return image;
}

HwIndex DirectBaseConvertor::hwIndexFromItem(const DirectBaseEntry& entry) const {
  return indexOf(entry);
}

Orb::Ptr<DirectBaseEntry> DirectBaseConvertor::nullDirectEntry(HwIndex index) const {
  return static_cast<DirectBaseEntry*>(newEntry(index).get());
}

Orb::Ptr<DirectBaseEntry> DirectBaseConvertor::decodeHwEntry(HwIndex index) const {
  auto entry = nullDirectEntry(index);
  if (index >= directTable()->numEntries()) {
    trace()(3, "row ", index, VelaSwitchApi::noRowText);
    return nullptr;
  }
  if (says(decoded_, index, *entry) == RowSays::unsound) return nullptr;
  if (trace().enabled(8)) trace()(8, "Decoded entry is ", entry->toStrep());
  return entry;
}

bool DirectBaseConvertor::rowIs(const DirectBaseEntry& entry, HwIndex index) {
  const Image image = pack(entry, 0, index);
  bool good = true;
  for (const auto& [id, table] : hwTables()) {
    good = writeImage(*table, index, image, [] {}) && good;
  }
  return good;
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
  const Image empty = rowImage(0, index, Content::empty);
  return table.same(index, empty.data(), table.image(index));
}

auto DirectBaseConvertor::judge(const HwTableConfig& table, HwIndex index, bool)
    -> std::optional<Finding::Kind> {
  if (!hasEntry(index)) return Finding::Kind::unexpected;
  markIs(index, true);
  return isEmpty(table, index) ? Finding::Kind::missing : Finding::Kind::inconsistent;
}

}  // namespace VelaSwitchTable
