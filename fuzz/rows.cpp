#include <algorithm>
#include <cstring>

#include "Fuzz.h"
#include "agent/TableAdapter.h"

// Rows of any bits in the tables of every family: decoded, audited, and found at a restart.

namespace {

constexpr const char* profile = "vela-48-5.1";

/// Restarts read whole tables: only those of few rows, or nothing else would be done.
constexpr U32 fewRows = 600;

}  // namespace

/// The first byte chooses a table, the next two a row; the rest is what the rows from there on
/// hold.
extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  static VelaFuzz::Rig rig(profile);
  if (size < 4) return 0;
  const auto& tables = rig.agent.tables();
  VelaAgent::HwTableAdapter& adapter = *tables[data[0] % tables.size()];
  const auto& hwTables = adapter.convertor().hwTables();
  if (hwTables.empty()) return 0;
  const VelaSwitchApi::HwTableId id = hwTables.begin()->first;
  VelaSwitchApi::HwTableConfig& hwTable = *hwTables.begin()->second;
  const auto& descriptor = hwTable.descriptor();
  const auto* memory = rig.chip.find(descriptor.identity.family, descriptor.identity.instance, id);
  const U32 rows = descriptor.last - descriptor.first + 1;
  const U32 first = descriptor.first + (data[1] | U32{data[2]} << 8) % rows;
  U32 index = first;
  for (std::size_t at = 3; at < size && index <= descriptor.last; ++index) {
    U32* words = memory->row(index);
    if (!words) break;
    const std::size_t bytes = std::min<std::size_t>(size - at, 4 * memory->rowWords());
    std::memcpy(words, data + at, bytes);
    at += bytes;
  }
  const bool fatal = VelaFuzz::refusable([&] {
    for (U32 row = first; row < index; ++row) {
      hwTable.readEntry(row);
      adapter.convertor().rowSound(id, row);
      adapter.convertor().differences(id, row);
      adapter.decodedKey(row);
    }
    if (rows > fewRows) return;
    adapter.audit();
    adapter.repair();
    adapter.audit();
    if (!adapter.findings().empty()) __builtin_trap();
  });
  if (fatal) __builtin_trap();  // an audit goes on whatever a row says
  if (rows <= fewRows) {
    VelaFuzz::refusable([&] {
      VelaDevice::SimulatedSwitch copy(rig.chip);
      VelaAgent::Agent next(VelaAgent::loadProfile(profile), copy);
      next.make({adapter.name()});
      next.start(VelaAgent::Agent::Start::restart);
    });
  }
  return 0;
}
