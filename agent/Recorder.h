#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VelaSwitchApi/RegisterBus.h"

namespace VelaAgent {

/// A register bus that passes everything on and tells of each row write. It also remembers the
/// names behind handles, for those who print them.
class Recorder final : public VelaSwitchApi::RegisterBus {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;

  struct RowWrite {
    const VelaSwitchApi::HwTableIdentity& table;
    HwIndex index;
    std::span<const RegisterValue> writes;
    bool failed;
    std::optional<U32> entry;  ///< Of rows that were staged: the entry's number within its batch.
  };
  using Listener = std::function<void(const RowWrite&)>;

  /// `bus` must outlive the recorder.
  explicit Recorder(RegisterBus& bus) : bus_(bus) {}

  /// While muted, row writes go nowhere and succeed, and no hit is read: what is desired takes
  /// shape in software alone.
  void mutedIs(bool muted) { muted_ = muted; }
  void listenerIs(Listener listener) { listener_ = std::move(listener); }
  const std::string& path(RegisterHandle handle) const { return paths_[handle]; }
  /// Row writes that succeeded, and their register writes.
  U64 rowWrites() const { return rowWrites_; }
  U64 registerWrites() const { return registerWrites_; }
  /// Writes of rows and reads of rows and hit bits that failed.
  U64 failures() const { return failures_; }

  RegisterHandle registerIs(std::string_view path) override {
    const RegisterHandle handle = bus_.registerIs(path);
    if (handle >= paths_.size()) paths_.resize(handle + 1);
    paths_[handle] = path;
    return handle;
  }
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override {
    const TableHandle handle = bus_.tableIs(identity, lastIndex);
    if (handle >= tables_.size()) tables_.resize(handle + 1);
    tables_[handle] = identity;
    return handle;
  }
  bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) override {
    if (muted_) return true;
    const bool good = bus_.rowIs(table, index, writes);
    told({table, index, writes, 0, good}, std::nullopt);
    return good;
  }
  void rowsAre(std::span<VelaSwitchApi::RegisterBus::RowWrite> rows) override {
    if (!muted_) bus_.rowsAre(rows);
    for (auto& row : rows) {
      if (muted_) {
        row.written = true;
      } else {
        told(row, row.entry);
      }
    }
  }
  bool gainsByRuns() const override { return bus_.gainsByRuns(); }
  Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override {
    const Read read = bus_.row(table, index, values);
    failures_ += read == Read::failed;
    return read;
  }
  void rows(std::span<RowRead> rows) override {
    bus_.rows(rows);
    // The first that failed ended it.
    failures_ += std::any_of(rows.begin(), rows.end(),
                             [](const RowRead& each) { return each.read == Read::failed; });
  }
  bool hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) override {
    if (muted_) {
      for (RegisterValue& value : values) value.value = 0;
      return true;
    }
    const bool good = bus_.hitBits(table, first, values);
    failures_ += !good;
    return good;
  }

 private:
  void told(const VelaSwitchApi::RegisterBus::RowWrite& row, std::optional<U32> entry) {
    if (row.written) {
      ++rowWrites_;
      registerWrites_ += row.writes.size();
    } else {
      ++failures_;
    }
    if (listener_) listener_({tables_[row.table], row.index, row.writes, !row.written, entry});
  }

  RegisterBus& bus_;
  Listener listener_;
  std::vector<std::string> paths_;
  std::vector<VelaSwitchApi::HwTableIdentity> tables_;
  U64 rowWrites_ = 0;
  U64 registerWrites_ = 0;
  U64 failures_ = 0;
  bool muted_ = false;
};

}  // namespace VelaAgent
