#pragma once

#include "Orb/Seconds.h"
#include "Orb/Value.h"
#include "VelaSwitchApi/SwTable.h"

/// What table families of every kind have.
namespace VelaSwitchTable {

/// What ends the trace of a key or an index that the profile has no row for.
inline constexpr const char* noRowText = " has no row in this profile";

/// The status of one entry, under the family's own name.
template <class Key, Orb::FixedString Name>
struct EntryStatusOf {
  static constexpr const char* typeName = Name.chars;
  Orb::Field<"key", Key> key;
  Orb::Field<"status", VelaSwitchApi::EntryProgrammedStatus> status;
  Orb::Field<"lastHit", Orb::Seconds> lastHit;  ///< Zero when the entry was never hit.
  auto operator<=>(const EntryStatusOf&) const = default;
};

}  // namespace VelaSwitchTable
