#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Orb/Types.h"

/// Streams that carry desired state to switches and bring back what became of it: what their
/// entries say, whatever engine keeps them. See docs/fleet.md.
namespace VelaService {

/// Names an entry of a stream, and grows along it: "1700000000000-0".
struct EntryId {
  U64 milliseconds = 0;  ///< Since 1970, by the clock of the server.
  U64 number = 0;        ///< Of several within one.
  auto operator<=>(const EntryId&) const = default;
};
std::string toText(const EntryId& id);
/// Throws VelaAgent::InputException for what is none.
EntryId entryIdFromText(std::string_view text);

/// How far a stream of changes was applied. The changes of a switch are numbered from 1, so that a
/// gap shows.
struct StreamPosition {
  EntryId id;
  U64 sequence = 0;  ///< 0 before the first was applied.
  bool operator==(const StreamPosition&) const = default;
};

struct StreamEntry {
  EntryId id;
  std::map<std::string, std::string, std::less<>> fields;
};

/// An entry of the stream of changes.
struct Change {
  U64 sequence = 0;
  bool snapshot = false;  ///< What is desired was told anew, in the stream of the snapshot.
  std::string lines;      ///< Events, a line each.
};
/// Throws VelaAgent::InputException for an entry that is none.
Change changeOf(const StreamEntry& entry);

/// The last entry of a snapshot; those before it have lines.
struct SnapshotEnd {
  StreamPosition at;  ///< The change that it stands for, with all before.
  U64 parts = 0;      ///< Entries before this one.
};
bool isSnapshotEnd(const StreamEntry& entry);
/// Throws VelaAgent::InputException when it is malformed.
SnapshotEnd snapshotEndOf(const StreamEntry& entry);

/// The streams of a switch. Braces keep them together where an engine spreads streams over servers.
struct StreamNames {
  std::string changes;
  std::string snapshot;
  std::string status;
};
/// Throws VelaAgent::InputException for a name that is empty or has other characters than letters,
/// digits, '-', '_', '.' and ':'.
StreamNames streamNames(const std::string& switchName);

/// Keeps how far the stream of a switch was applied; nothing where the path is empty.
class PositionFile {
 public:
  PositionFile(std::string path, std::string switchName)
      : path_(std::move(path)), switchName_(std::move(switchName)) {}

  /// Nothing where none is kept of this switch's stream.
  std::optional<StreamPosition> read() const;
  /// When it returns the disk has either the position or, after a crash amid it, the one before.
  /// Throws std::runtime_error when it cannot be written.
  void write(const StreamPosition& position) const;

 private:
  std::string path_;
  std::string switchName_;
};

}  // namespace VelaService
