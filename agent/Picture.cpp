#include "agent/Picture.h"

#include <algorithm>
#include <bit>

#include "VelaSwitch/Crc.h"
#include "agent/Events.h"
#include "agent/Explain.h"
#include "agent/TableAudit.h"

namespace VelaAgent {

using VelaSwitchApi::HwTableConfig;
using VelaSwitchApi::HwTableId;
using VelaSwitchTable::LpmRoutes;

namespace {

/// Tables with more rows tell which are taken, and no more: a page is to stay small.
constexpr U32 wordsMost = 65536;
/// Refused entries of a table that are told, the keys of a proof, and findings of a table.
constexpr std::size_t refusalsMost = 12;
constexpr std::size_t proofMost = 32;
constexpr std::size_t findingsMost = 64;

std::string base64(const std::vector<U8>& bytes) {
  static constexpr char digits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(bytes.size() - i, 3);
    U32 group = 0;
    for (std::size_t j = 0; j < count; ++j) group |= U32{bytes[i + j]} << (16 - 8 * j);
    for (std::size_t j = 0; j < 4; ++j) {
      text += j <= count ? digits[group >> (18 - 6 * j) & 63] : '=';
    }
  }
  return text;
}

/// The single values that keys of a table are made of, a column each.
class KeyColumns {
 public:
  KeyColumns(const Entries& entries) : unused_(entries.unusedKeyField()) {
    flatten("", entries.keyShape(), 0);
  }

  void add(AnyRef key) {
    for (Leaf& leaf : leaves_) leaf.add(static_cast<const char*>(key.value) + leaf.offset);
  }
  Json json() const {
    Json fields = Json::array();
    for (const Leaf& leaf : leaves_) {
      Json field = {{"name", leaf.name}, {"type", leaf.type()}};
      if (leaf.isText()) {
        field["values"] = leaf.texts;
      } else {
        field["values"] = leaf.numbers.json();
      }
      if (leaf.isPrefix()) field["lengths"] = leaf.lengths.json();
      fields.push_back(std::move(field));
    }
    return fields;
  }

 private:
  struct Leaf {
    std::string name;
    const Orb::Shape* shape;
    std::size_t offset;
    NumberColumn numbers{};
    NumberColumn lengths{};
    Json texts = Json::array();

    bool isAddress() const { return shape->is<Ipnet::IpAddr>(); }
    bool isPrefix() const { return shape->is<Ipnet::IpPrefix>(); }
    bool isText() const { return !isAddress() && !isPrefix() && !shape->number; }
    const char* type() const {
      if (isAddress()) return "address";
      if (isPrefix()) return "prefix";
      if (isText()) return "text";
      return shape->kind == Orb::Kind::flag ? "flag" : "number";
    }
    void add(const void* value) {
      if (isAddress()) {
        numbers.add(static_cast<const Ipnet::IpAddr*>(value)->number());
      } else if (isPrefix()) {
        const auto& prefix = *static_cast<const Ipnet::IpPrefix*>(value);
        numbers.add(prefix.address().number());
        lengths.add(prefix.len());
      } else if (isText()) {
        texts.push_back(anyToJson({*shape, value}));
      } else {
        numbers.add(shape->number(value));
      }
    }
  };

  void flatten(std::string_view name, const Orb::Shape& shape, std::size_t offset) {
    if (shape.kind != Orb::Kind::record) {
      leaves_.push_back({std::string(name), &shape, offset});
      return;
    }
    for (const Orb::FieldShape& field : shape.fields) {
      if (field.name == unused_) continue;
      flatten(shape.scalar ? name : field.name, *field.shape, offset + field.offset);
    }
  }

  std::string_view unused_;
  std::vector<Leaf> leaves_;
};

/// Whether a row's place alone decides what the word of a row of a hash table holds.
bool followsFromPlace(const HwTableAdapter& table, const HwTableConfig& hwTable, U8 word) {
  return table.typed().engine() && hwTable.staticBits(word) != 0;
}

Json layoutJson(const Agent& agent, const HwTableAdapter& table, const HwTableConfig& hwTable) {
  const auto& descriptor = hwTable.descriptor();
  Json fields = Json::array();
  for (const auto& field : heldFields(table, descriptor.identity.id, descriptor.first)) {
    Json line = {field.name, field.first, field.width};
    if (field.content != VelaSwitchApi::RowField::varies) line.push_back(field.content);
    fields.push_back(std::move(line));
  }
  Json registers = Json::array();
  for (const auto& mapped : hwTable.mapped(descriptor.first)) {
    registers.push_back({mapped.word, agent.recorder().path(mapped.reg)});
  }
  return {{"registers", std::move(registers)}, {"fields", std::move(fields)}};
}

/// Whether two hardware tables of a software table have the same rows.
bool areCopies(const HwTableAdapter& table, const HwTableConfig& one, const HwTableConfig& other) {
  const auto& a = one.descriptor();
  const auto& b = other.descriptor();
  const auto fieldsOf = [&](const auto& descriptor) {
    std::vector<std::tuple<std::string_view, U32, U32>> fields;
    for (const auto& each : heldFields(table, descriptor.identity.id, descriptor.first)) {
      fields.emplace_back(each.name, each.first, each.width);
    }
    return fields;
  };
  return a.first == b.first && a.last == b.last && fieldsOf(a) == fieldsOf(b);
}

}  // namespace

Json NumberColumn::json() const {
  if (numbers_.empty()) return {0, 0, 0, ""};
  const auto [least, most] = std::minmax_element(numbers_.begin(), numbers_.end());
  const auto width = static_cast<U32>((std::bit_width(*most - *least) + 7) / 8);
  std::vector<U8> bytes;
  bytes.reserve(numbers_.size() * width);
  for (const U64 number : numbers_) {
    for (U32 i = 0; i < width; ++i) bytes.push_back(static_cast<U8>((number - *least) >> 8 * i));
  }
  return {numbers_.size(), *least, width, base64(bytes)};
}

/// The rows of a hardware table and of its copies, with the tables whose entries lie there.
class Picture::RowSet {
 public:
  RowSet(HwTableAdapter& table, HwTableConfig& hwTable) : tables_{&table}, hwTables_{&hwTable} {}

  /// Takes a hardware table up as another copy, if it is one.
  bool takes(const HwTableAdapter& table, HwTableConfig& hwTable) {
    if (&table != tables_.front() || !areCopies(table, *hwTables_.front(), hwTable)) return false;
    hwTables_.push_back(&hwTable);
    return true;
  }
  bool isOf(const HwTableAdapter& table) const {
    return std::find(tables_.begin(), tables_.end(), &table) != tables_.end();
  }
  bool has(const HwTableConfig& hwTable) const {
    return std::find(hwTables_.begin(), hwTables_.end(), &hwTable) != hwTables_.end();
  }
  void shareWith(HwTableAdapter& table) { tables_.push_back(&table); }

  const std::vector<HwTableAdapter*>& tables() const { return tables_; }
  const std::vector<HwTableConfig*>& hwTables() const { return hwTables_; }
  HwTableAdapter& table() const { return *tables_.front(); }
  HwTableConfig& hwTable() const { return *hwTables_.front(); }
  const Keel::Cuckoo::Table* engine() const { return table().typed().engine(); }

 private:
  std::vector<HwTableAdapter*> tables_;  ///< The one that declared the rows comes first.
  std::vector<HwTableConfig*> hwTables_;
};

namespace {

/// What is told of the rows that hold something, row by row.
class RowColumns {
 public:
  RowColumns(const VelaDevice::SimulatedSwitch& chip, const std::vector<HwTableAdapter*>& tables,
             const std::vector<HwTableConfig*>& hwTables)
      : tables_(tables), hwTable_(*hwTables.front()), table_(*tables.front()) {
    for (const HwTableConfig* each : hwTables) {
      const auto& identity = each->descriptor().identity;
      memories_.push_back(chip.find(identity.family, identity.instance, identity.id));
    }
    const auto& descriptor = hwTable_.descriptor();
    whole_ = descriptor.last - descriptor.first < wordsMost;
    for (const auto& mapped : hwTable_.mapped(descriptor.first)) {
      if (!followsFromPlace(table_, hwTable_, mapped.word)) words_[mapped.word];
    }
    if (const auto* engine = table_.typed().engine()) others_.resize(engine->ways() - 1u);
    for (const HwTableAdapter* each : tables_) keys_.emplace_back(each->typed());
    last_ = descriptor.first;
  }

  void add(HwIndex index) {
    const U32* held = memories_.front() ? memories_.front()->row(index) : nullptr;
    RowImage image{};
    const auto& mapped = hwTable_.mapped(index);
    for (std::size_t i = 0; held && i < mapped.size(); ++i) image[mapped[i].word] = held[i];
    std::size_t owner = 0;
    AnyValue key;
    while (owner < tables_.size() && !key) key = tables_[owner++]->typed().keyAt(index);
    if (!key && (!held || !saysSomething(table_, hwTable_, index, image.data()))) return;
    gaps_.add(index - last_);
    last_ = index;
    owners_.add(key ? owner : 0);
    hits_.add(wasHit(index) ||
              std::any_of(memories_.begin(), memories_.end(),
                          [&](const auto* memory) { return memory && memory->hit(index) != 0; }));
    if (!whole_) return;
    for (auto& [word, values] : words_) values.add(image[word]);
    if (key) addEntry(*tables_[owner - 1], owner - 1, key, index);
  }
  Json json() const {
    Json rows = {{"gaps", gaps_.json()}, {"owners", owners_.json()}, {"hits", hits_.json()}};
    if (!whole_) return rows;
    for (const auto& [word, values] : words_) rows["words"].push_back({word, values.json()});
    for (const NumberColumn& each : others_) rows["others"].push_back(each.json());
    Json& keys = rows["keys"] = Json::array();
    for (const KeyColumns& each : keys_) keys.push_back(each.json());
    return rows;
  }

 private:
  void addEntry(const HwTableAdapter& table, std::size_t number, AnyRef key, HwIndex index) {
    keys_[number].add(key);
    if (others_.empty()) return;
    std::size_t way = 0;
    const U32 rowsPerWay = table.typed().engine()->rowsPerWay();
    for (const HwIndex each : table.typed().candidates(key)) {
      if (each != index && way < others_.size()) others_[way++].add(each % rowsPerWay);
    }
  }
  /// Whether a poll found the entry of a row hit.
  bool wasHit(HwIndex index) const {
    const auto* engine = table_.typed().engine();
    const auto* item = engine ? engine->at(index) : nullptr;
    return item &&
           static_cast<const VelaSwitchApi::HashBaseCuckooEntry*>(item)->lastHit().value() != 0;
  }

  const std::vector<HwTableAdapter*>& tables_;
  const HwTableConfig& hwTable_;
  const HwTableAdapter& table_;
  std::vector<const VelaDevice::SimulatedSwitch::Table*> memories_;
  bool whole_;  ///< Words and keys are told as well.
  HwIndex last_;
  NumberColumn gaps_;
  NumberColumn owners_;
  NumberColumn hits_;
  std::map<U8, NumberColumn> words_;  ///< By their number in the image.
  std::vector<NumberColumn> others_;  ///< The rows in the other ways that the entry may take.
  std::vector<KeyColumns> keys_;
};

}  // namespace

Picture::Picture(Agent& agent, FitMeter& meter, bool desiresKnown, Audit audit)
    : agent_(agent), meter_(meter), desiresKnown_(desiresKnown), audit_(audit) {
  json_ = {{"version", 1},
           {"profile", agent.profile().name()},
           {"vrfs", agent.profile().vrfs()},
           {"desiredKnown", desiresKnown},
           {"totals", {{"waiting", U64{0}}}},
           {"tables", Json::array()},
           {"rows", Json::array()},
           {"refusals", Json::array()},
           {"ladder", Json::array()},
           {"findings", Json::array()}};
  findRowSets();
  // To the tables, what an audit finds is a hardware error: it comes last.
  parts_.emplace_back([this] { json_["totals"]["programmed"] = agent_.programmed(); });
  for (const TableAdapter* table : agent.announced()) {
    parts_.emplace_back([this, table] { addTable(*table); });
    // Counting takes time where many wait.
    parts_.emplace_back([this, table] { json_["tables"].back()["refused"] = table->refused(); });
    parts_.emplace_back([this, table] { addWaiting(*table); });
  }
  for (std::size_t i = 0; i < rowSets_.size(); ++i) {
    parts_.emplace_back([this, i] { addRows(rowSets_[i], i); });
    if (!rowSets_[i].engine()) continue;
    parts_.emplace_back([this, i] { addRefusals(rowSets_[i], i); });
  }
  parts_.emplace_back([this] { addLadder(); });
  for (const auto& table : agent.tables()) {
    parts_.emplace_back([this, &table = *table] { addFindings(table); });
  }
  parts_.emplace_back([this] { addTotals(); });
  all_ = parts_.size();
}

Picture::~Picture() = default;

bool Picture::step() {
  if (parts_.empty()) return false;
  parts_.front()();
  parts_.pop_front();
  return !parts_.empty();
}

void Picture::finish(const std::function<void(double)>& progress) {
  while (step()) {
    if (progress) progress(1 - static_cast<double>(parts_.size()) / static_cast<double>(all_));
  }
}

void Picture::findRowSets() {
  for (const auto& table : agent_.tables()) {
    const auto shared = std::find_if(rowSets_.begin(), rowSets_.end(), [&](const RowSet& each) {
      return table->borrowsRows() && each.engine() == table->typed().engine();
    });
    if (shared != rowSets_.end()) {
      shared->shareWith(*table);
      continue;
    }
    for (const auto& each : table->convertor().hwTables()) {
      HwTableConfig& hwTable = *each.second;
      const bool taken = std::any_of(rowSets_.begin(), rowSets_.end(),
                                     [&](RowSet& rows) { return rows.takes(*table, hwTable); });
      if (!taken) rowSets_.emplace_back(*table, hwTable);
    }
  }
}

std::size_t Picture::numberOf(const TableAdapter& table) const {
  const auto& all = agent_.announced();
  return static_cast<std::size_t>(std::find(all.begin(), all.end(), &table) - all.begin());
}

const Picture::RowSet* Picture::rowSetOf(const TableAdapter& table) const {
  const auto* hardware = table.hardware();
  const auto at = std::find_if(rowSets_.begin(), rowSets_.end(), [&](const RowSet& each) {
    return hardware && each.isOf(*hardware);
  });
  return at == rowSets_.end() ? nullptr : &*at;
}

void Picture::addTable(const TableAdapter& table) {
  const TableFit fit = meter_.measure(table);
  Json line = {{"table", table.name()},
               {"instance", table.instance()},
               {"entries", fit.entries},
               {"unclaimed", table.unclaimed()},
               {"programmed", fit.entries - fit.refused}};
  if (const auto* hardware = table.hardware()) {
    const U64 taken = hardware->typed().engine() ? fit.taken : fit.taken + table.unclaimed();
    line["peak"] = hardware->typed().peak();
    line["taken"] = taken;
    line["capacity"] = fit.capacity;
    line["load"] = fit.capacity == 0 ? 0.0 : double(taken) / double(fit.capacity);
    if (fit.randomLoad) line["randomLoad"] = *fit.randomLoad;
  }
  if (const RowSet* rows = rowSetOf(table)) line["rows"] = rows - rowSets_.data();
  json_["tables"].push_back(std::move(line));
}

void Picture::addWaiting(const TableAdapter& table) {
  json_["tables"].back()["waiting"] = table.waiting();
  // What routes ask of a level is told by the routes.
  U64 announced = 0;
  for (const Misfit& each : misfits(agent_, table, ~std::size_t{0})) {
    if (each.status == EntryProgrammedStatus::tableFull) ++announced;
  }
  Json& all = json_["totals"]["waiting"];
  all = all.get<U64>() + announced;
}

void Picture::addRows(const RowSet& rows, std::size_t number) {
  const HwTableConfig& hwTable = rows.hwTable();
  const auto& descriptor = hwTable.descriptor();
  Json line = {{"hwTable", descriptor.identity.name}};
  for (const HwTableConfig* each : rows.hwTables()) {
    if (each != &hwTable) line["copies"].push_back(each->descriptor().identity.name);
  }
  for (const HwTableAdapter* table : rows.tables()) line["tables"].push_back(numberOf(*table));
  line["first"] = descriptor.first;
  line["last"] = descriptor.last;
  if (const auto* engine = rows.engine()) {
    line["ways"] = engine->ways();
    line["rowsPerWay"] = engine->rowsPerWay();
  }
  line.update(layoutJson(agent_, rows.table(), hwTable));
  RowColumns columns(agent_.chip(), rows.tables(), rows.hwTables());
  for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) columns.add(index);
  line["held"] = columns.json();
  json_["rows"][number] = std::move(line);
}

/// An entry, and the rows that it may take.
Json Picture::entryOf(const HwTableAdapter& table, AnyRef key) const {
  Json entry = {{"table", numberOf(table)}, {"key", table.keyToJson(key)}};
  entry["mayTake"] = table.typed().candidates(key);
  const std::vector<Json> routes = agent_.routesAt(table, entry["key"]);
  if (!routes.empty()) entry["routes"] = routes;
  return entry;
}

/// An entry that waits, with the proof that it has to.
Json Picture::refusalOf(const HwTableAdapter& table, AnyRef key) const {
  const auto competing = table.competing(key);
  Json line = entryOf(table, key);
  line["competing"] = competingLine(competing.size() + 1);
  if (competing.size() > proofMost) return line;
  Json& entries = line["competing"]["entriesThere"] = Json::array();
  for (const Competitor& each : competing) {
    const HwTableAdapter& owner = agent_.adapterOf(*each.table);
    Json entry = entryOf(owner, owner.typed().keyAt(each.index));
    entry["index"] = each.index;
    entries.push_back(std::move(entry));
  }
  Json& letsIn = line["letsIn"] = Json::array();
  for (const Competitor& each : table.typed().yielding(key)) letsIn.push_back(each.index);
  return line;
}

/// Those that have waited longest.
void Picture::addRefusals(const RowSet& rows, std::size_t number) {
  const auto& waiting = rows.engine()->waiting();
  std::vector<const VelaSwitchApi::HashBaseCuckooEntry*> items;
  waiting.forEach([&](const Keel::Cuckoo::HashItem& item) {
    items.push_back(&static_cast<const VelaSwitchApi::HashBaseCuckooEntry&>(item));
  });
  if (items.empty()) return;
  const std::size_t told = std::min(items.size(), refusalsMost);
  std::partial_sort(
      items.begin(), items.begin() + static_cast<std::ptrdiff_t>(told), items.end(),
      [&](const auto* a, const auto* b) { return waiting.arrival(*a) < waiting.arrival(*b); });
  Json list = Json::array();
  for (std::size_t i = 0; i < told; ++i) {
    const HwTableAdapter& owner = agent_.adapterOf(items[i]->table());
    list.push_back(refusalOf(owner, owner.typed().keyOf(*items[i])));
  }
  json_["refusals"].push_back(
      {{"rows", number}, {"waiting", waiting.size()}, {"first", std::move(list)}});
}

/// The levels in the order in which a lookup asks them.
void Picture::addLadder() {
  std::array<std::array<U64, 2>, 33> lengths{};  // announced, and in hardware
  const auto& routes = agent_.routeWriter().routes();
  routes.forEachRoute(LpmRoutes::desired, [&](const LpmRoutes& shared, U32 node) {
    auto& [all, programmed] = lengths[shared.routeOf(node).prefix().len()];
    ++all;
    const bool in = !shared.has(LpmRoutes::stated, node) ||
                    routes.statusOf(shared, node).status == EntryProgrammedStatus::programmed;
    if (in) ++programmed;
  });
  const auto add = [&](const HwTableAdapter& table, U32 shortest, U32 longest, Json line) {
    line["table"] = numberOf(table);
    line["rows"] = rowSetOf(table) - rowSets_.data();
    for (U32 length = longest + 1; length-- > shortest;) {
      line["routes"].push_back({length, lengths[length][0], lengths[length][1]});
    }
    json_["ladder"].push_back(std::move(line));
  };
  const auto& levels = VelaSwitchTable::lpmLevels;
  for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
    const auto* hardware = agent_.table(level->table.name, 0).hardware();
    const auto hash = level->crcLength == 10 ? VelaSwitch::crc10Hash : VelaSwitch::crc12Hash;
    // What the hash makes of a single one bit, the last of a byte, is its polynomial.
    std::vector<U32> polynomials;
    for (U8 way = 0; way < hardware->typed().engine()->ways(); ++way) {
      constexpr U8 one = 1;
      polynomials.push_back(hash(&one, way, 8));
    }
    add(*hardware, level->prefixBaseLen, level->longest(),
        {{"keyBits", level->prefixBaseLen},
         {"hashedBits", level->keyWidth},
         {"hashWidth", level->crcLength},
         {"polynomials", polynomials}});
  }
  constexpr U8 keyLength = VelaRoutes::FirstLevel::keyLength;
  add(*agent_.table("Lpm11", 0).hardware(), 0, keyLength, {{"keyBits", keyLength}});
}

/// A finding, with the words of its row and the bits of them that differ.
Json Picture::findingOf(const HwTableAdapter& table, const RowFinding& finding) const {
  const HwTableConfig& hwTable = *finding.hwTable;
  const auto& identity = hwTable.descriptor().identity;
  Json line = findingLine(finding);
  line["hwTable"] = identity.name;
  const auto rows = std::find_if(rowSets_.begin(), rowSets_.end(),
                                 [&](const RowSet& each) { return each.has(hwTable); });
  if (rows != rowSets_.end()) line["rows"] = rows - rowSets_.begin();
  if (!finding.index) return line;
  const auto image = heldImage(agent_.chip(), hwTable, *finding.index);
  if (!image) return line;
  RowImage expected{};
  table.convertor().expectedImage(identity.id, *finding.index, expected.data());
  for (const auto& mapped : hwTable.mapped(*finding.index)) {
    const U32 compared = desiresKnown_ ? ~hwTable.staticBits(mapped.word) : 0;
    const U32 found = (*image)[mapped.word];
    line["words"].push_back(found);
    line["flipped"].push_back((found ^ expected[mapped.word]) & compared);
  }
  return line;
}

/// Without desires nothing can be compared, but rows can be such as none may be.
void Picture::addFindings(HwTableAdapter& table) {
  std::vector<RowFinding> findings;
  if (desiresKnown_) {
    if (audit_ == Audit::now) table.audit();
    findings = table.findings();
  } else {
    for (const auto& [id, index] : table.corruptRows()) {
      const HwTableConfig* hwTable = table.convertor().hwTable(id).get();
      findings.push_back(
          {RowFinding::Kind::inconsistent, true, nullptr, nullptr, hwTable, index, {}});
    }
  }
  if (findings.empty()) return;
  Json list = Json::array();
  for (std::size_t i = 0; i < std::min(findings.size(), findingsMost); ++i) {
    list.push_back(findingOf(table, findings[i]));
  }
  json_["findings"].push_back(
      {{"table", numberOf(table)}, {"found", findings.size()}, {"first", std::move(list)}});
}

void Picture::addTotals() {
  U64 found = 0;
  for (const Json& table : json_["findings"]) found += table["found"].get<U64>();
  U64 unclaimed = 0;
  U64 refused = 0;
  for (const Json& table : json_["tables"]) {
    unclaimed += table["unclaimed"].get<U64>();
    refused += table["refused"].get<U64>();
  }
  json_["totals"].update({{"unclaimed", unclaimed},
                          {"refused", refused},
                          {"findings", found},
                          {"rowWrites", agent_.recorder().rowWrites()}});
}

}  // namespace VelaAgent
