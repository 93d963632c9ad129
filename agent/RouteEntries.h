#pragma once

#include <array>

#include "VelaRoutes/Routes.h"
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
class RouteEntries final : public Entries, private VelaRoutes::AdmissionListener {
 public:
  using Key = VelaSwitch::LpmKey;

  /// `writer`, the profile and `levels`, the tables of the ladder, must outlive this.
  RouteEntries(VelaRoutes::RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
               std::vector<TableEntries*> levels);

  const VelaSwitch::ProfileInfo& profile() const override { return profile_; }
  /// The table that an entry of the key is to be in.
  const TableEntries& levelOf(const Key& route) const { return *levelOf_[route.prefix().len()]; }

  void announceAll(std::span<const Announcement> all, BatchListener& listener) override;
  bool withdraw(AnyRef key) override { return routes_.withdraw(key.as<Key>()); }
  EntryProgrammedStatus status(AnyRef key) const override { return routes_.status(key.as<Key>()); }
  Orb::Seconds lastHit(AnyRef key) const override;
  bool announced(AnyRef key) const override { return routes_.announced(key.as<Key>()); }
  bool pollHitBits(Orb::Seconds now) override;
  std::vector<Competitor> competing(AnyRef key) const override {
    return routes_.competing(key.as<Key>());
  }
  std::size_t competitors(AnyRef key) const override { return routes_.competitors(key.as<Key>()); }
  std::vector<Competitor> yielding(AnyRef key) const override;
  AnyValue resultOf(AnyRef key) const override;
  bool fills(const VelaSwitchApi::SwTable& table) const override;
  void forEachEntry(const EntryVisitor& visit) const override;
  void forEachStatus(const StatusVisitor& visit) const override;
  U32 entries() const override { return routes_.size(); }
  U32 programmed() const override { return routes_.programmed(); }
  U32 unclaimed() const override { return routes_.writer().unclaimed(); }
  U32 waiting() const override { return routes_.waiting(); }
  U64 moves() const override;
  U32 refused() const override { return routes_.refused(); }
  void reconcile(const AnyListener& removing) override;

 private:
  void checkResult(AnyRef result, std::vector<std::string>& odd) const override;
  EntryProgrammedStatus program(AnyRef key, AnyRef result) override {
    return routes_.announce(key.as<Key>(), result.as<VelaSwitch::NexthopIndexes>());
  }
  void routeAdmitted(const Key& route) override { admittedIs({keyShape(), &route}); }

  VelaRoutes::Routes routes_;
  const VelaSwitch::ProfileInfo& profile_;
  std::vector<TableEntries*> levels_;
  std::array<const TableEntries*, 33> levelOf_;  ///< By a prefix's length.
};

}  // namespace VelaAgent
