#include "agent/Why.h"

#include <algorithm>
#include <bit>
#include <set>
#include <utility>

#include "agent/Events.h"
#include "agent/Explain.h"
#include "agent/RouteEntries.h"
#include "agent/TableAudit.h"

namespace VelaAgent {

using VelaDevice::DataPath;
using VelaSwitchTable::LpmRoutes;
using Status = EntryProgrammedStatus;

/// An entry, and the keys of rows that it becomes.
struct Reasons::Subject {
  TableAdapter& table;
  AnyValue key;
  Json name;                   ///< The key as JSON.
  HwTableAdapter* hardware;    ///< Where the rows are; null where there are none.
  std::vector<AnyValue> rows;  ///< Keys there: a route of the first level has several.
  AnyValue result;             ///< None where there is no entry.
  Status status;

  const RouteKey* route() const { return table.hardware() ? nullptr : &key.as<RouteKey>(); }
};

namespace {

void say(Json& answer, std::string sentence) { answer["says"].push_back(std::move(sentence)); }

void blame(Json& answer, const char* cause) {
  Json& causes = answer["causes"];
  if (std::find(causes.begin(), causes.end(), cause) == causes.end()) causes.push_back(cause);
}

/// What one row holds: of what routes share it, all have to go.
std::string itemText(const Json& keys) {
  std::string text;
  for (const Json& key : keys) {
    if (!text.empty()) text += " with ";
    if (key.is_object() && key.contains("table")) {
      text += key["table"].get<std::string>() + " " + key["key"].dump();
    } else if (key.is_object() && key.contains("prefix")) {
      text += key["vrf"].dump() + ":" + key["prefix"].get<std::string>();
    } else {
      text += key.dump();
    }
  }
  return text;
}
std::string itemText(const Ipnet::IpPrefix& prefix) { return Orb::text(prefix); }

/// The first of a list, in words.
template <class List>
std::string listText(const List& list) {
  constexpr std::size_t most = 4;
  std::string text;
  for (std::size_t i = 0; i < std::min(list.size(), most); ++i) {
    text += (i == 0 ? "" : ", ") + itemText(list[i]);
  }
  if (list.size() > most) text += " and " + std::to_string(list.size() - most) + " more";
  return text;
}

/// The first routes of a list.
Json firstOf(U8 vrf, const std::vector<Ipnet::IpPrefix>& prefixes) {
  constexpr std::size_t most = 8;
  Json first = Json::array();
  for (std::size_t i = 0; i < std::min(prefixes.size(), most); ++i) {
    first.push_back(toJson(VelaSwitch::LpmKey{vrf, prefixes[i]}));
  }
  return first;
}

std::string entryText(const TableAdapter& table, const Json& key) {
  if (table.hardware()) return table.name() + " " + key.dump();
  return "route " + key["prefix"].get<std::string>() + " in VRF " + key["vrf"].dump();
}

std::string rowText(const Json& row) {
  std::string text = "row " + row["index"].dump();
  if (row.contains("way")) {
    text = "way " + row["way"].dump() + ", row " + row["row"].dump();
  }
  return text;
}

U64 addresses(const Ipnet::IpPrefix& prefix) { return U64{1} << (32 - prefix.len()); }

bool within(const Ipnet::IpPrefix& prefix, const Ipnet::IpPrefix& wider) {
  return prefix.len() >= wider.len() && Ipnet::IpPrefix(prefix.address(), wider.len()) == wider;
}

/// Which bits of a field differ, as a text.
std::string flippedText(const VelaSwitchApi::FieldDifference& field) {
  const int bits = std::popcount(field.expected ^ field.found);
  return field.field + " is " + hexText(field.found, 0) + ", should be " +
         hexText(field.expected, 0) + " (" + std::to_string(bits) + (bits == 1 ? " bit" : " bits") +
         " flipped)";
}

/// What an audit found of a row.
std::string findingText(const RowFinding& finding) {
  static constexpr const char* says[] = {" differs", " is empty", " is no entry's that is desired",
                                         " could not be read"};
  const std::string& name = finding.hwTable->descriptor().identity.name;
  if (!finding.index) return "no row of " + name + " holds it";
  std::string text = "row " + std::to_string(*finding.index) + " of " + name +
                     says[static_cast<std::size_t>(finding.kind)];
  const char* separator = ": ";
  for (const auto& field : finding.fields) {
    text += separator + flippedText(field);
    separator = "; ";
  }
  return text;
}

}  // namespace

Reasons::Subject Reasons::subjectOf(TableAdapter& table, const Json& key) const {
  Subject subject{table, table.keyFromJson(key), nullptr, table.hardware(), {}, {}, {}};
  const Entries& entries = table.typed();
  subject.name = table.keyToJson(subject.key);
  subject.result = entries.resultOf(subject.key);
  subject.status = entries.status(subject.key);
  if (subject.hardware) {
    subject.rows.push_back(AnyValue::of(AnyRef(subject.key)));
    return subject;
  }
  if (&table != &routes()) {
    throw InputException(table.name() + " is a way through several tables: name one of them");
  }
  const RouteKey& route = *subject.route();
  const VelaSwitchApi::SwTable& level = agent_.routeWriter().tableOf(route.prefix().len());
  subject.hardware = &agent_.adapterOf(level);
  if (subject.hardware->typed().engine()) {
    subject.rows.push_back(AnyValue::of(LpmRoutes::keyOf(route)));
    return subject;
  }
  constexpr U8 length = VelaRoutes::FirstLevel::keyLength;
  const U32 count = 1u << (length - route.prefix().len());
  for (U32 i = 0; i < count; ++i) {
    const U32 address = route.prefix().address().number() | i << (32 - length);
    subject.rows.push_back(
        AnyValue::of(RouteKey{route.vrf(), Ipnet::IpPrefix(Ipnet::IpAddr(address), length)}));
  }
  return subject;
}

Json Reasons::entry(TableAdapter& table, const Json& key) {
  return entry(subjectOf(table, key), true);
}

/// `shadows`: routes within it are told as well.
Json Reasons::entry(const Subject& subject, bool shadows) {
  const TableAdapter& table = subject.table;
  Json answer = {{"table", table.name()}, {"instance", table.instance()}, {"key", subject.name}};
  const bool there =
      bool(subject.result) && (!desiresKnown_ || subject.table.typed().announced(subject.key));
  const bool notTold = subject.route() && whyNotTold(*subject.route());
  answer["desired"] = desiresKnown_ ? Json(there || notTold) : Json(nullptr);
  answer["causes"] = Json::array();
  answer["says"] = Json::array();
  if (there) answer["result"] = anyToJson(subject.result);
  if (there && desiresKnown_) {
    addStatus(subject, answer);
  } else {
    addAbsence(subject, answer);
  }
  if (subject.route()) {
    if (there && shadows) addShadows(*subject.route(), answer);
    addLevel(subject, answer);
  } else {
    const std::vector<Json> routes = agent_.routesAt(table, subject.name);
    if (!routes.empty()) answer["routes"] = routes;
  }
  // Last: to the tables, what an audit finds is a hardware error.
  if (desiresKnown_) {
    addFindings(subject, answer);
  } else {
    addCorruption(subject, answer);
  }
  addRows(subject, answer);
  return answer;
}

/// What became of a desired entry.
void Reasons::addStatus(const Subject& subject, Json& answer) {
  answer["status"] = VelaSwitchApi::nameOf(subject.status);
  const std::string name = entryText(subject.table, subject.name);
  switch (subject.status) {
    case Status::programmed: {
      const auto place = subject.hardware->place(subject.rows.front());
      say(answer,
          name + " is programmed" +
              (place && place->location ? " in " + subject.hardware->name() + " way " +
                                              std::to_string(place->location->way) + ", row " +
                                              std::to_string(place->location->row)
                                        : ""));
      break;
    }
    case Status::tableFull:
      blame(answer, "waiting");
      addProof(subject, answer);
      break;
    case Status::duplicateKey:
      blame(answer, "duplicate");
      addCounterpart(subject, answer);
      break;
    case Status::hardwareError:
      blame(answer, "hardwareError");
      say(answer, name +
                      " is desired, but a register access failed, or an audit found its row wrong: "
                      "announce it again, or let an audit repair it");
      break;
    case Status::notProgrammed:
      say(answer, name + " is desired, but was not programmed");
      break;
  }
  addCuts(subject, answer);
}

void Reasons::addProof(const Subject& subject, Json& answer) const {
  const auto keysOf = [&](const std::vector<Competitor>& rows) {
    Json keys = Json::array();
    for (const auto& each : rows) keys.push_back(announcedAt(agent_, subject.table, each));
    return keys;
  };
  const auto competing = subject.table.competing(subject.key);
  const Json letsIn = keysOf(subject.table.typed().yielding(subject.key));
  Json& proof = answer["competing"] = competingLine(competing.size() + 1);
  Json rows = Json::array();
  for (const auto& each : competing) rows.push_back(each.index);
  proof["indexes"] = std::move(rows);
  proof["keys"] = keysOf(competing);
  answer["letsIn"] = letsIn;
  say(answer, entryText(subject.table, subject.name) + " waits for room in " +
                  subject.hardware->name() + ": " + competingText(competing.size() + 1));
  say(answer, letsIn.empty()
                  ? "whichever of them goes, somebody comes in who waits longer or needs "
                    "fewer moves"
              : letsIn.size() == 1 ? "it comes in when this goes: " + listText(letsIn)
                                   : "it comes in when any one of these goes: " + listText(letsIn));
  addTurn(subject, answer);
}

/// How many wait in front of it, of those that wait for the same rows.
void Reasons::addTurn(const Subject& subject, Json& answer) const {
  const auto& waiting = subject.hardware->typed().engine()->waiting();
  const auto* own = waiting.equal(*subject.hardware->typed().equals(subject.rows.front()).front());
  if (!own) return;
  U64 place = 1;
  waiting.forEach([&](const Keel::Cuckoo::HashItem& each) {
    if (waiting.arrival(each) < waiting.arrival(*own)) ++place;
  });
  answer["turn"] = {{"place", place}, {"waiting", waiting.size()}};
  if (waiting.size() == 1) return;
  say(answer, "it is number " + std::to_string(place) + " of the " +
                  std::to_string(waiting.size()) + " that wait for rows there");
}

void Reasons::addCounterpart(const Subject& subject, Json& answer) const {
  for (const auto& equal : subject.hardware->typed().equals(subject.rows.front())) {
    const HwTableAdapter& owner = agent_.adapterOf(equal->table());
    Json key = owner.keyToJson(owner.typed().keyOf(*equal));
    if (&owner == subject.hardware && key == owner.keyToJson(subject.rows.front())) continue;
    answer["counterpart"] = {{"table", owner.name()}, {"instance", owner.instance()}, {"key", key}};
    say(answer, "hardware cannot tell " + entryText(subject.table, subject.name) + " from " +
                    entryText(owner, key) + ", which came before: it comes in when that goes");
    return;
  }
}

/// What hardware cuts of it is what the reader of events warned of.
void Reasons::addCuts(const Subject& subject, Json& answer) const {
  Entries& entries = subject.table.typed();
  entries.check(subject.key, subject.result);
  for (const std::string& warning : entries.warnings()) {
    if (warning.find(": cut ") != std::string::npos) blame(answer, "cutField");
    say(answer, warning);
  }
}

/// An entry that nobody announced, as far as is known.
void Reasons::addAbsence(const Subject& subject, Json& answer) const {
  const std::string name = entryText(subject.table, subject.name);
  const RouteKey* route = subject.route();
  const auto notTold = route ? whyNotTold(*route) : std::nullopt;
  if (notTold) {
    answer["notTold"] = notTold->word;
    blame(answer, "notTold");
    say(answer, "a source wants " + name + ", but the switch's tables were not told of it (" +
                    notTold->word + "): " + notTold->meaning);
  } else if (!desiresKnown_) {
    say(answer, subject.result ? "the switch holds " + name + "; what is desired is not known"
                               : "the switch holds no " + name);
  } else {
    blame(answer, "notDesired");
    say(answer,
        "nobody announced " + name + (subject.result ? ", which registers hold from before" : ""));
  }
  if (!route || subject.result) return;
  for (U32 vrf = 0; vrf < agent_.profile().vrfs(); ++vrf) {
    const RouteKey other{static_cast<U8>(vrf), route->prefix()};
    if (vrf == route->vrf() || !desired(other)) continue;
    blame(answer, "wrongVrf");
    answer["elsewhere"].push_back(toJson(other));
    say(answer, "it is in VRF " + std::to_string(vrf));
  }
  const auto wider = covering(route->vrf(), route->prefix().address());
  const auto at = std::find_if(wider.begin(), wider.end(), [&](const RouteKey& each) {
    return each.prefix().len() < route->prefix().len();
  });
  if (at == wider.end()) return;
  answer["covered"] = toJson(*at);
  say(answer, "its addresses are covered by " + Orb::text(at->prefix()));
}

const std::vector<RowFinding>& Reasons::findingsOf(HwTableAdapter& table) {
  const auto [at, isNew] = findings_.try_emplace(&table);
  if (isNew) {
    table.audit();
    at->second = table.findings();
  }
  return at->second;
}

/// Without desires nothing can be compared, but rows can be such as none may be.
void Reasons::addCorruption(const Subject& subject, Json& answer) const {
  const auto rows = subject.hardware->typed().candidates(subject.rows.front());
  for (const auto& [id, index] : subject.hardware->corruptRows()) {
    if (std::find(rows.begin(), rows.end(), index) == rows.end()) continue;
    blame(answer, "rowDiffers");
    answer["corrupt"].push_back(index);
    say(answer, "row " + std::to_string(index) +
                    ", which it may take, is corrupt: an audit tells what is wrong, and can repair "
                    "it, when it is given the events that desire it");
  }
}

/// Whether the rows that it may take hold what they should.
bool Reasons::rowsGood(const Subject& subject) const {
  TableEntries& table = subject.hardware->typed();
  for (const AnyValue& key : subject.rows) {
    for (const HwIndex index : table.candidates(key)) {
      for (const auto& [id, hwTable] : table.convertor().hwTables()) {
        if (HwTableAdapter::holds(*hwTable, index) && !table.rowGood(id, index)) return false;
      }
    }
  }
  return true;
}

void Reasons::addFindings(const Subject& subject, Json& answer) {
  // An audit takes long, and would find nothing of it.
  if (subject.status != Status::hardwareError && rowsGood(subject)) return;
  std::set<HwIndex> rows;
  std::vector<Json> keys;
  for (const AnyValue& key : subject.rows) {
    keys.push_back(subject.hardware->keyToJson(key));
    const auto place = subject.hardware->place(key);
    if (place && subject.result) rows.insert(place->index);
  }
  for (const RowFinding& finding : findingsOf(*subject.hardware)) {
    const Json& key = finding.key.is_null() ? finding.holds : finding.key;
    const bool ours = std::find(keys.begin(), keys.end(), key) != keys.end() ||
                      (finding.index && rows.count(*finding.index) != 0);
    if (!ours) continue;
    blame(answer, "rowDiffers");
    answer["findings"].push_back(findingLine(finding));
    say(answer, findingText(finding));
  }
  if (answer.contains("findings"))
    say(answer, "velatable audit --repair writes it as it should be");
}

/// Routes within a route, in ascending order.
struct Reasons::Inside {
  std::vector<Ipnet::IpPrefix> taking;  ///< Those in hardware take its packets,
  std::vector<Ipnet::IpPrefix> absent;  ///< the others leave them to it.
};

Reasons::Inside Reasons::inside(const RouteKey& route) const {
  const VelaRoutes::RouteWriter& writer = agent_.routeWriter();
  const auto takesPackets = [&](const LpmRoutes& shared, U32 node) {
    return !desiresKnown_ || (writer.routes().statusOf(shared, node).status == Status::programmed &&
                              !writer.marked(shared.routeOf(node)));
  };
  Inside inside;
  writer.routes().forEachKey([&](const LpmRoutes& shared) {
    if (shared.key.vrf() != route.vrf()) return;
    const Ipnet::IpPrefix& key = shared.key.prefix();
    if (!within(key, route.prefix()) && !within(route.prefix(), key)) return;
    LpmRoutes::forEachNode(shared.nodes[LpmRoutes::desired], [&](U32 node) {
      const Ipnet::IpPrefix each = shared.routeOf(node).prefix();
      if (each == route.prefix() || !within(each, route.prefix())) return;
      (takesPackets(shared, node) ? inside.taking : inside.absent).push_back(each);
    });
  });
  std::sort(inside.taking.begin(), inside.taking.end());
  std::sort(inside.absent.begin(), inside.absent.end());
  return inside;
}

void Reasons::addShadows(const RouteKey& route, Json& answer) const {
  const auto [taking, absent] = inside(route);
  if (!absent.empty()) {
    answer["standsInFor"] = {{"routes", absent.size()}, {"first", firstOf(route.vrf(), absent)}};
    say(answer, "packets to longer routes that are not in hardware take it: " + listText(absent));
  }
  if (taking.empty()) return;
  U64 taken = 0;
  U64 end = 0;
  for (const Ipnet::IpPrefix& each : taking) {
    // The wider of two that overlap comes first.
    const U64 first = each.address().number();
    if (first < end) continue;
    end = first + addresses(each);
    taken += addresses(each);
  }
  const U64 all = addresses(route.prefix());
  answer["longer"] = {{"routes", taking.size()},
                      {"addresses", taken},
                      {"of", all},
                      {"first", firstOf(route.vrf(), taking)}};
  blame(answer, "shadowed");
  say(answer, (taken == all ? "longer routes take all of its addresses: "
                            : "longer routes take " + std::to_string(taken) + " of its " +
                                  std::to_string(all) + " addresses: ") +
                  listText(taking));
}

/// Where a route is to lie, and which of the cells there are its own.
void Reasons::addLevel(const Subject& subject, Json& answer) const {
  const RouteKey& route = *subject.route();
  Json& level = answer["level"] = {{"table", subject.hardware->name()}};
  const Json name = toJson(route);
  if (!subject.hardware->typed().engine()) {
    level["rows"] = subject.rows.size();
    level["owned"] = std::count_if(subject.rows.begin(), subject.rows.end(), [&](const auto& key) {
      const auto at = agent_.routesAt(*subject.hardware, subject.hardware->keyToJson(key));
      return std::find(at.begin(), at.end(), name) != at.end();
    });
    return;
  }
  level["key"] = toJson(LpmRoutes::keyOf(route));
  const LpmRoutes* shared = agent_.routeWriter().routes().routesOf(LpmRoutes::keyOf(route));
  if (!shared) return;
  level["sharedBy"] = agent_.routesAt(*subject.hardware, level["key"]);
  Json& cells = level["cells"] = Json::array();
  for (U32 cell = 0; cell < LpmRoutes::Tree::cells; ++cell) {
    const U32 owner = shared->tree.ownerOfCell(cell);
    if (owner != LpmRoutes::Tree::none && shared->routeOf(owner) == route) cells.push_back(cell);
  }
}

/// What lies in a row, by its table's word; null for nothing.
Json Reasons::holderOf(const HwTableAdapter& table, HwIndex index) const {
  for (const auto& owner : agent_.tables()) {
    if (owner->typed().engine() != table.typed().engine() && owner.get() != &table) continue;
    if (owner.get() != &table && !table.typed().engine()) continue;
    Json key = owner->keyAt(index);
    if (key.is_null()) continue;
    Json holder = {{"table", owner->name()}, {"key", key}};
    const std::vector<Json> routes = agent_.routesAt(*owner, key);
    if (!routes.empty()) holder["routes"] = routes;
    return holder;
  }
  return nullptr;
}

/// The rows that it may take with who lies there, and what the switch holds in its own.
void Reasons::addRows(const Subject& subject, Json& answer) const {
  const HwTableAdapter& table = *subject.hardware;
  const AnyValue& key = subject.rows.front();
  const auto place = table.place(key);
  Json may = Json::array();
  for (const HwIndex index : table.typed().candidates(key)) {
    Json row = {{"index", index}};
    if (const auto at = table.location(index)) {
      row["way"] = at->way;
      row["row"] = at->row;
    }
    row["holds"] = holderOf(table, index);
    may.push_back(std::move(row));
  }
  if (subject.result && subject.status == Status::tableFull) {
    for (const Json& row : may) {
      if (row["holds"].is_null()) continue;
      say(answer, rowText(row) + " holds " + row["holds"]["table"].get<std::string>() + " " +
                      row["holds"]["key"].dump());
    }
  }
  answer["mayTake"] = std::move(may);
  if (!place) return;
  for (const auto& [id, hwTable] : table.convertor().hwTables()) {
    if (!HwTableAdapter::holds(*hwTable, place->index)) continue;
    Json row = describeRow(agent_.chip(), table, id, place->index);
    if (row.is_null()) continue;
    row["registers"] = heldRegisters(agent_, *hwTable, place->index);
    answer["rows"].push_back(std::move(row));
  }
}

std::vector<Reasons::RouteKey> Reasons::covering(U8 vrf, Ipnet::IpAddr address) const {
  std::vector<RouteKey> all;
  for (int length = 32; length >= 0; --length) {
    const RouteKey route{vrf, Ipnet::IpPrefix(address, static_cast<U8>(length))};
    if (desired(route)) all.push_back(route);
  }
  return all;
}

Json Reasons::address(const Json& asked) {
  AnyValue value(Orb::shapeOf<RouteAddress>);
  anyFromJson(asked, agent_.profile(), value.shape(), value.value());
  const auto& at = value.as<RouteAddress>();
  const RouteKey whole{at.vrf(), Ipnet::IpPrefix(at.address(), 32)};
  Json answer = {{"address", anyToJson(value)}};
  DataPath path(std::as_const(agent_.chip()), agent_.profile());
  DataPath::Steps steps;
  path.stepsIs(&steps);
  const Json hit = answer["hit"] = routes().lookup(path, answer["address"]);
  path.stepsIs(nullptr);
  answer["causes"] = Json::array();
  answer["says"] = Json::array();
  Json levels = describeSteps(agent_, steps);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const HwTableAdapter* table = askedTable(agent_, steps[i]);
    if (!table) continue;
    const auto* level = dynamic_cast<const VelaSwitchTable::LpmBaseTable*>(&table->table());
    const U8 length = level ? level->prefixBaseLen() : VelaRoutes::FirstLevel::keyLength;
    const RouteKey key{at.vrf(), Ipnet::IpPrefix(at.address(), length)};
    levels[i]["lookedUp"] = toJson(key);
    levels[i]["mayTake"] = table->typed().candidates(key);
  }
  answer["levels"] = std::move(levels);
  routes().explain(path, answer["address"], hit, answer);
  judge(whole, hit, answer);
  return answer;
}

/// The one of the routes that answered, if any did: lengths are told where registers have them.
std::vector<Reasons::RouteKey>::const_iterator Reasons::answering(const std::vector<RouteKey>& all,
                                                                  const Json& hit) const {
  if (hit.is_null()) return all.end();
  const VelaSwitch::NexthopIndexes found{VelaSwitch::L3LagIndex(hit["l3LagIndex"].get<U32>()),
                                         hit["rewriteIndex"].get<U8>()};
  const Json& told = hit["realPrefixLen"];
  return std::find_if(all.begin(), all.end(), [&](const RouteKey& route) {
    const U8 length = route.prefix().len();
    if (told.is_null() ? length > VelaRoutes::FirstLevel::keyLength : told != length) return false;
    const AnyValue result = routes().typed().resultOf(route);
    return result && result.as<VelaSwitch::NexthopIndexes>().raw() == found.raw();
  });
}

/// Compares what answered with what is desired.
void Reasons::judge(const RouteKey& at, const Json& hit, Json& answer) {
  const Ipnet::IpAddr address = at.prefix().address();
  const std::string where = Orb::text(address, " in VRF ", at.vrf());
  const auto all = covering(at.vrf(), address);
  const auto answers = answering(all, hit);
  if (answers != all.end()) answer["route"] = toJson(*answers);
  say(answer, hit.is_null()          ? "no route answers for " + where
              : answers != all.end() ? where + " takes " + Orb::text(answers->prefix())
                                     : where + " takes what is no desired route");
  if (all.empty() && desiresKnown_) {
    blame(answer, "notDesired");
    say(answer, "nobody announced a route that covers it");
  }
  if (all.empty()) addElsewhere(at, answer);
  addBetter({all.begin(), answers}, answer);
  if (answers != all.end() || hit.is_null() || hit["realPrefixLen"].is_null()) return;
  const RouteKey stray{at.vrf(), Ipnet::IpPrefix(address, hit["realPrefixLen"].get<U8>())};
  answer["stray"] = entry(routes(), toJson(stray));
  for (const Json& cause : answer["stray"]["causes"]) {
    if (cause == "rowDiffers") blame(answer, "rowDiffers");
  }
}

/// The routes that should have answered, and why they did not.
void Reasons::addBetter(const std::vector<RouteKey>& better, Json& answer) {
  std::vector<Subject> subjects;
  subjects.reserve(better.size());
  for (const RouteKey& route : better) subjects.push_back(subjectOf(routes(), toJson(route)));
  for (const Subject& subject : subjects) {
    Json why = entry(subject, false);
    const bool refused = desiresKnown_ && subject.status != Status::programmed;
    if (refused) blame(answer, "coveredByRefused");
    for (const Json& cause : why["causes"]) blame(answer, cause.get<std::string>().c_str());
    say(answer, Orb::text(subject.route()->prefix(), " should answer") +
                    (refused ? ", but is not there" : ""));
    for (const Json& sentence : why["says"]) say(answer, "  " + sentence.get<std::string>());
    answer["better"].push_back(std::move(why));
  }
}

/// Other VRFs that have a route for the address.
void Reasons::addElsewhere(const RouteKey& at, Json& answer) const {
  for (U32 vrf = 0; vrf < agent_.profile().vrfs(); ++vrf) {
    const auto other = covering(static_cast<U8>(vrf), at.prefix().address());
    if (other.empty()) continue;
    blame(answer, "wrongVrf");
    answer["elsewhere"].push_back(toJson(other.front()));
    say(answer, Orb::text("VRF ", vrf, " has ", other.front().prefix()));
  }
}

}  // namespace VelaAgent
