#pragma once

#include <functional>
#include <optional>
#include <string>

#include "agent/Agent.h"
#include "agent/EventReader.h"

namespace VelaAgent {

/// Whether `actual` has every value that `expected` names.
bool meets(const Json& actual, const Json& expected);

/// A finding of an audit, its fields' values in hexadecimal.
Json findingLine(const RowFinding& finding);

/// An announcement or a withdrawal that was read.
struct Desire {
  bool withdraws = false;
  TableAdapter* table = nullptr;
  Json key;  ///< As the table spells it.
};

/// Applies events, one JSON object each, to an agent's tables and to the switch under them.
class EventRunner final : private BatchListener {
 public:
  /// Takes the result line of a lookup, an audit or a refused entry.
  using ResultListener = std::function<void(const std::string& line)>;
  /// Takes what an event was, in short, and a sentence on what it did; returns whether it wants to
  /// hear more.
  using StoryListener = std::function<bool(const std::string& event, const std::string& outcome)>;

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
  /// Whose entries of a table are, for people ("the sources'"), or null where anyone may change
  /// them.
  using OwnerOf = std::function<const char*(const TableAdapter&)>;
  /// Announcements to tables that have an owner, and withdrawals, are refused.
  void ownersAre(OwnerOf owner) { owner_ = std::move(owner); }
  /// Whether a refusal lists what it competes with, and a lookup the tables that it asked.
  void explainIs(bool explain) { explain_ = explain; }

  /// Applies one event. Throws InputException, Orb::RangeException or Orb::TextException when it is
  /// not a valid one; nothing is applied then.
  void applyLine(std::string_view line) {
    takeLine(line, 0, 0);
    flush();
  }
  void apply(const Json& event);
  /// Reads an announcement or a withdrawal and applies nothing; nothing for other events. Throws
  /// what applyLine() throws.
  std::optional<Desire> desireOf(std::string_view line);
  /// As applyLine(), but announcements to one table that follow each other are applied together,
  /// later: at the latest by flush(). Until then the line must stay where it is. It is read faster
  /// where EventReader::padding bytes may be read `behind` it. `number` is that of the line.
  void takeLine(std::string_view line, std::size_t behind, U64 number);
  void flush();
  /// The halves of takeLine() of a line with EventReader::padding bytes behind it. read() reads
  /// `event.line` into the event's values, and may do so in another thread while events that were
  /// read before are taken; it looks at nothing that they change. The event has to stay where it is
  /// until it is applied, as its line has.
  void read(EntryEvent& event) {
    event.ordinary = reader_.read(event.line, EventReader::padding, event);
  }
  void take(EntryEvent& event);
  /// The line that is applied, warned of or refused.
  U64 lineNumber() const { return lineNumber_; }
  /// For whoever makes events from lines and refuses one himself.
  void lineNumberIs(U64 number) { lineNumber_ = number; }

  /// After a restart, all that is desired was told; see Agent::complete().
  void complete();
  /// Removes what was rebuilt and not announced, each as an event of its own. Returns how many
  /// entries went.
  U64 reconcile();

  /// Whether a second announcement of a key gets a warning; all are counted.
  void warnOfRepeatsIs(bool warn) { warnOfRepeats_ = warn; }

  /// The number of the event being applied, from 1; 0 before the first.
  U64 eventNumber() const { return number_; }
  /// That of an entry by its number within the batch that is applied.
  U64 eventNumber(U32 entry) const { return batchBegin_ + entry + 1; }
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
  /// An announcement that was refused, for those who tell of it.
  struct Refusal {
    const TableAdapter& table;
    bool namesInstance;
    AnyRef key;
    std::string_view keyText;
    EntryProgrammedStatus status;
  };

  template <class Handle>
  void numbered(const Handle& handle);
  void withdraw(const EntryEvent& event);
  void addToBatch(EntryEvent& event);
  const char* ownerOf(const TableAdapter& table) const { return owner_ ? owner_(table) : nullptr; }
  void entryBegins(std::size_t number) override;
  void entryDone(std::size_t number, const EntryOutcome& outcome) override;
  void set(const Json& event);
  void del(const Json& event);
  void hit(const Json& event);
  void sync(const Json& event);
  void corrupt(const Json& event);
  void lookup(const Json& event);
  void fail(const Json& event);

  TableAdapter& tableOf(const Json& event) const;
  TableAdapter& changedTable(const Json& event) const;
  HwTableAdapter& hardwareOf(const Json& event) const;
  Json lookup(const TableAdapter& table, const Json& key, VelaDevice::DataPath::Steps& steps);
  void announced(bool before, const std::vector<std::string>& warnings);
  void explainRefusal(const TableAdapter& table, const std::vector<Competitor>& competing,
                      std::string& line) const;
  void tellAdmitted();
  void beginLine(const char* op, const TableAdapter& table, bool namesInstance);
  std::string refuse(const Refusal& refusal);
  void story(const std::string& event, const std::string& outcome);
  void tell(const Json& event, const std::string& outcome);

  Agent& agent_;
  EventReader reader_;
  std::vector<EntryEvent> ring_;      ///< What takeLine() read; used in turn.
  U64 taken_ = 0;                     ///< Of the ring.
  std::vector<EntryEvent*> waiting_;  ///< Announcements that are to be applied together,
  std::vector<EntryEvent*> batch_;    ///< and those that are,
  std::vector<Entries::Announcement> announcements_;  ///< by their values.
  U64 batchBegin_ = 0;  ///< The number of the last event before the batch,
  U64 batchDone_ = 0;   ///< and how many of it are done.
  U64 lineNumber_ = 0;
  std::string line_;
  ResultListener result_;
  StoryListener story_;
  WarningListener warn_;
  OwnerOf owner_;
  bool explain_ = false;
  bool desiresOnly_ = false;
  bool warnOfRepeats_ = false;
  U64 repeats_ = 0;
  U64 number_ = 0;
  U64 refusals_ = 0;
  U64 admissions_ = 0;
  std::vector<std::pair<TableAdapter*, AnyValue>> admitted_;  ///< By the event being applied.
  U64 unmet_ = 0;
};

}  // namespace VelaAgent
