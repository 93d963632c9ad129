#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/Value.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Profile.h"
#include "device/SimulatedSwitch.h"

/// What the packet pipelines do with the tables: lookups from register words alone. Everything here
/// is written from the hardware's side, with bit arithmetic and hashes of its own, so that an error
/// in packing shows as a wrong answer. The lookups of each area stand in a header of their own,
/// such as RouteLookup.h; one that matches a row of a table with hit bits sets its bit.
namespace VelaDevice {

/// A table that a lookup asked, and how it answered.
struct LookupStep {
  std::string_view family;              ///< What was looked for; the table may hold others as well.
  const SimulatedSwitch::Table* table;  ///< Null where the switch has no such table.
  std::optional<VelaSwitchApi::HwIndex> index;  ///< The row that holds the key.
  const char* refusal;                          ///< Why that was no answer; null when it was.
};

/// The tables of one switch as lookups see them, and what they note of their way.
class VELA_EXPORT DataPath {
 public:
  using Steps = std::vector<LookupStep>;  ///< In the order in which the tables were asked.
  using Table = SimulatedSwitch::Table;

  /// Both must outlive the data path.
  DataPath(SimulatedSwitch& chip, const VelaSwitch::ProfileInfo& profile)
      : chip_(chip), profile_(profile) {}
  /// Likewise; one that only looks sets no hit bits.
  DataPath(const SimulatedSwitch& chip, const VelaSwitch::ProfileInfo& profile)
      : chip_(const_cast<SimulatedSwitch&>(chip)), profile_(profile), onlyLooks_(true) {}

  /// Whose ports and formats lookups go by.
  const VelaSwitch::ProfileInfo& profile() const { return profile_; }
  const SimulatedSwitch& chip() const { return chip_; }  ///< Whose rows they read.
  bool onlyLooks() const { return onlyLooks_; }          ///< Whether hit bits stay as they are.

  /// Where lookups note the tables that they ask, in the order in which they do; null for nowhere.
  void stepsIs(Steps* steps) { steps_ = steps; }

  /// For the lookups: a family's table, or null.
  Table* table(std::string_view family, U32 instance = 0, U32 id = 0) {
    return chip_.find(family, instance, VelaSwitchApi::HwTableId(id));
  }
  /// A row that lies where its key says, or null when it was never written; notes the step.
  const U32* rowAt(const char* family, U32 table, U32 index);
  /// Notes a table that was asked: the row that holds the key, if any, and why it is no answer.
  void note(std::string_view family, const Table* table,
            std::optional<VelaSwitchApi::HwIndex> index, const char* refusal = nullptr);
  /// The row that was found last is no answer.
  void refuse(const char* why);

 private:
  SimulatedSwitch& chip_;
  const VelaSwitch::ProfileInfo& profile_;
  Steps* steps_ = nullptr;
  bool onlyLooks_ = false;
};

/// A set of ports, which lookups of several areas answer with.
struct PortMaskHit {
  static constexpr const char* typeName = "VelaDevice::PortMaskHit";
  /// The CPU port, where it is one of them, is behind the last.
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
};

}  // namespace VelaDevice
