#include "DirectBase/IndexedRows.h"

#include <algorithm>

#include "VelaSwitch/Parity.h"
#include "VelaSwitchApi/RowReads.h"

namespace VelaSwitchTable {

using VelaSwitchApi::EntryProgrammedStatus;
using VelaSwitchApi::KeyRecord;
using VelaSwitchApi::maxRowWords;

EntryProgrammedStatus IndexedTable::statusOf(const KeyRecord* record) const {
  if (record && record->has(KeyRecord::marked)) return EntryProgrammedStatus::hardwareError;
  // Before the table is started hardware has what was read from it, no more.
  const bool there =
      record && record->has(initialized() ? KeyRecord::desired : KeyRecord::unclaimed);
  return there ? EntryProgrammedStatus::programmed : EntryProgrammedStatus::notProgrammed;
}

IndexedRowsConvertor* IndexedTable::rows() const {
  return static_cast<IndexedRowsConvertor*>(profileConvertorPtr().get());
}

void IndexedTable::flush() {
  if (rows()) types().run().flush();
}

void IndexedTable::settle(KeyRecord& record) { flagIs(record, KeyRecord::staged, false); }

void IndexedRowsConvertor::createHwTable(
    const VelaSwitchApi::HwTableIdentity& identity, VelaSwitchApi::TableState state, HwIndex first,
    HwIndex last, U8 rowWords, Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping) {
  const auto descriptor = VelaSwitchApi::HwTableDescriptorConfig::hwTableDescIs(
      identity, state, first, last, rowWords, std::move(mapping));
  hwTableIs(identity.id, Orb::make<HwTableConfig>(descriptor, swTable()->types().bus()));
  descriptorIs(identity.id, descriptor);
}

void IndexedRowsConvertor::staticWordsAre(const VelaSwitchApi::StaticWords& words) {
  for (U8 word = 0; word < maxRowWords; ++word) {
    if (words[word] != 0) hwStaticWordIs(word, words[word]);
  }
}

auto IndexedRowsConvertor::rowImage(HwTableId table, HwIndex index, Content content) const
    -> Image {
  const Orb::Ptr<IndexedEntry> entry = newEntry(index);
  const KeyRecord* desired =
      content == Content::desired ? record(KeyRecord::desired, index) : nullptr;
  if (desired) entry->resultIsOf(desired);
  entry->validIs(desired);
  return pack(*entry, table, index);
}

RowSays IndexedRowsConvertor::says(U32* image, HwTableId table, HwIndex index,
                                   IndexedEntry& entry) const {
  return VelaSwitchApi::readSafely(trace_, refusal_, index, RowSays::unsound, [&] {
    return VelaSwitch::parityU32Array(image, parityWords_) == 0 ? unpack(image, table, index, entry)
                                                                : RowSays::unsound;
  });
}

RowSays IndexedRowsConvertor::says(HwTableId table, HwIndex index, IndexedEntry& entry) const {
  return says(hwTable(table)->image(index), table, index, entry);
}

bool IndexedRowsConvertor::rowSound(HwTableId table, HwIndex index) const {
  return says(table, index, *newEntry(index)) != RowSays::unsound;
}

void IndexedRowsConvertor::checkRows() const {
  bool unpacked = false;
  for (const auto& [id, table] : hwTables()) {
    const HwIndex first = table->descriptor().first;
    const VelaSwitchApi::RowCheck check(trace_, rowLayout(id, first));
    // Two rows whose numbers differ in parity: words that are not the data's show in one of them.
    for (const HwIndex index : {first, std::min(first + 1, table->descriptor().last)}) {
      const Orb::Ptr<IndexedEntry> empty = newEntry(index);
      check.expect(indexOf(*empty) == firstRow(*table, index), "the key of a row has another row");
      checkRow(check, id, index, *empty);
      for (const U64 bits : VelaSwitchApi::sampleBits) {
        const Orb::Ptr<IndexedEntry> sample = newEntry(index);
        sampleIs(*sample, rowLayout(id, first), bits);
        sample->validIs(true);
        unpacked = checkRow(check, id, index, *sample) || unpacked;
      }
    }
  }
  if (hwTables().empty()) return;
  const auto& [id, table] = *hwTables().begin();
  VelaSwitchApi::RowCheck(trace_, rowLayout(id, table->descriptor().first))
      .expect(unpacked, "no row unpacks to an entry");
}

/// Whether the row alone says what the entry is.
bool IndexedRowsConvertor::checkRow(const VelaSwitchApi::RowCheck& check, HwTableId id,
                                    HwIndex index, const IndexedEntry& packed) const {
  const std::string what = packed.valid() ? "an entry's row" : "an empty row";
  Image row = pack(packed, id, index);
  check.expect(VelaSwitch::parityU32Array(row.data(), parityWords_) == 0,
               "the parity of " + what + " is wrong");
  const Orb::Ptr<IndexedEntry> entry = newEntry(index);
  const RowSays said = says(row.data(), id, index, *entry);
  check.expect(said != RowSays::unsound, what + " is unsound");
  check.expect(packed.valid() || !entry->valid(), "an empty row unpacks to an entry");
  if (said != RowSays::result) return false;
  check.expectSame(row, pack(*entry, id, index), VelaSwitchApi::maxRowWords);
  forEachRow(indexOf(packed), [&](const HwTableConfig& table, HwIndex each) {
    const HwTableId other = table.descriptor().identity.id;
    if (other == id) return;
    Image image = pack(packed, other, each);
    const Orb::Ptr<IndexedEntry> part = newEntry(each);
    if (says(image.data(), other, each, *part) == RowSays::result) joinRow(other, *part, *entry);
  });
  expectSame(check, packed, *entry);
  return true;
}

void IndexedRowsConvertor::expectedImage(HwTableId table, HwIndex index, U32* image) const {
  const Image expected = rowImage(table, index, Content::desired);
  std::copy(expected.begin(), expected.end(), image);
}

bool IndexedRowsConvertor::writeRow(HwTableConfig& table, HwIndex index) {
  const Image image = rowImage(table.descriptor().identity.id, index, Content::desired);
  return writeImage(table, index, image, [] {});
}

bool IndexedRowsConvertor::unreadForget(HwIndex index) {
  bool unread = false;
  forEachRow(index, [&](HwTableConfig& table, HwIndex row) {
    if (table.state(row) != Row::unread) return;
    table.entryForget(row);
    unread = true;
  });
  return unread;
}

void IndexedRowsConvertor::unsoundForget(HwTableConfig& table, HwIndex index) {
  if (table.state(index) != Row::held) return;
  if (!rowSound(table.descriptor().identity.id, index)) table.entryForget(index);
}

/// The first row of the key that the row is one of.
HwIndex IndexedRowsConvertor::firstRow(const HwTableConfig& table, HwIndex index) const {
  const auto& rows = table.descriptor();
  return rows.first + (index - rows.first) % ((rows.last - rows.first + 1) / copies());
}

/// Whether hardware is known to hold what is desired in the row.
bool IndexedRowsConvertor::holds(const HwTableConfig& table, HwIndex index) const {
  if (table.state(index) != Row::held) return false;
  const Image expected = rowImage(table.descriptor().identity.id, index, Content::desired);
  return table.same(index, expected.data(), table.image(index));
}

bool IndexedRowsConvertor::everyRowHolds(HwIndex first) const {
  bool all = true;
  forEachRow(first, [&](const HwTableConfig& table, HwIndex row) {
    all = all && (table.mapped(row).empty() || holds(table, row));
  });
  return all;
}

bool IndexedRowsConvertor::anyRowMarks(HwIndex first) const {
  bool any = false;
  forEachRow(first, [&](const HwTableConfig& table, HwIndex row) {
    any = any || marksSound(table.descriptor().identity.id, row);
  });
  return any;
}

// Writing what no entry asks for.

void IndexedRowsConvertor::initHwEntries(bool overwrite, U32 start) {
  if (!overwrite) readUnread(start);
  for (const auto& [id, table] : hwTables()) {
    const auto& rows = table->descriptor();
    for (HwIndex index = std::max(start, rows.first); index <= rows.last; ++index) {
      if (overwrite) {
        table->entryForget(index);
      } else if (!takesDefault(*table, index)) {
        continue;
      }
      if (!writeRow(*table, index)) markIs(index, true);
    }
  }
  recheck(start, false);
}

/// Whether a row belongs to no entry and may be written: hardware has said what it holds.
bool IndexedRowsConvertor::takesDefault(const HwTableConfig& table, HwIndex index) const {
  if (table.mapped(index).empty() || hasEntry(index)) return false;
  const Row state = table.state(index);
  return state != Row::unread &&
         !(state == Row::held && ignored(table.descriptor().identity.id, index));
}

/// Keys whose rows are as they should be lose their marks, but for those that an audit gives them.
void IndexedRowsConvertor::recheck(U32 start, bool audited) {
  for (const auto& [id, table] : hwTables()) {
    const auto& rows = table->descriptor();
    for (HwIndex index = std::max(start, rows.first); index <= rows.last; ++index) {
      if (!marked(index)) continue;
      const HwIndex first = firstRow(*table, index);
      if (everyRowHolds(first) && !(audited && anyRowMarks(first))) markIs(index, false);
    }
  }
}

// Rebuilding entries.

void IndexedRowsConvertor::syncEntries(U32 id) {
  const Orb::Ptr<HwTableConfig> table = hwTable(id);
  ORB_ASSERT(table);
  const auto& rows = table->descriptor();
  const HwIndex block = (rows.last - rows.first + 1) / copies();
  VelaSwitchApi::RowReads reads;
  for (HwIndex index = rows.first; index <= rows.last; ++index) {
    if (!table->mapped(index).empty()) reads.add(*table, index);
    // A row is taken before another one of its key is read.
    if (!reads.full() && (index + 1 - rows.first) % block != 0) continue;
    reads.flush([&](HwTableConfig& of, HwIndex row, Read read, bool late) {
      if (swTable()->initialized()) return auditRow(of, row, read, late);
      if (read != Read::held) traceUnread(of, row, read);
      takeRow(of, row, false);
    });
  }
  if (swTable()->initialized() && id == hwTables().rbegin()->first) recheck(0, true);
}

/// Marks keys whose rows are not all what they should be, since a writer may have stopped amid a
/// change.
void IndexedRowsConvertor::handleRebuilt() {
  for (const auto& [id, table] : hwTables()) {
    const auto& rows = table->descriptor();
    for (HwIndex index = rows.first; index <= rows.last; ++index) {
      if (table->mapped(index).empty() || holds(*table, index)) continue;
      const bool held = table->state(index) == Row::held;
      // A row that says nothing is wrong only where another one gave an entry.
      if (!hasEntry(index) && (!held || ignored(id, index))) continue;
      markIs(index, true);
    }
  }
}

/// Takes up what rows hold that could not be read before.
void IndexedRowsConvertor::readUnread(U32 start) {
  for (const auto& [id, table] : hwTables()) {
    const auto& rows = table->descriptor();
    for (HwIndex index = std::max(start, rows.first); index <= rows.last; ++index) {
      if (table->mapped(index).empty() || !table->unheard(index)) continue;
      const Read read = table->readEntry(index);
      if (read != Read::held) traceUnread(*table, index, read);
      if (read != Read::failed) takeLate(*table, index);
    }
  }
}

/// The row answers, and did not before.
void IndexedRowsConvertor::takeLate(HwTableConfig& table, HwIndex index) {
  takeRow(table, index, true);
  if (hasEntry(index)) markIs(index, !everyRowHolds(firstRow(table, index)));
}

// Audit and repair.

void IndexedRowsConvertor::auditRow(HwTableConfig& table, HwIndex index, Read read, bool late) {
  const HwTableId id = table.descriptor().identity.id;
  if (read == Read::failed) {
    traceUnread(table, index, read);
    auditFindingIs({Finding::Kind::unreadable, id, index});
    return;
  }
  if (late) takeLate(table, index);
  if (read == Read::absent) {
    traceUnread(table, index, read);
    if (!hasEntry(index) ||
        rowImage(id, index, Content::desired) == rowImage(id, index, Content::empty)) {
      return;
    }
    auditFindingIs({Finding::Kind::missing, id, index});
    markIs(index, true);
    return;
  }
  if (ignored(id, index)) return;
  const bool differs = !holds(table, index);
  if (!differs && !marksSound(id, index)) return;
  if (const auto kind = judge(table, index, differs)) auditFindingIs({*kind, id, index});
}

void IndexedRowsConvertor::repair(const Finding& finding) {
  if (finding.kind == Finding::Kind::unreadable) return;
  if (hasEntry(finding.index)) {
    entries().handleRow(finding.index);
    return;
  }
  // Nobody withdrew it: rows that could not be read may hold an entry.
  bool good = true;
  forEachRow(firstRow(*hwTable(finding.table), finding.index),
             [&](HwTableConfig& table, HwIndex row) {
               good = table.state(row) != Row::unread && writeRow(table, row) && good;
             });
  markIs(finding.index, !good);
}

}  // namespace VelaSwitchTable
