#pragma once

#include <map>
#include <string>
#include <vector>

#include "Orb/Seconds.h"
#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/HwTable.h"
#include "VelaSwitchApi/KeyRecords.h"

namespace VelaSwitchApi {

class HashBaseCuckooEntry;
class PhysicalHashTable;
class PhysicalHashProperties;
class SwTableProfileConvertor;

/// What the tables of one switch have in common: its profile, the way to its registers, and the
/// physical hash tables that several software tables may share.
class VELA_EXPORT SwTableTypes : public Orb::PtrInterface {
 public:
  /// The bus must outlive every table made with these types.
  SwTableTypes(Orb::PtrConst<VelaSwitch::ProfileInfo> profile, RegisterBus& bus);
  ~SwTableTypes() override;

  const VelaSwitch::ProfileInfo& profile() const { return *profile_; }  ///< As it was given.
  RegisterBus& bus() const { return bus_; }                             ///< As it was given.
  /// The rows that batches under way have staged.
  RowRun& run() { return run_; }

  /// A number for one more software table.
  U32 nextSwTableId() { return swTableIds_++; }
  /// The physical table of the number, made with the properties on first use.
  Orb::Ptr<PhysicalHashTable> physicalHashTable(U32 tableId,
                                                const PhysicalHashProperties& properties);

 private:
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile_;
  RegisterBus& bus_;
  RowRun run_{bus_};
  U32 swTableIds_ = 0;
  std::map<U32, Orb::Ptr<PhysicalHashTable>> physicalHashTables_;
};

/// A software table: desired entries, and a convertor that brings them into hardware.
///
/// Life of a table: doSetProfileConvertor, doCreateHwTable, on a restart syncEntries, then
/// initHwEntries, initializedIs(true), doInitComplete. Entries may be announced at any time; they
/// are programmed once the table is initialized.
class VELA_EXPORT SwTable : public Orb::PtrInterface, public KeyRecords {
 public:
  ~SwTable() override;
  /// Number of the software table within its switch; given by doSetProfileConvertor.
  virtual U32 swTableId() const;
  /// Makes the convertor and connects it.
  virtual void doSetProfileConvertor(Orb::Ptr<SwTableTypes> types) = 0;
  /// Declares the hardware tables.
  virtual void doCreateHwTable();
  /// Writes the rows of all hardware tables; with `overwrite` false, rows that hold an entry are
  /// left alone.
  virtual void initHwEntries(bool overwrite);
  /// Reads hardware back. Before the table is initialized its entries are rebuilt from what
  /// hardware holds; afterwards both are compared, and the convertor keeps the findings.
  virtual void syncEntries();
  /// Closes start-up.
  virtual void doInitComplete();

  const std::string& name() const { return name_; }  ///< As it was made, for traces and messages.
  bool initialized() const { return initialized_; }  ///< Whether entries are programmed.
  /// Hardware is ready (true): the convertor is told, and the entries present are programmed.
  void initializedIs(bool initialized);

  /// Of the switch that the table is of; there is none before doSetProfileConvertor.
  const VelaSwitch::ProfileInfo& profile() const { return types_->profile(); }
  /// Given by doSetProfileConvertor, as is the profile.
  SwTableTypes& types() const { return *types_; }

  /// The framework's name of a hardware table, such as "AclHash[1]-0".
  static std::string hwTableName(const std::string& prefix, const std::string& part,
                                 const std::string& suffix, HwTableId id);
  /// Called by doSetProfileConvertor.
  void profileConvertorPtrIs(Orb::Ptr<SwTableProfileConvertor> convertor);
  /// Null before doSetProfileConvertor.
  const Orb::Ptr<SwTableProfileConvertor>& profileConvertorPtr() const { return convertor_; }

  /// Whether every pipeline's hardware table holds the same rows.
  void hwTablesDuplicateIs(bool duplicate) { hwTablesDuplicate_ = duplicate; }
  bool hwTablesDuplicate() const { return hwTablesDuplicate_; }  ///< As it was said last.
  /// How hit bits are read in a table of the state.
  static HitBitAccessMode hitBitAccessModeMapping(TableState state);

 protected:
  explicit SwTable(std::string name) : name_(std::move(name)) {}

  bool gathers() const override { return !types_ || types_->bus().gainsByRuns(); }
  void stagedNumberIs(std::size_t number) override {
    if (types_) types_->run().numberIs(number);
  }
  /// First part of doSetProfileConvertor.
  void typesIs(Orb::Ptr<SwTableTypes> types);
  /// The table became initialized: program every entry present.
  virtual void handleInitialized() = 0;

 private:
  std::string name_;
  Orb::Ptr<SwTableTypes> types_;
  Orb::Ptr<SwTableProfileConvertor> convertor_;
  U32 swTableId_ = 0;
  bool initialized_ = false;
  bool hwTablesDuplicate_ = false;
};

/// A row that a refused entry competes for, in the table that the entry in it belongs to.
struct Competitor {
  const SwTable* table;  ///< Not always the refused entry's.
  HwIndex index;         ///< Of its hardware tables.
};

/// One field of a row that differs from what it should be.
struct FieldDifference {
  std::string field;  ///< Of a field of more than 64 bits, a part of it.
  U64 expected;       ///< What the entry, or an empty row, asks for.
  U64 found;          ///< What hardware holds.
};

/// What an audit found in one row.
struct AuditFinding {
  /// What is wrong.
  enum class Kind : U8 {
    inconsistent,  ///< An entry's row holds something else.
    missing,       ///< An entry's row is empty.
    unexpected,    ///< A row holds something that no entry asks for.
    unreadable,    ///< The row could not be read.
  };
  Kind kind;             ///< Of the row, or of the entry without one.
  HwTableId table;       ///< See SwTableProfileConvertor::hwTable().
  HwIndex index;         ///< noRow for an entry that has none.
  bool corrupt = false;  ///< No row of the table can hold this: its parity is wrong, for one.
  /// The entry that is missing when it has no row; it lives as long as its table holds it.
  const HashBaseCuckooEntry* entry = nullptr;

  static constexpr HwIndex noRow = ~HwIndex{0};  ///< The entry lies nowhere.
};

/// How full a software table, or a part of it, is. The numbers are asked of the placement itself,
/// so they cannot drift.
struct EntryCounter {
  std::string key;                           ///< Name of the part, for people.
  U32 size;                                  ///< Entries that there is room for.
  U32 index;                                 ///< The part of the table.
  const SwTableProfileConvertor* convertor;  ///< Whom the numbers are asked of.

  VELA_EXPORT U32 used() const;  ///< Entries in hardware now.
  /// Highest use seen.
  VELA_EXPORT U32 peak() const;
};

/// Knows the hardware of a software table: which hardware tables exist, under which registers, and
/// how an entry becomes a row.
class VELA_EXPORT SwTableProfileConvertor : public Orb::PtrInterface {
 public:
  ~SwTableProfileConvertor() override;
  /// A poll found the row hit.
  virtual void handleHitBitEntry(HwTableId table, HwIndex index);
  virtual void doInitTableStats();  ///< Starts the capacity counters.
  /// Declares the hardware tables, their descriptors and hit-bit tables.
  virtual void doCreateHwTables(TableState state) = 0;
  /// Prepares the reading of hit bits.
  virtual void doInitHwReadInfo();
  /// Writes the rows from `start` on; see SwTable::initHwEntries.
  virtual void initHwEntries(bool overwrite, U32 start) = 0;
  /// Reads one hardware table back; see SwTable::syncEntries.
  virtual void syncEntries(U32 table) = 0;
  /// The table became initialized; the place to declare static words.
  virtual void handleInitialized();
  /// The entries were rebuilt: marks those whose rows are not all what the entry asks for, since
  /// the hardware tables need not agree when a writer stopped amid a change.
  virtual void handleRebuilt();
  /// The image that the row should have; maxRowWords of them.
  virtual void expectedImage(HwTableId table, HwIndex index, U32* image) const = 0;
  /// The row's fields.
  virtual const RowLayout& rowLayout(HwTableId table, HwIndex index) const;
  /// Whether the image of a row that was read is one that a row of this table can have.
  virtual bool rowSound(HwTableId table, HwIndex index) const;
  /// Writes what an audit found wrong; what could not be written stays marked.
  virtual void repair(const AuditFinding& finding) = 0;
  /// Where hardware decides which row an entry has: puts the entries where the rows hold them, as
  /// far as they do. Nothing is written.
  virtual void takePlacement();

  /// The fields in which the row differs from the expected image.
  std::vector<FieldDifference> differences(HwTableId id, HwIndex index) const;

  /// Reads all hit bits and records the hits with the time. False when a read failed.
  virtual bool pollHitBits(Orb::Seconds now);

  Orb::Ptr<HwTableConfig> hwTable(HwTableId id) const;  ///< Null for one that was not declared.
  /// All that were declared.
  const std::map<HwTableId, Orb::Ptr<HwTableConfig>>& hwTables() const { return hwTables_; }

  /// The hardware tables whose hit bits are polled.
  const std::map<HwTableId, Orb::Ptr<HitBitTableConfig>>& hitBitTables() const {
    return hitBitTables_;
  }

  /// Of the last syncEntries() of the initialized table.
  const std::vector<AuditFinding>& auditFindings() const { return findings_; }
  void auditFindingDelAll() { findings_.clear(); }  ///< Forgets them; keys stay marked.

  /// One a part of the table.
  const std::vector<EntryCounter>& entryCounters() const { return counters_; }
  /// Entries in a part of the table, and the most that there ever were.
  virtual U32 entriesUsed(U32 index) const;
  virtual U32 entriesPeak(U32 index) const;  ///< See entriesUsed().

  /// Called by the table that the convertor serves.
  void swTableIs(SwTable* table) { swTable_ = table; }

 protected:
  SwTableProfileConvertor() = default;

  SwTable* swTable() const { return swTable_; }
  const VelaSwitch::ProfileInfo& profile() const { return swTable_->profile(); }

  /// Declares a hardware table. A table that another software table declared may be given again.
  void hwTableIs(HwTableId id, Orb::Ptr<HwTableConfig> table);
  void descriptorIs(HwTableId id, Orb::PtrConst<HwTableDescriptor> descriptor);
  void hitDescriptorIs(HwTableId id, Orb::PtrConst<HitBitTableDescriptor> descriptor);
  void hitBitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table);
  /// Marks bits of a word as depending on the row's place alone: they are left out when rows are
  /// compared.
  void hwStaticWordIs(U8 index, U32 mask);
  void hwStaticWordDel(U8 index);
  /// Starts the capacity counter of a part of the table, of `size` entries.
  void initEntryCounter(std::string key, U32 size, U32 index);

  void auditFindingIs(AuditFinding finding);
  Orb::Seconds pollTime() const { return pollTime_; }
  /// The time of the poll under way, for the hits that it reports.
  void pollTimeIs(Orb::Seconds now) { pollTime_ = now; }

 private:
  SwTable* swTable_ = nullptr;
  std::map<HwTableId, Orb::Ptr<HwTableConfig>> hwTables_;
  std::map<HwTableId, Orb::PtrConst<HwTableDescriptor>> descriptors_;
  std::map<HwTableId, Orb::PtrConst<HitBitTableDescriptor>> hitDescriptors_;
  std::map<HwTableId, Orb::Ptr<HitBitTableConfig>> hitBitTables_;
  StaticWords staticWords_{};
  std::vector<EntryCounter> counters_;
  std::vector<AuditFinding> findings_;
  Orb::Seconds pollTime_;
};

}  // namespace VelaSwitchApi
