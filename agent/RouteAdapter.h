#pragma once

#include "agent/RouteWriter.h"
#include "agent/TableAdapter.h"

namespace VelaAgent {

/// How many next hops there are numbers for.
inline constexpr U32 nexthopNumbers = 57 * 64;
/// The next hop of a number: numbers run through the layer-3 LAGs first, then through the rewrites.
/// Throws InputException for a number that has none.
VelaSwitch::NexthopIndexes nexthopOfNumber(U64 number);

/// Whole routes behind JSON: announced with VRF and prefix, looked up by address.
class RouteAdapter final : public TableAdapter {
 public:
  using Key = VelaSwitch::LpmKey;

  /// `writer` and `levels`, the tables of the ladder, must outlive the adapter.
  RouteAdapter(RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
               std::vector<HwTableAdapter*> levels);
  ~RouteAdapter() override;

  EntryProgrammedStatus set(const Json& key, const Json& result) override;
  bool del(const Json& key) override;
  Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const override;
  bool pollHitBits(Orb::Seconds now) override;
  void explain(VelaDevice::DataPath& dataPath, const Json& key, const Json& hit,
               Json& explanation) const override;
  std::vector<Competitor> competing(const Json& key) const override;
  std::optional<std::string> levelOf(const Json& key) const override;
  bool fills(const VelaSwitchApi::SwTable& table) const override;
  void forEachEntry(const EntryVisitor& visit) const override;
  std::vector<Status> statuses() const override;
  U32 entries() const override { return writer_.routes().entries().size() - unclaimed(); }
  U32 unclaimed() const override { return writer_.unclaimed(); }
  U32 programmed() const override;
  U32 waiting() const override;
  U64 moves() const override;
  U32 refused() const override { return refusals_.count(); }
  void reconcile(const KeyVisitor& removing) override;

 private:
  Key keyFromJson(const Json& json) const;
  EntryProgrammedStatus status(const Key& key) const;

  RouteWriter& writer_;
  const VelaSwitch::ProfileInfo& profile_;
  std::vector<HwTableAdapter*> levels_;
  Refusals<Key> refusals_{
      [this](const Key& key) { return status(key) == EntryProgrammedStatus::programmed; },
      [this](const Key& key) { admittedIs(toJson(key)); }};
};

}  // namespace VelaAgent
