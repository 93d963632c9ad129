#pragma once

#include <functional>
#include <string>

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

namespace VelaAgent {

/// Whether `actual` has every value that `expected` names.
bool meets(const Json& actual, const Json& expected);

/// A finding of an audit, its fields' values in hexadecimal.
Json findingLine(const RowFinding& finding);

/// Applies events, one JSON object each, to an agent's tables and to the switch under them.
class EventRunner {
 public:
  /// Takes the result line of a lookup, an audit or a refused entry.
  using ResultListener = std::function<void(const Json&)>;
  /// Takes what an event was, in short, and a sentence on what it did.
  using StoryListener = std::function<void(const std::string& event, const std::string& outcome)>;

  /// `agent` must be made, and started for events other than lookups; it must outlive the runner.
  explicit EventRunner(Agent& agent);
  ~EventRunner();
  EventRunner(const EventRunner&) = delete;
  EventRunner& operator=(const EventRunner&) = delete;

  /// Takes what is odd about an event that was applied all the same.
  using WarningListener = std::function<void(const std::string&)>;

  void warningListenerIs(WarningListener listener) { warn_ = std::move(listener); }
  void resultListenerIs(ResultListener listener) { result_ = std::move(listener); }
  void storyListenerIs(StoryListener listener) { story_ = std::move(listener); }
  /// Whether events other than announcements and withdrawals are passed over: what is left says
  /// what is desired.
  void desiresOnlyIs(bool only) { desiresOnly_ = only; }
  /// Whether a refusal lists what it competes with, and a lookup the tables that it asked.
  void explainIs(bool explain) { explain_ = explain; }

  /// Applies one event. Throws InputException, Orb::RangeException or Orb::TextException when it is
  /// not a valid one; nothing is applied then.
  void apply(const std::string& line);
  void apply(const Json& event);

  /// After a restart, all that is desired was told; see Agent::complete().
  void complete();
  /// Removes what was rebuilt and not announced, each as an event of its own. Returns how many
  /// entries went.
  U64 reconcile();

  /// Whether a second announcement of a key gets a warning; all are counted.
  void warnOfRepeatsIs(bool warn) { warnOfRepeats_ = warn; }

  /// The number of the event being applied, from 1; 0 before the first.
  U64 eventNumber() const { return number_; }
  /// Announcements of entries that were announced before and had not gone since.
  U64 repeats() const { return repeats_; }
  /// Announcements that left their entry unprogrammed, and how many of those entries came in later
  /// without another one.
  U64 refusals() const { return refusals_; }
  U64 admissions() const { return admissions_; }
  /// Entries that were refused and that hardware still does not have.
  U64 refused() const;
  /// Lookups whose expectation was not met.
  U64 unmet() const { return unmet_; }

 private:
  void set(const Json& event);
  void del(const Json& event);
  void hit(const Json& event);
  void sync(const Json& event);
  void corrupt(const Json& event);
  void lookup(const Json& event);
  void fail(const Json& event);

  TableAdapter& tableOf(const Json& event) const;
  HwTableAdapter& hardwareOf(const Json& event) const;
  Json lookup(const TableAdapter& table, const Json& key, VelaDevice::DataPath::Steps& steps);
  std::vector<Json> announcedAt(const TableAdapter& table,
                                const TableAdapter::Competitor& competitor) const;
  void explainRefusal(const TableAdapter& table,
                      const std::vector<TableAdapter::Competitor>& competing, Json& line) const;
  void tellAdmitted();
  Json resultLine(const Json& event, const TableAdapter& table) const;
  void refuse(const Json& event, const TableAdapter& table, EntryProgrammedStatus status);
  void tell(const Json& event, const std::string& outcome) const;

  Agent& agent_;
  ResultListener result_;
  StoryListener story_;
  WarningListener warn_;
  bool explain_ = false;
  bool desiresOnly_ = false;
  bool warnOfRepeats_ = false;
  U64 repeats_ = 0;
  U64 number_ = 0;
  U64 refusals_ = 0;
  U64 admissions_ = 0;
  std::vector<std::pair<TableAdapter*, Json>> admitted_;  ///< By the event being applied.
  U64 unmet_ = 0;
};

}  // namespace VelaAgent
