#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::L3FloodId;

enum class Row : U8 { portMask, parity, index, control };

/// Flood ids with a row; the last of the type stands for none.
constexpr U32 rowCount = L3FloodId::null;
/// Fixed content of the control word.
constexpr U32 controlValue = 21;
constexpr U8 parityWords = 2;

}  // namespace

U32 L3FloodBitmapFamily::rows(const VelaSwitch::ProfileInfo&) { return rowCount; }

HwIndex L3FloodBitmapFamily::hwIndex(const Key& key) { return key.value(); }

L3FloodId L3FloodBitmapFamily::keyOf(HwIndex index) { return L3FloodId(index); }

RowLayout L3FloodBitmapFamily::layout(const VelaSwitch::ProfileInfo& profile) {
  const auto at = [](U32 bit) { return static_cast<U16>(bit); };
  const U32 maskBits = profile.ports();
  return {{{"portMask", 0, at(maskBits)},
           {"parity", at(maskBits), 1},
           {"index", 64, 7},
           {"control", 81, 5}},
          traits.rowWords};
}

void L3FloodBitmapFamily::pack(const VelaSwitch::ProfileInfo& profile, const Key&,
                               const Result& result, bool, RowWriter& row) {
  row.set(Row::portMask, result.portMask().hardwareBitmask(profile.ports()));
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), parityWords));
}

void L3FloodBitmapFamily::packStatic(HwIndex index, RowWriter& row) {
  row.set(Row::index, index);
  row.set(Row::control, controlValue);
}

std::optional<std::pair<L3FloodBitmapResult, bool>> L3FloodBitmapFamily::unpack(
    const VelaSwitch::ProfileInfo&, const RowReader& row) {
  if (VelaSwitch::parityU32Array(row.words(), parityWords) != 0) return std::nullopt;
  const Result result{VelaSwitch::IngressPortMask(row.get(Row::portMask))};
  return std::pair{result, result != Result{}};
}

void L3FloodBitmapFamily::describe(Orb::TextSink& sink, const Result& result) {
  sink.append("portMask:");
  appendText(sink, result.portMask());
}

void L3FloodBitmapConvertor::doInitTableStats() {
  ORB_ASSERT_TEXT(directTable()->capacitySupported(), "capacitySupported()");
  DirectFamilyConvertor::doInitTableStats();
}

VELA_DIRECT_FAMILY_DEFINE(L3FloodBitmapFamily, L3FloodBitmapTable, L3FloodBitmapConvertor,
                          L3FloodBitmapEntry)

}  // namespace VelaSwitchTable
