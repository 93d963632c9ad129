#pragma once

#include "VelaSwitchApi/SwTable.h"
#include "device/SimulatedSwitch.h"

namespace VelaBench {

/// A simulated switch that counts what tables do to it.
class CountingSwitch final : public VelaSwitchApi::RegisterBus {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;

  RegisterHandle registerIs(std::string_view path) override { return chip.registerIs(path); }
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override {
    return chip.tableIs(identity, lastIndex);
  }
  bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) override {
    ++rowWrites;
    return chip.rowIs(table, index, writes);
  }
  Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override {
    return chip.row(table, index, values);
  }
  bool hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) override {
    ++hitReads;
    return chip.hitBits(table, first, values);
  }

  VelaDevice::SimulatedSwitch chip;
  U64 rowWrites = 0;
  U64 hitReads = 0;
};

/// A table on a simulated switch of its own, started.
template <class Table, class Switch = VelaDevice::SimulatedSwitch>
struct Started {
  explicit Started(Orb::Ptr<Table> of)
      : Started(std::move(of), [](Table& created) { created.doCreateHwTable(); }) {}
  /// `create(table)` declares the hardware tables.
  template <class Create>
  Started(Orb::Ptr<Table> of, const Create& create) : table(std::move(of)) {
    table->doSetProfileConvertor(types);
    create(*table);
    table->initHwEntries(true);
    table->initializedIs(true);
  }
  Switch chip;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types =
      Orb::make<VelaSwitchApi::SwTableTypes>(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip);
  Orb::Ptr<Table> table;
};

}  // namespace VelaBench
