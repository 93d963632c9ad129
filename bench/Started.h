#pragma once

#include "VelaSwitchApi/SwTable.h"
#include "device/SimulatedSwitch.h"

namespace VelaBench {

/// A table on a simulated switch of its own, started.
template <class Table>
struct Started {
  explicit Started(Orb::Ptr<Table> of) : table(std::move(of)) {
    table->doSetProfileConvertor(types);
    table->doCreateHwTable();
    table->initHwEntries(true);
    table->initializedIs(true);
  }
  VelaDevice::SimulatedSwitch chip;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types =
      Orb::make<VelaSwitchApi::SwTableTypes>(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip);
  Orb::Ptr<Table> table;
};

}  // namespace VelaBench
