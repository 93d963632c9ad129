#include "device/ControlWord.h"

namespace VelaDevice {
namespace {

constexpr ControlWord controlWords[] = {
    {.family = "HashTest",
     .rowBits = 12,
     .wayFirst = 14,
     .wayBits = 1,
     .commitBit = 15,
     .rowsPerWay = 8},
    {.family = "AclHash",
     .rowBits = 11,
     .wayFirst = 11,
     .wayBits = 1,
     .commitBit = 15,
     .rowsPerWay = 2048},
    {.family = "VlanMembership",
     .rowBits = 12,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 15,
     .rowsPerWay = 0},
};

}  // namespace

const ControlWord* ControlWord::of(std::string_view family) {
  for (const ControlWord& word : controlWords) {
    if (word.family == family) return &word;
  }
  return nullptr;
}

}  // namespace VelaDevice
