#pragma once

#include <memory>

#include "agent/Json.h"
#include "agent/TableEntries.h"

namespace VelaAgent {

class HwTableAdapter;

/// What can be looked up, behind JSON: a table, whole routes, or a packet's way through several
/// tables.
class TableAdapter {
 public:
  /// One line of a status listing.
  struct Status {
    Json key;
    AnyValue value;  ///< The same key.
    EntryProgrammedStatus status;
    Orb::Seconds lastHit;
  };

  explicit TableAdapter(std::unique_ptr<Entries> entries) : entries_(std::move(entries)) {}
  virtual ~TableAdapter() = default;

  /// What is behind JSON.
  Entries& typed() const { return *entries_; }
  const std::string& name() const { return entries_->name(); }
  U32 instance() const { return entries_->instance(); }
  /// "NAME/INSTANCE", for people.
  std::string fullName() const { return name() + "/" + std::to_string(instance()); }
  /// The table with rows of its own that this is, or null.
  virtual HwTableAdapter* hardware() { return nullptr; }
  virtual const HwTableAdapter* hardware() const { return nullptr; }

  /// What a key that is no object names: "vid", "portId"; empty for other keys.
  std::string keyName() const;
  /// The key, without what takes no part in the family; null for none.
  Json keyToJson(AnyRef key) const;
  void appendKey(std::string& line, AnyRef key) const;

  /// The key that an event names. Throws InputException for one that the table cannot have.
  AnyValue keyFromJson(const Json& json) const;
  /// The result that an event names for a key; null stands for the default one.
  AnyValue resultFromJson(const Json& json) const;
  /// The field that a key may not do without, where there is one.
  virtual std::string_view neededKeyField() const { return {}; }

  /// Announces an entry; a null result is the default one. An entry that is unchanged but not
  /// programmed is tried again.
  EntryProgrammedStatus set(const Json& key, const Json& json);
  /// Withdraws an entry; returns whether there was one.
  bool del(const Json& key);

  /// What the data path finds: the hit's fields, or null.
  Json lookup(VelaDevice::DataPath& dataPath, const Json& json) const;
  /// Adds to the explanation of a lookup what its hit leads to.
  virtual void explain(VelaDevice::DataPath&, const Json& /*key*/, const Json& /*hit*/,
                       Json& /*explanation*/) const {}
  bool pollHitBits(Orb::Seconds now) { return entries_->pollHitBits(now); }
  std::vector<Competitor> competing(AnyRef key) const { return entries_->competing(key); }
  std::size_t competitors(AnyRef key) const { return entries_->competitors(key); }
  bool fills(const VelaSwitchApi::SwTable& table) const { return entries_->fills(table); }
  /// Which of several tables an entry of the key is to be in, where there are several.
  virtual const TableEntries* levelOf(AnyRef /*key*/) const { return nullptr; }

  /// Calls `visit(key, result)` for every entry.
  using EntryVisitor = std::function<void(const Json& key, const Json& result)>;
  void forEachEntry(const EntryVisitor& visit) const;
  /// Every entry's status, by key.
  std::vector<Status> statuses() const;
  U32 entries() const { return entries_->entries(); }
  U32 programmed() const { return entries_->programmed(); }
  U32 unclaimed() const { return entries_->unclaimed(); }
  U32 waiting() const { return entries_->waiting(); }
  U64 moves() const { return entries_->moves(); }
  U32 refused() const { return entries_->refused(); }

  void admissionListenerIs(AnyListener listener) {
    entries_->admissionListenerIs(std::move(listener));
  }
  using KeyVisitor = std::function<void(const Json& key)>;
  void reconcile(const KeyVisitor& removing);

 protected:
  /// Throws InputException for JSON that is more than its shape asks, where there is more to say
  /// than that.
  virtual void checkResultForm(const Json& /*result*/) const {}
  /// The way to ask that the JSON form is meant for.
  virtual const Lookup& lookupFor(const Json& asked) const;

 private:
  AnyValue askedFromJson(const Lookup& lookup, const Json& json) const;

  std::unique_ptr<Entries> entries_;
};

/// The name of a kind of finding, for those who tell of it.
const char* nameOf(VelaSwitchApi::AuditFinding::Kind kind);

/// What an audit found, likewise.
struct RowFinding {
  using Kind = VelaSwitchApi::AuditFinding::Kind;
  Kind kind;
  bool corrupt;  ///< No row of the table can hold this.
  Json key;      ///< Whose row it is; null when no entry's.
  Json holds;    ///< The key that a row of no entry's stands for or seems to hold.
  const VelaSwitchApi::HwTableConfig* hwTable;
  std::optional<HwIndex> index;  ///< Nothing for an entry that is in no row.
  std::vector<VelaSwitchApi::FieldDifference> fields;
};

/// A software table with rows in hardware.
class HwTableAdapter final : public TableAdapter {
 public:
  using Place = TableEntries::Place;
  using RowId = TableEntries::RowId;

  explicit HwTableAdapter(std::unique_ptr<TableEntries> entries)
      : TableAdapter(std::move(entries)) {}

  TableEntries& typed() const { return static_cast<TableEntries&>(TableAdapter::typed()); }
  HwTableAdapter* hardware() override { return this; }
  const HwTableAdapter* hardware() const override { return this; }
  VelaSwitchApi::SwTable& table() const { return typed().table(); }
  VelaSwitchApi::SwTableProfileConvertor& convertor() const { return typed().convertor(); }

  void audit() { typed().audit(); }
  void repair() { typed().repair(); }
  /// What the last audit found.
  std::vector<RowFinding> findings() const;
  std::vector<RowId> corruptRows() const { return typed().corruptRows(); }
  std::vector<RowId> strayRows() const { return typed().strayRows(); }
  /// Keys of entries whose rows, after the entries were rebuilt from them, do not all say the same.
  std::vector<Json> disagreeingKeys() const;
  bool reportsHits() const { return typed().reportsHits(); }

  static bool holds(const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index) {
    return TableEntries::holds(hwTable, index);
  }
  std::optional<Place> place(const Json& key) const { return place(keyFromJson(key)); }
  std::optional<Place> place(AnyRef key) const { return typed().place(key); }
  /// The key of the software entry in a row, or null.
  Json keyAt(HwIndex index) const { return keyToJson(typed().keyAt(index)); }
  /// The key that the row stands for or seems to hold, or null.
  Json decodedKey(HwIndex index) const { return keyToJson(typed().decodedKey(index)); }
  bool listsRow(HwIndex index) const { return typed().listsRow(index); }
  bool borrowsRows() const { return typed().borrowsRows(); }
  std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex index) const {
    return typed().location(index);
  }
};

}  // namespace VelaAgent
