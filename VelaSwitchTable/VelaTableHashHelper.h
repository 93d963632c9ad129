#pragma once

#include "VelaSwitchApi/HashBase.h"

namespace VelaSwitchTable {

using VelaSwitchApi::CuckooLocation;
using VelaSwitchApi::HwIndex;
using VelaSwitchApi::RowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowWriter;

/// What the helpers of all hash families share: the row layout of the table's profile.
class VELA_EXPORT VelaTableHashHelper : public VelaSwitchApi::HashBaseHelper {
 public:
  /// Builds the row layout and the entry that stands for an empty row.
  void doInit() override;
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> nullHashEntry() const override { return null_; }

  const RowLayout& layout() const override { return layout_; }
  const VelaSwitch::ProfileInfo& profile() const { return swTable()->profile(); }

 protected:
  VelaTableHashHelper() = default;

  virtual RowLayout makeLayout() const = 0;
  virtual Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> makeNullEntry() const = 0;

  /// The image of a row in the pipeline that is decoded.
  U32* hwRow(HwIndex index) const;
  bool hasRow(HwIndex index) const { return index < physical().engine().capacity(); }
  CuckooLocation location(HwIndex index) const { return physical().location(index); }

 private:
  RowLayout layout_;
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> null_;
};

}  // namespace VelaSwitchTable
