#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VelaRoutes/RouteWriter.h"
#include "VelaSwitchApi/SwitchTables.h"
#include "agent/JsonForward.h"
#include "agent/Recorder.h"
#include "agent/TableEntries.h"

namespace VelaAgent {

class HwTableAdapter;
class TableAdapter;

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

  /// Declares the tables and their hardware; nothing is read or written yet. With names of
  /// families, only their tables, and whole routes when "Route" and all levels are named. Throws
  /// VelaDevice::ImageException when the switch was saved as one of another profile.
  void make(const std::vector<std::string>& only = {});
  /// Starts the tables, which make() has made. At a restart nothing is written yet: what is desired
  /// comes first, and then complete().
  void start(Start how);
  /// After a restart, all that is desired was told: rows that belong to no entry are brought to
  /// their default, but for those that could not be read, and routes that were guessed from their
  /// rows give way to those that were announced.
  void complete();

  const VelaSwitch::ProfileInfo& profile() const { return *profile_; }
  Recorder& recorder() { return recorder_; }
  const Recorder& recorder() const { return recorder_; }
  VelaDevice::SimulatedSwitch& chip() { return chip_; }
  const VelaDevice::SimulatedSwitch& chip() const { return chip_; }
  VelaDevice::DataPath& dataPath() { return dataPath_; }

  /// The tables that have rows in hardware.
  const std::vector<std::unique_ptr<HwTableAdapter>>& tables() const { return tables_; }
  /// Everything that entries can be announced to: the tables, and whole routes before them.
  const std::vector<TableAdapter*>& announced() const { return announced_; }
  /// The one of the name and instance, or the way of that name for lookups. Throws InputException
  /// when there is none.
  TableAdapter& table(std::string_view name, U32 instance) const;
  /// The same without JSON.
  Entries& entriesOf(std::string_view name, U32 instance) const;
  /// The adapter of a software table.
  HwTableAdapter& adapterOf(const VelaSwitchApi::SwTable& table) const;
  VelaRoutes::RouteWriter& routeWriter() const { return *routeWriter_; }

  /// Entries that were announced and stand, in any table.
  U64 announcedEntries() const;
  /// Announced entries that hardware has: of routes themselves, not of what they are spread over.
  U64 programmed() const;
  /// Those that programmed routes made of levels' entries, which count as routes.
  U64 programmedCells() const;
  /// What is to follow an event: routes that failed may be in hardware now.
  void settle() {
    if (routeWriter_) routeWriter_->retry();
  }

  /// Rebuilds the tables from what the switch holds and leaves it at that: they are not started and
  /// nothing is written.
  void decode();
  /// How what is desired is compared with a switch that other runs wrote: between these two calls
  /// the tables start and are told what is desired without a write. The second puts entries where
  /// the switch holds them. Audits then find what differs.
  void desireBegin();
  void desireEnd();

  /// Removes what was rebuilt from hardware and not announced since, after a word on each.
  using RemovalListener = std::function<void(TableAdapter&, const Json& key)>;
  void reconcile(const RemovalListener& removing = nullptr);

  /// The keys of the whole routes that stand for the entry of a level; none for other entries.
  std::vector<Json> routesAt(const TableAdapter& table, const Json& key) const;
  /// Whether there are any.
  bool standsForRoutes(const TableAdapter& table, AnyRef key) const;

 private:
  void makeRoutes();
  bool isLevel(const TableAdapter& table) const;
  std::vector<VelaRoutes::RouteKey> routesOf(const TableAdapter& table,
                                             const VelaRoutes::RouteKey& key) const;

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile_;
  VelaDevice::SimulatedSwitch& chip_;
  Recorder recorder_;
  VelaDevice::DataPath dataPath_;
  VelaSwitchApi::SwitchTables switch_;
  std::vector<std::unique_ptr<HwTableAdapter>> tables_;
  std::unique_ptr<VelaRoutes::RouteWriter> routeWriter_;
  std::unique_ptr<TableAdapter> routes_;
  std::vector<TableAdapter*> announced_;
  std::vector<std::unique_ptr<TableAdapter>> paths_;
};

}  // namespace VelaAgent
