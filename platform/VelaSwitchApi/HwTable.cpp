#include "VelaSwitchApi/HwTable.h"

#include <algorithm>

#include "VelaSwitchApi/RowReads.h"

namespace VelaSwitchApi {

void HwTableRegisterMapping::forEachRun(HwIndex first, HwIndex last, const Visitor& visit) const {
  for (HwIndex index = first; index <= last; ++index) visit(index, index, getRegister(index));
}

HwAddressColl HwTableRegisterMappingColl::getRegister(HwIndex index) const {
  const auto row = rows_.find(index);
  return row == rows_.end() ? HwAddressColl{} : row->second;
}

HwAddressColl HwTableRegisterMappingRange::getRegister(HwIndex index) const {
  const auto next = ranges_.upper_bound(index);
  return next == ranges_.begin() ? HwAddressColl{} : std::prev(next)->second;
}

void HwTableRegisterMappingRange::forEachRun(HwIndex first, HwIndex last,
                                             const Visitor& visit) const {
  while (first <= last) {
    const auto next = ranges_.upper_bound(first);
    const HwIndex end = next == ranges_.end() ? last : std::min(last, next->first - 1);
    visit(first, end, getRegister(first));
    first = end + 1;
  }
}

Orb::Ptr<HwTableDescriptor> HwTableDescriptorConfig::hwTableDescIs(
    HwTableIdentity identity, TableState state, HwIndex first, HwIndex last, U8 rowWords,
    Orb::PtrConst<HwTableRegisterMapping> mapping) {
  ORB_ASSERT(mapping);
  ORB_ASSERT(first <= last);
  ORB_ASSERT(rowWords <= maxRowWords);
  auto descriptor = Orb::make<HwTableDescriptor>();
  descriptor->identity = std::move(identity);
  descriptor->state = state;
  descriptor->first = first;
  descriptor->last = last;
  descriptor->rowWords = rowWords;
  descriptor->mapping = std::move(mapping);
  return descriptor;
}

Orb::Ptr<HitBitTableDescriptor> HwTableDescriptorConfig::hitBitTableDescIs(
    Orb::PtrConst<HwTableDescriptor> table, HitBitAccessMode mode, U32 tableHitBitOffset,
    Orb::PtrConst<HitBitReadInfoWrapper> readInfo) {
  ORB_ASSERT(tableHitBitOffset != 0xffffffff);
  auto descriptor = Orb::make<HitBitTableDescriptor>();
  descriptor->table = std::move(table);
  descriptor->mode = mode;
  descriptor->offset = tableHitBitOffset;
  descriptor->readInfo = std::move(readInfo);
  return descriptor;
}

HwTableConfig::HwTableConfig(Orb::PtrConst<HwTableDescriptor> descriptor, RegisterBus& bus,
                             const HwTableConfig* alike)
    : descriptor_(std::move(descriptor)),
      bus_(bus),
      first_(descriptor_->first),
      rows_(descriptor_->last - descriptor_->first + 1),
      rowWords_(descriptor_->rowWords) {
  busTable_ = bus.tableIs(descriptor_->identity, descriptor_->last);
  descriptor_->mapping->forEachRun(descriptor_->first, descriptor_->last,
                                   [&](HwIndex first, HwIndex, const HwAddressColl& addresses) {
                                     Run run{.first = first};
                                     for (const auto& [word, path] : addresses.addresses()) {
                                       ORB_ASSERT(word < rowWords_);
                                       const std::size_t number = run.mapped.size();
                                       run.mapped.push_back({word, bus.registerIs(path)});
                                       run.values[number].reg = run.mapped.back().reg;
                                       run.inOrder = run.inOrder && word == number;
                                       run.compared[word] = run.mappedBits[word] = ~U32{0};
                                     }
                                     runs_.push_back(std::move(run));
                                   });
  for (Run& run : runs_) run.registers = {run.values.data(), run.mapped.size()};
  if (runs_.size() == 1) onlyRun_ = &runs_.front();
  if (alike) {
    ORB_ASSERT(first_ == alike->first_ && rows_ == alike->rows_ && rowWords_ == alike->rowWords_);
    ORB_ASSERT(onlyRun_ && alike->onlyRun_ && onlyRun_->mappedBits == alike->onlyRun_->mappedBits);
    images_ = alike->images_;
  } else {
    images_ = Orb::make<Images>();
    images_->words.resize(std::size_t{rows_} * rowWords_ + maxRowWords);
  }
  words_ = images_->words.data();
  states_.resize(rows_);
  images_->tables.push_back(this);
}

HwTableConfig::~HwTableConfig() {
  std::erase(images_->tables, this);
  std::erase_if(images_->apart, [this](const auto& each) { return each.first.second == this; });
}

/// The row is about to get an image that is this table's alone.
void HwTableConfig::keepOthersApart(HwIndex index) {
  RowImage image{};
  std::copy_n(words_ + imageAt(index), rowWords_, image.begin());
  for (const HwTableConfig* other : images_->tables) {
    if (other == this || other->state(index) == Row::unknown) continue;
    images_->apart.try_emplace({index, other}, image);
  }
}

const U32* HwTableConfig::imageApart(HwIndex index, const U32* shared) const {
  const auto own = images_->apart.find({index, this});
  return own == images_->apart.end() ? shared : own->second.data();
}

/// Some rows have images of their own: those that hold something else than this one count as lost,
/// so that it is unchanged in all others.
bool HwTableConfig::loseDifferent(HwIndex index, const U32* image) {
  for (HwTableConfig* table : images_->tables) {
    Row& row = table->states_[position(index)].row;
    if (row == Row::held && !same(index, table->image(index), image)) row = Row::lost;
    images_->apart.erase({index, table});
  }
  return true;
}

const HwTableConfig::Run& HwTableConfig::runOfMany(HwIndex index) const {
  const auto next = std::upper_bound(runs_.begin(), runs_.end(), index,
                                     [](HwIndex i, const Run& each) { return i < each.first; });
  return *std::prev(next);
}

void HwTableConfig::staticWordIs(DataArrayIndex index, U32 mask) {
  staticWords_[index] = mask;
  for (Run& run : runs_) {
    for (const Mapped& m : run.mapped) run.compared[m.word] = ~staticWords_[m.word];
  }
}

std::array<U32, maxRowWords> HwTableConfig::differentBits(HwIndex index,
                                                          const U32* expected) const {
  std::array<U32, maxRowWords> bits{};
  const U32* held = image(index);
  for (const Mapped& m : mapped(index)) {
    bits[m.word] = (held[m.word] ^ expected[m.word]) & ~staticWords_[m.word];
  }
  return bits;
}

RegisterBus::Read HwTableConfig::readEntry(HwIndex index) {
  RowReads one;
  one.add(*this, index);
  auto outcome = RegisterBus::Read::failed;
  one.flush([&](const auto&, HwIndex, RegisterBus::Read read, bool) { outcome = read; });
  return outcome;
}

bool HwTableConfig::entryReadAnew(const RegisterBus::RowRead& row, U32 at) {
  Row& state = states_[at].row;
  const Row before = state;
  if (row.read == RegisterBus::Read::failed) {
    if (before == Row::unknown) {
      state = Row::unread;
      images_->apart.try_emplace({row.index, this});
    }
    return before == Row::unread;
  }
  state = row.read == RegisterBus::Read::held ? Row::held : Row::absent;
  RowImage read{};
  const auto* value = row.values.data();
  if (state == Row::held) {
    for (const Mapped& m : run(row.index).mapped) read[m.word] = (value++)->value;
  }
  U32* held = words_ + std::size_t{at} * rowWords_;
  if (!std::equal(held, held + rowWords_, read.begin())) {
    keepOthersApart(row.index);
    std::copy_n(read.begin(), rowWords_, held);
  }
  images_->apart.erase({row.index, this});
  return before == Row::unread;
}

HitBitTableConfig::HitBitTableConfig(Orb::PtrConst<HitBitTableDescriptor> descriptor,
                                     const HwTableConfig& table, RegisterBus& bus)
    : descriptor_(std::move(descriptor)), bus_(bus), busTable_(table.busHandle()) {
  const auto& paths = descriptor_->readInfo->addresses().addresses();
  for (const HitBitRecord& record : descriptor_->readInfo->info().bitRegistrations()) {
    registers_.push_back({bus.registerIs(paths.at(static_cast<DataArrayIndex>(record.reg))), 0});
    const U32 count = record.lastBit - record.firstBit + 1;
    bits_.push_back({record.firstBit, blockRows_, (U64{1} << count) - 1});
    blockRows_ += count;
  }
  ORB_ASSERT(blockRows_ <= 64);
}

bool HitBitTableConfig::readBlock(HwIndex first, U64& bits) {
  if (!bus_.hitBits(busTable_, first, registers_)) return false;
  bits = 0;
  const auto* value = registers_.data();
  for (const Bits& each : bits_) bits |= ((value++)->value >> each.first & each.mask) << each.row;
  const HwIndex rows = descriptor_->table->last + 1 - first;
  if (rows < blockRows_) bits &= (U64{1} << rows) - 1;
  return true;
}

}  // namespace VelaSwitchApi
