#pragma once

#include <algorithm>

#include "DirectBase/TableConstants.h"
#include "VelaSwitchApi/SwTable.h"
#include "VelaSwitchTable/EntryStore.h"
#include "VelaSwitchTable/Family.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"

/// What all plain families share: tables whose row is named by the key and written straight from
/// the result. A family is a struct F, derived from PlainFamilyTypes, that says what is its own:
///
///   sourceUnit, trace            the unit's name and the trace handle called after it
///   traits                       a PlainFamilyTraits
///   hwIndex(key), keyOf(index)   which row is the key's
///   absentResult()               what the row of a key without an entry is made from
///   layout(profile, table)       the row's fields in one hardware table
///
/// and a LayerConvertor that derives from PlainFamilyLayerConvertor<F> and knows the hardware
/// tables: doCreateHwTables(state), packRow() and unpackRow().
namespace VelaSwitchTable {

using VelaSwitchApi::HwIndex;
using VelaSwitchApi::HwTableId;

/// The types of a family. The named classes need only be declared where the family is.
template <class K, class R, class TableType, class ConvertorType, class LayerConvertorType>
struct PlainFamilyTypes {
  using Key = K;
  using Result = R;
  using Table = TableType;
  using Convertor = ConvertorType;
  using LayerConvertor = LayerConvertorType;
};

struct PlainFamilyTraits {
  TableIndex index;
};

/// The base of a family's convertors. It knows no hardware; reaching its programming call is an
/// internal error.
template <class F>
class PlainFamilyConvertor : public VelaSwitchApi::SwTableProfileConvertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  /// Writes the key's row into every hardware table, where it differs. False when a write failed.
  virtual bool hwTableEntryIs(const Key& key, const Result& result) {
    F::trace(0, "hwTableEntryIs ", key, " ", result);
    ORB_ASSERT(false);
    return false;
  }
};

template <class F>
class PlainFamilyTable : public VelaSwitchApi::SwTable,
                         public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;

  explicit PlainFamilyTable(std::string name) : SwTable(std::move(name)) {}

  const Orb::Type& fwkType() const override { return Orb::registeredType<typename F::Table>; }
  static constexpr const char* sourceUnit = F::sourceUnit;

  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override {
    typesIs(std::move(types));
    profileConvertorPtrIs(Orb::make<typename F::LayerConvertor>());
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) {
      F::trace(8, " Skipped as not yet initialized - key:", key);
      return;
    }
    const Result* desired = this->entry(key);
    F::trace(1, desired ? "Programming Entry " : "Removing Entry ", key);
    // A copy: the convertor may meet observers that change the collection.
    const Result result = desired ? *desired : F::absentResult();
    if (profileConvertor().hwTableEntryIs(key, result)) {
      this->hwInconsistentEntryDel(key);
    } else {
      this->hwInconsistentEntryIs(key, true);
    }
  }

  /// The row's fields in the first hardware table.
  VelaSwitchApi::RowLayout rowLayout() const { return F::layout(profile(), 0); }

  PlainFamilyConvertor<F>& profileConvertor() const {
    return static_cast<PlainFamilyConvertor<F>&>(*profileConvertorPtr());
  }

  /// Takes over what a row of hardware holds.
  void entryIsByHwRow(const Key& key, const Result& result) { this->entryIsFromHw(key, result); }

 protected:
  void handleInitialized() override {
    for (const Key& key : this->entries().keys()) handleEntry(key);
  }
};

template <class F>
class PlainFamilyLayerConvertor : public F::Convertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using HwTableConfig = VelaSwitchApi::HwTableConfig;
  using Finding = VelaSwitchApi::AuditFinding;
  using Read = VelaSwitchApi::RegisterBus::Read;

  const Orb::Type& fwkType() const override {
    return Orb::registeredType<typename F::LayerConvertor>;
  }
  static constexpr const char* sourceUnit = F::sourceUnit;

  void doInitTableStats() override {
    const auto first = this->hwTables().begin();
    ORB_ASSERT_TEXT(first != this->hwTables().end(), "hwTable");
    const auto& descriptor = first->second->descriptor();
    this->initEntryCounter(table()->name(), descriptor.last - descriptor.first + 1,
                           [this] { return table()->entries().size(); });
  }

  bool hwTableEntryIs(const Key& key, const Result& result) override {
    bool good = true;
    for (const auto& [id, hwTable] : this->hwTables()) {
      if (hwTable->active() && !writeRow(*hwTable, key, result)) good = false;
    }
    return good;
  }

  void initHwEntries(bool overwrite, U32 start) override {
    for (const auto& [id, hwTable] : this->hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
        if (!overwrite && hwTable->state(index) == HwTableConfig::Row::held) continue;
        if (overwrite) hwTable->entryForget(index);
        const Key key = F::keyOf(index);
        if (!writeRow(*hwTable, key, desired(key))) table()->hwInconsistentEntryIs(key, true);
      }
    }
  }

  void syncEntries(U32 id) override {
    HwTableConfig& hwTable = *this->hwTable(id);
    const auto& descriptor = hwTable.descriptor();
    for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
      if (table()->initialized()) {
        auditRow(hwTable, index);
      } else {
        rebuildRow(hwTable, index);
      }
    }
  }

 protected:
  using Image = std::array<U32, VelaSwitchApi::maxRowWords>;

  /// Packs the row of one hardware table into an image that is all zero.
  virtual void packRow(HwTableId table, const Key& key, const Result& result,
                       Image& image) const = 0;
  /// Adds what one hardware table's row holds to the result. False when the row is not sound.
  virtual bool unpackRow(HwTableId table, HwIndex index, U32* image, Result& result) const = 0;

  typename F::Table* table() const { return static_cast<typename F::Table*>(this->swTable()); }

 private:
  Result desired(const Key& key) const {
    const Result* result = table()->entry(key);
    return result ? *result : F::absentResult();
  }

  Image rowImage(HwTableId id, const Key& key, const Result& result) const {
    Image image{};
    packRow(id, key, result, image);
    return image;
  }

  bool writeRow(HwTableConfig& hwTable, const Key& key, const Result& result) {
    const Image image = rowImage(hwTable.descriptor().identity.id, key, result);
    return hwTable.entryIs({F::hwIndex(key), image.data(), VelaSwitchApi::maxRowWords});
  }

  void rebuildRow(HwTableConfig& hwTable, HwIndex index) {
    const HwTableId id = hwTable.descriptor().identity.id;
    if (hwTable.readEntry(index) != Read::held) {
      F::trace(5, " index ", index, " does not exist.");
      return;
    }
    const Key key = F::keyOf(index);
    Result result = desired(key);
    bool sound = false;
    try {
      sound = unpackRow(id, index, hwTable.image(index), result);
    } catch (const Orb::RangeException& error) {
      F::trace(3, " index ", index, ": ", error.what());
    }
    if (!sound) {
      // Not left standing: the row gets written with what is desired of its key.
      hwTable.entryForget(index);
    } else if (result != F::absentResult()) {
      F::trace(5, "Set sw table entry for key: ", key, " value: ", result);
      table()->entryIsByHwRow(key, result);
    }
  }

  void auditRow(HwTableConfig& hwTable, HwIndex index) {
    const HwTableId id = hwTable.descriptor().identity.id;
    const Read read = hwTable.readEntry(index);
    if (read == Read::failed) {
      this->auditFindingIs({Finding::Kind::unreadable, id, index});
      return;
    }
    const Key key = F::keyOf(index);
    const Image expected = rowImage(id, key, desired(key));
    if (read == Read::held && hwTable.same(index, expected.data(), hwTable.image(index))) return;
    if (read == Read::absent) {
      F::trace(3, "Missing hw table entry for key: ", key, ", table ",
               hwTable.descriptor().identity.name);
      this->auditFindingIs({Finding::Kind::missing, id, index});
    } else {
      F::trace(3, "Inconsistent hw table entry for key: ", key);
      const bool ours = table()->entry(key) != nullptr;
      this->auditFindingIs(
          {ours ? Finding::Kind::inconsistent : Finding::Kind::unexpected, id, index});
    }
    table()->hwInconsistentEntryIs(key, true);
  }
};

}  // namespace VelaSwitchTable
