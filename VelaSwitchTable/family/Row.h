#pragma once

#include <algorithm>

#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/FamilyChecks.h"

/// The rows of families: see RowFields.h. A row field that has the name of a field of the key or of
/// the result holds it. The rest is packed and unpacked by the family's own functions. Fields of
/// the result that no field of the row has the name of are listed, lest one is forgotten, and so is
/// one that hardware does not have:
///
///   static constexpr std::array handPacked{"proto"};
///   static constexpr std::string_view notInHardware = "lagGroupId";
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

/// The part of a family's results that shows in rows.
template <class F>
using ShownOf = std::remove_cvref_t<decltype(announced<F>(std::declval<typename F::Result>()))>;

}  // namespace VelaSwitchTable
