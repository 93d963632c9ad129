#include "VelaSwitchApi/KeyRecords.h"

#include <algorithm>
#include <utility>

namespace VelaSwitchApi {

KeyRecords::~KeyRecords() {
  index_.forEach([&](void* record) { type_->give(*static_cast<KeyRecord*>(record)); });
}

std::vector<const KeyRecord*> KeyRecords::records(Flag flag) const {
  std::vector<const KeyRecord*> records;
  records.reserve(count(flag));
  forEachRecord(flag, [&](const KeyRecord& record) { records.push_back(&record); });
  std::sort(records.begin(), records.end(), [&](const KeyRecord* one, const KeyRecord* other) {
    return type_->before(*one, *other);
  });
  return records;
}

void KeyRecords::reserve(U32 count) {
  index_.reserve(count);
  slab_.reserve(count);
}

void KeyRecords::replace(KeyRecord& record, KeyRecord& next) {
  type_->take(next);
  next.flags_ = std::exchange(record.flags_, U8{0});
  index_.replace(type_->tag(record), &record, &next);
  type_->give(record);
}

void KeyRecords::drop(KeyRecord& record) {
  index_.remove(type_->tag(record), &record);
  type_->give(record);
}

void KeyRecords::flagDelAll(Flag flag) {
  std::vector<KeyRecord*> flagged;
  forEachRecord(
      flag, [&](const KeyRecord& record) { flagged.push_back(const_cast<KeyRecord*>(&record)); });
  for (KeyRecord* record : flagged) flagIs(*record, flag, false);
}

}  // namespace VelaSwitchApi
