#include <algorithm>
#include <iostream>

#include "Commands.h"
#include "Format.h"
#include "Input.h"
#include "Report.h"
#include "agent/Explain.h"
#include "agent/Profiles.h"

namespace VelaTool {

using VelaAgent::RowImage;
using VelaSwitchApi::RowField;

namespace {

std::string registerName(const Agent& agent, const HwTableConfig& hwTable, U8 word) {
  for (const auto& m : hwTable.mapped(hwTable.descriptor().first)) {
    if (m.word != word) continue;
    const std::string& path = agent.recorder().path(m.reg);
    return path.substr(path.rfind('/') + 1);
  }
  return "(no register)";
}

/// "first–last", or one number.
std::string range(U32 first, U32 last) {
  return first == last ? std::to_string(first) : std::to_string(first) + "–" + std::to_string(last);
}

/// Left in a column, whose width a dash has more bytes than.
std::string padded(const std::string& text, std::size_t width) {
  std::size_t letters = 0;
  for (const char c : text) letters += (static_cast<U8>(c) & 0xC0) != 0x80 ? 1 : 0;
  return text + std::string(width - std::min(width, letters), ' ');
}

/// The fields of a row and, where there is an image, what they hold in it.
void writeFields(const Agent& agent, const HwTableConfig& hwTable,
                 const VelaSwitchApi::RowLayout& layout, const std::optional<RowImage>& image) {
  std::cout << format("%-11s %5s  %-24s ", "bits", "width", "field");
  if (image) std::cout << padded("value", 20) << ' ';
  std::cout << "register\n";
  auto fields = layout.fields();
  std::stable_sort(fields.begin(), fields.end(),
                   [](const RowField& a, const RowField& b) { return a.first < b.first; });
  for (const RowField& field : fields) {
    if (field.width == 0) continue;
    const U32 last = field.first + field.width - 1u;
    const auto word = [](U32 bit) { return static_cast<U8>(bit / 32); };
    std::string registers = registerName(agent, hwTable, word(field.first));
    if (word(last) != word(field.first)) {
      registers += " … " + registerName(agent, hwTable, word(last));
    }
    std::cout << padded(range(field.first, last), 11)
              << format(" %5u  %-24s ", field.width, field.name);
    if (image) std::cout << padded(VelaAgent::fieldText(*image, field), 20) << ' ';
    std::cout << registers << '\n';
  }
}

/// A key on a switch that has nothing else, and what it makes of the row that it gets.
struct PackedKey {
  HwIndex index;
  RowImage image;
};

class KeyPacker {
 public:
  explicit KeyPacker(HwTableAdapter& table) : table_(table) {}

  /// Throws for a key that the table cannot have.
  PackedKey pack(const Json& key) {
    table_.set(key, nullptr);
    const auto place = table_.place(key);
    if (!place) throw InputException("the key has no row");
    HwTableConfig& hwTable = hwTableOf(place->index);
    PackedKey packed{place->index, {}};
    std::copy_n(hwTable.image(place->index), hwTable.descriptor().rowWords, packed.image.begin());
    table_.del(key);
    return packed;
  }
  /// The first hardware table that has the row.
  HwTableConfig& hwTableOf(HwIndex index) const {
    for (const auto& [id, hwTable] : table_.convertor().hwTables()) {
      if (HwTableAdapter::holds(*hwTable, index)) return *hwTable;
    }
    throw InputException("the key has no row");
  }
  /// The field in which a row differs from another key's; empty where all of them are alike, the
  /// row's number aside.
  std::string changedField(const PackedKey& from, const PackedKey& to) const {
    const HwTableConfig& hwTable = hwTableOf(from.index);
    std::array<U32, VelaSwitchApi::maxRowWords> bits{};
    for (U8 word = 0; word < hwTable.descriptor().rowWords; ++word) {
      bits[word] = (from.image[word] ^ to.image[word]) & ~hwTable.staticBits(word);
    }
    const auto id = hwTable.descriptor().identity.id;
    for (const RowField& field : heldFields(table_, id, from.index)) {
      if (std::string_view(field.name).starts_with("parity")) continue;
      for (U32 bit = field.first; bit < U32{field.first} + field.width; ++bit) {
        if ((bits[bit / 32] >> bit % 32 & 1) != 0) return field.name;
      }
    }
    return {};
  }

 private:
  HwTableAdapter& table_;
};

/// The same value with one bit flipped, or null when there is no such bit.
Json flipped(const Json& value, U32 bit) {
  if (value.is_number_unsigned()) return value.get<U64>() ^ U64 { 1 } << bit;
  if (value.is_boolean()) return bit == 0 ? Json(!value.get<bool>()) : Json(nullptr);
  if (!value.is_string()) return nullptr;
  const std::string text = value;
  if (text.find('/') == std::string::npos) {
    const auto address = Orb::fromText<Ipnet::IpAddr>(text);
    return Orb::text(Ipnet::IpAddr(address.number() ^ 1u << bit));
  }
  const auto prefix = Orb::fromText<Ipnet::IpPrefix>(text);
  if (bit < 32u - prefix.len()) return nullptr;
  return Orb::text(
      Ipnet::IpPrefix(Ipnet::IpAddr(prefix.address().number() ^ 1u << bit), prefix.len()));
}

/// Which bits of the key stand in the row and in which field, and which ones the row's number
/// implies: tried out, bit by bit.
void writeKeyBits(KeyPacker& packer, const PackedKey& packed, const Json& key) {
  std::cout << "\nkey bits:\n";
  const auto tell = [](const std::string& name, U32 first, U32 last, const std::string& what) {
    std::cout << "  " << padded(name + " " + range(first, last), 26) << ' ' << what << '\n';
  };
  const auto field = [&](const std::string& name, const Json& value) {
    std::vector<std::string> bits;
    std::size_t known = 0;  // bits up to the last that the field has
    for (U32 bit = 0; bit < 32; ++bit) {
      const Json other = flipped(value, bit);
      bits.emplace_back();
      if (other.is_null()) continue;
      Json changed = key;
      (name == "key" ? changed : changed[name]) = other;
      try {
        const PackedKey moved = packer.pack(changed);
        const std::string in = packer.changedField(packed, moved);
        bits.back() = !in.empty()                   ? "stored in " + in
                      : moved.index != packed.index ? "implied by the row's number"
                                                    : "take no part";
        known = bits.size();
      } catch (const std::exception&) {
        bits.back() = "do not change without the rest of this key";
      }
    }
    for (std::size_t first = 0, end = 0; first < known; first = end) {
      while (end < known && bits[end] == bits[first]) ++end;
      if (!bits[first].empty()) {
        tell(name, static_cast<U32>(first), static_cast<U32>(end - 1), bits[first]);
      }
    }
  };
  if (!key.is_object()) return field("key", key);
  for (const auto& [name, value] : key.items()) field(name, value);
}

}  // namespace

int layout(const Options& options, const std::string& name, const std::string& keyText) {
  SimulatedSwitch chip;
  MadeAgent agent(VelaAgent::loadProfile(options.profile), chip);
  auto* table = agent.table(name, 0).hardware();
  if (!table) throw InputException("table " + name + " has no rows of its own");
  if (table->convertor().hwTables().empty()) {
    std::cout << table->name() << " has no rows in hardware\n";
    return exitGood;
  }
  const auto tell = [&](const HwTableConfig& hwTable, HwIndex index,
                        const std::optional<RowImage>& image) {
    writeFields(agent, hwTable,
                table->convertor().rowLayout(hwTable.descriptor().identity.id, index), image);
  };
  std::cout << table->name() << ", profile " << agent.profile().name() << ", registers ";
  if (keyText.empty()) {
    const HwTableConfig& hwTable = *table->convertor().hwTables().begin()->second;
    std::cout << registersOf(agent, hwTable) << '\n';
    tell(hwTable, hwTable.descriptor().first, std::nullopt);
    return exitGood;
  }
  agent.start(Agent::Start::fresh);
  KeyPacker packer(*table);
  const Json key = keyFromText(name, keyText);
  const PackedKey packed = packer.pack(key);
  const HwTableConfig& hwTable = packer.hwTableOf(packed.index);
  std::cout << registersOf(agent, hwTable) << '\n';
  std::cout << "key " << key.dump() << ": row " << packed.index;
  if (const auto at = table->location(packed.index)) {
    std::cout << " (way " << int{at->way} << ", row " << at->row << " of a switch without others)";
  }
  std::cout << ", with a default result\n";
  tell(hwTable, packed.index, packed.image);
  // All of the key's fields, those that were left out too.
  table->set(key, nullptr);
  const Json whole = table->keyAt(packed.index);
  table->del(key);
  writeKeyBits(packer, packed, whole);
  return exitGood;
}

}  // namespace VelaTool
