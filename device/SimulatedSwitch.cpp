#include "device/SimulatedSwitch.h"

#include <algorithm>
#include <charconv>

#include "device/ControlWord.h"

namespace VelaDevice {
namespace {

/// The number in a path's last brackets: which of several equal blocks the register belongs to.
U32 blockNumber(std::string_view path) {
  const std::size_t open = path.rfind('[');
  U32 number = 0;
  if (open != std::string_view::npos) {
    std::from_chars(path.data() + open + 1, path.data() + path.size(), number);
  }
  return number;
}

}  // namespace

SimulatedSwitch::RegisterHandle SimulatedSwitch::registerIs(std::string_view path) {
  const auto known = state_.registerHandles.find(path);
  if (known != state_.registerHandles.end()) return known->second;
  const auto handle = static_cast<RegisterHandle>(state_.registers.size());
  state_.registers.push_back(0);
  state_.blocks.push_back(blockNumber(path));
  state_.registerHandles.emplace(path, handle);
  return handle;
}

bool SimulatedSwitch::rowIs(TableHandle handle, HwIndex index,
                            std::span<const RegisterValue> writes) {
  Table& table = state_.tables[handle];
  const bool fails = state_.failWrites > 0 && state_.goodWrites == 0;
  if (fails) --state_.failWrites;
  if (state_.goodWrites > 0) --state_.goodWrites;
  const std::size_t reached =
      fails ? std::min<std::size_t>(state_.failAfterRegisters, writes.size()) : writes.size();
  for (std::size_t i = 0; i < reached; ++i) {
    state_.registers[writes[i].reg] = writes[i].value;
    if (i + 1 == writes.size()) commit(table, index, writes);
    if (state_.observer) state_.observer(table, index);
  }
  state_.registerWrites += reached;
  if (fails) return false;
  ++state_.rowWrites;
  return true;
}

void SimulatedSwitch::commit(Table& table, HwIndex index, std::span<const RegisterValue> writes) {
  if (table.control) {
    const auto selected =
        table.control->select(writes.back().value, state_.blocks[writes.back().reg]);
    if (!selected || *selected > table.lastIndex) return;
    index = *selected;
  }
  writeRow(table, index, writes);
  if (state_.writesClearHits) table.hit(index) = 0;
}

bool SimulatedSwitch::readFails() {
  if (state_.failReads == 0) [[likely]]
    return false;
  if (state_.goodReads > 0) {
    --state_.goodReads;
    return false;
  }
  --state_.failReads;
  return true;
}

SimulatedSwitch::Read SimulatedSwitch::row(TableHandle handle, HwIndex index,
                                           std::span<RegisterValue> values) {
  if (readFails()) return Read::failed;
  const Table& table = state_.tables[handle];
  const U32* words = table.row(index);
  if (!words) return Read::absent;
  const std::size_t count = std::min<std::size_t>(values.size(), VelaSwitchApi::maxRowWords);
  for (std::size_t i = 0; i < count; ++i) values[i].value = words[i];
  return Read::held;
}

bool SimulatedSwitch::hitBits(TableHandle handle, HwIndex first, std::span<RegisterValue> values) {
  if (readFails()) return false;
  Table& table = state_.tables[handle];
  for (RegisterValue& value : values) {
    value.value = 0;
    for (U32 bit = 0; bit < 32; ++bit, ++first) {
      if (first > table.lastIndex) continue;
      value.value |= U32{table.hit(first)} << bit;
      table.hit(first) = 0;
    }
  }
  return true;
}

SimulatedSwitch::Table* SimulatedSwitch::find(std::string_view family, U32 instance,
                                              VelaSwitchApi::HwTableId id) {
  const auto table = std::find_if(state_.tables.begin(), state_.tables.end(), [&](const Table& t) {
    return t.identity.family == family && t.identity.instance == instance && t.identity.id == id;
  });
  return table == state_.tables.end() ? nullptr : &*table;
}

U32 SimulatedSwitch::registerValue(std::string_view path) const {
  const auto handle = state_.registerHandles.find(path);
  return handle == state_.registerHandles.end() ? 0 : state_.registers[handle->second];
}

void SimulatedSwitch::failWritesIs(U32 count, U32 registers, U32 good) {
  state_.goodWrites = good;
  state_.failWrites = count;
  state_.failAfterRegisters = registers;
}

bool SimulatedSwitch::flipBit(TableHandle handle, HwIndex index, U32 word, U32 bit) {
  Table& table = state_.tables[handle];
  U32* words = table.row(index);
  if (!words || word >= table.rowWords() || bit >= 32) return false;
  words[word] ^= 1u << bit;
  return true;
}

}  // namespace VelaDevice
