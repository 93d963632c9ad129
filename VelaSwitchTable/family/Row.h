#pragma once

#include <algorithm>

#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/RowFields.h"

/// The rows of families: see RowFields.h. A row field that has the name of a field of the key or of
/// the result holds it. The rest is packed and unpacked by the family's own functions. Fields of
/// the result that no field of the row has the name of are listed, lest one is forgotten:
///
///   static constexpr std::array handPacked{"proto"};
namespace VelaSwitchTable {

using VelaSwitchApi::fieldNumber;
using VelaSwitchApi::findField;
using VelaSwitchApi::fromRowBits;
using VelaSwitchApi::hasField;
using VelaSwitchApi::RowField;
using VelaSwitchApi::RowLayout;
using VelaSwitchApi::rowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowReaderOf;
using VelaSwitchApi::RowWriter;
using VelaSwitchApi::RowWriterOf;

/// What the places of a row's fields may depend on.
struct RowShape {
  U32 ports = 48;
  bool cpu = false;    ///< The CPU's table, not a pipeline's.
  bool other = false;  ///< The second of a family's two formats: F::otherFormat(profile).
  U8 tableIdx = 0;     ///< Which instance of a hash family.
};

/// The shape of a family's rows in a profile, completed from what is known of the table.
template <class F>
RowShape rowShape(const VelaSwitch::ProfileInfo& profile, RowShape shape = {}) {
  shape.ports = profile.ports();
  if constexpr (requires { F::otherFormat(profile); }) shape.other = F::otherFormat(profile);
  return shape;
}

namespace detail {

template <class F, Orb::FixedString field, bool packed>
struct ResultCheck {
  static_assert(packed,
                "a field of the result is in no field of the row, nor is it one of handPacked");
};

/// Whether the family says of the field that packMore takes care of it.
template <class F>
consteval bool handPacks(std::string_view name) {
  if constexpr (requires { F::handPacked; }) {
    return std::ranges::find(F::handPacked, name) != std::end(F::handPacked);
  }
  return false;
}

}  // namespace detail

/// What of an entry is announced and shows in rows: the result, unless the family's entries hold
/// more.
template <class Family>
const auto& announced(const typename Family::Result& result) {
  if constexpr (requires { Family::announced(result); }) {
    return Family::announced(result);
  } else {
    return result;
  }
}

/// Refuses, when the family is compiled, fields that overlap or do not fit the row, a row without
/// its field "parity", and a field of the result that nothing packs.
template <class F>
consteval bool rowChecked() {
  using Shown = std::remove_cvref_t<decltype(announced<F>(typename F::Result{}))>;
  static_assert(VelaSwitchApi::fieldsPlaced<F, F::traits.rowWords>());
  static_assert(F::traits.parityWords == 0 || findField<F>("parity"),
                "a row with parity has a field \"parity\"");
  if constexpr (requires { F::handPacked; }) {
    static_assert(std::ranges::all_of(F::handPacked, hasField<Shown>),
                  "handPacked names a field that the result has not");
  }
  Orb::forEachField(Shown{}, [](const auto& field) {
    using Field = std::remove_cvref_t<decltype(field)>;
    constexpr bool packed = VelaSwitchApi::detail::someFields<F>().empty() ||
                            findField<F>(Field::name) || detail::handPacks<F>(Field::name);
    detail::ResultCheck<F, Field::fixedName, packed>();
  });
  return true;
}

}  // namespace VelaSwitchTable
