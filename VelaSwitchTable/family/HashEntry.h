#pragma once

#include <algorithm>

#include "HashBase/HashFamilyChecks.h"
#include "HashBase/KeyHashes.h"
#include "VelaSwitchTable/VelaTableHashHelper.h"
#include "VelaSwitchTable/family/Family.h"
#include "VelaSwitchTable/family/Row.h"

/// Entries of hash tables as the cuckoo engine sees them, and how their keys are hashed.
namespace VelaSwitchTable {

/// A field of a hashed key: that of the key with the name, or a constant.
struct KeyField {
  const char* name = nullptr;  ///< Null for a constant.
  U8 width = 0;
  U8 content = 0;
};

namespace detail {

template <class F>
concept ListedKey = requires {
  F::keyFields;
};

/// Whether the family's hashed key has the field of the key.
template <class F>
consteval bool hashes(std::string_view name) {
  for (const KeyField& field : F::keyFields) {
    if (field.name && name == field.name) return true;
  }
  return false;
}

/// Calls `visit(part)`, or `visit(part, field)` with the field of the key that it is, for each of
/// the family's key fields.
template <class F, class Key, class Visit>
void forEachKeyField(Key& key, const Visit& visit) {
  const auto one = [&]<std::size_t i>(std::integral_constant<std::size_t, i>) {
    static constexpr KeyField part = F::keyFields[i];
    if constexpr (part.name == nullptr) {
      visit(part);
    } else {
      Orb::forEachField(key, [&](auto& field) {
        if constexpr (std::remove_cvref_t<decltype(field)>::name == part.name) visit(part, field);
      });
    }
  };
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (one(std::integral_constant<std::size_t, i>()), ...);
  }
  (std::make_index_sequence<std::size(F::keyFields)>());
}

struct KeyFieldWriter {
  KeyBits& bits;
  void operator()(const KeyField& part) const { bits.add(part.width, part.content); }
  template <class Field>
  void operator()(const KeyField& part, const Field& field) const {
    using Orb::hashWord;
    bits.add(part.width, hashWord(field()));
  }
};

struct KeyFieldReader {
  KeyBits& bits;
  void operator()(const KeyField& part) const { bits.take(part.width); }
  template <class Field>
  void operator()(const KeyField& part, Field& field) const {
    fromRowBits(field.value, bits.take(part.width));
  }
};

template <class F>
void packKeyInto(KeyBits& bits, const typename F::Key& key) {
  if constexpr (ListedKey<F>) {
    forEachKeyField<F>(key, KeyFieldWriter{bits});
  } else {
    F::packKey(key, bits);
  }
}

/// Apart from the packing that counts, which nothing is kept for in memory then.
template <class F>
[[gnu::cold, gnu::noinline]] void traceKey(const typename F::Key& key) {
  KeyBits bits(F::trace, "getHash", F::traits.keyStart);
  packKeyInto<F>(bits, key);
}

/// Words of the packed key that an entry keeps.
template <class F>
inline constexpr std::size_t keyWords = F::traits.leftAligned ? 1 : 2;

}  // namespace detail

/// The key as the number that is hashed.
template <class F>
KeyBits packedKey(const typename F::Key& key) {
  if (F::traits.tracesKeys && F::trace.enabled(9)) [[unlikely]]
    detail::traceKey<F>(key);
  KeyBits bits;
  detail::packKeyInto<F>(bits, key);
  return bits;
}

/// An entry of the family as the cuckoo engine sees it.
template <class F>
class VELA_EXPORT HashFamilyEntry
    : public EntryRecord<typename F::Key, typename F::Result, HashBaseCuckooEntry> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Record = EntryRecord<Key, Result, HashBaseCuckooEntry>;

  /// An entry of no table.
  explicit HashFamilyEntry(const Key& key)
      : HashFamilyEntry(nullptr, key, VelaSwitchApi::entryTag(key)) {}
  /// `tag` is the key's hash.
  [[gnu::always_inline]] HashFamilyEntry(VelaSwitchApi::HashBaseTable* table, const Key& key,
                                         U32 tag)
      : Record(key, tag, table) {
    const KeyBits packed = packedKey<F>(key);
    packed_[0] = packed.words()[0];
    if constexpr (keyWords > 1) packed_[1] = packed.words()[1];
    this->packedBits_ = packed.bits();
    this->rowsAre(detail::hashesOf<F>(packed), F::traits.ways);
  }

  U32 getHash(U8 way) const override {
    U8 buffer[KeyBits::maxBytes];
    const U8 bits = fillKeyBuffer<F>(packedKey<F>(this->key()), buffer, sizeof buffer);
    return F::hash(buffer, way, bits);
  }
  /// The key and, of a valid entry, each field of the result by its name.
  std::string toStrep() const override {
    Orb::StringSink sink;
    sink.append(ClassesOf<F>::CuckooEntry::shortName);
    sink.append("(");
    appendText(sink, this->key());
    if (this->valid()) {
      Orb::forEachField(this->result(), [&](const auto& field) {
        sink.append(" ");
        sink.append(field.name);
        sink.append("=");
        appendText(sink, field());
      });
    }
    sink.append(")");
    return sink.take();
  }
  U8 copyKeyToBuffer(U8* buffer, U8 bufSize) const override {
    return fillKeyBuffer<F>(packed(), buffer, bufSize);
  }
  /// What rows hold of the key, where that is one field.
  U64 hwCompareEncoding() const requires(detail::compareBits<F>() != 0) {
    KeyBits bits = packed();
    bits.drop(F::traits.hashBits);
    return bits.take(detail::compareBits<F>());
  }
  /// The key as the number that is hashed.
  KeyBits packed() const {
    if constexpr (keyWords == 1) return {{packed_[0], 0}, this->packedBits_};
    if constexpr (keyWords == 2) return {packed_, this->packedBits_};
  }

 private:
  static constexpr std::size_t keyWords = detail::keyWords<F>;

  U64 packed_[keyWords];
};

}  // namespace VelaSwitchTable
