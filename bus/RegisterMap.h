#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "VelaSwitchApi/SwTable.h"

namespace VelaBus {

using VelaSwitchApi::HwIndex;

/// A register map that cannot be used, or that lacks what is asked of it. One line says what and
/// where.
class VELA_EXPORT MapException : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Text with numbers in it: "{0-3}" stands for each of 0 to 3, and "{}" for any number.
class VELA_EXPORT NumberPattern {
 public:
  /// Throws MapException when the text is not well-formed.
  explicit NumberPattern(std::string text);

  const std::string& text() const { return text_; }  ///< As it was given.
  /// Whether the text is one of those that it stands for.
  bool matches(std::string_view text) const;

  /// The numbers that one pair of braces stands for.
  struct Range {
    U32 first;                                           ///< 0 of "{}".
    U32 last;                                            ///< Included.
    U64 count() const { return U64{last} - first + 1; }  ///< How many numbers.
  };
  /// In the order in which they stand in the text.
  const std::vector<Range>& ranges() const { return ranges_; }
  /// The text with these numbers, one for each range.
  std::string textOf(std::span<const U32> numbers) const;

 private:
  bool matchesFrom(std::size_t piece, std::string_view text) const;

  std::string text_;
  std::vector<std::string> literals_;  ///< One more than ranges: they stand around them.
  std::vector<Range> ranges_;
};

/// A word in which some bits are bits of a row's index.
struct VELA_EXPORT IndexWord {
  /// `bits` bits of the index, from its bit `from` on, stand in the word from its bit `to` on.
  struct Bits {
    U8 from;  ///< 0 to 31.
    U8 bits;  ///< 1 to 32.
    U8 to;    ///< 0 to 31.
  };

  U32 field;                ///< The register, by its number in RegisterMap::fields().
  U32 value;                ///< The bits that are not the index's.
  std::vector<Bits> index;  ///< Which bits of the index stand in it.

  U32 of(HwIndex row) const;  ///< The word for a row.
  /// Whether no two of the rows have the same word. The rows are multiples of 2^`step`, from
  /// `first` to `last`.
  bool tells(HwIndex first, HwIndex last, U8 step = 0) const;
};

/// A register that is read until hardware has done what it was asked to.
struct Poll {
  U32 field;       ///< The register, by its number in RegisterMap::fields().
  U32 mask;        ///< The bits that tell; hardware is done when they are as in `done`.
  U32 done;        ///< Their value then.
  U32 absent = 0;  ///< When any of these is set then, the row was never written.
  U32 failed = 0;  ///< When any of these is set then, hardware could not do it.
  U32 limit;       ///< The longest wait, in microseconds.
};

/// How something is read that is not in the registers: hardware is told which row by a write to the
/// trigger, says when it is done, and has then filled the row's registers.
struct ReadProtocol {
  IndexWord trigger;  ///< What is written to ask.
  Poll poll;          ///< How hardware says that it is done.
};

/// How the rows of a table are reached.
struct TableProtocol {
  std::string where;                 ///< Its place in the map, for messages.
  std::optional<Poll> written;       ///< How hardware takes a row over; nothing: by the last write.
  std::optional<ReadProtocol> read;  ///< Nothing: a row's registers hold it.
  std::optional<ReadProtocol> hits;  ///< Nothing: rows have no hit bits.
  /// Written before a row's registers, where the control word does not tell the table.
  std::optional<IndexWord> select;
  /// What the control word of a row is read as, where the register does not give it back.
  std::optional<IndexWord> control;
};

/// The registers of a hardware table.
struct TableRegisters {
  /// Rows that have the same registers.
  struct Rows {
    HwIndex first;                   ///< The first row.
    HwIndex last;                    ///< The last one, included.
    std::vector<std::string> paths;  ///< In the order in which they are written.
  };
  std::string table;       ///< The table's name, as in HwTableIdentity.
  std::vector<Rows> rows;  ///< Those that have the same registers stand together.
  U32 width = 32;          ///< Bits that each register has to have.
  U32 hitBlock = 0;        ///< Rows whose hit bits one read gives; 0 where there are none.
};
/// What faults() is to look at: all hardware tables of a software table that has declared them.
VELA_EXPORT std::vector<TableRegisters> registersOf(const VelaSwitchApi::SwTable& table);

/// Where a switch's registers lie in a mapping, and how rows are read back through them. Its text
/// is JSON; docs/buses.md has its form.
class VELA_EXPORT RegisterMap {
 public:
  /// Where a register lies.
  struct Register {
    U64 offset;   ///< In bytes, a multiple of 4.
    U32 width;    ///< In bits, a multiple of 32. Values stand in the first 32.
    U32 pattern;  ///< Number of the pattern that it is of.
  };

  /// Both throw MapException; what does not belong there, and registers that overlap, are errors.
  static RegisterMap fromFile(const std::string& file);
  /// `name` stands before messages.
  static RegisterMap fromText(std::string_view json, const std::string& name);

  /// All registers by path.
  const std::map<std::string, Register, std::less<>>& registers() const { return registers_; }
  /// Null for a path that the map does not have.
  const Register* find(std::string_view path) const;
  /// How the table of the name is reached. Throws MapException when the map does not say, or twice.
  const TableProtocol& protocolOf(std::string_view table) const;
  /// Names of registers that protocols use, each in the folder of the row's registers.
  const std::vector<std::string>& fields() const { return fields_; }
  /// The path of the register behind all others, and the offset of its end.
  std::pair<std::string, U64> end() const;

  /// What the map lacks for these tables, a line each: registers without a pattern or too narrow,
  /// tables without a protocol, registers that a protocol needs, triggers that do not tell rows.
  std::vector<std::string> faults(std::span<const TableRegisters> tables) const;

 private:
  friend class MapReader;

  void patternIs(const NumberPattern& pattern, Register first, std::span<const U64> strides);
  void checkOverlaps() const;
  [[noreturn]] void fail(const std::string& what) const;

  std::string name_;
  std::map<std::string, Register, std::less<>> registers_;
  std::vector<std::string> patterns_;
  std::vector<std::pair<NumberPattern, U32>> tables_;  ///< With the number of their protocol.
  std::vector<TableProtocol> protocols_;
  std::vector<std::string> fields_;
};

/// The part of a register's path up to its name: registers of one folder work together.
inline std::string_view folderOf(std::string_view path) {
  return path.substr(0, path.rfind('/') + 1);
}

/// How many parts a row is written in: each begins with the same register.
template <class Registers, class Same>
std::size_t partsOf(const Registers& registers, const Same& same) {
  std::size_t parts = 0;
  for (const auto& each : registers) parts += same(each, registers.front()) ? 1 : 0;
  return parts;
}

}  // namespace VelaBus
