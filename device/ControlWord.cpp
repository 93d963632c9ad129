#include "device/ControlWord.h"

namespace VelaDevice {
namespace {

constexpr ControlWord lpmLevel(const char* family, U32 rowsPerWay) {
  return {.family = family,
          .rowBits = 12,
          .wayFirst = 14,
          .wayBits = 2,
          .commitBit = 17,
          .rowsPerWay = rowsPerWay};
}

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
    {.family = "Lpm11",
     .rowBits = 16,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 17,
     .rowsPerWay = 0},
    lpmLevel("Lpm14", 1024),
    lpmLevel("Lpm17", 1024),
    lpmLevel("Lpm20", 1024),
    lpmLevel("Lpm23", 1024),
    lpmLevel("Lpm26", 4096),
    lpmLevel("Lpm29", 4096),
    lpmLevel("Lpm32", 4096),
    {.family = "SG",
     .rowBits = 13,
     .wayFirst = 14,
     .wayBits = 2,
     .commitBit = 17,
     .rowsPerWay = 8192},
    {.family = "NatMatch",
     .rowBits = 12,
     .wayFirst = 14,
     .wayBits = 2,
     .commitBit = 17,
     .rowsPerWay = 4096},
    {.family = "NatDynMatch",
     .rowBits = 10,
     .wayFirst = 14,
     .wayBits = 2,
     .commitBit = 17,
     .rowsPerWay = 1024},
    {.family = "AclIndirectCounterHash",
     .rowBits = 11,
     .wayFirst = 11,
     .wayBits = 1,
     .commitBit = 15,
     .rowsPerWay = 2048},
    {.family = "L3FloodBitmap",
     .rowBits = 7,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 17,
     .rowsPerWay = 0},
    {.family = "L3Lag",
     .rowBits = 6,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 17,
     .rowsPerWay = 0},
    {.family = "FloodSet",
     .rowBits = 12,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 15,
     .rowsPerWay = 0},
    {.family = "MacVlan",
     .rowBits = 10,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 17,
     .rowsPerWay = 0},
    {.family = "NatRewrite",
     .rowBits = 12,
     .wayFirst = 0,
     .wayBits = 0,
     .commitBit = 13,
     .rowsPerWay = 0,
     .rowFirst = 1,
     .rowsPerBlock = 4096},
};

}  // namespace

const ControlWord* ControlWord::of(std::string_view family) {
  for (const ControlWord& word : controlWords) {
    if (word.family == family) return &word;
  }
  return nullptr;
}

}  // namespace VelaDevice
