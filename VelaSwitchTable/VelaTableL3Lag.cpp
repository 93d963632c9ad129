#include "VelaSwitchTable/VelaTableL3Lag.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::L3LagIndex;

enum class Row : U8 { portMask, cpuPriority, parity, index, control };

constexpr U32 rowCount = L3LagIndex::mcastSnat + 1;
/// Fixed content of the control word.
constexpr U32 controlValue = 19;
constexpr U8 parityWords = 2;

}  // namespace

U32 L3LagFamily::rows(const VelaSwitch::ProfileInfo&) { return rowCount; }

HwIndex L3LagFamily::hwIndex(const Key& key) { return key.value(); }

L3LagIndex L3LagFamily::keyOf(HwIndex index) { return L3LagIndex(index); }

RowLayout L3LagFamily::layout(const VelaSwitch::ProfileInfo& profile) {
  const auto at = [](U32 bit) { return static_cast<U16>(bit); };
  const U32 maskBits = profile.ports() + 1;
  return {{{"portMask", 0, at(maskBits)},
           {"cpuPriority", at(maskBits), 1},
           {"parity", at(maskBits + 1), 1},
           {"index", 64, 6},
           {"control", 81, 5}},
          traits.rowWords};
}

void L3LagFamily::pack(const VelaSwitch::ProfileInfo& profile, const Key&, const Result& result,
                       bool, RowWriter& row) {
  row.set(Row::portMask, result.portMask().hardwareBitmask(profile.ports()));
  row.set(Row::cpuPriority, result.cpuPriority());
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), parityWords));
}

void L3LagFamily::packStatic(HwIndex index, RowWriter& row) {
  row.set(Row::index, index);
  row.set(Row::control, controlValue);
}

std::optional<std::pair<L3LagResult, bool>> L3LagFamily::unpack(const VelaSwitch::ProfileInfo&,
                                                                const RowReader& row) {
  if (VelaSwitch::parityU32Array(row.words(), parityWords) != 0) return std::nullopt;
  const Result result{VelaSwitch::IngressPortMask(row.get(Row::portMask)),
                      row.flag(Row::cpuPriority)};
  return std::pair{result, result != Result{}};
}

void L3LagFamily::describe(Orb::TextSink& sink, const Result& result) {
  sink.append("portMask:");
  appendText(sink, result.portMask());
  sink.append(" cpuPriority:");
  appendText(sink, result.cpuPriority());
}

VELA_DIRECT_FAMILY_DEFINE(L3LagFamily, L3LagTable, L3LagConvertor, L3LagEntry)

}  // namespace VelaSwitchTable
