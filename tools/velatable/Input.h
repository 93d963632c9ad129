#pragma once

#include <fstream>
#include <optional>

#include "Names.h"
#include "Options.h"

/// What commands read and where they write.
namespace VelaTool {

/// A file to write to, or nothing when no name was given. Throws InputException when it
/// cannot be written.
std::optional<std::ofstream> outputFile(const std::string& name);

/// Throws InputException when something that was written did not arrive.
void finish(std::ostream& out, const std::string& name);

/// Throws InputException unless all files of events can be read and none of them, nor
/// the device's, is one to write to.
void checkFiles(const Options& options);

/// The switch of a --device option, a new one if there is none yet.
SimulatedSwitch openDevice(const std::string& device);
/// A copy of it: whatever becomes of the copy, a saved switch stays as it is.
SimulatedSwitch openCopy(const std::string& device);
/// The saved switch of a --device option, or a copy of it; it must be there.
SimulatedSwitch openSaved(const std::string& device);
SimulatedSwitch copySaved(const std::string& device);

/// A key on the command line: JSON, or for routes "ADDRESS", "PREFIX" or one of them behind "VRF:".
/// Throws InputException for what is neither.
Json keyFromText(const std::string& table, const std::string& text);

/// Reads a list of prefixes, "a.b.c.d/len" and perhaps a next hop's number a line, as events that
/// announce routes. Prefixes without a number take the next hops in turn.
class PrefixEvents {
 public:
  PrefixEvents(U8 vrf, U32 nexthops) : vrf_(vrf), nexthops_(nexthops) {}
  /// Returns whether the line names a prefix: `event` announces it then. Throws what reading it
  /// meets.
  bool read(std::string_view line, std::string& event);

 private:
  U8 vrf_;
  U32 nexthops_;
  U64 routes_ = 0;
};

/// What files may hold; a list of prefixes is told from events by its first character.
enum class Form : U8 { events, eventsOrPrefixes };

/// Applies all events of one input, "-" for standard input. Bad lines are told on standard error
/// with file and line; the first ends it unless `options` say to keep going. Returns whether every
/// line was good. Throws InputException when the input cannot be read.
bool applyFile(const std::string& name, const Options& options, EventRunner& runner,
               Form form = Form::events);
/// The same of all files of events that are told; one that ends ends it.
bool applyFiles(const Options& options, EventRunner& runner, Form form = Form::events);

/// A switch that a command looks at: a saved one, told what events desire without a write, or as
/// registers alone have it without events; or a new one on which events were run.
struct AskedSwitch {
  /// Throws InputException, with the command's name, where there is nothing to look at.
  AskedSwitch(const Options& options, const std::string& command);

  SimulatedSwitch chip;
  MadeAgent agent;
  bool desiresKnown;
  bool good = true;  ///< Whether every line of the events was good.
};

}  // namespace VelaTool
