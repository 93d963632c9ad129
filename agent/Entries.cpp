#include "agent/Entries.h"

namespace VelaAgent {

Entries::Entries(std::string name, U32 instance, const Orb::Shape& key, const Orb::Shape& result,
                 Lookups lookups)
    : name_(std::move(name)),
      instance_(instance),
      key_(key),
      result_(result),
      lookups_(std::move(lookups)) {
  for (const Lookup& lookup : lookups_) {
    if (!lookup.asked || !lookup.ask) {
      Orb::assertFailed((name_ + " has a lookup without a function").c_str(), "Entries");
    }
  }
}

EntryProgrammedStatus Entries::announce(AnyRef key, AnyRef result) {
  check(key, result);
  announcedBefore_ = announced(key);
  return program(key, result);
}

void Entries::check(AnyRef key, AnyRef result) {
  ORB_ASSERT(key.shape == &key_ && result.shape == &result_);
  checkKey(key);
  if (const std::string why = whyNoRow(key); !why.empty()) throw InputException(why);
  std::vector<std::string> odd;
  checkResult(result, odd);
  warnings_.clear();
  warnOfCuts(key, result);
  for (std::string& text : odd) warningIs(std::move(text));
  warnOfMore(key, result);
}

/// Warns of what hardware cuts of key and result, because it has fewer bits for it.
void Entries::warnOfCuts(AnyRef key, AnyRef result) {
  const auto bitsOfType = [](std::string_view, bool) { return 64u; };
  std::vector<std::string> cuts;
  cutFields(key, bitsOfType, cuts);
  cutFields(
      result, [this](auto field, bool mask) { return rowBits(field, mask); }, cuts);
  if (cuts.empty()) return;
  std::string text = "hardware has fewer bits: cut ";
  for (const std::string& cut : cuts) text += (&cut == &cuts.front() ? "" : ", ") + cut;
  warningIs(text);
}

}  // namespace VelaAgent
