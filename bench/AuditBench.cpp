#include <benchmark/benchmark.h>

#include <cstring>

#include "Started.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

// Rows read back, decoded and audited, against copying the words of the same rows.

namespace {

using VelaBench::Started;
using VelaSwitchApi::HwIndex;

/// A NAT table of 12,288 rows, two in three of them taken.
Started<VelaSwitchTable::NatMatchTable>& nat() {
  static Started<VelaSwitchTable::NatMatchTable> started(
      VelaSwitchTable::NatMatchTableIs("nat", 0));
  static const bool filled = [] {
    for (U32 i = 0; i < 8192; ++i) {
      VelaSwitch::NatMatchKey key;
      key.natType = U8{1};
      key.srcIp = Ipnet::IpAddr(i * 2654435761u);
      key.sport = static_cast<U16>(i);
      VelaSwitchTable::NatMatchResult result;
      result.valid = true;
      result.natRewriteId = static_cast<U16>(i % 4096);
      started.table->entryIs(key, result);
    }
    return true;
  }();
  static_cast<void>(filled);
  return started;
}

Started<VelaSwitchTable::VlanMembershipTable>& vlans() {
  static Started<VelaSwitchTable::VlanMembershipTable> started(
      VelaSwitchTable::VlanMembershipTableIs("vlans"));
  static const bool filled = [] {
    for (U32 vid = 1; vid <= 4094; ++vid) {
      VelaSwitchTable::VlanMembershipResult result;
      result.permitMask = U64{vid} << 20;
      started.table->entryIs(VelaSwitchTable::VlanMembershipKey{vid}, result);
    }
    return true;
  }();
  static_cast<void>(filled);
  return started;
}

void perItem(benchmark::State& state, U64 rows) {
  state.counters["rows_per_second"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["ns_per_item"] = benchmark::Counter(
      static_cast<double>(rows) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

template <class Table>
U64 rowsOf(const Started<Table>& started) {
  U64 rows = 0;
  for (const auto& [id, hwTable] : started.table->profileConvertorPtr()->hwTables()) {
    rows += hwTable->descriptor().last - hwTable->descriptor().first + 1;
  }
  return rows;
}

/// Copies what the switch holds, row for row.
template <class Table>
void copyRows(benchmark::State& state, Started<Table>& started) {
  std::vector<std::pair<const U32*, std::size_t>> rows;
  for (const auto& [id, hwTable] : started.table->profileConvertorPtr()->hwTables()) {
    const auto& identity = hwTable->descriptor().identity;
    const auto* memory = started.chip.find(identity.family, identity.instance, id);
    for (HwIndex index = hwTable->descriptor().first; index <= hwTable->descriptor().last;
         ++index) {
      rows.emplace_back(memory->row(index), 4 * memory->rowWords());
    }
  }
  U32 words[VelaSwitchApi::maxRowWords];
  for (auto _ : state) {
    for (const auto& [from, bytes] : rows) {
      std::memcpy(words, from, bytes);
      benchmark::DoNotOptimize(words);
    }
  }
  perItem(state, rows.size());
}

template <class Table>
void auditRows(benchmark::State& state, Started<Table>& started) {
  for (auto _ : state) started.table->syncEntries();
  perItem(state, rowsOf(started));
}

void NatCopy(benchmark::State& state) { copyRows(state, nat()); }
void NatAudit(benchmark::State& state) { auditRows(state, nat()); }
void VlanCopy(benchmark::State& state) { copyRows(state, vlans()); }
void VlanAudit(benchmark::State& state) { auditRows(state, vlans()); }

/// Inverts the hash and unpacks; an empty row is told at a glance.
void NatDecode(benchmark::State& state) {
  const auto& table = *nat().table;
  const U32 rows = table.profileConvertor().physicalTable().engine().capacity();
  for (auto _ : state) {
    for (HwIndex index = 0; index < rows; ++index) {
      benchmark::DoNotOptimize(table.helper()->decodeHwEntry(index));
    }
  }
  perItem(state, rows);
}

BENCHMARK(NatCopy);
BENCHMARK(NatDecode);
BENCHMARK(NatAudit);
BENCHMARK(VlanCopy);
BENCHMARK(VlanAudit);

}  // namespace
