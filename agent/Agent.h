#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/Recorder.h"
#include "agent/Registry.h"

namespace VelaAgent {

/// An owning agent: makes all tables of a profile on one switch and starts them.
class Agent {
 public:
  /// How the tables meet the hardware.
  enum class Start : U8 {
    fresh,    ///< Nothing is known of the rows: all are written.
    restart,  ///< The rows are right until shown otherwise: tables are rebuilt from them.
  };

  /// `chip` must outlive the agent.
  Agent(Orb::PtrConst<VelaSwitch::ProfileInfo> profile, VelaDevice::SimulatedSwitch& chip);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  /// Declares the tables and their hardware; nothing is read or written yet. Throws
  /// VelaDevice::ImageException when the switch was saved as one of another profile.
  void make();
  /// Starts the tables, which make() has made.
  void start(Start how);

  const VelaSwitch::ProfileInfo& profile() const { return *profile_; }
  Recorder& recorder() { return recorder_; }
  const Recorder& recorder() const { return recorder_; }
  VelaDevice::SimulatedSwitch& chip() { return chip_; }
  VelaDevice::DataPath& dataPath() { return dataPath_; }

  const std::vector<std::unique_ptr<TableAdapter>>& tables() const { return tables_; }
  /// The family's table of the instance. Throws InputException when there is none.
  TableAdapter& table(const std::string& family, U32 instance) const;

  /// Removes what was rebuilt from hardware and not announced since; returns how many entries.
  U32 reconcile();

 private:
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile_;
  VelaDevice::SimulatedSwitch& chip_;
  Recorder recorder_;
  VelaDevice::DataPath dataPath_;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types_;
  std::vector<std::unique_ptr<TableAdapter>> tables_;
};

}  // namespace VelaAgent
