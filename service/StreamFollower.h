#pragma once

#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "agent/Events.h"
#include "service/Scrubber.h"
#include "service/Stream.h"
#include "service/Watch.h"

namespace VelaService {

/// What a switch is told once of the streams that are its own.
struct StreamSettings {
  std::string server;            ///< "redis://HOST:PORT"; empty where there is no stream.
  std::string credentials;       ///< The file of "PASSWORD" or "USER PASSWORD"; empty for none.
  std::string switchName;        ///< Whose streams they are.
  std::string positionFile;      ///< See PositionFile.
  U64 statusLength = 1000;       ///< About how many entries the stream of statuses keeps.
  bool routesAreOthers = false;  ///< What sources of routes program is theirs.
};

/// Brings what streams say is desired into a switch.
///
/// A snapshot says all that is desired as of some change, the stream of changes what came since.
/// When the follower starts, both are read up to the change that was applied last, or to the end
/// where that one is not to be found: the last word on each key is announced, and what nobody
/// announced goes. From there on changes are applied line by line. The position moves when
/// registers have what a change says, and is kept in a file.
///
/// Streams that are not there take nothing from a switch: without a snapshot, changes count only
/// where they have the position, or begin with the first and the switch holds nothing.
///
/// Whoever owns it reads what reading() asks for, and hands it to take().
class StreamFollower final : public WatchListener {
 public:
  /// What is to be read next.
  struct Reading {
    enum class Stream : U8 { snapshot, changes };
    Stream stream;
    EntryId from;
    bool inclusive;  ///< Whether the entry `from` is asked for itself, and nothing else.
    bool news;       ///< Whether to wait for an entry when there is none yet.
  };
  using Warn = std::function<void(const std::string&)>;

  /// `agent` must be started, and outlive this; `restarted` says that its tables were rebuilt from
  /// registers. `warn` takes what people should know.
  StreamFollower(VelaAgent::Agent& agent, StreamSettings settings, bool restarted, Warn warn);

  /// A connection to the streams is new: they may not be what they were.
  void connected();
  void disconnected() { connected_ = false; }
  bool isConnected() const { return connected_; }
  /// Why the streams cannot be read or written, for people; empty while they can.
  void troubleIs(const std::string& trouble) { trouble_ = trouble; }
  const std::string& trouble() const { return trouble_; }
  /// What to read, when there is something: not while there is work, nor while it is no use.
  std::optional<Reading> reading() const;
  /// Takes what reading() asked for: entries in their order, or none.
  void take(const std::vector<StreamEntry>& entries);
  /// Whether nothing is left to apply.
  bool idle() const { return queue_.empty() && phase_ != Phase::applying; }
  /// Applies a part.
  void work();
  /// Time has passed: what could not be read is tried again, about once a second.
  void retry();

  const StreamPosition& position() const { return position_; }
  /// Lines that were applied so far, and with them those that were read to be applied.
  U64 carriedOut() const { return lines_; }
  U64 queuedSoFar() const { return lines_ + queued_; }
  U64 queued() const { return queued_; }
  /// How it does, for those who see many: the object of docs/fleet.md.
  VelaAgent::Json report() const;
  const StreamSettings& settings() const { return settings_; }
  /// Whose a table is that is not the stream's, for people; null for those that are.
  const char* ownerOf(const VelaAgent::TableAdapter& table) const;

  /// Reports tell of what it finds; null for none. It must outlive this.
  void scrubberIs(const Scrubber* scrubber) { scrubber_ = scrubber; }
  /// What happens apart from what is applied, of which there are results, goes to the stream of
  /// statuses.
  void told(U64 sequence, std::string_view line) override;
  /// Takes a line for that stream. Of those that cannot be sent the oldest go.
  void tell(std::string line);
  /// The lines that wait to be sent, joined: as many as `bytes` take, and at least one. They stay
  /// until sent().
  std::string unsent(std::size_t bytes);
  void sent();

 private:
  enum class Phase : U8 {
    snapshot,   ///< The snapshot is read,
    changes,    ///< what came since,
    applying,   ///< and both applied.
    following,  ///< Changes are applied as they come.
    lacking,    ///< What is there does not say what is desired: another snapshot is waited for.
  };
  /// Lines to apply together.
  struct Part {
    std::string lines;
    U64 count;                            ///< How many they are.
    EntryId entry;                        ///< Where they stand.
    std::optional<StreamPosition> after;  ///< Where the switch is once they are applied.
  };
  /// The last announcement of a key, and its place among all.
  struct Last {
    U64 number = 0;
    std::string line;
  };

  void beginLoad(const StreamPosition& target);
  void takeSnapshot(const std::vector<StreamEntry>& entries);
  void snapshotRead(const StreamPosition& at);
  void takeChanges(const std::vector<StreamEntry>& entries);
  void takeNews(const std::vector<StreamEntry>& entries);
  void takenIs(const StreamPosition& taken);
  EntryId place() const;
  bool confirms() const;
  bool holdsEntries() const;
  void lack(const std::string& why);
  std::optional<Change> read(const StreamEntry& entry);
  void workOnQueue();
  void enqueue(std::string lines, const EntryId& entry, std::optional<StreamPosition> after);
  void fold(const EntryId& entry, const std::string& lines);
  void beginApplying();
  void endLoad();
  void withdrawUndesired(VelaAgent::TableAdapter& table);
  void apply(const Part& part);
  void save();
  void invalid(const EntryId& entry, U64 line, const std::string& why);
  void readInvalid(const EntryId& entry, U64 line, const std::string& why);

  VelaAgent::Agent& agent_;
  StreamSettings settings_;
  PositionFile file_;
  Warn warn_;
  bool rebuilt_;  ///< Nobody said yet what of the switch's rows is desired.
  Phase phase_ = Phase::snapshot;
  StreamPosition target_;  ///< How far a load reads; nothing for to the end.
  /// What registers have; the file's until a load is over. With the number 0 the entry is the one
  /// that the first lines come from: they may have a part of it.
  StreamPosition position_;
  StreamPosition saved_;  ///< what the file has of it,
  StreamPosition taken_;  ///< and what was read.
  EntryId read_;          ///< The last entry of a snapshot that was read, and how many
  U64 parts_ = 0;         ///< came so far.
  EntryId seen_;          ///< The last one of any snapshot.
  EntryId replaced_;      ///< The end of a snapshot that did not fit what was read before it.
  bool whole_ = false;    ///< What was read for a load says all that is desired.
  U64 wait_ = 0;          ///< Calls of retry() until all is read again,
  U64 pause_ = 1;         ///< and how many it will be the next time.
  bool connected_ = false;
  std::string trouble_;
  bool unconfirmed_ = true;  ///< The stream may have lost what was read last.
  U64 quiet_ = 0;            ///< Reads without news since that was looked up.
  bool reload_ = false;      ///< When the queue is empty, all is to be read anew.
  std::unordered_map<std::string, Last> desired_;  ///< While it is loaded, by table and key.
  U64 announcements_ = 0;                          ///< That were read for it,
  U64 wrong_ = 0;                                  ///< and lines that were none.
  std::deque<Part> queue_;
  U64 queued_ = 0;  ///< Lines in it.
  U64 loads_ = 0;
  U64 lines_ = 0;
  U64 invalid_ = 0;
  /// Up to where, in entries, lines of snapshots and lines of changes, what is invalid was told.
  std::array<std::pair<EntryId, U64>, 3> invalidTold_;
  bool wantsSnapshot_ = false;
  bool warned_ = false;  ///< That the position could not be kept.
  const Scrubber* scrubber_ = nullptr;
  bool working_ = false;
  std::deque<std::string> unsent_;
  std::size_t unsentBytes_ = 0;
  std::size_t sending_ = 0;  ///< How many of them are being sent.
  U64 dropped_ = 0;
};

}  // namespace VelaService
