#include "VelaSwitchApi/KeyRecords.h"

#include <algorithm>
#include <utility>

namespace VelaSwitchApi {

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

bool KeyRecords::update(KeyRecord& other) const {
  const KeyRecord* record = recordOf(other);
  const bool desired = record && record->has(KeyRecord::desired);
  if (!desired || record != &other) other.resultIsOf(desired ? record : nullptr);
  return desired;
}

void KeyRecords::reserve(U32 count) {
  index_.reserve(count);
  slab_.reserve(count);
}

void KeyRecords::replace(KeyRecord& record, KeyRecord& next) {
  next.taken();
  next.flags_ = std::exchange(record.flags_, U8{0});
  index_.replace(record.keyTag(), &record, &next);
  record.given();
}

void KeyRecords::drop(KeyRecord& record) {
  index_.remove(record.keyTag(), &record);
  record.given();
}

void KeyRecords::flagDelAll(Flag flag) {
  std::vector<KeyRecord*> flagged;
  forEachRecord(
      flag, [&](const KeyRecord& record) { flagged.push_back(const_cast<KeyRecord*>(&record)); });
  for (KeyRecord* record : flagged) flagIs(*record, flag, false);
}

}  // namespace VelaSwitchApi
