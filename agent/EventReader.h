#pragma once

#include <memory>
#include <string>

#include "agent/TableAdapter.h"

namespace VelaAgent {

class Agent;

/// An announcement or a withdrawal, as values of its table.
struct EntryEvent {
  bool ordinary = false;  ///< Whether the line is one; only `line` and `number` are of another.
  bool withdraws = false;
  TableAdapter* table = nullptr;
  bool namesInstance = false;
  AnyValue key;
  AnyValue result;           ///< The default one where the event has none, or withdraws.
  std::string_view line;     ///< All of it, and
  std::string_view keyText;  ///< its key, perhaps with space behind; both lie where they were read.
  U64 number = 0;            ///< That of the line, for those who tell of it.
  std::vector<std::string> warnings;  ///< What is odd about it.
};

/// Reads ordinary announcements and withdrawals straight into values, without a document between.
///
/// An event is ordinary when there is nothing to say about it. Whatever is wrong or but unusual (a
/// name that is not known or comes twice, a number out of bounds, a letter that is escaped, a key
/// before its table) is left to those who read documents and can say what it is.
class EventReader {
 public:
  /// How many bytes behind a line are read, whatever they are.
  static constexpr std::size_t padding = 64;

  /// `agent` must be made, and outlive the reader.
  explicit EventReader(const Agent& agent);
  ~EventReader();

  /// Reads a line into `event`, whose values are used again. Returns whether it was an ordinary
  /// event; what `event` holds of another means nothing. A line with fewer than `padding` bytes to
  /// read `behind` it is copied, and stays with the reader until the next.
  bool read(std::string_view line, std::size_t behind, EntryEvent& event);

 private:
  struct Parser;
  std::unique_ptr<Parser> parser_;
};

}  // namespace VelaAgent
