#include "VelaSwitchApi/KeyRecords.h"

#include <algorithm>
#include <utility>

namespace VelaSwitchApi {
namespace {

constexpr const char* statusNames[] = {"notProgrammed", "programmed", "tableFull", "hardwareError",
                                       "duplicateKey"};

}  // namespace

const char* nameOf(EntryProgrammedStatus status) {
  return statusNames[static_cast<std::size_t>(status)];
}

void parseText(Orb::TextCursor& cursor, EntryProgrammedStatus& status) {
  const std::string_view word = cursor.word();
  for (std::size_t i = 0; i < std::size(statusNames); ++i) {
    if (word == statusNames[i]) {
      status = static_cast<EntryProgrammedStatus>(i);
      return;
    }
  }
  throw Orb::TextException("\"" + std::string(word) + "\" is not a programming status");
}

KeyRecords::~KeyRecords() {
  index_.forEach([&](void* record) { static_cast<KeyRecord*>(record)->given(); });
}

std::vector<const KeyRecord*> KeyRecords::records(Flag flag) const {
  std::vector<const KeyRecord*> records;
  records.reserve(count(flag));
  forEachRecord(flag, [&](const KeyRecord& record) { records.push_back(&record); });
  std::sort(records.begin(), records.end(),
            [&](const KeyRecord* one, const KeyRecord* other) { return one->comesBefore(*other); });
  return records;
}

/// For one that is not itself the record of an entry.
bool KeyRecords::updateFromRecord(KeyRecord& other) const {
  const KeyRecord* record = recordOf(other);
  const bool desired = record && record->has(KeyRecord::desired);
  other.resultIsOf(desired ? record : nullptr);
  return desired;
}

void KeyRecords::reserve(U32 count, std::size_t recordSize) {
  index_.reserve(count);
  slab_.reserve(count, recordSize);
}

void KeyRecords::replace(KeyRecord& record, KeyRecord& next) {
  next.taken();
  // What is staged is the record that goes.
  if (record.has(KeyRecord::staged)) --counts_[KeyRecord::staged];
  next.flags_ = static_cast<U8>(std::exchange(record.flags_, U8{0}) & ~(1 << KeyRecord::staged));
  index_.replace(record.keyTag(), &record, &next);
  ++gone_;
  record.given();
}

void KeyRecords::drop(KeyRecord& record) {
  index_.remove(record.keyTag(), &record);
  ++gone_;
  record.given();
}

void KeyRecords::flagDelAll(Flag flag) {
  std::vector<KeyRecord*> flagged;
  forEachRecord(
      flag, [&](const KeyRecord& record) { flagged.push_back(const_cast<KeyRecord*>(&record)); });
  for (KeyRecord* record : flagged) flagIs(*record, flag, false);
}

}  // namespace VelaSwitchApi
