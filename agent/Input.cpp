#include "agent/Input.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

#include "Orb/Text.h"

namespace VelaAgent {

std::string quoted(const std::string& whole) {
  constexpr std::size_t longest = 120;
  std::string text = whole.substr(0, longest + 1);
  // A message is one line, and no terminal is to obey it.
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<U8>(c) < ' ' || c == 0x7f; }, ' ');
  if (text.size() <= longest) return text;
  static const std::string rest = "…";
  std::size_t end = longest - rest.size();
  // Not amid a character.
  while (end > 0 && (static_cast<U8>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + rest;
}

namespace {

/// How many letters have to change, at least.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = diagonal + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string suggestion(std::string_view name, const std::vector<std::string>& names) {
  if (name.size() > 40) return {};
  const std::string* best = nullptr;
  // Two letters that changed places are two changes.
  std::size_t least = 1 + (name.size() < 4 ? 1 : std::max<std::size_t>(2, name.size() / 3));
  for (const std::string& each : names) {
    const std::size_t changes = distance(name, each);
    if (changes >= least) continue;
    least = changes;
    best = &each;
  }
  return best ? " (did you mean " + *best + "?)" : "";
}

std::string hexText(U64 value, unsigned digits) { return Orb::text("0x", Orb::Hex{value, digits}); }

}  // namespace VelaAgent
