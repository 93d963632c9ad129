#include "VelaSwitchTable/VelaTableL3FloodArp.h"

namespace VelaSwitchTable {
namespace {

constexpr U8 tailBits = 16;
constexpr bool isHead(U8 pair) { return pair < 2; }

}  // namespace

void L3FloodArpFamily::packMore(const VelaSwitch::ProfileInfo&, const Result& result,
                                RowWriterOf<L3FloodArpFamily>& row) {
  const U64 address = result.ethAddr().number();
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    setMemoryData(row, pair, isHead(pair) ? address >> tailBits : address, result.vlanId().value());
  }
}

/// Each flood id has two rows of the memory, in two copies.
void L3FloodArpFamily::packPlace(HwIndex index, RowWriterOf<L3FloodArpFamily>& row) {
  constexpr U32 firstMemoryRow[memoryPairs] = {128, 640, 129, 641};
  constexpr U32 memoryRows = 1024;
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    row.set(ofPair(MemoryField::memoryRow, pair), (2 * index + firstMemoryRow[pair]) % memoryRows);
  }
}

void L3FloodArpFamily::unpackMore(const VelaSwitch::ProfileInfo&,
                                  const RowReaderOf<L3FloodArpFamily>& row, Result& result) {
  result.ethAddr =
      Bridging::EthAddr(row.get<"ethAddrHead">() << tailBits | row.get<"ethAddrTail">());
}

VELA_DIRECT_FAMILY_DEFINE(L3FloodArp)

}  // namespace VelaSwitchTable
