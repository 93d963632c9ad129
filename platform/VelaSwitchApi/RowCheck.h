#pragma once

#include "Orb/Range.h"
#include "VelaSwitchApi/HwTable.h"
#include "VelaSwitchApi/RowLayout.h"

/// What rows hold is not trusted, neither that of hardware nor that of a family's own packing.
namespace VelaSwitchApi {

/// What ends the trace of a key or an index that the profile has no row for.
inline constexpr const char* noRowText = " has no row in this profile";

/// Rows come from hardware: whatever they hold must not do more harm than be refused. Returns what
/// `read` makes of a row, or `refused` with a trace of `what` when it throws.
template <class Read, class Result>
Result readSafely(const Trace::Handle& trace, const char* what, HwIndex index, Result refused,
                  const Read& read) {
  try {
    return read();
  } catch (const Orb::RangeException& error) {
    trace(3, what, index, ": ", error.what());
  } catch (const Orb::AssertionFailed& error) {
    trace(3, what, index, ": ", error.what());
  }
  return refused;
}

/// The image of a row, those words included that have no register.
using RowImage = std::array<U32, maxRowWords>;

/// What must be so of a family's rows, found out when its table is made. What is not is a fatal
/// assertion that names the family, and the field where there is one to name.
class VELA_EXPORT RowCheck {
 public:
  RowCheck(const Trace::Handle& family, const RowLayout& layout)
      : family_(family), layout_(layout) {}

  void expect(bool good, std::string_view what) const;
  /// Expects of an entry's row, which was unpacked and packed again, that it is the same in the
  /// words up to `words`.
  void expectSame(const RowImage& row, const RowImage& again, U32 words) const;

 private:
  const Trace::Handle& family_;
  const RowLayout& layout_;
};

}  // namespace VelaSwitchApi
