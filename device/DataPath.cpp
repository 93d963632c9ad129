#include "device/DataPath.h"

#include "device/Search.h"

namespace VelaDevice {
namespace {

/// The polynomials of the hash unit's ways, by its width from 10 bits on.
constexpr U32 polynomials[][4] = {
    {0x06f, 0x0f3, 0x197, 0x1e5}, {0x065, 0x1d9}, {0x0eb, 0x161, 0x34d}, {0x0bb, 0x13b, 0x197}};
constexpr U32 narrowest = 10;

}  // namespace

void DataPath::note(std::string_view family, const Table* table,
                    std::optional<VelaSwitchApi::HwIndex> index, const char* refusal) {
  if (!steps_) return;
  steps_->push_back({family, table, index, table ? refusal : "the switch has no such table"});
}

void DataPath::refuse(const char* why) {
  if (steps_ && !steps_->empty()) steps_->back().refusal = why;
}

const U32* DataPath::rowAt(const char* family, U32 table, U32 index) {
  const Table* memory = this->table(family, 0, table);
  const U32* words = memory ? memory->row(index) : nullptr;
  note(family, memory, words ? std::optional(index) : std::nullopt,
       words ? nullptr : "the row was never written");
  return words;
}

std::optional<FoundRow> search(DataPath& path, std::string_view family, DataPath::Table* table,
                               HashUnit unit, const Bits& key, const RowMatch& match) {
  for (U32 way = 0; table && way < unit.ways; ++way) {
    const U32 polynomial = polynomials[unit.width - narrowest][way];
    const U32 index = (way << unit.width) + shiftRegister(unit.width, polynomial, key);
    const U32* words = table->row(index);
    if (!words) continue;
    Bits row(words, 4);
    if (!match(row)) continue;
    path.note(family, table, index);
    return FoundRow{table, index, row, path.onlyLooks()};
  }
  path.note(family, table, std::nullopt, "no row holds the key");
  return std::nullopt;
}

}  // namespace VelaDevice
