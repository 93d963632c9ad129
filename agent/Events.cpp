#include "agent/Events.h"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <utility>

#include "agent/Explain.h"
#include "agent/JsonText.h"
#include "agent/TableAudit.h"

namespace VelaAgent {

using VelaDevice::DataPath;

namespace {

const Json& member(const Json& event, const char* name) {
  const auto at = event.find(name);
  if (at == event.end()) throw InputException(std::string("\"") + name + "\" is missing");
  return *at;
}

U32 number(const Json& event, const char* name, U32 absent) {
  const auto at = event.find(name);
  if (at == event.end()) return absent;
  try {
    return static_cast<U32>(numberFromJson(*at, ~U32{0}));
  } catch (const std::exception& error) {
    throw InputException(std::string(name) + ": " + error.what());
  }
}

/// Refuses members that the operation does not have, so that a slip is not passed over.
void allow(const Json& event, std::initializer_list<const char*> names) {
  for (const auto& item : event.items()) {
    if (std::find(names.begin(), names.end(), item.key()) == names.end()) {
      throw InputException("unknown field \"" + item.key() + "\"");
    }
  }
}

std::string count(U64 number, const char* one, const char* several) {
  return std::to_string(number) + " " + (number == 1 ? one : several);
}

std::string rows(U64 number) { return count(number, "row", "rows"); }

Json documentOf(std::string_view line) {
  const std::string text(line);
  Json event;
  try {
    event = jsonFromText(text);
  } catch (const InputException& error) {
    throw InputException(std::string("not a JSON object: ") + error.what());
  }
  if (!event.is_object()) throw InputException("not a JSON object: " + quoted(text));
  return event;
}

/// An entry as the headline of a story.
std::string eventText(const TableAdapter& table, const Json& key) {
  std::string text = table.name();
  if (table.instance() != 0) text += "/" + std::to_string(table.instance());
  return text + " " + key.dump();
}

/// That an entry is programmed, and where.
std::string placeText(TableAdapter& table, AnyRef key) {
  const HwTableAdapter* hardware = table.hardware();
  const auto place = hardware ? hardware->place(key) : std::nullopt;
  if (!place || !place->location) return "programmed";
  return "programmed in way " + std::to_string(place->location->way) + ", row " +
         std::to_string(place->location->row);
}

}  // namespace

bool meets(const Json& actual, const Json& expected) {
  if (!expected.is_object()) {
    if (actual == expected) return true;
    // A number may be spelled as a text, and a result of one field as that field alone.
    if (actual.is_object()) return actual.size() == 1 && meets(actual.front(), expected);
    try {
      return !actual.is_null() && !expected.is_null() &&
             numberFromJson(actual, ~U64{0}) == numberFromJson(expected, ~U64{0});
    } catch (const std::exception&) {
      return false;
    }
  }
  if (!actual.is_object()) return false;
  for (const auto& [name, value] : expected.items()) {
    if (!actual.contains(name) || !meets(actual[name], value)) return false;
  }
  return true;
}

void EventRunner::takeLine(std::string_view line, std::size_t behind, U64 number) {
  EntryEvent& event = ring_[taken_++ % ring_.size()];
  event.ordinary = reader_.read(line, behind, event);
  if (!event.ordinary) event.line = line;
  event.number = number;
  take(event);
  // What has too little behind it was copied to where the next one goes.
  if (behind < EventReader::padding) flush();
}

void EventRunner::take(EntryEvent& event) {
  // Stories are told from documents, and refusals.
  const bool ordinary = event.ordinary && !story_ && !ownerOf(*event.table);
  const bool goesOn =
      ordinary && !event.withdraws && !waiting_.empty() && event.table == waiting_.front()->table;
  if (!goesOn) flush();
  lineNumber_ = event.number;
  if (!ordinary) return apply(documentOf(event.line));
  if (event.withdraws) return withdraw(event);
  addToBatch(event);
}

/// Puts an announcement that was read to those that are to be applied.
void EventRunner::addToBatch(EntryEvent& event) {
  Entries& entries = event.table->typed();
  try {
    entries.check(event.key, event.result);
  } catch (...) {
    flush();
    lineNumber_ = event.number;
    throw;
  }
  event.warnings = entries.warnings();
  waiting_.push_back(&event);
  if (waiting_.size() == VelaSwitchApi::batchMost) flush();
}

void EventRunner::flush() {
  if (waiting_.empty()) return;
  batchBegin_ = number_;
  batchDone_ = 0;
  batch_.swap(waiting_);
  waiting_.clear();
  announcements_.clear();
  for (const EntryEvent* each : batch_) announcements_.push_back({each->key, each->result});
  try {
    batch_.front()->table->typed().announceAll(announcements_, *this);
  } catch (...) {
    // The one that could not be applied has no number.
    number_ = batchBegin_ + batchDone_;
    lineNumber_ = batch_[std::min<U64>(batchDone_, batch_.size() - 1)]->number;
    throw;
  }
}

void EventRunner::entryBegins(std::size_t number) {
  number_ = batchBegin_ + number + 1;
  lineNumber_ = batch_[number]->number;
}

void EventRunner::entryDone(std::size_t number, const EntryOutcome& outcome) {
  const EntryEvent& event = *batch_[number];
  announced(outcome.known, event.warnings);
  if (outcome.status != EntryProgrammedStatus::programmed) {
    refuse({*event.table, event.namesInstance, event.key, event.keyText, outcome.status});
    if (result_) result_(line_);
  }
  tellAdmitted();
  ++batchDone_;
}

/// An event that is applied has a number; one that is refused does not.
template <class Handle>
void EventRunner::numbered(const Handle& handle) {
  ++number_;
  try {
    handle();
  } catch (...) {
    --number_;
    throw;
  }
  tellAdmitted();
}

void EventRunner::withdraw(const EntryEvent& event) {
  numbered([&] {
    event.table->typed().withdraw(event.key);
    agent_.settle();
  });
}

void EventRunner::apply(const Json& event) {
  const Json& op = member(event, "op");
  static constexpr struct {
    const char* name;
    void (EventRunner::*handle)(const Json&);
  } operations[] = {{"set", &EventRunner::set},         {"del", &EventRunner::del},
                    {"hit", &EventRunner::hit},         {"sync", &EventRunner::sync},
                    {"corrupt", &EventRunner::corrupt}, {"lookup", &EventRunner::lookup},
                    {"fail", &EventRunner::fail}};
  for (const auto& operation : operations) {
    if (op != operation.name) continue;
    if (desiresOnly_ && op != "set" && op != "del") {
      ++number_;
      return;
    }
    return numbered([&] { (this->*operation.handle)(event); });
  }
  std::vector<std::string> names;
  for (const auto& operation : operations) names.emplace_back(operation.name);
  const std::string name = op.is_string() ? op.get<std::string>() : std::string();
  throw InputException("unknown op " + quoted(op) + suggestion(name, names));
}

EventRunner::EventRunner(Agent& agent)
    : agent_(agent), reader_(agent), ring_(VelaSwitchApi::batchMost + 1) {
  for (TableAdapter* table : agent_.announced()) {
    table->admissionListenerIs(
        [this, table](AnyRef key) { admitted_.emplace_back(table, AnyValue::of(key)); });
  }
}

EventRunner::~EventRunner() {
  for (TableAdapter* table : agent_.announced()) table->admissionListenerIs(nullptr);
}

U64 EventRunner::refused() const {
  U64 count = 0;
  for (const TableAdapter* table : agent_.announced()) count += table->refused();
  return count;
}

void EventRunner::complete() {
  agent_.complete();
  tellAdmitted();
}

U64 EventRunner::reconcile() {
  U64 removed = 0;
  TableAdapter* last = nullptr;
  Json key;
  U64 writesBefore = 0;
  const auto writes = [&] { return agent_.recorder().rowWrites(); };
  const auto tellLast = [&] {
    if (!last || !story_) return;
    story("reconcile: del " + eventText(*last, key),
          "removed; wrote " + rows(writes() - writesBefore));
  };
  agent_.reconcile([&](TableAdapter& table, const Json& removing) {
    tellLast();
    ++removed;
    last = &table;
    key = removing;
    writesBefore = writes();
  });
  tellLast();
  tellAdmitted();
  return removed;
}

/// Entries that were refused and came in since are told as what they are, events of their own.
void EventRunner::tellAdmitted() {
  if (admitted_.empty()) return;
  for (const auto& [table, value] : std::exchange(admitted_, {})) {
    ++admissions_;
    if (!story_ && !result_) continue;
    if (story_) {
      story("comes in: " + eventText(*table, table->keyToJson(value)), placeText(*table, value));
    }
    if (!result_) continue;
    beginLine("admitted", *table, table->instance() != 0);
    table->appendKey(line_, value);
    append(line_, R"(,"status":")", VelaSwitchApi::nameOf(EntryProgrammedStatus::programmed),
           R"("})");
    result_(line_);
  }
}

/// Who wants to hear no more of the story spares events the telling.
void EventRunner::story(const std::string& event, const std::string& outcome) {
  if (!story_(event, outcome)) story_ = nullptr;
}

void EventRunner::tell(const Json& event, const std::string& outcome) {
  if (!story_) return;
  std::string what = std::to_string(number_) + ". " + event["op"].get<std::string>();
  if (event.contains("table")) what += " " + event["table"].get<std::string>();
  if (event.contains("instance")) what += "/" + std::to_string(number(event, "instance", 0));
  if (event.contains("key")) what += " " + event["key"].dump();
  story(what, outcome);
}

TableAdapter& EventRunner::tableOf(const Json& event) const {
  const Json& name = member(event, "table");
  if (!name.is_string()) throw InputException("\"table\" is not a text");
  return agent_.table(name.get_ref<const std::string&>(), number(event, "instance", 0));
}

/// The table of an event that changes it.
TableAdapter& EventRunner::changedTable(const Json& event) const {
  TableAdapter& table = tableOf(event);
  if (const char* owner = ownerOf(table)) {
    throw InputException("table " + table.name() + " is " + owner);
  }
  table.typed().checkChangeable();
  return table;
}

std::optional<Desire> EventRunner::desireOf(std::string_view line) {
  EntryEvent& read = ring_.front();
  if (waiting_.empty() && reader_.read(line, 0, read) && !ownerOf(*read.table)) {
    if (!read.withdraws) read.table->typed().check(read.key, read.result);
    return Desire{read.withdraws, read.table, read.table->keyToJson(read.key)};
  }
  const Json event = documentOf(line);
  const bool withdraws = member(event, "op") == "del";
  if (!withdraws && event["op"] != "set") return std::nullopt;
  TableAdapter& table = changedTable(event);
  if (withdraws) {
    allow(event, {"op", "table", "instance", "key"});
  } else {
    allow(event, {"op", "table", "instance", "key", "result"});
  }
  const AnyValue key = table.keyFromJson(member(event, "key"));
  if (!withdraws) table.typed().check(key, table.resultFromJson(event.value("result", Json())));
  return Desire{withdraws, &table, table.keyToJson(key)};
}

HwTableAdapter& EventRunner::hardwareOf(const Json& event) const {
  TableAdapter& table = tableOf(event);
  HwTableAdapter* hardware = table.hardware();
  if (!hardware) {
    throw InputException("table " + table.name() +
                         " has no rows of its own: name the level, such as Lpm26");
  }
  return *hardware;
}

/// Begins the line of an entry; its key comes next.
void EventRunner::beginLine(const char* op, const TableAdapter& table, bool namesInstance) {
  line_.clear();
  append(line_, R"({"op":")", op, R"(","table":)", Quoted{table.name()});
  if (namesInstance) append(line_, R"(,"instance":)", table.instance());
  line_ += R"(,"key":)";
}

/// What an announcement is, whoever read it: that it counts, and what is odd about it.
void EventRunner::announced(bool before, const std::vector<std::string>& warnings) {
  agent_.settle();
  if (before) {
    ++repeats_;
    if (warnOfRepeats_ && warn_) warn_("announced before; this one counts");
  }
  if (warn_) {
    for (const std::string& warning : warnings) warn_(warning);
  }
}

void EventRunner::set(const Json& event) {
  allow(event, {"op", "table", "instance", "key", "result"});
  TableAdapter& table = changedTable(event);
  const Json& keyJson = member(event, "key");
  const auto result = event.find("result");
  const U64 movesBefore = table.moves();
  const U64 writesBefore = agent_.recorder().rowWrites();
  const AnyValue key = table.keyFromJson(keyJson);
  Entries& entries = table.typed();
  const EntryProgrammedStatus status =
      entries.announce(key, table.resultFromJson(result == event.end() ? Json(nullptr) : *result));
  announced(entries.announcedBefore(), entries.warnings());
  if (status != EntryProgrammedStatus::programmed) {
    tell(event, refuse({table, event.contains("instance"), key, keyJson.dump(), status}));
    if (result_) result_(line_);
    return;
  }
  if (!story_) return;
  const U64 moves = table.moves() - movesBefore;
  const U64 writes = agent_.recorder().rowWrites() - writesBefore;
  std::string sentence = placeText(table, key);
  if (moves > 0)
    sentence += ", after moving " + count(moves, "entry", "entries") + " out of the way";
  sentence += writes == 0 ? "; hardware already held that" : "; wrote " + rows(writes);
  tell(event, sentence);
}

/// Makes the line of a refusal, where someone wants it; returns what the story says of it.
std::string EventRunner::refuse(const Refusal& refusal) {
  ++refusals_;
  if (!result_ && !story_) return {};
  const TableAdapter& table = refusal.table;
  const char* status = VelaSwitchApi::nameOf(refusal.status);
  std::string sentence = story_ ? std::string("not programmed: ") + status : std::string();
  beginLine("set", table, refusal.namesInstance);
  appendCompact(line_, refusal.keyText);
  append(line_, R"(,"status":")", status, R"(")");
  if (refusal.status == EntryProgrammedStatus::tableFull) {
    const std::size_t rows = table.competitors(refusal.key);
    const TableEntries* level = table.levelOf(refusal.key);
    append(line_, R"(,"competing":{"entries":)", rows + 1, R"(,"rows":)", rows);
    if (level) append(line_, R"(,"level":)", Quoted{level->name()});
    if (explain_) explainRefusal(table, table.competing(refusal.key), line_);
    line_ += '}';
    if (story_) {
      sentence += "; " + competingText(rows + 1) + (level ? " in " + level->name() : "");
    }
  }
  line_ += '}';
  return sentence;
}

/// The entries in the way, and what has to go for the refused one to come in: each row's entries
/// make room for one more.
void EventRunner::explainRefusal(const TableAdapter& table,
                                 const std::vector<Competitor>& competing,
                                 std::string& line) const {
  Json keys = Json::array();
  Json withdraw = Json::array();
  for (const auto& competitor : competing) {
    const std::vector<Json> announced = announcedAt(agent_, table, competitor);
    for (const Json& key : announced) keys.push_back(key);
    withdraw.push_back(announced);
  }
  append(line, R"(,"keys":)", keys.dump(), R"(,"withdraw":)", withdraw.dump());
}

void EventRunner::del(const Json& event) {
  allow(event, {"op", "table", "instance", "key"});
  const U64 writesBefore = agent_.recorder().rowWrites();
  const bool known = changedTable(event).del(member(event, "key"));
  agent_.settle();
  if (!story_) return;
  const U64 writes = agent_.recorder().rowWrites() - writesBefore;
  std::string sentence = known ? "removed" : "there is no such entry";
  if (known || writes != 0) sentence += "; wrote " + rows(writes);
  if (!admitted_.empty()) {
    sentence +=
        ", with those of " + count(admitted_.size(), "entry that comes in", "entries that come in");
  }
  tell(event, sentence);
}

void EventRunner::hit(const Json& event) {
  allow(event, {"op", "table", "instance", "key", "at"});
  TableAdapter& table = tableOf(event);
  const Json& at = member(event, "at");
  const auto time = fromJson<Orb::Seconds>(at);
  DataPath::Steps steps;
  const Json found = lookup(table, member(event, "key"), steps);
  const bool polled = table.pollHitBits(time);
  const auto reported = [&] {
    const auto step =
        std::find_if(steps.begin(), steps.end(), [](const auto& each) { return !each.refusal; });
    const HwTableAdapter* hit = step == steps.end() ? nullptr : askedTable(agent_, *step);
    return hit && hit->reportsHits();
  };
  tell(event, found.is_null() ? "nothing there to hit"
              : !reported()   ? "hit, but rows of this table have no hit bits: nothing is reported"
              : polled        ? "hit at " + at.dump() + " s"
                              : "hit, but the poll failed");
}

/// What the data path finds, and by which tables.
Json EventRunner::lookup(const TableAdapter& table, const Json& key, DataPath::Steps& steps) {
  DataPath& dataPath = agent_.dataPath();
  dataPath.stepsIs(&steps);
  try {
    Json hit = table.lookup(dataPath, key);
    dataPath.stepsIs(nullptr);
    return hit;
  } catch (...) {
    dataPath.stepsIs(nullptr);
    throw;
  }
}

Json findingLine(const RowFinding& finding) {
  Json line = {{"finding", nameOf(finding.kind)},
               {"hwTableId", finding.hwTable->descriptor().identity.id}};
  if (finding.index) line["index"] = *finding.index;
  if (!finding.key.is_null()) line["key"] = finding.key;
  if (!finding.holds.is_null()) line["holds"] = finding.holds;
  if (finding.corrupt) line["corrupt"] = true;
  Json fields = Json::array();
  for (const auto& field : finding.fields) {
    fields.push_back({{"field", field.field},
                      {"expected", hexText(field.expected, 0)},
                      {"found", hexText(field.found, 0)}});
  }
  if (!fields.empty()) line["fields"] = fields;
  return line;
}

void EventRunner::sync(const Json& event) {
  allow(event, {"op", "table", "instance"});
  HwTableAdapter& table = hardwareOf(event);
  // What the audit is about to find is not what hardware never had.
  const std::vector<Waiting> waiting = waitingEntries(agent_, table, RoutesOfLevels::here);
  table.audit();
  agent_.settle();
  std::set<Json> inconsistent;
  std::set<Json> missing;
  std::set<HwIndex> unexpected;
  std::set<HwIndex> unreadable;
  std::set<HwIndex> corrupt;
  Json differences = Json::array();
  for (const RowFinding& finding : table.findings()) {
    switch (finding.kind) {
      case RowFinding::Kind::inconsistent:
        inconsistent.insert(finding.key);
        break;
      case RowFinding::Kind::missing:
        missing.insert(finding.key.is_null() ? finding.holds : finding.key);
        break;
      case RowFinding::Kind::unexpected:
        unexpected.insert(*finding.index);
        break;
      case RowFinding::Kind::unreadable:
        unreadable.insert(*finding.index);
        break;
    }
    if (finding.corrupt) corrupt.insert(*finding.index);
    if (finding.index) differences.push_back(findingLine(finding));
  }
  Json line = {{"op", "sync"},
               {"table", table.name()},
               {"instance", table.instance()},
               {"inconsistent", inconsistent},
               {"missing", missing},
               {"unexpected", unexpected}};
  Json waitingLines = Json::array();
  for (const Waiting& each : waiting) waitingLines.push_back(waitingLine(each));
  line["waiting"] = std::move(waitingLines);
  const std::vector<Json> disagreeing = disagreeingKeys(table, table.findings());
  if (!disagreeing.empty()) line["disagreeing"] = disagreeing;
  if (!corrupt.empty()) line["corrupt"] = corrupt;
  if (!differences.empty()) line["differences"] = differences;
  if (!unreadable.empty()) line["unreadable"] = unreadable;
  tell(event,
       "audited: " + count(inconsistent.size(), "inconsistent entry", "inconsistent entries") +
           ", " + std::to_string(missing.size()) + " missing, " +
           count(unexpected.size(), "unexpected row", "unexpected rows") + ", " +
           std::to_string(waiting.size()) + " waiting, " + std::to_string(disagreeing.size()) +
           " with copies that disagree");
  if (result_) result_(line.dump());
}

void EventRunner::corrupt(const Json& event) {
  allow(event, {"op", "table", "instance", "key", "bit", "hwTableId"});
  HwTableAdapter& table = hardwareOf(event);
  const auto place = table.place(member(event, "key"));
  if (!place) throw InputException("the entry has no row");
  member(event, "bit");
  const U32 bit = number(event, "bit", 0);
  const auto& hwTables = table.convertor().hwTables();
  if (hwTables.empty()) throw InputException("the table has no rows in hardware");
  const auto first = std::find_if(hwTables.begin(), hwTables.end(), [&](const auto& each) {
    return HwTableAdapter::holds(*each.second, place->index);
  });
  const auto hwTable =
      event.contains("hwTableId") ? hwTables.find(number(event, "hwTableId", 0)) : first;
  if (hwTable == hwTables.end()) throw InputException("the table has no such hwTableId");
  if (!HwTableAdapter::holds(*hwTable->second, place->index)) {
    throw InputException("that hardware table has no row for the entry");
  }
  const auto& mapped = hwTable->second->mapped(place->index);
  const auto word =
      std::find_if(mapped.begin(), mapped.end(), [&](const auto& m) { return m.word == bit / 32; });
  const auto position = static_cast<U32>(word - mapped.begin());
  if (word == mapped.end() ||
      !agent_.chip().flipBit(hwTable->second->busHandle(), place->index, position, bit % 32)) {
    throw InputException("bit " + std::to_string(bit) + " is in no register of the row");
  }
  tell(event, "bit " + std::to_string(bit) + " of the row is flipped in the switch");
}

void EventRunner::lookup(const Json& event) {
  allow(event, {"op", "table", "instance", "key", "expect"});
  TableAdapter& table = tableOf(event);
  Json line = {{"op", event["op"]}, {"table", table.name()}};
  if (event.contains("instance")) line["instance"] = table.instance();
  line["key"] = member(event, "key");
  DataPath::Steps steps;
  line["hit"] = lookup(table, member(event, "key"), steps);
  const Json end = endOf(steps);
  if (!end.is_null()) line["ended"] = end;
  if (explain_) {
    Json& explanation = line["explain"] = {{"asked", describeSteps(agent_, steps)}};
    table.explain(agent_.dataPath(), event["key"], line["hit"], explanation);
  }
  std::string sentence =
      line["hit"].is_null() ? "the data path finds nothing" : "the data path finds it";
  if (!end.is_null()) {
    sentence +=
        "; it ends at " + end["table"].get<std::string>() + ": " + end["why"].get<std::string>();
  }
  if (const auto expected = event.find("expect"); expected != event.end()) {
    const bool met = meets(line["hit"], *expected);
    line["met"] = met;
    if (!met) {
      line["expect"] = *expected;
      ++unmet_;
    }
    sentence += met ? ", as expected" : ", which was not expected";
  }
  tell(event, sentence);
  if (result_) result_(line.dump());
}

void EventRunner::fail(const Json& event) {
  allow(event, {"op", "writes", "reads"});
  const U32 writes = number(event, "writes", 0);
  const U32 reads = number(event, "reads", 0);
  agent_.chip().failWritesIs(writes);
  agent_.chip().failReadsIs(reads);
  tell(event, "the next " + count(writes, "row write", "row writes") + " and " +
                  count(reads, "row read", "row reads") + " will fail");
}

}  // namespace VelaAgent
