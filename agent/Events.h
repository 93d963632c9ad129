#pragma once

#include <functional>
#include <string>

#include "agent/Agent.h"

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

  /// `agent` must be started and outlive the runner.
  explicit EventRunner(Agent& agent) : agent_(agent) {}

  /// Takes what is odd about an event that was applied all the same.
  using WarningListener = std::function<void(const std::string&)>;

  void warningListenerIs(WarningListener listener) { warn_ = std::move(listener); }
  void resultListenerIs(ResultListener listener) { result_ = std::move(listener); }
  void storyListenerIs(StoryListener listener) { story_ = std::move(listener); }
  /// Whether events other than announcements and withdrawals are passed over: what is left says
  /// what is desired.
  void desiresOnlyIs(bool only) { desiresOnly_ = only; }
  /// Whether a refusal lists the keys of the entries that it competes with.
  void explainIs(bool explain) { explain_ = explain; }

  /// Applies one event. Throws InputException, Orb::RangeException or Orb::TextException when it is
  /// not a valid one; nothing is applied then.
  void apply(const std::string& line);

  /// The number of the event being applied, from 1; 0 before the first.
  U64 eventNumber() const { return number_; }
  /// Announcements that left their entry unprogrammed.
  U64 refused() const { return refused_; }
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
  Json competitorKey(const TableAdapter& table, const TableAdapter::Competitor& competitor) const;
  Json resultLine(const Json& event, const TableAdapter& table) const;
  void refuse(const Json& event, const TableAdapter& table, EntryProgrammedStatus status);
  void tell(const Json& event, const std::string& outcome) const;

  Agent& agent_;
  ResultListener result_;
  StoryListener story_;
  WarningListener warn_;
  bool explain_ = false;
  bool desiresOnly_ = false;
  U64 number_ = 0;
  U64 refused_ = 0;
  U64 unmet_ = 0;
};

}  // namespace VelaAgent
