#include "agent/TableAdapter.h"

#include <algorithm>

#include "Bridging/VlanId.h"
#include "VelaSwitch/Types.h"
#include "agent/JsonText.h"

namespace VelaAgent {

std::string TableAdapter::keyName() const {
  const Orb::Shape& key = entries_->keyShape();
  if (key.is<Bridging::VlanId>()) return "vid";
  if (key.is<VelaSwitch::L3LagIndex>()) return "lag";
  return key.scalar ? std::string(key.fields.front().name) : std::string();
}

Json TableAdapter::keyToJson(AnyRef key) const {
  Json json = anyToJson(key);
  const std::string_view unused = entries_->unusedKeyField();
  if (key && !unused.empty()) json.erase(std::string(unused));
  return json;
}

void TableAdapter::appendKey(std::string& line, AnyRef key) const {
  appendJson(line, key, entries_->unusedKeyField());
}

AnyValue TableAdapter::keyFromJson(const Json& json) const {
  const std::string needed(neededKeyField());
  if (!needed.empty() && json.is_object() && !json.contains(needed)) {
    throw InputException(needed + " is missing");
  }
  AnyValue key(entries_->keyShape());
  try {
    anyFromJson(json, entries_->profile(), key.shape(), key.value());
  } catch (const ValueException& error) {
    throw InputException(std::string("key ") + error.what());
  }
  entries_->checkKey(key);
  const std::string why = entries_->whyNoRow(key);
  if (!why.empty()) throw ValueException("key " + quoted(json), why);
  return key;
}

AnyValue TableAdapter::resultFromJson(const Json& json) const {
  checkResultForm(json);
  AnyValue result(entries_->resultShape());
  if (!json.is_null()) {
    anyFromJson(json, entries_->profile(), result.shape(), result.value());
  }
  return result;
}

EntryProgrammedStatus TableAdapter::set(const Json& key, const Json& json) {
  entries_->checkChangeable();
  const AnyValue k = keyFromJson(key);
  return entries_->announce(k, resultFromJson(json));
}

bool TableAdapter::del(const Json& key) {
  entries_->checkChangeable();
  return entries_->withdraw(keyFromJson(key));
}

/// Tables whose key is no object may be asked by objects as well.
const Lookup& TableAdapter::lookupFor(const Json& asked) const {
  const Lookups& lookups = entries_->lookups();
  if (lookups.empty()) throw InputException(name() + " cannot be looked up");
  const bool byKey = entries_->keyShape().structured() || !asked.is_object();
  return byKey ? lookups.front() : lookups.back();
}

/// What is looked up, by a key of the table or by something else.
AnyValue TableAdapter::askedFromJson(const Lookup& lookup, const Json& json) const {
  if (lookup.asked == &entries_->keyShape()) return keyFromJson(json);
  AnyValue asked(*lookup.asked);
  const auto& fields = asked.shape().fields;
  const bool whole = json.size() == fields.size() &&
                     std::all_of(fields.begin(), fields.end(),
                                 [&](const auto& f) { return json.contains(f.name); });
  if (lookup.wholly && !whole) {
    throw InputException(std::string("expected ") + lookup.wholly + ", not " + json.dump());
  }
  anyFromJson(json, entries_->profile(), asked.shape(), asked.value());
  return asked;
}

Json TableAdapter::lookup(VelaDevice::DataPath& dataPath, const Json& json) const {
  const Lookup& lookup = lookupFor(json);
  Json hit;
  lookup.ask(dataPath, instance(), askedFromJson(lookup, json),
             [&](AnyRef found) { hit = structToJson(found); });
  return hit;
}

void TableAdapter::forEachEntry(const EntryVisitor& visit) const {
  entries_->forEachEntry(
      [&](AnyRef key, AnyRef result) { visit(keyToJson(key), anyToJson(result)); });
}

std::vector<TableAdapter::Status> TableAdapter::statuses() const {
  std::vector<Status> all;
  entries_->forEachStatus([&](AnyRef key, EntryProgrammedStatus status, Orb::Seconds lastHit) {
    all.push_back({keyToJson(key), AnyValue::of(key), status, lastHit});
  });
  return all;
}

void TableAdapter::reconcile(const KeyVisitor& removing) {
  entries_->reconcile([&](AnyRef key) { removing(keyToJson(key)); });
}

std::vector<Json> HwTableAdapter::disagreeingKeys() const {
  std::vector<Json> keys;
  typed().forEachDisagreeing([&](AnyRef key) { keys.push_back(keyToJson(key)); });
  return keys;
}

const char* nameOf(VelaSwitchApi::AuditFinding::Kind kind) {
  static constexpr const char* names[] = {"inconsistent", "missing", "unexpected", "unreadable"};
  return names[static_cast<std::size_t>(kind)];
}

std::vector<RowFinding> HwTableAdapter::findings() const {
  std::vector<RowFinding> all;
  for (const auto& finding : convertor().auditFindings()) {
    RowFinding row{finding.kind,
                   finding.corrupt,
                   nullptr,
                   nullptr,
                   convertor().hwTable(finding.table).get(),
                   std::nullopt,
                   {}};
    if (finding.entry) {
      row.key = keyToJson(typed().keyOf(*finding.entry));
    } else {
      row.index = finding.index;
      row.key = keyAt(finding.index);
      if (finding.kind != RowFinding::Kind::unreadable) {
        row.fields = convertor().differences(finding.table, finding.index);
      }
      if (row.key.is_null()) row.holds = decodedKey(finding.index);
    }
    all.push_back(std::move(row));
  }
  return all;
}

}  // namespace VelaAgent
