#pragma once

#include "VelaSwitchApi/FamilyChecks.h"
#include "VelaSwitchApi/HwTable.h"

/// What the compiler refuses of a family whose rows follow from the key.
namespace VelaSwitchTable {

/// Refuses, when the family is compiled, what no such family can be.
template <class F>
consteval bool indexedFamilyChecked() {
  using VelaSwitchApi::Mistake;
  using VelaSwitchApi::RowField;
  using namespace VelaSwitchApi::detail;
  VelaSwitchApi::expectRow<F>();
  constexpr std::size_t held = firstThat<F>([](const RowField& field) {
    if (!VelaSwitchApi::holdsResult<F>(field)) return false;
    for (U32 bit = field.first; bit < field.first + field.width; ++bit) {
      if ((F::traits.staticWords[bit / 32] >> bit % 32 & 1) != 0) return true;
    }
    return false;
  });
  expectNone<F, held, Mistake::staticWordHoldsAField>();
  if constexpr (
      !requires { &F::packMore; } && !requires { &F::packPlace; }) {
    constexpr std::size_t unpacked = firstThat<F>([](const RowField& field) {
      const std::string_view name = field.name;
      constexpr bool layer2 = requires { F::layer2Registers; };
      const bool placed =
          name == "row" || name == "index" || name == "parity" || (layer2 && name == "control");
      return field.content == RowField::varies && !placed && !VelaSwitchApi::holdsResult<F>(field);
    });
    expectNone<F, unpacked, Mistake::rowFieldIsPackedByNobody>();
  }
  return true;
}

/// The hardware tables of a plain family, of which there are some one way or the other.
template <class F>
consteval bool plainTablesChecked() {
  using VelaSwitchApi::Mistake;
  constexpr bool registers = requires { F::portRegisters; };
  constexpr bool layer2 = requires { F::layer2Registers; };
  if constexpr (layer2) VelaSwitchApi::expectField<F, "control">();
  VelaSwitchApi::expectOf < registers || layer2 || requires { &F::hwTables; }
  , F, "portRegisters", Mistake::needsPortRegistersOrHwTables > ();
  if constexpr (registers) {
    constexpr bool placed = std::ranges::all_of(F::portRegisters, [](const auto& each) {
      const std::string_view path(each.path);
      return std::ranges::count(path, '%') == (path.starts_with("pipeline") ? 2 : 1);
    });
    VelaSwitchApi::expectOf<placed, F, "portRegisters", Mistake::pathHasNoPlaceForThePort>();
  }
  return true;
}

}  // namespace VelaSwitchTable
