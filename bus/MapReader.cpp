#include <algorithm>
#include <charconv>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "bus/RegisterMap.h"

namespace VelaBus {

using Json = nlohmann::json;

/// Makes a map of its text. What is read has a place in the text, for messages.
class MapReader {
 public:
  explicit MapReader(RegisterMap& map) : map_(map) {}

  void read(std::string_view text) {
    const Json json = parse(text);
    const Object top = object(json, "the map", {"registers", "tables"});
    const auto each = [&](const char* name, const auto& take) {
      std::size_t number = 0;
      for (const Json& part : array(top, name)) {
        take(part, std::string(name) + "[" + std::to_string(number++) + "]");
      }
    };
    each("registers",
         [&](const Json& part, const std::string& where) { readRegister(part, where); });
    map_.checkOverlaps();
    each("tables", [&](const Json& part, const std::string& where) { readTable(part, where); });
  }

 private:
  static constexpr U64 mostBytes = U64{1} << 40;

  struct Object {
    const Json& json;
    std::string where;
  };

  [[noreturn]] void fail(const std::string& where, const std::string& what) const {
    map_.fail(where + ": " + what);
  }

  Json parse(std::string_view text) const {
    // The last of two members with one name would hide the other.
    std::vector<std::set<std::string>> open;
    std::string twice;
    const auto watch = [&](int, Json::parse_event_t event, Json& parsed) {
      if (event == Json::parse_event_t::object_start) open.emplace_back();
      if (event == Json::parse_event_t::object_end) open.pop_back();
      if (event == Json::parse_event_t::key && !open.back().insert(parsed).second) twice = parsed;
      return true;
    };
    Json json;
    try {
      json = Json::parse(text, watch);
    } catch (const Json::parse_error& error) {
      const std::string_view before = text.substr(0, error.byte);
      const auto line = 1 + std::count(before.begin(), before.end(), '\n');
      map_.fail("no JSON in line " + std::to_string(line));
    } catch (const Json::exception&) {
      map_.fail("no JSON: a number is too large");
    }
    if (!twice.empty()) map_.fail("\"" + twice + "\" is there twice in one object");
    return json;
  }

  Object object(const Json& json, const std::string& where,
                std::initializer_list<std::string_view> known) const {
    if (!json.is_object()) fail(where, "expected an object");
    for (const auto& [name, value] : json.items()) {
      if (std::find(known.begin(), known.end(), name) == known.end()) {
        fail(where, "unknown key \"" + name + "\"");
      }
    }
    return {json, where};
  }

  const Json& member(const Object& object, const char* name) const {
    const auto found = object.json.find(name);
    if (found == object.json.end()) fail(object.where, "\"" + std::string(name) + "\" is missing");
    return *found;
  }

  const Json& array(const Object& object, const char* name) const {
    const Json& json = member(object, name);
    if (!json.is_array()) fail(object.where, "\"" + std::string(name) + "\" is no list");
    return json;
  }

  std::string text(const Object& object, const char* name) const {
    return text(member(object, name), object.where, name);
  }
  std::string text(const Json& json, const std::string& where, const char* name) const {
    if (!json.is_string()) fail(where, "\"" + std::string(name) + "\" is no text");
    return json.get<std::string>();
  }

  NumberPattern pattern(const std::string& text, const std::string& where) const {
    try {
      return NumberPattern(text);
    } catch (const MapException& error) {
      fail(where, error.what());
    }
  }

  /// A number, or a text of one after "0x".
  U64 number(const Json& json, const std::string& where, const char* name, U64 max) const {
    std::optional<U64> number;
    if (json.is_number_unsigned()) {
      number = json.get<U64>();
    } else if (json.is_string() && json.get_ref<const std::string&>().starts_with("0x")) {
      const auto& text = json.get_ref<const std::string&>();
      const char* end = text.data() + text.size();
      U64 parsed = 0;
      const auto result = std::from_chars(text.data() + 2, end, parsed, 16);
      if (result.ec == std::errc{} && result.ptr == end) number = parsed;
    }
    if (!number || *number > max) {
      fail(where, "\"" + std::string(name) + "\" is no number of 0 to " + std::to_string(max));
    }
    return *number;
  }
  U32 word(const Object& object, const char* name, std::optional<U32> absent = {}) const {
    if (absent && !object.json.contains(name)) return *absent;
    return static_cast<U32>(number(member(object, name), object.where, name, ~U32{0}));
  }
  U64 bytes(const Json& json, const std::string& where, const char* name) const {
    const U64 bytes = number(json, where, name, mostBytes);
    if (bytes % 4 != 0) {
      fail(where,
           "\"" + std::string(name) + "\" is no multiple of 4 bytes: " + std::to_string(bytes));
    }
    return bytes;
  }

  void readRegister(const Json& json, const std::string& where) {
    const Object reg = object(json, where, {"path", "offset", "strides", "width"});
    const NumberPattern path = pattern(text(reg, "path"), where);
    const U32 width = word(reg, "width", 32);
    if (width == 0 || width % 32 != 0) {
      fail(where, "\"width\" is no multiple of 32 bits: " + std::to_string(width));
    }
    std::vector<U64> strides;
    if (json.contains("strides")) {
      for (const Json& each : array(reg, "strides")) {
        strides.push_back(bytes(each, where, "strides"));
      }
    }
    if (strides.size() != path.ranges().size()) {
      fail(where, "\"" + path.text() + "\" has " + std::to_string(path.ranges().size()) +
                      " ranges of numbers, and there are " + std::to_string(strides.size()) +
                      " strides");
    }
    map_.patternIs(path, {bytes(member(reg, "offset"), where, "offset"), width, 0}, strides);
  }

  U32 field(const Object& object) const {
    map_.fields_.push_back(text(object, "register"));
    return static_cast<U32>(map_.fields_.size() - 1);
  }

  IndexWord readWord(const Json& json, const std::string& where) const {
    const Object described = object(json, where, {"register", "value", "index"});
    IndexWord indexWord{field(described), word(described, "value", 0), {}};
    if (!json.contains("index")) return indexWord;
    U32 taken = indexWord.value;
    for (const Json& part : array(described, "index")) {
      if (!part.is_array() || part.size() != 3) {
        fail(where, "\"index\" is no list of [from, bits, to]");
      }
      const auto bit = [&](std::size_t at) {
        return static_cast<U8>(number(part[at], where, "index", 32));
      };
      const IndexWord::Bits bits{bit(0), bit(1), bit(2)};
      if (bits.bits == 0 || bits.from + bits.bits > 32 || bits.to + bits.bits > 32) {
        fail(where, "\"index\" has bits outside of 32");
      }
      const U32 mask = ~U32{0} >> (32 - bits.bits) << bits.to;
      if ((taken & mask) != 0) fail(where, "bits of \"index\" lie on others, or on \"value\"");
      taken |= mask;
      indexWord.index.push_back(bits);
    }
    return indexWord;
  }

  /// That a row was never written can be said where `ofRows` are read.
  Poll readPoll(const Json& json, const std::string& where, bool ofRows) const {
    const Object poll =
        object(json, where, {"register", "mask", "done", "absent", "failed", "limit"});
    if (!ofRows && json.contains("absent")) fail(where, "\"absent\" belongs to \"read\" alone");
    const Poll made{field(poll),
                    word(poll, "mask"),
                    word(poll, "done"),
                    word(poll, "absent", 0),
                    word(poll, "failed", 0),
                    word(poll, "limit")};
    if (made.mask == 0 || (made.done & ~made.mask) != 0) {
      fail(where, "\"done\" has bits that are not in \"mask\", or \"mask\" is 0");
    }
    return made;
  }

  ReadProtocol readProtocol(const Json& json, const std::string& where, bool ofRows) const {
    const Object read = object(json, where, {"trigger", "poll"});
    return {readWord(member(read, "trigger"), where + ".trigger"),
            readPoll(member(read, "poll"), where + ".poll", ofRows)};
  }

  void readTable(const Json& json, const std::string& where) {
    const Object table =
        object(json, where, {"names", "select", "written", "read", "control", "hits"});
    TableProtocol protocol;
    protocol.where = where;
    // Said rather than left out: of registers that tables share it would read any row.
    if (member(table, "read") != "registers") {
      protocol.read = readProtocol(member(table, "read"), where + ".read", true);
    }
    if (json.contains("written")) {
      protocol.written = readPoll(json["written"], where + ".written", false);
    }
    if (json.contains("hits")) protocol.hits = readProtocol(json["hits"], where + ".hits", false);
    const auto optionalWord = [&](const char* name) -> std::optional<IndexWord> {
      if (!json.contains(name)) return std::nullopt;
      return readWord(json[name], where + "." + name);
    };
    protocol.select = optionalWord("select");
    protocol.control = optionalWord("control");
    for (const Json& name : array(table, "names")) {
      map_.tables_.emplace_back(pattern(text(name, where, "names"), where),
                                static_cast<U32>(map_.protocols_.size()));
    }
    map_.protocols_.push_back(std::move(protocol));
  }

  RegisterMap& map_;
};

RegisterMap RegisterMap::fromText(std::string_view json, const std::string& name) {
  RegisterMap map;
  map.name_ = name;
  MapReader(map).read(json);
  return map;
}

RegisterMap RegisterMap::fromFile(const std::string& file) {
  std::ifstream in(file);
  std::ostringstream text;
  if (!in || !(text << in.rdbuf())) throw MapException("cannot read " + file);
  return fromText(text.str(), file);
}

}  // namespace VelaBus
