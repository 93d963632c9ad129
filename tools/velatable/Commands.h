#pragma once

#include "Options.h"
#include "Orb/Types.h"
#include "agent/JsonForward.h"

/// The commands. Each returns the exit code; what it throws is bad input.
namespace VelaTool {

/// Starts every table on the device and applies the events.
int run(const Options& options);

/// Prints what a saved switch holds, as events that would announce it.
int decode(const Options& options, const std::string& name);
/// Asks the data path of a saved switch for the keys.
int lookup(const Options& options, const std::string& table, const std::vector<std::string>& keys);
/// Tells everything about a vlan, port, nexthop, flow or route that a saved switch holds.
int show(const Options& options, const std::string& kind, const std::string& id);
/// Compares a saved switch with what events desire.
int audit(const Options& options);
/// Compares two saved switches, or one with what events would make of it.
int diff(const Options& options);
/// Tells why an entry is in hardware or is not, or where packets to an address go.
int why(const Options& options, const std::string& table, const std::string& key);
/// Tells whether a switch would have room for what events or lists of prefixes desire.
int fit(const Options& options);

/// Writes a page that shows a switch, or prints what it shows as JSON.
int report(const Options& options);

// The same of a running switch, whose daemon is asked at options.connect.

/// Sends a request, and prints the lines of its answer.
int ask(const std::string& path, const VelaAgent::Json& request);
/// Sends a request whose answer is one line, and returns that.
VelaAgent::Json answerTo(const std::string& path, const VelaAgent::Json& request);
/// How the daemon does, or with a table what it knows of the entries of the keys.
int status(const Options& options, const std::string& table, const std::vector<std::string>& keys);
/// Prints what happens, until the daemon ends it.
int watch(const Options& options);
/// Prints what rows differ from what they should be.
int auditLive(const Options& options);
/// Has events applied, and prints their results.
int runLive(const Options& options);

/// Tells a switch what is desired, by its stream.
int publish(const Options& options);
/// Tells of each switch that has streams on the servers how far it is.
int fleet(const Options& options);

/// Lists the built-in profiles, or prints the one of the name as JSON.
int profiles(const std::string& name);
/// Lists the tables of a profile with their hardware.
int tables(const Options& options);
/// Prints the row of a table field by field; with a key, what that key makes of it.
int layout(const Options& options, const std::string& name, const std::string& keyText);
/// Turns a list of prefixes, "a.b.c.d/len" and perhaps a next hop's number a line, into events that
/// announce them. Prefixes without a number take the next hops in turn.
int routes(const std::string& file, U32 vrf, U32 nexthops);

}  // namespace VelaTool
