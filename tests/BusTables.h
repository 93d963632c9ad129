#pragma once

#include "bus/Conformance.h"

namespace VelaTest {

/// Two route levels of one processor: they share all registers.
class LevelsUnderTest : public VelaBus::BusUnderTest {
 public:
  static const std::vector<Table>& levels() {
    static const std::string folder = "ingress/processor_l3[0]/";
    static const std::vector<std::string> data{folder + "hash_data0", folder + "hash_data1"};
    static const std::vector<std::string> row{data[0], data[1], folder + "hash_data2",
                                              folder + "hash_data3", folder + "hash_ctl"};
    static const std::vector<Table> tables{{{"Lpm14", 0, 0, "Lpm14[0]-0"}, 2040, row, data},
                                           {{"Lpm17", 0, 0, "Lpm17[0]-0"}, 2040, row, data}};
    return tables;
  }
  static std::vector<U32> wordsOf(std::size_t table, HwIndex index, U32 seed) {
    const U32 word = seed * 0x01000193 + index * 16 + static_cast<U32>(table) * 4;
    return {word, word + 1, word + 2, word + 3, 1u << 17 | index / 1024 << 14 | index % 1024};
  }

  const std::vector<Table>& tables() const override { return levels(); }
  std::vector<U32> rowOf(std::size_t table, HwIndex index, U32 seed) const override {
    return wordsOf(table, index, seed);
  }
};

}  // namespace VelaTest
