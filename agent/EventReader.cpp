#include "agent/EventReader.h"

#include <simdjson.h>

#include "VelaSwitch/Types.h"
#include "agent/Agent.h"

namespace VelaAgent {

namespace {

namespace ondemand = simdjson::ondemand;
using Orb::FieldShape;
using Orb::Kind;
using Orb::Shape;

static_assert(EventReader::padding >= simdjson::SIMDJSON_PADDING);

[[noreturn]] void unusual() { throw simdjson::simdjson_error(simdjson::INCORRECT_TYPE); }

/// Marks the number as seen; those that were before are unusual.
void once(U64& seen, U64 number) {
  if (number >= 64 || (seen >> number & 1) != 0) unusual();
  seen |= U64{1} << number;
}

/// The text of a string that says what it holds without escapes.
std::string_view plainText(ondemand::value& value) {
  // What is longer is cut in messages, and by those who read values from them.
  constexpr std::size_t longest = 120;
  const std::string_view token = value.raw_json_token();
  value.get_raw_json_string().value();
  const std::string_view text = token.substr(1, token.rfind('"') - 1);
  if (text.size() > longest || text.find('\\') != std::string_view::npos) unusual();
  return text;
}

U64 numberOf(std::string_view text) {
  Orb::TextCursor cursor(text);
  const U64 number = Orb::parseNumber(cursor, ~U64{0});
  if (!cursor.rest().empty()) unusual();
  return number;
}

U64 numberOf(ondemand::value& value) {
  if (value.type() == ondemand::json_type::string) return numberOf(plainText(value));
  return value.get_uint64();
}

/// Reads values by their shapes, as anyFromJson() does, but throws at whatever needs a second
/// thought.
class ValueReader {
 public:
  /// `needed` names a field that may not be missing, where there is one.
  explicit ValueReader(const VelaSwitch::ProfileInfo& profile, std::string_view needed = {})
      : profile_(profile), needed_(needed) {}

  /// Whether what is needed was there.
  bool complete() const { return needed_.empty(); }
  void read(ondemand::value& json, const Shape& shape, void* value);

 private:
  void flag(ondemand::value& json, const Shape& shape, void* value);
  void number(ondemand::value& json, const Shape& shape, void* value);
  void word(ondemand::value& json, const Shape& shape, void* value);
  void list(ondemand::value& json, const Shape& shape, void* value);
  void array(ondemand::value& json, const Shape& shape, void* value);
  void map(ondemand::value& json, const Shape& shape, void* value);
  void set(ondemand::value& json, const Shape& shape, void* value);
  void record(ondemand::value& json, const Shape& shape, void* value);
  void field(ondemand::value& json, const FieldShape& field, void* value);

  const VelaSwitch::ProfileInfo& profile_;
  std::string_view needed_;  ///< And did not come yet.
};

void ValueReader::flag(ondemand::value& json, const Shape& shape, void* value) {
  if (json.type() == ondemand::json_type::boolean) {
    shape.numberIs(value, json.get_bool().value() ? 1 : 0);
    return;
  }
  const U64 number = json.get_uint64();
  if (number > 1) unusual();
  shape.numberIs(value, number);
}

void ValueReader::number(ondemand::value& json, const Shape& shape, void* value) {
  const U64 number = numberOf(json);
  if (number < shape.lowest || number > shape.highest) unusual();
  shape.numberIs(value, number);
}

void ValueReader::word(ondemand::value& json, const Shape& shape, void* value) {
  if (json.type() != ondemand::json_type::string) unusual();
  const std::string_view text = plainText(json);
  if (text.starts_with("0x")) unusual();
  Orb::TextCursor cursor(text);
  shape.parse(cursor, value);
  cursor.end();
}

void ValueReader::list(ondemand::value& json, const Shape& shape, void* value) {
  shape.reset(value);
  for (ondemand::value element : json.get_array()) {
    read(element, *shape.element, shape.grow(value));
  }
}

void ValueReader::array(ondemand::value& json, const Shape& shape, void* value) {
  shape.reset(value);
  std::size_t i = 0;
  for (ondemand::value element : json.get_array()) {
    if (i == shape.count(value)) unusual();
    read(element, *shape.element, const_cast<void*>(shape.at(value, i++)));
  }
}

void ValueReader::map(ondemand::value& json, const Shape& shape, void* value) {
  U64 seen = 0;
  for (ondemand::field each : json.get_object()) {
    const U64 pipe = numberOf(std::string_view(each.unescaped_key()));
    once(seen, pipe);
    refuseAbsentPipe({}, pipe, profile_);
    shape.insert(value, [&](void* element) {
      read(each.value(), *shape.element, element);
      return pipe;
    });
  }
}

void ValueReader::set(ondemand::value& json, const Shape& shape, void* value) {
  shape.reset(value);
  for (ondemand::value each : json.get_array()) {
    shape.insert(value, [&](void* element) {
      read(each, *shape.element, element);
      const U64 port = shape.element->number(element);
      refuseAbsentPort({}, port, profile_);
      return port;
    });
  }
}

/// A field by its name, among those of a record and of what is inlined in it.
struct NamedField {
  const FieldShape* field = nullptr;
  void* in = nullptr;
  U64 number = 0;  ///< Its place; behind those of the record for what is inlined.

  /// Begins with the field of the number `from`: most often fields come in their order.
  bool find(ondemand::raw_json_string name, const Shape& shape, void* value, U64 from) {
    const std::size_t count = shape.fields.size();
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = from + i < count ? from + i : (from + i) % count;
      const FieldShape& each = shape.fields[at];
      if (each.shape->inlined) {
        if (!find(name, *each.shape, each.in(value), 0)) continue;
        number += mostFields;
        return true;
      }
      if (!name.unsafe_is_equal(each.name)) continue;
      *this = {&each, each.in(value), at};
      return true;
    }
    return false;
  }

 private:
  static constexpr U64 mostFields = 16;  ///< Of a value type.
};

void ValueReader::record(ondemand::value& json, const Shape& shape, void* value) {
  if (shape.scalar) return field(json, shape.fields.front(), shape.fields.front().in(value));
  if (isVersion(shape)) unusual();
  if (shape.isDefault && json.is_null()) return shape.reset(value);
  U64 seen = 0;
  U64 next = 0;
  for (ondemand::field each : json.get_object()) {
    NamedField named;
    if (!named.find(each.key(), shape, value, next)) unusual();
    once(seen, named.number);
    next = named.number + 1;
    field(each.value(), *named.field, named.in);
  }
}

void ValueReader::field(ondemand::value& json, const FieldShape& field, void* value) {
  const Shape& shape = *field.shape;
  read(json, shape, value);
  if (field.name == needed_) needed_ = {};
  const bool vrf = field.name == "vrf";
  if (!vrf && !shape.is<VelaSwitch::ChipPortId>()) return;
  if (shape.kind != Kind::number) unusual();
  (vrf ? refuseAbsentVrf : refuseAbsentPort)(field.name, shape.number(value), profile_);
}

void ValueReader::read(ondemand::value& json, const Shape& shape, void* value) {
  switch (shape.kind) {
    case Kind::flag:
      return flag(json, shape, value);
    case Kind::number:
    case Kind::mask:
      return number(json, shape, value);
    case Kind::word:
      return word(json, shape, value);
    case Kind::optional:
      shape.reset(value);
      if (!json.is_null()) read(json, *shape.element, shape.grow(value));
      return;
    case Kind::list:
      return list(json, shape, value);
    case Kind::array:
      return array(json, shape, value);
    case Kind::map:
      return map(json, shape, value);
    case Kind::set:
      return set(json, shape, value);
    case Kind::record:
      return record(json, shape, value);
    case Kind::real:
    case Kind::seconds:
      // Of -0 a document makes 0.
      if (json.raw_json_token().front() == '-') unusual();
      return shape.realIs(value, json.get_double());
    case Kind::string:
      unusual();
  }
}

/// A default value of the shape, in the same memory where it is the last one's.
void renew(AnyValue& value, const Shape& shape) {
  if (value && &value.shape() == &shape) {
    shape.reset(value.value());
  } else {
    value = AnyValue(shape);
  }
}

}  // namespace

/// What reading one line after the other needs.
struct EventReader::Parser {
  explicit Parser(const Agent& itsAgent) : agent(itsAgent) {
    if (json.allocate(longest) != simdjson::SUCCESS) throw std::bad_alloc();
  }

  bool read(std::string_view line, std::size_t behind, EntryEvent& event);
  bool readMembers(ondemand::document document, EntryEvent& event);
  void readKey(ondemand::document& document, ondemand::value& value, EntryEvent& event);
  TableAdapter& tableOf(std::string_view name, U64 instance);

  static constexpr std::size_t longest = 1 << 16;  ///< No ordinary line is longer.

  const Agent& agent;
  ondemand::parser json;
  std::string copy;              ///< Of a line that has too little behind it.
  TableAdapter* last = nullptr;  ///< The table that was asked for last,
  U64 lastInstance = 0;          ///< by this number.
};

TableAdapter& EventReader::Parser::tableOf(std::string_view name, U64 instance) {
  if (!last || lastInstance != instance || last->name() != name) {
    if (instance > ~U32{0}) unusual();
    last = &agent.table(name, static_cast<U32>(instance));
    lastInstance = instance;
  }
  return *last;
}

void EventReader::Parser::readKey(ondemand::document& document, ondemand::value& value,
                                  EntryEvent& event) {
  const Entries& entries = event.table->typed();
  entries.checkChangeable();
  renew(event.key, entries.keyShape());
  renew(event.result, entries.resultShape());
  const char* begin = value.raw_json_token().data();
  ValueReader reader(entries.profile(), event.table->neededKeyField());
  reader.read(value, event.key.shape(), event.key.value());
  const char* end = document.current_location();
  event.keyText = {begin, static_cast<std::size_t>(end - begin)};
  entries.checkKey(event.key);
  if (!reader.complete() || !entries.whyNoRow(event.key).empty()) unusual();
}

/// Reads members in the order in which they make sense at once, which is the one in which people
/// and programs write them. False, at no great cost, for other operations.
bool EventReader::Parser::readMembers(ondemand::document document, EntryEvent& event) {
  static constexpr std::string_view names[] = {"op", "table", "instance", "key", "result"};
  enum : U8 { op, table, instance, key, result };
  std::string_view tableName;
  U64 number = 0;
  U64 seen = 0;
  std::size_t next = 0;
  for (ondemand::field each : document.get_object()) {
    // Each comes once, and none before those that say how it is to be read.
    std::size_t member = next;
    while (member < std::size(names) && !each.key().unsafe_is_equal(names[member])) ++member;
    if (member == std::size(names)) unusual();
    next = member + 1;
    seen |= U64{1} << member;
    if (member == op) {
      const std::string_view text = plainText(each.value());
      event.withdraws = text == "del";
      if (!event.withdraws && text != "set") return false;
    } else if (member == table) {
      tableName = plainText(each.value());
    } else if (member == instance) {
      number = numberOf(each.value());
    } else if (member == key) {
      event.table = &tableOf(tableName, number);
      readKey(document, each.value(), event);
    } else if (event.withdraws || (seen >> key & 1) == 0) {
      unusual();
    } else if (!each.value().is_null()) {
      ValueReader(event.table->typed().profile())
          .read(each.value(), event.result.shape(), event.result.value());
    }
  }
  constexpr U64 needed = 1 << op | 1 << table | 1 << key;
  event.namesInstance = (seen >> instance & 1) != 0;
  const bool atEnd = document.current_location().error() == simdjson::OUT_OF_BOUNDS;
  return (seen & needed) == needed && atEnd;
}

bool EventReader::Parser::read(std::string_view line, std::size_t behind, EntryEvent& event) {
  if (line.size() > longest) return false;
  if (behind < padding) {
    copy = line;
    copy.append(padding, ' ');
    line = std::string_view(copy).substr(0, line.size());
  }
  event.line = line;
  try {
    return readMembers(json.iterate(line, line.size() + padding), event);
  } catch (const std::exception&) {
    return false;
  }
}

EventReader::EventReader(const Agent& agent) : parser_(std::make_unique<Parser>(agent)) {}

EventReader::~EventReader() = default;

bool EventReader::read(std::string_view line, std::size_t behind, EntryEvent& event) {
  return parser_->read(line, behind, event);
}

}  // namespace VelaAgent
