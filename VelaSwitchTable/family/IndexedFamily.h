#pragma once

#include "VelaSwitchTable/family/Family.h"
#include "VelaSwitchTable/family/Row.h"

/// What the families of plain and of direct tables share.
namespace VelaSwitchTable {

/// What they are derived from; a family declares again what is not so.
template <Orb::FixedString Unit, class K, class R>
struct IndexedFamily : Family<Unit, K, R> {
  /// The key's row: its number.
  static VelaSwitchApi::HwIndex hwIndex(const K& key) {
    using Orb::hashWord;
    if constexpr (Orb::Value<K>) {
      static_assert(Orb::fieldCount<K> == 1, "a key of several fields has a hwIndex() of its own");
      VelaSwitchApi::HwIndex index = 0;
      Orb::forEachField(key, [&](const auto& field) { index = hashWord(field()); });
      return index;
    } else {
      return hashWord(key);
    }
  }
  /// The key of a row. One that no key has may raise the key's range error.
  static K keyOf(VelaSwitchApi::HwIndex index) {
    if constexpr (Orb::Value<K>) {
      K key{};
      Orb::forEachField(key, [&](auto& field) { fromRowBits(field.value, index); });
      return key;
    } else {
      return K(index);
    }
  }
  /// What the row of a key without an entry is made from.
  static R absentResult() { return {}; }
};

}  // namespace VelaSwitchTable
