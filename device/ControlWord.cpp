#include "device/ControlWord.h"

namespace VelaDevice {
namespace {

/// Row bits and commit bit; then the way's first bit and bits, and the rows of each way.
constexpr ControlWord controlWords[] = {
    {"HashTest", 12, 15, 14, 1, 8},
    {"AclHash", 11, 15, 11, 1, 2048},
    {"VlanMembership", 12, 15},
    {"Lpm11", 16, 17},
    {"Lpm14", 12, 17, 14, 2, 1024},
    {"Lpm17", 12, 17, 14, 2, 1024},
    {"Lpm20", 12, 17, 14, 2, 1024},
    {"Lpm23", 12, 17, 14, 2, 1024},
    {"Lpm26", 12, 17, 14, 2, 4096},
    {"Lpm29", 12, 17, 14, 2, 4096},
    {"Lpm32", 12, 17, 14, 2, 4096},
    {"SG", 13, 17, 14, 2, 8192},
    {"NatMatch", 12, 17, 14, 2, 4096},
    {"NatDynMatch", 10, 17, 14, 2, 1024},
    {"AclIndirectCounterHash", 11, 15, 11, 1, 2048},
    {"L3FloodBitmap", 7, 17},
    {"L3Lag", 6, 17},
    {"FloodSet", 12, 15},
    {"MacVlan", 10, 17},
    {"NatRewrite", 12, 13, 0, 0, 0, 1, 4096},
};

}  // namespace

const ControlWord* ControlWord::of(std::string_view family) {
  for (const ControlWord& word : controlWords) {
    if (word.family == family) return &word;
  }
  return nullptr;
}

}  // namespace VelaDevice
