#pragma once

#include "Orb/Range.h"
#include "Orb/Value.h"
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

/// What the numbers of sample entries are made of: of any two bits one sample tells them apart, and
/// each is set in one and clear in another.
inline constexpr std::array<U64, 8> sampleBits{~U64{0},
                                               0x5555555555555555,
                                               0xAAAAAAAAAAAAAAAA,
                                               0xCCCCCCCCCCCCCCCC,
                                               0xF0F0F0F0F0F0F0F0,
                                               0xFF00FF00FF00FF00,
                                               0xFFFF0000FFFF0000,
                                               0xFFFFFFFF00000000};

/// Puts `bits` into the numbers of a value, flags and words among them, cut to what each uses, what
/// rows of the layout hold of it and what is within bounds, in each turned by another number of
/// places: no two begin with the same one. Collections and arrays of records stay as they are, and
/// so do fields that rows of the layout lack.
VELA_EXPORT void sampleIs(const Orb::Shape& shape, void* value, const RowLayout& layout, U64 bits);

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
  /// Expects of an entry's key or result, which was packed and unpacked, that it is the same;
  /// `name` is what it is called when it has no fields.
  void expectSame(std::string_view name, const Orb::Shape& shape, const void* value,
                  const void* again) const;

 private:
  const Trace::Handle& family_;
  const RowLayout& layout_;
};

}  // namespace VelaSwitchApi
