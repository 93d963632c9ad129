#pragma once

#include "agent/RouteWriter.h"
#include "agent/TableEntries.h"

namespace VelaAgent {

/// How many next hops there are numbers for.
inline constexpr U32 nexthopNumbers = 57 * 64;
/// The next hop of a number: numbers run through the layer-3 LAGs first, then through the rewrites.
/// Throws InputException for a number that has none.
VelaSwitch::NexthopIndexes nexthopOfNumber(U64 number);

/// What a packet's route is looked up with.
struct RouteAddress {
  static constexpr const char* typeName = "VelaAgent::RouteAddress";
  Orb::Field<"vrf", U8> vrf;
  Orb::Field<"address", Ipnet::IpAddr> address;
};

/// Whole routes: announced as next hops of a VRF and prefix, looked up by address, or by a prefix,
/// which stands for its first address.
class RouteEntries final : public Entries, private Orb::KeyObserver<VelaSwitch::LpmKey> {
 public:
  using Key = VelaSwitch::LpmKey;

  /// `writer`, the profile and `levels`, the tables of the ladder, must outlive this.
  RouteEntries(RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
               std::vector<TableEntries*> levels);
  ~RouteEntries() override;

  const VelaSwitch::ProfileInfo& profile() const override { return profile_; }
  /// The table that an entry of the key is to be in.
  const TableEntries& levelOf(const Key& route) const;

  void announceAll(std::span<const Announcement> all, BatchListener& listener) override;
  bool withdraw(AnyRef key) override;
  EntryProgrammedStatus status(AnyRef key) const override { return statusOf(key.as<Key>()); }
  bool pollHitBits(Orb::Seconds now) override;
  std::vector<Competitor> competing(AnyRef key) const override;
  bool fills(const VelaSwitchApi::SwTable& table) const override;
  void forEachEntry(const EntryVisitor& visit) const override;
  void forEachStatus(const StatusVisitor& visit) const override;
  U32 entries() const override { return writer_.routes().entries().size() - unclaimed(); }
  U32 programmed() const override;
  U32 unclaimed() const override { return writer_.unclaimed(); }
  U32 waiting() const override;
  U64 moves() const override;
  U32 refused() const override;
  void reconcile(const AnyListener& removing) override;

 private:
  void checkResult(AnyRef result, std::vector<std::string>& odd) const override;
  bool announced(AnyRef key) const override;
  EntryProgrammedStatus program(AnyRef key, AnyRef result) override;
  /// The first part of an announcement, and what follows when its rows are written.
  bool announceRoute(const Key& route, const VelaSwitch::NexthopIndexes& nexthop);
  EntryProgrammedStatus outcomeOf(const Key& route, bool changed);
  EntryProgrammedStatus statusOf(const Key& key) const;
  /// How many routes that have the flag are wanted.
  template <class Wanted>
  U32 count(LpmRoutes::Flag flag, const Wanted& wanted) const;
  /// The status of a route changed.
  void handleKey(const Key& route) override;

  RouteWriter& writer_;
  const VelaSwitch::ProfileInfo& profile_;
  std::vector<TableEntries*> levels_;
  bool watching_ = false;  ///< Routes were refused.
};

}  // namespace VelaAgent
