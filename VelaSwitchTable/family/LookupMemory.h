#pragma once

#include "VelaSwitchApi/HwTable.h"
#include "VelaSwitchTable/family/Row.h"

/// Rows in the lookup memory of the egress processors: four writes, each of a data word and of a
/// control word that says which row of the memory the data go to.
namespace VelaSwitchTable {

inline constexpr U8 memoryPairs = 4;
/// Words of a row, half of them control words.
inline constexpr U8 memoryWords = 2 * memoryPairs;
/// What of a control word depends on the row alone; the parity of the data does not.
inline constexpr VelaSwitchApi::StaticWords memoryStaticWords = {0, 0xfffffff0, 0, 0xfffffff0,
                                                                 0, 0xfffffff0, 0, 0xfffffff0};

inline std::vector<std::string> memoryRegisters() {
  std::vector<std::string> registers;
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    for (const char* name : {"lum_data", "lum_ctl_addr_data"}) registers.emplace_back(name);
  }
  return registers;
}

/// The fields of each pair of words, in this order.
enum class MemoryField : U8 { low, high, parity, memoryRow, one };
inline constexpr U8 memoryFields = 5;
constexpr std::size_t ofPair(MemoryField field, U8 pair) {
  return static_cast<std::size_t>(field) + pair * memoryFields;
}

/// The row whose data words hold these two fields each.
constexpr std::array<RowField, memoryFields * memoryPairs> memoryRow(
    const std::array<std::array<RowField, 2>, memoryPairs>& data) {
  std::array<RowField, memoryFields * memoryPairs> row{};
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    const RowField fields[] = {
        data[pair][0], data[pair][1], {"parity", 35, 1}, {"memoryRow", 36, 10}, {"one", 46, 1, 1}};
    for (U8 i = 0; i < memoryFields; ++i) {
      RowField& field = row[pair * memoryFields + i] = fields[i];
      field.first += pair * 64u;
    }
  }
  return row;
}

/// Writes the data of a pair with their parity.
inline void setMemoryData(RowWriter& row, U8 pair, U64 low, U64 high) {
  row.set(ofPair(MemoryField::low, pair), low);
  row.set(ofPair(MemoryField::high, pair), high);
  row.set(ofPair(MemoryField::parity, pair), VelaSwitch::parity32Bit(row.words()[2 * pair]));
}

inline bool memorySound(const RowReader& row) {
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    const U32 parity = VelaSwitch::parity32Bit(row.words()[2 * pair]);
    if (row.get(ofPair(MemoryField::parity, pair)) != parity) return false;
  }
  return true;
}

}  // namespace VelaSwitchTable
