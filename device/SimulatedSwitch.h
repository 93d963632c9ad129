#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "VelaSwitchApi/RegisterBus.h"

namespace VelaDevice {

struct ControlWord;

/// A saved switch that cannot be read. The text names file and line.
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
class VELA_EXPORT SimulatedSwitch final : public VelaSwitchApi::RegisterBus {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;

  /// One hardware table's memory.
  struct Table {
    VelaSwitchApi::HwTableIdentity identity;
    HwIndex lastIndex = 0;
    U32 rowWords = 0;  ///< Registers of a row; known with the first write.
    std::vector<U32> words;
    std::vector<U8> present;
    std::vector<U8> hit;
    const ControlWord* control = nullptr;  ///< How writes name their row; null: as the caller says.

    /// The words of a row, or null when it was never written.
    const U32* row(HwIndex index) const {
      return index <= lastIndex && present[index] != 0 ? &words[std::size_t{index} * rowWords]
                                                       : nullptr;
    }
  };

  /// Says which model of the switch this is, by its profile's name. A saved switch of another
  /// model throws ImageException: its rows mean something else.
  void modelIs(const std::string& model);

  RegisterHandle registerIs(std::string_view path) override;
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override;
  bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) override;
  Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override;
  bool hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) override;

  /// The table of a family's instance and hardware table id, or null.
  Table* find(std::string_view family, U32 instance, VelaSwitchApi::HwTableId id);
  /// The value last written to the register; 0 when none was.
  U32 registerValue(std::string_view path) const;

  /// After `good` more row writes, `count` of them fail, each after `registers` of its registers
  /// were written.
  void failWritesIs(U32 count, U32 registers = 0, U32 good = 0);
  /// The next `count` row reads, and reads of hit bits, fail.
  void failReadsIs(U32 count) { failReads_ = count; }
  /// Flips bit `bit` of word `word` (counted over the row's registers). False when there is no
  /// such bit or the row was never written.
  bool flipBit(TableHandle table, HwIndex index, U32 word, U32 bit);

  /// Called after every single register write, with the table and row being written.
  using WriteObserver = std::function<void(const Table&, HwIndex)>;
  void writeObserverIs(WriteObserver observer) { observer_ = std::move(observer); }

  /// Row writes that reached the switch, and their register writes.
  U64 rowWrites() const { return rowWrites_; }
  U64 registerWrites() const { return registerWrites_; }

  /// Saves everything into a file: written beside it and renamed, so that the file is always a
  /// whole image. Throws std::runtime_error when it cannot be written.
  void save(const std::string& file) const;
  /// Loads a saved image into this switch, which must be new. Throws ImageException.
  void load(const std::string& file);

 private:
  void commit(Table& table, HwIndex index, std::span<const RegisterValue> writes);

  std::string model_;
  std::map<std::string, RegisterHandle, std::less<>> registerHandles_;
  std::vector<U32> registers_;
  std::vector<U32> blocks_;  ///< By register: the number of its block.
  std::map<std::string, TableHandle, std::less<>> tableHandles_;
  std::vector<Table> tables_;
  U32 goodWrites_ = 0;  ///< Row writes that work before the next one that fails.
  U32 failWrites_ = 0;
  U32 failAfterRegisters_ = 0;
  U32 failReads_ = 0;
  WriteObserver observer_;
  U64 rowWrites_ = 0;
  U64 registerWrites_ = 0;
};

}  // namespace VelaDevice
