#pragma once

#include <array>
#include <cstring>

#include "HashBase/HashFamilyChecks.h"
#include "VelaSwitchTable/family/HashEntry.h"
#include "VelaSwitchTable/family/Row.h"

/// How the entries of a hash family become rows, and rows entries.
namespace VelaSwitchTable {

/// Packs and unpacks a family's rows.
template <class F>
class VELA_EXPORT HashFamilyHelperBase : public VelaTableHashHelper {
  static_assert(hashFamilyChecked<F>());

 public:
  using Entry = typename ClassesOf<F>::CuckooEntry;

  explicit HashFamilyHelperBase(U8 tableIdx = 0)
      : VelaTableHashHelper(tableIdx, {F::trace, F::traits.decodedText}, F::traits.parityWords) {}

  void doInit() override {
    VelaTableHashHelper::doInit();
    const RowField* key = layout().find("key");
    const RowField* valid = layout().find("valid");
    keyBits_ = key ? static_cast<U8>(key->width) : packedKey<F>(table().nullKey()).bits();
    storedBits_ = static_cast<U8>(keyBits_ - implied());
    if (valid) storedBits_ = std::min(storedBits_, static_cast<U8>(valid->first));
    ORB_ASSERT(keyBits_ <= 64 * detail::keyWords<F>);
    ORB_ASSERT(knownStored == 0 || knownStored == storedBits_);
    VelaSwitchApi::RowCheck(F::trace, layout())
        .expect(RowWriterOf<F>::template stores<F::traits.rowWords>(layout()),
                "the control word is where none of the family's shapes has it");
    if constexpr (F::traits.rowImpliesKey) {
      inverse_ = VelaSwitch::HashInverse(&hashBuffer, F::traits.ways, keyBits_, impliedBits());
    }
    for (const U64 bits : VelaSwitchApi::sampleBits) checkRows(*sample(bits));
    compareEmptyRows(!requires { &F::packMore; });
  }
  [[gnu::flatten]] void setHwBuffer(const HashBaseCuckooEntry& entry, CuckooLocation location,
                                    U8* image) const override {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    if (F::trace.enabled(9)) [[unlikely]]
      return setTraced(entry, location, image);
    // Packed where nothing else can lie, so that the compiler keeps it in registers.
    std::array<U32, F::traits.rowWords> words{};
    setRow<false>(entry, location, reinterpret_cast<U8*>(words.data()));
    RowWriterOf<F>::store(words, layout(), location.row, location.way, image);
  }

 protected:
  RowLayout makeLayout() const override {
    if constexpr (requires { F::shape(self()); }) {
      return rowLayout<F>(F::traits.rowWords, F::shape(self()));
    } else {
      return rowLayout<F>(F::traits.rowWords, rowShape<F>(profile(), {.tableIdx = tableIdx()}));
    }
  }
  Orb::Ptr<HashBaseCuckooEntry> makeNullEntry() const override {
    return table().newItem(table().nullKey());
  }
  Orb::Ptr<HashBaseCuckooEntry> unpack(U32* image, CuckooLocation at) const override {
    const RowReaderOf<F> row(layout(), image);
    if constexpr (requires { &F::isEntry; }) {
      if (!F::isEntry(row, at)) return nullptr;
    } else {
      if (!row.template flag<"valid">()) return nullptr;
    }
    typename F::Key key{};
    KeyBits bits = wholeKey(row, at);
    if constexpr (detail::ListedKey<F>) {
      detail::forEachKeyField<F>(key, detail::KeyFieldReader{bits});
      forEachRowField(
          key, [&](std::size_t number, auto& field) { fromRowBits(field.value, row.get(number)); });
      if constexpr (requires { &F::completeKey; }) F::completeKey(row, key);
    } else {
      if (!F::unpackKey(bits, row, key)) return nullptr;
    }
    typename F::Result result{};
    row.getNamed(result);
    if constexpr (requires { &F::unpackMore; }) F::unpackMore(self(), row, result);
    const Orb::Ptr<Entry> entry = table().newItem(key);
    entry->resultIs(result);
    entry->validIs(true);
    return entry;
  }
  void expectSame(const VelaSwitchApi::RowCheck& check, const HashBaseCuckooEntry& entry,
                  const HashBaseCuckooEntry& again) const override {
    const auto& packed = static_cast<const Entry&>(entry);
    const auto& unpacked = static_cast<const Entry&>(again);
    check.expectSame("key", Orb::shapeOf<typename F::Key>, &packed.key(), &unpacked.key());
    check.expectSame("result", Orb::shapeOf<typename F::Result>, &packed.result(),
                     &unpacked.result());
  }

 private:
  [[gnu::cold, gnu::noinline]] void setTraced(const HashBaseCuckooEntry& entry,
                                              CuckooLocation location, U8* image) const {
    setRow<true>(entry, location, image);
    setStaticBuffer(location, image);
  }
  /// Whether fields are traced is known to the compiler.
  template <bool traced>
  void setRow(const HashBaseCuckooEntry& entry, CuckooLocation location, U8* image) const {
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriterOf<F> row(layout(), image, "setHwBuffer", traced);
    if (packed.valid()) {
      KeyBits bits = packed.packed();
      bits.drop(implied());
      row.setFirst(bits.words(), knownStored != 0 ? knownStored : storedBits_);
      if constexpr (detail::ListedKey<F>) {
        forEachRowField(packed.key(), [&](std::size_t number, const auto& field) {
          using Orb::hashWord;
          row.set(number, hashWord(field()));
        });
      }
      row.setNamed(packed.result());
      if constexpr (validBit) row.template set<"valid">(1);
    }
    if constexpr (requires { &F::packMore; }) {
      F::packMore(self(), packed.key(), packed.result(), packed.valid(), location, row);
    }
    if constexpr (F::traits.parityWords != 0) row.template setParity<F::traits.parityWords>();
  }

  /// Whether the row's valid bit says that there is an entry, rather than a field of the result.
  static constexpr bool validBit = findField<F>("valid") && !hasField<typename F::Result>("valid");

  static U32 hashBuffer(const U8* buffer, U8 way, U8 bits) { return F::hash(buffer, way, bits); }

  /// Calls `visit(number, field)` for each field of the key that the row has by its name, beside
  /// the hashed key.
  template <class Key, class Visit>
  static void forEachRowField(Key& key, const Visit& visit) {
    Orb::forEachField(key, [&](auto& field) {
      using Field = std::remove_cvref_t<decltype(field)>;
      constexpr auto number = findField<F>(Field::name);
      if constexpr (number.has_value() && !detail::hashes<F>(Field::name)) visit(*number, field);
    });
  }
  /// An entry of the bits. A key that is not listed is the null key, unless the family makes
  /// samples entries of the table.
  Orb::Ptr<Entry> sample(U64 bits) const {
    constexpr bool adapts = requires { &F::sample; };
    typename F::Key key = table().nullKey();
    typename F::Result result{};
    if constexpr (detail::ListedKey<F> || adapts) {
      VelaSwitchApi::sampleIs(key, layout(), bits, &detail::notCompared<F>);
    }
    VelaSwitchApi::sampleResultIs<F>(result, layout(), bits);
    if constexpr (adapts) F::sample(self(), bits, key, result);
    Orb::Ptr<Entry> entry = table().newItem(key);
    entry->resultIs(result);
    entry->validIs(true);
    return entry;
  }
  const typename ClassesOf<F>::Helper& self() const {
    return static_cast<const typename ClassesOf<F>::Helper&>(*this);
  }
  auto& table() const { return static_cast<TableOf<F>&>(*swTable()); }

  static constexpr U8 knownStored = detail::knownStoredBits<F>();

  /// Low bits of the packed key, which rows imply.
  U8 implied() const {
    const U32 bits = knownStored != 0 ? F::traits.hashBits : physical().properties().hashBits;
    return F::traits.rowImpliesKey ? static_cast<U8>(bits) : U8{0};
  }
  /// Where they stand in the hashed buffer, lowest first.
  std::vector<U8> impliedBits() const {
    std::vector<U8> places;
    for (U8 i = 0; i < implied(); ++i) {
      if constexpr (F::traits.leftAligned) {
        const unsigned fromTop = keyBits_ - 1u - i;
        places.push_back(static_cast<U8>(fromTop / 8 * 8 + 7 - fromTop % 8));
      } else {
        places.push_back(static_cast<U8>(F::traits.keyStart + i));
      }
    }
    return places;
  }
  /// The packed key of a row, with the bits that its place implies.
  KeyBits wholeKey(const RowReader& row, CuckooLocation at) const {
    const auto with = [&](U32 low) {
      KeyBits bits;
      bits.add(implied(), low);
      bits.append(row.first(storedBits_));
      bits.add(static_cast<U8>(keyBits_ - bits.bits()), 0);
      return bits;
    };
    if constexpr (!F::traits.rowImpliesKey) return with(0);
    U8 stored[KeyBits::maxBytes];
    fillKeyBuffer<F>(with(0), stored, sizeof stored);
    return with(inverse_.implied(at.way, at.row, stored));
  }

  VelaSwitch::HashInverse inverse_;
  U8 keyBits_ = 0;     ///< Of the packed key; the most where keys differ in length.
  U8 storedBits_ = 0;  ///< Those that rows hold. A row with fewer than there are lacks zeros.
};

}  // namespace VelaSwitchTable
