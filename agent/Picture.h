#pragma once

#include <deque>

#include "agent/Fit.h"
#include "agent/Json.h"

/// What a switch looks like, as data: its tables with their figures, the rows that hold something,
/// refusals with their proof, the ladder of route levels, and what an audit found. docs/report.md
/// tells the form.
namespace VelaAgent {

/// Numbers that are told as one text: how many, the least of them, in how many bytes each is told
/// beyond that, and those bytes in base 64.
class NumberColumn {
 public:
  void add(U64 number) { numbers_.push_back(number); }
  Json json() const;

 private:
  std::vector<U64> numbers_;
};

/// Makes the picture part by part, so that whoever owns the tables can do other things in between.
class Picture {
 public:
  /// What is said of rows.
  enum class Audit : bool {
    known,  ///< What the last audit found.
    now,    ///< Rows are read and compared; to the tables what differs is a hardware error then.
  };

  /// The tables of `agent`, which must outlive this, were started and told what is desired; or else
  /// they were rebuilt from hardware alone, and what is desired is not known. So must `meter`,
  /// which need not try again what it tried for another picture.
  Picture(Agent& agent, FitMeter& meter, bool desiresKnown, Audit audit);
  ~Picture();

  /// Makes a part; returns whether there are more. Between two parts the tables may change.
  bool step();
  /// Makes all that is left; `progress` hears how much is done, 0 to 1.
  void finish(const std::function<void(double)>& progress = nullptr);
  /// The picture as far as it is made.
  const Json& json() const { return json_; }
  /// The same, for keeps.
  Json take() { return std::move(json_); }

 private:
  class RowSet;
  using Part = std::function<void()>;

  void findRowSets();
  void addTable(const TableAdapter& table);
  void addWaiting(const TableAdapter& table);
  void addRows(const RowSet& rows, std::size_t number);
  void addRefusals(const RowSet& rows, std::size_t number);
  void addLadder();
  void addFindings(HwTableAdapter& table);
  Json entryOf(const HwTableAdapter& table, AnyRef key) const;
  Json refusalOf(const HwTableAdapter& table, AnyRef key) const;
  Json findingOf(const HwTableAdapter& table, const RowFinding& finding) const;
  void addTotals();
  std::size_t numberOf(const TableAdapter& table) const;
  const RowSet* rowSetOf(const TableAdapter& table) const;

  Agent& agent_;
  FitMeter& meter_;
  bool desiresKnown_;
  Audit audit_;
  std::vector<RowSet> rowSets_;
  std::deque<Part> parts_;
  std::size_t all_ = 0;  ///< Parts there were in the beginning.
  Json json_;
};

}  // namespace VelaAgent
