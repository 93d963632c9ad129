#pragma once

#include <functional>
#include <map>
#include <optional>

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

/// Why an entry is in hardware or is not, and why a packet takes the route that it takes. All that
/// is said comes from the tables, the registers and the engine's proof.
namespace VelaAgent {

/// Why the tables were not told of a route that is desired.
struct NotTold {
  const char* word;     ///< For programs.
  const char* meaning;  ///< For people.
};

/// Answers for one switch. An answer is a JSON object; in it, "says" has sentences for people, and
/// "causes" what is the matter, in one word each:
///
///   notDesired         nobody announced it
///   wrongVrf           but it is announced in another VRF
///   waiting            there is no room for it
///   duplicate          hardware cannot tell it from another entry
///   hardwareError      a register access failed
///   rowDiffers         the row does not hold what it should
///   notTold            a source wants it, but the tables were not told of it
///   cutField           hardware has fewer bits for a field
///   shadowed           longer routes take some or all of its addresses
///   coveredByRefused   the longest route of the address is not in hardware
class Reasons {
 public:
  /// The tables of `agent`, which must outlive this, were started and told what is desired. Or else
  /// they were rebuilt from hardware alone, and what is desired is not known.
  Reasons(Agent& agent, bool desiresKnown) : agent_(agent), desiresKnown_(desiresKnown) {}

  using RouteKey = VelaSwitch::LpmKey;
  /// Nothing for routes that the tables were told of, or that nobody desires.
  using WhyNotTold = std::function<std::optional<NotTold>(const RouteKey&)>;
  /// Whoever tells the tables of routes may keep some back, which are spoken of as well.
  void notToldIs(WhyNotTold notTold) { notTold_ = std::move(notTold); }

  /// Reads the rows that it may take, and audits the table where they are not as they should be.
  Json entry(TableAdapter& table, const Json& key);
  /// The route of "vrf" and "address".
  Json address(const Json& asked);

 private:
  struct Subject;

  Json entry(const Subject& subject, bool shadows);
  Subject subjectOf(TableAdapter& table, const Json& key) const;
  void addRows(const Subject& subject, Json& answer) const;
  void addStatus(const Subject& subject, Json& answer);
  void addProof(const Subject& subject, Json& answer) const;
  void addTurn(const Subject& subject, Json& answer) const;
  void addCounterpart(const Subject& subject, Json& answer) const;
  void addCuts(const Subject& subject, Json& answer) const;
  void addAbsence(const Subject& subject, Json& answer) const;
  void addCorruption(const Subject& subject, Json& answer) const;
  void addFindings(const Subject& subject, Json& answer);
  struct Inside;
  Inside inside(const RouteKey& route) const;
  void addShadows(const RouteKey& route, Json& answer) const;
  void addLevel(const Subject& subject, Json& answer) const;
  bool rowsGood(const Subject& subject) const;
  Json holderOf(const HwTableAdapter& table, HwIndex index) const;
  const std::vector<RowFinding>& findingsOf(HwTableAdapter& table);

  TableAdapter& routes() const { return agent_.table("Route", 0); }
  std::optional<NotTold> whyNotTold(const RouteKey& route) const {
    return notTold_ ? notTold_(route) : std::nullopt;
  }
  bool desired(const RouteKey& route) const {
    return bool(routes().typed().resultOf(route)) || whyNotTold(route).has_value();
  }
  /// The desired routes of the VRF that cover the address, longest first.
  std::vector<RouteKey> covering(U8 vrf, Ipnet::IpAddr address) const;
  std::vector<RouteKey>::const_iterator answering(const std::vector<RouteKey>& all,
                                                  const Json& hit) const;
  void addBetter(const std::vector<RouteKey>& better, Json& answer);
  void addElsewhere(const RouteKey& at, Json& answer) const;
  void judge(const RouteKey& at, const Json& hit, Json& answer);

  Agent& agent_;
  bool desiresKnown_;
  WhyNotTold notTold_;
  std::map<const HwTableAdapter*, std::vector<RowFinding>> findings_;
};

}  // namespace VelaAgent
