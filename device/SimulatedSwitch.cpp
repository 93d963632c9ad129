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

void SimulatedSwitch::modelIs(const std::string& model) {
  if (!model_.empty() && model_ != model) {
    throw ImageException("the saved switch is a " + model_ + ", not a " + model);
  }
  model_ = model;
}

SimulatedSwitch::RegisterHandle SimulatedSwitch::registerIs(std::string_view path) {
  const auto known = registerHandles_.find(path);
  if (known != registerHandles_.end()) return known->second;
  const auto handle = static_cast<RegisterHandle>(registers_.size());
  registers_.push_back(0);
  blocks_.push_back(blockNumber(path));
  registerHandles_.emplace(path, handle);
  return handle;
}

SimulatedSwitch::TableHandle SimulatedSwitch::tableIs(
    const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) {
  const auto known = tableHandles_.find(identity.name);
  if (known != tableHandles_.end()) {
    if (tables_[known->second].lastIndex != lastIndex) {
      throw ImageException("table " + identity.name + " has " +
                           std::to_string(tables_[known->second].lastIndex + 1) +
                           " rows in the saved switch, not " + std::to_string(lastIndex + 1) +
                           ": it was saved with another profile");
    }
    return known->second;
  }
  const auto handle = static_cast<TableHandle>(tables_.size());
  tables_.push_back({identity, lastIndex, 0, {}, {}, {}, ControlWord::of(identity.family)});
  tables_.back().present.resize(lastIndex + 1);
  tables_.back().hit.resize(lastIndex + 1);
  tableHandles_.emplace(identity.name, handle);
  return handle;
}

bool SimulatedSwitch::rowIs(TableHandle handle, HwIndex index,
                            std::span<const RegisterValue> writes) {
  Table& table = tables_[handle];
  const bool fails = failWrites_ > 0 && goodWrites_ == 0;
  if (fails) --failWrites_;
  if (goodWrites_ > 0) --goodWrites_;
  const std::size_t reached =
      fails ? std::min<std::size_t>(failAfterRegisters_, writes.size()) : writes.size();
  for (std::size_t i = 0; i < reached; ++i) {
    registers_[writes[i].reg] = writes[i].value;
    if (i + 1 == writes.size()) commit(table, index, writes);
    if (observer_) observer_(table, index);
  }
  registerWrites_ += reached;
  if (fails) return false;
  ++rowWrites_;
  return true;
}

void SimulatedSwitch::commit(Table& table, HwIndex index, std::span<const RegisterValue> writes) {
  if (table.control) {
    const auto selected = table.control->select(writes.back().value, blocks_[writes.back().reg]);
    if (!selected || *selected > table.lastIndex) return;
    index = *selected;
  }
  if (table.rowWords == 0) {
    table.rowWords = static_cast<U32>(writes.size());
    table.words.resize(std::size_t{table.lastIndex + 1} * table.rowWords);
  }
  U32* words = &table.words[std::size_t{index} * table.rowWords];
  for (std::size_t i = 0; i < std::min<std::size_t>(writes.size(), table.rowWords); ++i) {
    words[i] = writes[i].value;
  }
  table.present[index] = 1;
}

SimulatedSwitch::Read SimulatedSwitch::row(TableHandle handle, HwIndex index,
                                           std::span<RegisterValue> values) {
  if (failReads_ > 0) {
    --failReads_;
    return Read::failed;
  }
  const Table& table = tables_[handle];
  const U32* words = table.row(index);
  if (!words) return Read::absent;
  for (std::size_t i = 0; i < std::min<std::size_t>(values.size(), table.rowWords); ++i) {
    values[i].value = words[i];
  }
  return Read::held;
}

bool SimulatedSwitch::hitBits(TableHandle handle, HwIndex first, std::span<RegisterValue> values) {
  if (failReads_ > 0) {
    --failReads_;
    return false;
  }
  Table& table = tables_[handle];
  for (RegisterValue& value : values) {
    value.value = 0;
    for (U32 bit = 0; bit < 32; ++bit, ++first) {
      if (first > table.lastIndex) continue;
      value.value |= U32{table.hit[first]} << bit;
      table.hit[first] = 0;
    }
  }
  return true;
}

SimulatedSwitch::Table* SimulatedSwitch::find(std::string_view family, U32 instance,
                                              VelaSwitchApi::HwTableId id) {
  const auto table = std::find_if(tables_.begin(), tables_.end(), [&](const Table& t) {
    return t.identity.family == family && t.identity.instance == instance && t.identity.id == id;
  });
  return table == tables_.end() ? nullptr : &*table;
}

U32 SimulatedSwitch::registerValue(std::string_view path) const {
  const auto handle = registerHandles_.find(path);
  return handle == registerHandles_.end() ? 0 : registers_[handle->second];
}

void SimulatedSwitch::failWritesIs(U32 count, U32 registers, U32 good) {
  goodWrites_ = good;
  failWrites_ = count;
  failAfterRegisters_ = registers;
}

bool SimulatedSwitch::flipBit(TableHandle handle, HwIndex index, U32 word, U32 bit) {
  Table& table = tables_[handle];
  if (!table.row(index) || word >= table.rowWords || bit >= 32) return false;
  table.words[std::size_t{index} * table.rowWords + word] ^= 1u << bit;
  return true;
}

}  // namespace VelaDevice
