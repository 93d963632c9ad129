#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "VelaSwitchApi/RegisterBus.h"
#include "device/Image.h"

namespace VelaDevice {

struct ControlWord;

/// A saved switch that cannot be read, or is not the one that is wanted.
class VELA_EXPORT ImageException : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// A switch made of memory: registers by path, and behind the tables' data and control registers
/// the row memories that they fill.
///
/// A row lands where its control word says, as in hardware, not where the caller says it belongs:
/// a wrong control word puts it into the wrong row. It is taken over with the last register of the
/// write; until then lookups see the old row.
///
/// Rows and hit bits live in a Memory and so can outlive the process, whatever becomes of it.
class VELA_EXPORT SimulatedSwitch : public VelaSwitchApi::RegisterBus {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;

  /// One hardware table's memory.
  struct Table {
    VelaSwitchApi::HwTableIdentity identity;  ///< As it was declared.
    HwIndex lastIndex = 0;                    ///< The last row, included.
    const ControlWord* control = nullptr;  ///< How writes name their row; null: as the caller says.
    U64 place = 0;                         ///< Where the table stands in the memory.
    ImageTable* image = nullptr;           ///< The same in the memory.

    /// Registers of a row; 0 until the first is written.
    U32 rowWords() const { return image->rowWords; }
    /// The words of a row, or null when it was never written.
    U32* row(HwIndex index) const {
      return index <= lastIndex && image->present()[index] != 0 ? image->words(index) : nullptr;
    }
    /// 1 once a lookup matched the row, until its bit is read.
    U8& hit(HwIndex index) const { return image->hit()[index]; }
  };

  /// A new switch.
  SimulatedSwitch();
  /// The switch in the memory, a new one if it is empty. Throws ImageException when it holds
  /// something else.
  explicit SimulatedSwitch(Memory memory);
  /// A copy has the same rows in memory of its own.
  SimulatedSwitch(const SimulatedSwitch& other);
  SimulatedSwitch& operator=(const SimulatedSwitch& other);  ///< Likewise.

  /// Whether tables were ever declared: a switch that was in use.
  bool used() const { return !state_.tables.empty(); }

  /// Says which model of the switch this is, by its profile's name. A saved switch of another
  /// model throws ImageException: its rows mean something else.
  void modelIs(const std::string& model);

  RegisterHandle registerIs(std::string_view path) override;
  /// Throws ImageException when a saved switch has another one of the name.
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override;
  /// False for those that were told to fail.
  bool rowIs(TableHandle handle, HwIndex index, std::span<const RegisterValue> writes) override;
  /// Failed for those that were told to.
  Read row(TableHandle handle, HwIndex index, std::span<RegisterValue> values) override;
  /// Likewise.
  bool hitBits(TableHandle handle, HwIndex first, std::span<RegisterValue> values) override;

  /// The table of a family's instance and hardware table id, or null.
  Table* find(std::string_view family, U32 instance, VelaSwitchApi::HwTableId id);
  /// The same, to look at.
  const Table* find(std::string_view family, U32 instance, VelaSwitchApi::HwTableId id) const {
    return const_cast<SimulatedSwitch*>(this)->find(family, instance, id);
  }
  /// The value last written to the register; 0 when none was.
  U32 registerValue(std::string_view path) const;

  /// After `good` more row writes, `count` of them fail, each after `registers` of its registers
  /// were written.
  void failWritesIs(U32 count, U32 registers = 0, U32 good = 0);
  /// After `good` more row reads, or reads of hit bits, `count` of them fail.
  void failReadsIs(U32 count, U32 good = 0) {
    state_.failReads = count;
    state_.goodReads = good;
  }
  /// Whether a row's hit bit is cleared when the row is written; it stays as it is unless told.
  void writesClearHitsIs(bool clear) { state_.writesClearHits = clear; }
  /// Flips bit `bit` of word `word` (counted over the row's registers). False when there is no
  /// such bit or the row was never written.
  bool flipBit(TableHandle handle, HwIndex index, U32 word, U32 bit);

  /// Called after every single register write, with the table and row being written.
  using WriteObserver = std::function<void(const Table&, HwIndex)>;
  /// There is one at most; empty for none.
  void writeObserverIs(WriteObserver observer) { state_.observer = std::move(observer); }

  /// See Memory::sync().
  void sync() const { memory_.sync(); }

  /// Row writes that reached the switch, and their register writes.
  U64 rowWrites() const { return state_.rowWrites; }
  U64 registerWrites() const { return state_.registerWrites; }  ///< See rowWrites().

 private:
  bool readFails();
  ImageHeader& header() const;
  void format();
  void load();
  Table& tableAt(U64 place);
  void writeRow(const Table& table, HwIndex index, std::span<const RegisterValue> writes);
  void finishPending();
  void commit(Table& table, HwIndex index, std::span<const RegisterValue> writes);

  ImageTable* imageAt(U64 place) const;

  /// What goes with the process.
  struct State {
    std::map<std::string, RegisterHandle, std::less<>> registerHandles;
    std::vector<U32> registers;
    std::vector<U32> blocks;  ///< By register: the number of its block.
    std::map<std::string, TableHandle, std::less<>> tableHandles;
    std::vector<Table> tables;
    U32 goodWrites = 0;  ///< Row writes that work before the next one that fails.
    U32 failWrites = 0;
    U32 failAfterRegisters = 0;
    U32 goodReads = 0;  ///< Reads that work before the next one that fails.
    U32 failReads = 0;
    bool writesClearHits = false;
    WriteObserver observer;
    U64 rowWrites = 0;
    U64 registerWrites = 0;
  };

  Memory memory_;
  State state_;
};

}  // namespace VelaDevice
