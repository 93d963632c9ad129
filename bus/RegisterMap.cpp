#include "bus/RegisterMap.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <set>

namespace VelaBus {
namespace {

/// A switch has some thousands; more than these come from a slip in a range.
constexpr std::size_t mostRegisters = std::size_t{1} << 17;

std::string hexOf(U64 number) {
  char text[16];
  const auto end = std::to_chars(std::begin(text), std::end(text), number, 16).ptr;
  return "0x" + std::string(text, end);
}

U32 lowBits(unsigned count) { return count >= 32 ? ~U32{0} : (U32{1} << count) - 1; }

/// Takes a number off the text's front. Numbers have no leading zeros.
std::optional<U32> takeNumber(std::string_view& text) {
  U32 number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto digits = static_cast<std::size_t>(end - text.data());
  if (error != std::errc{} || (digits > 1 && text[0] == '0')) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

}  // namespace

NumberPattern::NumberPattern(std::string text) : text_(std::move(text)) {
  std::string_view rest = text_;
  literals_.emplace_back();
  while (!rest.empty()) {
    const char c = rest.front();
    rest.remove_prefix(1);
    if (c != '{') {
      literals_.back() += c;
      continue;
    }
    Range range{0, ~U32{0}};
    bool good = true;
    if (!rest.starts_with('}')) {
      const auto first = takeNumber(rest);
      good = first && rest.starts_with('-');
      if (good) rest.remove_prefix(1);
      const auto last = good ? takeNumber(rest) : std::nullopt;
      good = last && *first <= *last;
      if (good) range = {*first, *last};
    }
    if (!good || !rest.starts_with('}')) {
      throw MapException("expected {FIRST-LAST} or {} in \"" + text_ + "\"");
    }
    rest.remove_prefix(1);
    ranges_.push_back(range);
    literals_.emplace_back();
  }
}

bool NumberPattern::matches(std::string_view text) const { return matchesFrom(0, text); }

bool NumberPattern::matchesFrom(std::size_t piece, std::string_view text) const {
  if (!text.starts_with(literals_[piece])) return false;
  text.remove_prefix(literals_[piece].size());
  if (piece == ranges_.size()) return text.empty();
  const auto number = takeNumber(text);
  return number && *number >= ranges_[piece].first && *number <= ranges_[piece].last &&
         matchesFrom(piece + 1, text);
}

std::string NumberPattern::textOf(std::span<const U32> numbers) const {
  std::string text = literals_[0];
  for (std::size_t i = 0; i < ranges_.size(); ++i) {
    text += std::to_string(numbers[i]) + literals_[i + 1];
  }
  return text;
}

U32 IndexWord::of(HwIndex row) const {
  U32 word = value;
  for (const Bits& part : index) word |= (row >> part.from & lowBits(part.bits)) << part.to;
  return word;
}

bool IndexWord::tells(HwIndex first, HwIndex last, U8 step) const {
  U32 told = lowBits(step);
  for (const Bits& part : index) told |= lowBits(part.bits) << part.from;
  return (lowBits(static_cast<unsigned>(std::bit_width(first ^ last))) & ~told) == 0;
}

std::vector<TableRegisters> registersOf(const VelaSwitchApi::SwTable& table) {
  std::vector<TableRegisters> all;
  const auto& convertor = *table.profileConvertorPtr();
  for (const auto& [id, hwTable] : convertor.hwTables()) {
    const auto& descriptor = hwTable->descriptor();
    TableRegisters& registers = all.emplace_back();
    registers.table = descriptor.identity.name;
    const auto hits = convertor.hitBitTables().find(id);
    if (hits != convertor.hitBitTables().end()) registers.hitBlock = hits->second->blockRows();
    descriptor.mapping->forEachRun(
        descriptor.first, descriptor.last,
        [&](HwIndex first, HwIndex last, const VelaSwitchApi::HwAddressColl& addresses) {
          TableRegisters::Rows rows{first, last, {}};
          for (const auto& [word, path] : addresses.addresses()) rows.paths.push_back(path);
          if (!rows.paths.empty()) registers.rows.push_back(std::move(rows));
        });
  }
  return all;
}

void RegisterMap::fail(const std::string& what) const {
  std::string line = name_ + ": " + what;
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\0'; }, '?');
  throw MapException(line);
}

const RegisterMap::Register* RegisterMap::find(std::string_view path) const {
  const auto found = registers_.find(path);
  return found == registers_.end() ? nullptr : &found->second;
}

const TableProtocol& RegisterMap::protocolOf(std::string_view table) const {
  const TableProtocol* found = nullptr;
  for (const auto& [pattern, protocol] : tables_) {
    if (!pattern.matches(table)) continue;
    if (found) {
      fail(found->where + " and " + protocols_[protocol].where + " both name table " +
           std::string(table));
    }
    found = &protocols_[protocol];
  }
  if (!found) fail("no protocol for table " + std::string(table));
  return *found;
}

std::pair<std::string, U64> RegisterMap::end() const {
  std::pair<std::string, U64> end;
  for (const auto& [path, reg] : registers_) {
    const U64 behind = reg.offset + reg.width / 8;
    if (behind > end.second) end = {path, behind};
  }
  return end;
}

void RegisterMap::patternIs(const NumberPattern& pattern, Register first,
                            std::span<const U64> strides) {
  first.pattern = static_cast<U32>(patterns_.size());
  patterns_.push_back(pattern.text());
  const auto& ranges = pattern.ranges();
  std::vector<U32> numbers(ranges.size());
  std::transform(ranges.begin(), ranges.end(), numbers.begin(),
                 [](const auto& range) { return range.first; });
  for (;;) {
    Register each = first;
    for (std::size_t i = 0; i < ranges.size(); ++i) {
      each.offset += (numbers[i] - ranges[i].first) * strides[i];
    }
    const std::string path = pattern.textOf(numbers);
    const auto [there, added] = registers_.emplace(path, each);
    if (!added) {
      fail("patterns \"" + patterns_[there->second.pattern] + "\" and \"" + pattern.text() +
           "\" both name " + path);
    }
    if (registers_.size() > mostRegisters) {
      fail("pattern \"" + pattern.text() + "\" makes them more than " +
           std::to_string(mostRegisters) + " registers");
    }
    std::size_t last = ranges.size();
    while (last > 0 && numbers[last - 1] == ranges[last - 1].last) {
      --last;
      numbers[last] = ranges[last].first;
    }
    if (last == 0) return;
    ++numbers[last - 1];
  }
}

void RegisterMap::checkOverlaps() const {
  std::vector<const std::pair<const std::string, Register>*> byOffset;
  for (const auto& each : registers_) byOffset.push_back(&each);
  std::stable_sort(byOffset.begin(), byOffset.end(), [](const auto* a, const auto* b) {
    return a->second.offset < b->second.offset;
  });
  const auto found =
      std::adjacent_find(byOffset.begin(), byOffset.end(), [](const auto* a, const auto* b) {
        return a->second.offset + a->second.width / 8 > b->second.offset;
      });
  if (found == byOffset.end()) return;
  const auto& [path, reg] = *found[0];
  const auto& [nextPath, next] = *found[1];
  fail("patterns \"" + patterns_[reg.pattern] + "\" and \"" + patterns_[next.pattern] +
       "\" overlap at " + hexOf(next.offset) + ": " + path + " and " + nextPath);
}

std::vector<std::string> RegisterMap::faults(std::span<const TableRegisters> tables) const {
  std::vector<std::string> lines;
  std::set<std::string> told;
  const auto tell = [&](const std::string& what) {
    if (told.insert(what).second) lines.push_back(name_ + ": " + what);
  };
  const auto needs = [&](const std::string& path, U32 width, const std::string& user) {
    const Register* reg = find(path);
    if (!reg) {
      tell("no pattern for " + path + " of " + user);
    } else if (reg->width < width) {
      tell("pattern \"" + patterns_[reg->pattern] + "\" has " + std::to_string(reg->width) +
           " bits, " + user + " needs " + std::to_string(width));
    }
  };
  for (const TableRegisters& table : tables) {
    const TableProtocol* protocol = nullptr;
    try {
      protocol = &protocolOf(table.table);
    } catch (const MapException& error) {
      if (told.insert(error.what()).second) lines.emplace_back(error.what());
    }
    if (protocol && table.hitBlock != 0 && !protocol->hits) {
      tell(protocol->where + " does not say how hits of table " + table.table + " are read");
    }
    for (const auto& rows : table.rows) {
      for (const std::string& path : rows.paths) {
        needs(path, table.width, "table " + table.table);
      }
      if (!protocol) continue;
      const auto folder = std::string(folderOf(rows.paths.front()));
      const auto uses = [&](U32 field) {
        needs(folder + fields_[field], 32, protocol->where + " and table " + table.table);
      };
      const auto tells = [&](const IndexWord& word, const char* what, std::size_t parts, U8 step) {
        uses(word.field);
        const auto count = static_cast<U32>(parts);
        if (word.tells(rows.first * count, rows.last * count + count - 1, step)) return;
        tell(protocol->where + "." + what + " does not tell rows " + std::to_string(rows.first) +
             " to " + std::to_string(rows.last) + " of table " + table.table);
      };
      const std::size_t parts = partsOf(rows.paths, std::equal_to<>());
      if (protocol->written) uses(protocol->written->field);
      if (protocol->select) uses(protocol->select->field);
      if (protocol->control) uses(protocol->control->field);
      if (protocol->read) {
        uses(protocol->read->poll.field);
        tells(protocol->read->trigger, "read.trigger", parts, 0);
      }
      if (table.hitBlock != 0 && protocol->hits) {
        uses(protocol->hits->poll.field);
        tells(protocol->hits->trigger, "hits.trigger", 1,
              static_cast<U8>(std::countr_zero(table.hitBlock)));
      }
    }
  }
  return lines;
}

}  // namespace VelaBus
