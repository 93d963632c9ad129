#include "VelaSwitchApi/SwTable.h"

#include <algorithm>
#include <array>
#include <utility>

#include "VelaSwitchApi/PhysicalHashTable.h"

namespace VelaSwitchApi {

SwTableTypes::SwTableTypes(Orb::PtrConst<VelaSwitch::ProfileInfo> profile, RegisterBus& bus)
    : profile_(std::move(profile)), bus_(bus) {}

SwTableTypes::~SwTableTypes() = default;
SwTable::~SwTable() = default;
SwTableProfileConvertor::~SwTableProfileConvertor() = default;

Orb::Ptr<PhysicalHashTable> SwTableTypes::physicalHashTable(
    U32 tableId, const PhysicalHashProperties& properties) {
  Orb::Ptr<PhysicalHashTable>& table = physicalHashTables_[tableId];
  if (!table) table = Orb::make<PhysicalHashTable>(properties);
  return table;
}

U32 SwTable::swTableId() const { return swTableId_; }

void SwTable::typesIs(Orb::Ptr<SwTableTypes> types) {
  types_ = std::move(types);
  swTableId_ = types_->nextSwTableId();
}

void SwTable::profileConvertorPtrIs(Orb::Ptr<SwTableProfileConvertor> convertor) {
  convertor_ = std::move(convertor);
  convertor_->swTableIs(this);
}

void SwTable::doCreateHwTable() {
  convertor_->doCreateHwTables(TableState::active);
  convertor_->doInitTableStats();
  convertor_->doInitHwReadInfo();
}

void SwTable::initHwEntries(bool overwrite) { convertor_->initHwEntries(overwrite, 0); }

void SwTable::syncEntries() {
  convertor_->auditFindingDelAll();
  for (const auto& [id, table] : convertor_->hwTables()) convertor_->syncEntries(id);
  if (!initialized()) convertor_->handleRebuilt();
}

void SwTable::doInitComplete() {}

void SwTable::initializedIs(bool initialized) {
  if (initialized_ == initialized) return;
  initialized_ = initialized;
  if (!initialized) return;
  convertor_->handleInitialized();
  handleInitialized();
}

std::string SwTable::hwTableName(const std::string& prefix, const std::string& part,
                                 const std::string& suffix, HwTableId id) {
  return prefix + (part.empty() ? "" : "[" + part + "]") + suffix + "-" + std::to_string(id);
}

HitBitAccessMode SwTable::hitBitAccessModeMapping(TableState state) {
  return state == TableState::active ? HitBitAccessMode::clearOnRead : HitBitAccessMode::none;
}

void SwTableProfileConvertor::handleHitBitEntry(HwTableId, HwIndex) {}
void SwTableProfileConvertor::doInitTableStats() {}
void SwTableProfileConvertor::doInitHwReadInfo() {}
void SwTableProfileConvertor::handleInitialized() {}
bool SwTableProfileConvertor::rowSound(HwTableId, HwIndex) const { return true; }
void SwTableProfileConvertor::takePlacement() {}
void SwTableProfileConvertor::handleRebuilt() {}

const RowLayout& SwTableProfileConvertor::rowLayout(HwTableId, HwIndex) const {
  static const RowLayout none;
  return none;
}

void SwTableProfileConvertor::auditFindingIs(AuditFinding finding) {
  using Kind = AuditFinding::Kind;
  if (finding.kind == Kind::inconsistent || finding.kind == Kind::unexpected) {
    finding.corrupt = !rowSound(finding.table, finding.index);
  }
  findings_.push_back(finding);
}

std::vector<FieldDifference> SwTableProfileConvertor::differences(HwTableId id,
                                                                  HwIndex index) const {
  const HwTableConfig& table = *hwTable(id);
  std::array<U32, maxRowWords> expected{};
  std::array<U32, maxRowWords> found{};
  expectedImage(id, index, expected.data());
  std::array<U32, maxRowWords> open = table.differentBits(index, expected.data());
  for (U8 word = 0; word < table.descriptor().rowWords; ++word) {
    found[word] = expected[word] ^ open[word];
  }
  std::vector<FieldDifference> differences;
  const auto add = [&](const std::string& field, U32 first, U32 last) {
    const U64 should = bitStreamGet(expected.data(), first, last);
    const U64 is = bitStreamGet(found.data(), first, last);
    if (should != is) differences.push_back({field, should, is});
    for (U32 bit = first; bit <= last; ++bit) open[bit / 32] &= ~(1u << bit % 32);
  };
  constexpr U32 part = 32;
  for (const RowField& field : rowLayout(id, index).fields()) {
    if (field.width < 64) {
      if (field.width != 0) add(field.name, field.first, field.first + field.width - 1u);
      continue;
    }
    for (U32 done = 0; done < field.width; done += part) {
      const U32 last = std::min<U32>(done + part, field.width) - 1;
      add(std::string(field.name) + "[" + std::to_string(done) + ":" + std::to_string(last) + "]",
          field.first + done, field.first + last);
    }
  }
  for (U32 bit = 0; bit < maxRowWords * 32; ++bit) {
    if ((open[bit / 32] >> bit % 32 & 1) != 0)
      add(std::string("bit ").append(std::to_string(bit)), bit, bit);
  }
  return differences;
}

bool SwTableProfileConvertor::pollHitBits(Orb::Seconds now) {
  pollTimeIs(now);
  return true;
}

Orb::Ptr<HwTableConfig> SwTableProfileConvertor::hwTable(HwTableId id) const {
  const auto table = hwTables_.find(id);
  return table == hwTables_.end() ? nullptr : table->second;
}

void SwTableProfileConvertor::hwTableIs(HwTableId id, Orb::Ptr<HwTableConfig> table) {
  for (U8 word = 0; word < maxRowWords; ++word) {
    if (staticWords_[word] != 0) table->staticWordIs(word, staticWords_[word]);
  }
  hwTables_[id] = std::move(table);
}

void SwTableProfileConvertor::descriptorIs(HwTableId id,
                                           Orb::PtrConst<HwTableDescriptor> descriptor) {
  descriptors_[id] = std::move(descriptor);
}

void SwTableProfileConvertor::hitDescriptorIs(HwTableId id,
                                              Orb::PtrConst<HitBitTableDescriptor> descriptor) {
  hitDescriptors_[id] = std::move(descriptor);
}

void SwTableProfileConvertor::hitBitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table) {
  hitBitTables_[id] = std::move(table);
}

void SwTableProfileConvertor::hwStaticWordIs(U8 index, U32 mask) {
  staticWords_[index] = mask;
  for (const auto& [id, table] : hwTables_) table->staticWordIs(index, mask);
}

void SwTableProfileConvertor::hwStaticWordDel(U8 index) { hwStaticWordIs(index, 0); }

U32 EntryCounter::used() const { return convertor->entriesUsed(index); }
U32 EntryCounter::peak() const { return convertor->entriesPeak(index); }

void SwTableProfileConvertor::initEntryCounter(std::string key, U32 size, U32 index) {
  counters_.push_back({std::move(key), size, index, this});
}

U32 SwTableProfileConvertor::entriesUsed(U32) const { return 0; }
U32 SwTableProfileConvertor::entriesPeak(U32 index) const { return entriesUsed(index); }

}  // namespace VelaSwitchApi
