#pragma once

#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Orb/Ptr.h"
#include "VelaSwitchApi/RegisterBus.h"
#include "VelaSwitchApi/RowLayout.h"
#include "VelaSwitchApi/RowRun.h"

namespace VelaSwitchApi {

/// Number of a word within a row image.
using DataArrayIndex = U8;

/// Whether a hardware table is there to be written.
enum class TableState : U8 { inactive, active };

/// The register paths of one row's words.
class VELA_EXPORT HwAddressColl {
 public:
  /// Another path for the same word replaces it.
  void addressIs(DataArrayIndex index, std::string path) { paths_[index] = std::move(path); }
  /// By data array index, ascending: the order in which a row is written.
  const std::map<DataArrayIndex, std::string>& addresses() const { return paths_; }
  bool empty() const { return paths_.empty(); }  ///< No word has a register.

 private:
  std::map<DataArrayIndex, std::string> paths_;
};

/// Which rows of a hardware table use which registers.
class VELA_EXPORT HwTableRegisterMapping : public Orb::PtrInterface {
 public:
  /// The registers of a row; an empty collection for a row that has none.
  virtual HwAddressColl getRegister(HwIndex index) const = 0;
  /// Hears of rows, `first` to `last`, that have these registers.
  using Visitor = std::function<void(HwIndex first, HwIndex last, const HwAddressColl&)>;
  /// Calls `visit(first, last, addresses)` for runs of rows that have the same registers, over all
  /// rows from `first` to `last`.
  virtual void forEachRun(HwIndex first, HwIndex last, const Visitor& visit) const;

  const std::string& name() const { return name_; }  ///< For people.

 protected:
  explicit HwTableRegisterMapping(std::string name) : name_(std::move(name)) {}

 private:
  std::string name_;
};

/// One set of registers for all rows; the control word carries the row.
class VELA_EXPORT HwTableRegisterMappingConst final : public HwTableRegisterMapping {
 public:
  /// `name` is for people.
  HwTableRegisterMappingConst(std::string name, HwAddressColl addresses)
      : HwTableRegisterMapping(std::move(name)), addresses_(std::move(addresses)) {}
  HwAddressColl getRegister(HwIndex) const override { return addresses_; }
  void forEachRun(HwIndex first, HwIndex last, const Visitor& visit) const override {
    visit(first, last, addresses_);
  }

 private:
  HwAddressColl addresses_;
};

/// Registers of its own for every row.
class VELA_EXPORT HwTableRegisterMappingColl final : public HwTableRegisterMapping {
 public:
  /// Without rows.
  explicit HwTableRegisterMappingColl(std::string name) : HwTableRegisterMapping(std::move(name)) {}
  /// Rows that none are given for have no registers.
  void regsIs(HwIndex index, HwAddressColl addresses) { rows_[index] = std::move(addresses); }
  HwAddressColl getRegister(HwIndex index) const override;

 private:
  std::map<HwIndex, HwAddressColl> rows_;
};

/// Registers per range of rows: each set serves the rows from the one it is given for up to the
/// next.
class VELA_EXPORT HwTableRegisterMappingRange final : public HwTableRegisterMapping {
 public:
  /// Without rows.
  explicit HwTableRegisterMappingRange(std::string name)
      : HwTableRegisterMapping(std::move(name)) {}
  /// Rows in front of the first have no registers.
  void regsIs(HwIndex first, HwAddressColl addresses) { ranges_[first] = std::move(addresses); }
  HwAddressColl getRegister(HwIndex index) const override;
  void forEachRun(HwIndex first, HwIndex last, const Visitor& visit) const override;

 private:
  std::map<HwIndex, HwAddressColl> ranges_;
};

/// What a hardware table is.
struct HwTableDescriptor : public Orb::PtrInterface {
  HwTableIdentity identity;                 ///< As the bus is told it.
  TableState state = TableState::inactive;  ///< Hit bits of an inactive table are not read.
  HwIndex first = 0;                        ///< First row.
  HwIndex last = 0;                         ///< Last row, included.
  U8 rowWords = 0;  ///< Words of a row image, those without a register included.
  Orb::PtrConst<HwTableRegisterMapping> mapping;  ///< Never null in one that hwTableDescIs() made.
};

/// One bit field of a read of hit bits.
struct HitBitRecord {
  U32 firstBit;   ///< Of the register, from 0 on.
  U32 lastBit;    ///< Included.
  U32 registers;  ///< Registers that the read fills.
  U32 reg;        ///< Which register of the address collection the bits stand in.
  auto operator<=>(const HitBitRecord&) const = default;
};

/// Which bits of a read belong to rows, in the order of the rows.
class VELA_EXPORT HitBitReadInfo {
 public:
  /// `registration` is the hit table's register number; records in the order of the rows.
  void bitRegistrationIs(U8 registration, std::vector<HitBitRecord> records) {
    registration_ = registration;
    records_ = std::move(records);
  }
  U8 registration() const { return registration_; }  ///< 0 when none was given.
  /// In the order of the rows.
  const std::vector<HitBitRecord>& bitRegistrations() const { return records_; }

 private:
  U8 registration_ = 0;
  std::vector<HitBitRecord> records_;
};

/// How the hit bits of a table are read: the trigger and data registers, and the bits.
class VELA_EXPORT HitBitReadInfoWrapper : public Orb::PtrInterface {
 public:
  /// Registers the addresses of the hit-bit read; index 0 is the trigger.
  void readInfoIs(HwAddressColl addresses) { addresses_ = std::move(addresses); }
  const HwAddressColl& addresses() const { return addresses_; }  ///< See readInfoIs().
  HitBitReadInfo& info() { return info_; }                       ///< To be filled in.
  const HitBitReadInfo& info() const { return info_; }           ///< The bits.

 private:
  HwAddressColl addresses_;
  HitBitReadInfo info_;
};

/// Hit bits are not read, or cleared by being read.
enum class HitBitAccessMode : U8 { none, clearOnRead };

/// What the hit bits of a hardware table are.
struct HitBitTableDescriptor : public Orb::PtrInterface {
  Orb::PtrConst<HwTableDescriptor> table;  ///< Whose rows they are of.
  /// By the table's state, see SwTable::hitBitAccessModeMapping().
  HitBitAccessMode mode = HitBitAccessMode::none;
  U32 offset = 0;                                 ///< The hit table's offset in the processor.
  Orb::PtrConst<HitBitReadInfoWrapper> readInfo;  ///< Which registers and bits.
};

/// Makes the descriptors that a convertor hands to the framework.
class VELA_EXPORT HwTableDescriptorConfig {
 public:
  /// No mapping, no rows and more than maxRowWords words are fatal assertions.
  static Orb::Ptr<HwTableDescriptor> hwTableDescIs(HwTableIdentity identity, TableState state,
                                                   HwIndex first, HwIndex last, U8 rowWords,
                                                   Orb::PtrConst<HwTableRegisterMapping> mapping);
  /// An offset of 0xffffffff, which means no hit table, is a fatal assertion.
  static Orb::Ptr<HitBitTableDescriptor> hitBitTableDescIs(
      Orb::PtrConst<HwTableDescriptor> table, HitBitAccessMode mode, U32 offset,
      Orb::PtrConst<HitBitReadInfoWrapper> readInfo);
};

/// The words of one row.
class HwEntryConfig {
 public:
  explicit HwEntryConfig(HwIndex index) : index_(index) {}  ///< All words are 0.
  /// Further words are 0.
  HwEntryConfig(HwIndex index, const U32* words, U8 count) : index_(index) {
    std::copy_n(words, count, words_.begin());
  }

  HwIndex index() const { return index_; }  ///< The row that the words are for.
  /// A word from maxRowWords on is a fatal assertion.
  void dataIs(DataArrayIndex index, U32 word) {
    ORB_ASSERT(index < maxRowWords);
    words_[index] = word;
  }
  U32 data(DataArrayIndex index) const { return words_[index]; }  ///< 0 unless given.
  const U32* words() const { return words_.data(); }              ///< maxRowWords of them.

 private:
  HwIndex index_;
  std::array<U32, maxRowWords> words_{};
};

/// Bits of each word that depend on the row's place alone.
using StaticWords = std::array<U32, maxRowWords>;

/// One hardware table: the image last written to each row, and the way to its registers.
class VELA_EXPORT HwTableConfig : public Orb::PtrInterface {
 public:
  /// What is known of a row.
  enum class Row : U8 {
    unknown,  ///< Nothing: not written or read yet.
    unread,   ///< Nothing: it could not be read, and was not written since.
    lost,     ///< Not what it should be: the last write failed, or it was forgotten.
    held,     ///< The image is what hardware holds.
    absent,   ///< Hardware said that the row was never written.
  };

  /// Resolves all registers through the bus, which must outlive the table. `alike` is a table whose
  /// rows are to hold what this one's hold, another pipeline's of a hash table, or null: the images
  /// of both are kept once. Rows of another shape are a fatal assertion.
  HwTableConfig(Orb::PtrConst<HwTableDescriptor> descriptor, RegisterBus& bus,
                const HwTableConfig* alike = nullptr);
  ~HwTableConfig() override;

  const HwTableDescriptor& descriptor() const { return *descriptor_; }  ///< As it was declared.
  RegisterBus& bus() const { return bus_; }  ///< Where its registers are.
  bool active() const { return descriptor_->state == TableState::active; }  ///< See TableState.
  RegisterBus::TableHandle busHandle() const { return busTable_; }          ///< As the bus gave it.

  /// Writes the row, unless hardware already holds the same words apart from the static ones. A
  /// row without registers is not written. False when the bus failed. Of a table that is alike to
  /// another one this is a fatal assertion: those get their rows together, by imageIs().
  bool entryIs(const HwEntryConfig& entry) {
    return entryIs(entry.index(), entry.words(), [] {});
  }
  /// The same from an image of maxRowWords words. Calls `before()` when the row is about to be
  /// written. With a run it is written later, with that: true says nothing of it yet, and what
  /// hardware holds there counts as unknown until then.
  template <class Before>
  [[gnu::always_inline]] bool entryIs(HwIndex index, const U32* image, const Before& before,
                                      const RowRun::Later& later = {}) {
    ORB_ASSERT(images_->tables.size() == 1);
    return entryIs(index, image, imageIs(index, image), before, later);
  }
  /// Whether both keep the images of their rows together.
  bool isAlike(const HwTableConfig& other) const { return images_ == other.images_; }
  /// The row's image in all tables that are alike; each of them is then given it by entryIs().
  /// Returns whether it is what those have had that hold the row, static bits aside.
  [[gnu::always_inline]] bool imageIs(HwIndex index, const U32* image) {
    U32* held = words_ + imageAt(index);
    const bool unchanged =
        images_->apart.empty() ? same(run(index), held, image) : loseDifferent(index, image);
    takeOver(held, image, rowWords_);
    return unchanged;
  }
  /// Writes the row, the image of which has just been said by imageIs(), which returned
  /// `unchanged`.
  template <class Before>
  [[gnu::always_inline]] bool entryIs(HwIndex index, const U32* image, bool unchanged,
                                      const Before& before, const RowRun::Later& later = {}) {
    Run& run = this->run(index);
    State& state = states_[index - first_];
    if ((unchanged && state.row == Row::held) || run.registers.empty()) return true;
    before();
    if (later.run) {
      auto* value = later.run->add(*later.owner, *this, index, run.mapped.size());
      for (const Mapped& m : run.mapped) *value++ = {m.reg, image[m.word]};
      state.row = Row::lost;
      return true;
    }
    run.take(image);
    const bool good = bus_.rowIs(busTable_, index, run.registers);
    wasWritten(state, good);
    return good;
  }
  /// A run wrote the row's image, or failed to.
  void entryWritten(HwIndex index, bool good) { wasWritten(states_[position(index)], good); }
  /// Reads the row from hardware into the image, trying again a few times before it reports a
  /// failure; words without a register keep what they held when the mapped ones are unchanged, and
  /// become 0 otherwise.
  RegisterBus::Read readEntry(HwIndex index);
  /// The row was read with others, or could not be. Returns whether it could not be before. Behind
  /// the row's values there is room up to maxRowWords of them.
  bool entryRead(const RegisterBus::RowRead& row) {
    const U32 at = position(row.index);
    const bool asBefore = row.read == RegisterBus::Read::held && states_[at].row == Row::held &&
                          holds(run(row.index), image(row.index), row.values.data());
    return !asBefore && entryReadAnew(row, at);
  }
  /// Makes the next entryIs() of the row write whatever it is given.
  void entryForget(HwIndex index) { states_[position(index)].row = Row::lost; }

  /// A row outside the descriptor's is a fatal assertion.
  Row state(HwIndex index) const { return states_[position(index)].row; }
  /// Whether nothing was ever heard of the row, and it was not written.
  bool unheard(HwIndex index) const {
    return state(index) == Row::unknown || state(index) == Row::unread;
  }
  /// Whether this run wrote the row.
  bool written(HwIndex index) const { return states_[position(index)].written; }
  /// The row's image: `rowWords` words, and behind them others of no meaning up to maxRowWords. Of
  /// a row of which nothing is known it may be that of a table that is alike.
  const U32* image(HwIndex index) const {
    const U32* shared = words_ + imageAt(index);
    return images_->apart.empty() ? shared : imageApart(index, shared);
  }
  /// The same; what is changed in it is not written, and is changed in all tables that share it.
  U32* image(HwIndex index) { return const_cast<U32*>(std::as_const(*this).image(index)); }

  /// The row is written soon.
  void soon(HwIndex index) const {
    const U32 at = index - first_;
    __builtin_prefetch(words_ + std::size_t{at} * rowWords_, 1);
    __builtin_prefetch(states_.data() + at, 1);
  }

  /// Whether the words with a register are the same, static bits aside.
  bool same(HwIndex index, const U32* a, const U32* b) const { return same(run(index), a, b); }
  /// The bits in which the row's image differs from `expected`, in words with a register and
  /// without the static bits.
  std::array<U32, maxRowWords> differentBits(HwIndex index, const U32* expected) const;

  /// Bits of a word that depend on the row's place alone: they are not compared.
  void staticWordIs(DataArrayIndex index, U32 mask);
  /// The bits of the word that depend on the row's place alone.
  U32 staticBits(DataArrayIndex index) const { return staticWords_[index]; }

  /// One word of a row that has a register.
  struct Mapped {
    DataArrayIndex word;              ///< Of the row's image.
    RegisterBus::RegisterHandle reg;  ///< As the bus gave it.
  };
  /// In the order in which they are written.
  const std::vector<Mapped>& mapped(HwIndex index) const { return run(index).mapped; }
  /// Their registers, with values of no meaning.
  std::span<const RegisterBus::RegisterValue> registers(HwIndex index) const {
    return run(index).registers;
  }

 private:
  U32 position(HwIndex index) const {
    ORB_ASSERT_TEXT(index - first_ < rows_,
                    "index >= descriptor_->first && index <= descriptor_->last");
    return index - first_;
  }
  std::size_t imageAt(HwIndex index) const { return std::size_t{position(index)} * rowWords_; }

  struct Run {
    HwIndex first;
    std::vector<Mapped> mapped;
    /// Whether they are the image's first words, one after the other.
    bool inOrder = true;
    /// Their registers, with room for what is written to them.
    std::array<RegisterBus::RegisterValue, maxRowWords> values{};
    /// Those of `values` that there are.
    std::span<const RegisterBus::RegisterValue> registers{};
    /// The bits of each word that are compared.
    StaticWords compared{};
    StaticWords mappedBits{};  ///< All of each word that has a register.

    /// The registers are to be written what the image says.
    [[gnu::always_inline]] void take(const U32* image) {
      if (inOrder) [[likely]] {
        // As many as there can be, for that number is known; and from where nothing else is.
        std::array<U32, maxRowWords> words;
        std::copy_n(image, maxRowWords, words.begin());
        for (U8 word = 0; word < maxRowWords; ++word) values[word].value = words[word];
      } else {
        auto* value = values.data();
        for (const Mapped& m : mapped) (value++)->value = image[m.word];
      }
    }
  };
  Run& run(HwIndex index) { return const_cast<Run&>(std::as_const(*this).run(index)); }
  const Run& run(HwIndex index) const { return onlyRun_ ? *onlyRun_ : runOfMany(index); }
  const Run& runOfMany(HwIndex index) const;

  /// Mostly the first two words tell rows apart.
  static bool same(const Run& run, const U32* a, const U32* b) {
    for (U8 word = 0; word < maxRowWords; word += 2) {
      if (((twoWords(a + word) ^ twoWords(b + word)) & twoWords(&run.compared[word])) != 0)
        return false;
    }
    return true;
  }
  static U64 twoWords(const U32* words) {
    U64 both;
    std::memcpy(&both, words, sizeof both);
    return both;
  }
  /// Words without a register are nobody else's to keep.
  static void takeOver(U32* held, const U32* image, U32 words) {
    if (words < 4) {
      std::copy_n(image, words, held);
      return;
    }
    // In parts that were stored as such: others would have to wait until all their stores are done.
    std::memcpy(held, image, 4 * sizeof(U32));
    if (words >= 6) std::memcpy(held + 4, image + 4, 2 * sizeof(U32));
    if (words == 8) std::memcpy(held + 6, image + 6, 2 * sizeof(U32));
    if (words % 2 != 0) held[words - 1] = image[words - 1];
  }
  struct State {
    Row row = Row::unknown;
    bool written = false;  ///< In this run.
  };
  static void wasWritten(State& state, bool good) {
    state = {good ? Row::held : Row::lost, state.written || good};
  }
  static bool holds(const Run& run, const U32* image, const RegisterBus::RegisterValue* values) {
    U32 different = 0;
    if (run.inOrder) [[likely]] {
      // As many as there can be, for that number is known; as vectors.
#pragma GCC unroll 1
      for (U8 word = 0; word < maxRowWords; ++word) {
        different |= (values[word].value ^ image[word]) & run.mappedBits[word];
      }
    } else {
      for (const Mapped& m : run.mapped) different |= (values++)->value ^ image[m.word];
    }
    return different == 0;
  }
  bool entryReadAnew(const RegisterBus::RowRead& row, U32 at);
  void keepOthersApart(HwIndex index);
  const U32* imageApart(HwIndex index, const U32* shared) const;
  bool loseDifferent(HwIndex index, const U32* image);

  /// The images of rows, which tables share that are alike.
  struct Images : Orb::PtrInterface {
    std::vector<U32> words;              ///< Of the rows, with room for one more.
    std::vector<HwTableConfig*> tables;  ///< Those that are alike.
    /// Those of single tables' rows that hold something else.
    std::map<std::pair<HwIndex, const HwTableConfig*>, RowImage> apart;
  };

  Orb::PtrConst<HwTableDescriptor> descriptor_;
  RegisterBus& bus_;
  RegisterBus::TableHandle busTable_;
  std::vector<Run> runs_;   ///< By first row, ascending.
  Run* onlyRun_ = nullptr;  ///< Where all rows have the same registers.
  StaticWords staticWords_{};
  HwIndex first_;  ///< The descriptor's, like the others.
  U32 rows_;
  U8 rowWords_;
  Orb::Ptr<Images> images_;
  U32* words_;  ///< Those of `images_`.
  std::vector<State> states_;
};

/// The hit bits of one hardware table.
class VELA_EXPORT HitBitTableConfig : public Orb::PtrInterface {
 public:
  /// `table` is the hardware table that the bits belong to.
  HitBitTableConfig(Orb::PtrConst<HitBitTableDescriptor> descriptor, const HwTableConfig& table,
                    RegisterBus& bus);

  /// As it was declared.
  const Orb::PtrConst<HitBitTableDescriptor>& descriptor() const { return descriptor_; }

  /// Whether there are bits to read at all.
  bool readable() const {
    return descriptor_->mode != HitBitAccessMode::none && !registers_.empty();
  }
  /// How many rows' bits one read returns.
  U32 blockRows() const { return blockRows_; }
  /// Reads and clears the bits of the rows from `first` on, a multiple of blockRows(): bit n of
  /// `bits` is that of row first + n, for rows that there are. False when the read failed; they
  /// then stay as they were.
  bool readBlock(HwIndex first, U64& bits);

 private:
  Orb::PtrConst<HitBitTableDescriptor> descriptor_;
  RegisterBus& bus_;
  RegisterBus::TableHandle busTable_;
  /// Which bits of a register are rows'.
  struct Bits {
    U32 first;  ///< Of the register.
    U32 row;    ///< Of the block.
    U64 mask;
  };
  std::vector<RegisterBus::RegisterValue> registers_;  ///< Those with bits, in row order.
  std::vector<Bits> bits_;                             ///< Theirs.
  U32 blockRows_ = 0;
};

}  // namespace VelaSwitchApi
