#pragma once

#include <map>

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

/// Why an entry is in hardware or is not, and why a packet takes the route that it takes. All that
/// is said comes from the tables, the registers and the engine's proof.
namespace VelaAgent {

/// Answers for one switch. An answer is a JSON object; in it, "says" has sentences for people, and
/// "causes" what is the matter, in one word each:
///
///   notDesired         nobody announced it
///   wrongVrf           but it is announced in another VRF
///   waiting            there is no room for it
///   duplicate          hardware cannot tell it from another entry
///   hardwareError      a register access failed
///   rowDiffers         the row does not hold what it should
///   cutField           hardware has fewer bits for a field
///   shadowed           longer routes take some or all of its addresses
///   coveredByRefused   the longest route of the address is not in hardware
class Reasons {
 public:
  /// The tables of `agent`, which must outlive this, were started and told what is desired. Or else
  /// they were rebuilt from hardware alone, and what is desired is not known.
  Reasons(Agent& agent, bool desiresKnown) : agent_(agent), desiresKnown_(desiresKnown) {}

  /// Audits the table's rows for that.
  Json entry(TableAdapter& table, const Json& key);
  /// The route of "vrf" and "address".
  Json address(const Json& asked);

 private:
  struct Subject;
  using RouteKey = VelaSwitch::LpmKey;

  Json entry(const Subject& subject);
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
  void addShadows(const RouteKey& route, Json& answer) const;
  void addLevel(const Subject& subject, Json& answer) const;
  Json holderOf(const HwTableAdapter& table, HwIndex index) const;
  const std::vector<RowFinding>& findingsOf(HwTableAdapter& table);

  TableAdapter& routes() const { return agent_.table("Route", 0); }
  bool desired(const RouteKey& route) const { return bool(routes().typed().resultOf(route)); }
  /// The desired routes of the VRF that cover the address, longest first.
  std::vector<RouteKey> covering(U8 vrf, Ipnet::IpAddr address) const;
  std::vector<RouteKey>::const_iterator answering(const std::vector<RouteKey>& all,
                                                  const Json& hit) const;
  void addBetter(const std::vector<RouteKey>& better, Json& answer);
  void addElsewhere(const RouteKey& at, Json& answer) const;
  void judge(const RouteKey& at, const Json& hit, Json& answer);

  Agent& agent_;
  bool desiresKnown_;
  std::map<const HwTableAdapter*, std::vector<RowFinding>> findings_;
};

}  // namespace VelaAgent
