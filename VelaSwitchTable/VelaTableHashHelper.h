#pragma once

#include <array>
#include <optional>

#include "VelaSwitch/HashInverse.h"
#include "VelaSwitchApi/HashBase.h"
#include "VelaSwitchApi/RowCheck.h"

namespace VelaSwitchTable {

using VelaSwitchApi::CuckooLocation;
using VelaSwitchApi::HashBaseCuckooEntry;
using VelaSwitchApi::HwIndex;
using VelaSwitchApi::KeyBits;
using VelaSwitchApi::RowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowWriter;

/// What the helpers of all hash families share: the row layout of the table's profile, the words
/// that name a row's place, and the way from a row that was read to an entry.
class VELA_EXPORT VelaTableHashHelper : public VelaSwitchApi::HashBaseHelper {
 public:
  ~VelaTableHashHelper() override;
  /// Builds the row layout and the entry that stands for an empty row.
  void doInit() override;
  /// Writes the fields `row` and `way`, and those that hold the same in every row.
  void setStaticBuffer(CuckooLocation location, U8* image) const final {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    RowWriter(layout_, image, traces_.handle, "setStaticBuffer")
        .setPlace(location.row, location.way);
  }
  Orb::Ptr<HashBaseCuckooEntry> nullHashEntry() const override { return null_; }
  void setEmptyImage(CuckooLocation location, U32* image) const override;
  Orb::Ptr<HashBaseCuckooEntry> decodeHwEntry(HwIndex index) const override;
  bool rowSound(const U32* image) const override;

  const RowLayout& layout() const final { return layout_; }
  const VelaSwitch::ProfileInfo& profile() const { return swTable()->profile(); }

  /// Which instance of the family the rows belong to.
  U8 tableIdx() const { return tableIdx_; }

 protected:
  /// How a row that was decoded is traced.
  struct Traces {
    const Trace::Handle& handle;
    const char* decoded;  ///< What the text of the entry follows.
  };

  /// @param parityWords  words of a row whose bits are even in number; 0: none
  VelaTableHashHelper(U8 tableIdx, Traces traces, U8 parityWords)
      : tableIdx_(tableIdx), traces_(traces), parityWords_(parityWords) {}

  virtual RowLayout makeLayout() const = 0;
  virtual Orb::Ptr<HashBaseCuckooEntry> makeNullEntry() const = 0;
  /// The entry in a row of the image, or null; may throw what odd values throw.
  virtual Orb::Ptr<HashBaseCuckooEntry> unpack(U32* image, CuckooLocation at) const = 0;
  /// Expects of an entry that was packed and unpacked that it is the same.
  virtual void expectSame(const VelaSwitchApi::RowCheck& check, const HashBaseCuckooEntry& entry,
                          const HashBaseCuckooEntry& again) const = 0;

  /// Finds out whether empty rows differ in nothing but what setStaticBuffer() writes. `alike` says
  /// that the family packs them so.
  void compareEmptyRows(bool alike);
  /// Fails unless empty rows and the row of an entry are sound and come back as what they were.
  void checkRows(const HashBaseCuckooEntry& sample) const;

  /// The image of a row in the pipeline that is decoded.
  U32* hwRow(HwIndex index) const { return physical().decodedTable().image(index); }
  CuckooLocation location(HwIndex index) const { return physical().location(index); }

 private:
  U8 tableIdx_;
  Traces traces_;
  U8 parityWords_;
  RowLayout layout_;
  Orb::Ptr<HashBaseCuckooEntry> null_;
  /// An empty row, where others differ from it in their place alone.
  std::optional<std::array<U32, VelaSwitchApi::maxRowWords>> empty_;
};

}  // namespace VelaSwitchTable
