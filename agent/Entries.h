#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Orb/Any.h"
#include "Orb/Seconds.h"
#include "VelaSwitchApi/HashBase.h"
#include "agent/Input.h"
#include "agent/Limits.h"
#include "device/DataPath.h"

/// Operations on the entries of tables whose types the caller need not know: keys and results are
/// handed over by reference with their shapes, so that a value of the table's own type will do as
/// it is, and one read from a text or an event as well.
namespace VelaAgent {

using Orb::AnyRef;
using Orb::AnyValue;
using VelaSwitchApi::BatchListener;
using VelaSwitchApi::Competitor;
using VelaSwitchApi::EntryOutcome;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaSwitchApi::HwIndex;

using AnyListener = std::function<void(AnyRef)>;

/// A way to ask the data path for what a table or several of them say.
struct Lookup {
  using Ask = std::function<void(VelaDevice::DataPath&, U32 instance, AnyRef asked,
                                 const AnyListener& found)>;
  const Orb::Shape* asked;
  /// Calls `found` with the hit, when there is one.
  Ask ask;
  /// What is expected where nothing may be left out, for people; else null.
  const char* wholly = nullptr;
};

/// A lookup from a function that takes the data path, the table's instance and what is asked; it
/// must be one.
template <class Asked, class Find>
Lookup lookupBy(Find find, const char* wholly = nullptr) {
  return {
      &Orb::shapeOf<Asked>,
      [find](VelaDevice::DataPath& dataPath, U32 instance, AnyRef asked, const AnyListener& found) {
        if (const auto hit = find(dataPath, instance, asked.as<Asked>())) found(*hit);
      },
      wholly};
}

template <class Asked, class Hit>
Lookup lookupOf(std::optional<Hit> (*find)(VelaDevice::DataPath&, U32 instance, const Asked&),
                const char* wholly = nullptr) {
  return find ? lookupBy<Asked>(find, wholly) : Lookup{&Orb::shapeOf<Asked>, {}, wholly};
}

/// The ways to ask a table: by its key, and perhaps by something else.
using Lookups = std::vector<Lookup>;

/// Something that entries can be announced to, whatever its kind.
class Entries {
 public:
  /// A lookup that says nothing of what is asked, or has no function, is a fatal assertion.
  Entries(std::string name, U32 instance, const Orb::Shape& key, const Orb::Shape& result,
          Lookups lookups);
  virtual ~Entries() = default;
  Entries(const Entries&) = delete;
  Entries& operator=(const Entries&) = delete;

  const std::string& name() const { return name_; }
  U32 instance() const { return instance_; }
  const Orb::Shape& keyShape() const { return key_; }
  const Orb::Shape& resultShape() const { return result_; }
  const Lookups& lookups() const { return lookups_; }
  /// The field of the key that takes no part in the family, if any.
  virtual std::string_view unusedKeyField() const { return {}; }
  virtual const VelaSwitch::ProfileInfo& profile() const = 0;

  /// Throws InputException where there is nothing to announce to.
  virtual void checkChangeable() const {}
  /// Throws InputException for a key that cannot be had, whatever the switch.
  virtual void checkKey(AnyRef) const {}
  /// Why no entry of the key can be in this switch; empty when one can.
  virtual std::string whyNoRow(AnyRef) const { return {}; }

  /// Announces an entry. One that is unchanged but not programmed is tried again. Throws
  /// InputException for an entry that cannot be had.
  EntryProgrammedStatus announce(AnyRef key, AnyRef result);
  /// An entry to be announced.
  struct Announcement {
    AnyRef key;
    AnyRef result;
  };
  /// Announces entries that were checked, in order, with the same end as announce() of one after
  /// the other. Keys and results must stay where they are meanwhile.
  virtual void announceAll(std::span<const Announcement> all, BatchListener& listener) = 0;
  /// Throws InputException for an entry that cannot be had. warnings() are of the last one checked.
  void check(AnyRef key, AnyRef result);
  /// Withdraws an entry; returns whether there was one.
  virtual bool withdraw(AnyRef key) = 0;
  virtual EntryProgrammedStatus status(AnyRef key) const = 0;
  /// The time of the last poll that found the entry hit; never where hardware does not tell.
  virtual Orb::Seconds lastHit(AnyRef) const { return {}; }
  /// Whether an entry of the key is announced; one that was rebuilt from hardware is not.
  virtual bool announced(AnyRef key) const = 0;
  /// Whether the last entry announced had been announced before, and not withdrawn since.
  bool announcedBefore() const { return announcedBefore_; }
  /// What is odd about the last entry announced, although it was accepted.
  const std::vector<std::string>& warnings() const { return warnings_; }

  /// Reads the hit bits of the entries' rows. False when a read failed.
  virtual bool pollHitBits(Orb::Seconds now) = 0;
  /// The entries that leave a refused one no row; one fewer than they are with it.
  virtual std::vector<Competitor> competing(AnyRef) const { return {}; }
  /// How many they are.
  virtual std::size_t competitors(AnyRef) const { return 0; }
  /// Those of them whose withdrawal lets it in: when others go, somebody else comes in first.
  virtual std::vector<Competitor> yielding(AnyRef) const { return {}; }
  /// The result that was announced for the key or rebuilt from hardware, or none.
  virtual AnyValue resultOf(AnyRef) const { return {}; }
  /// Whether what is announced here becomes entries of the table.
  virtual bool fills(const VelaSwitchApi::SwTable& table) const = 0;

  using EntryVisitor = std::function<void(AnyRef key, AnyRef result)>;
  virtual void forEachEntry(const EntryVisitor& visit) const = 0;
  using StatusVisitor =
      std::function<void(AnyRef key, EntryProgrammedStatus status, Orb::Seconds lastHit)>;
  virtual void forEachStatus(const StatusVisitor& visit) const = 0;

  /// Entries that were announced, and those of them that hardware has.
  virtual U32 entries() const = 0;
  virtual U32 programmed() const = 0;
  /// Entries that were rebuilt from hardware and not announced since.
  virtual U32 unclaimed() const = 0;
  /// Entries that wait for room.
  virtual U32 waiting() const { return 0; }
  virtual U64 moves() const { return 0; }
  /// Entries that hardware lacks since they were announced, after a refusal.
  virtual U32 refused() const = 0;

  /// Hears of entries that come in although their announcement was refused.
  void admissionListenerIs(AnyListener listener) { admitted_ = std::move(listener); }
  /// Removes the entries that were read from hardware and that nobody announced since, after a
  /// word on each, and tries again what had no room.
  virtual void reconcile(const AnyListener& removing) = 0;

 protected:
  /// What an announcement is made of. Likewise, `result` may be odd, which is worth a warning.
  virtual void checkResult(AnyRef, std::vector<std::string>& /*odd*/) const {}
  virtual EntryProgrammedStatus program(AnyRef key, AnyRef result) = 0;

  /// How many bits hardware has for a field of the result.
  virtual unsigned rowBits(std::string_view /*field*/, bool /*mask*/) const { return 64; }
  virtual void warnOfMore(AnyRef /*key*/, AnyRef /*result*/) {}
  void warningIs(std::string text) { warnings_.push_back(std::move(text)); }
  void admittedIs(AnyRef key) const {
    if (admitted_) admitted_(key);
  }

 private:
  void warnOfCuts(AnyRef key, AnyRef result);

  std::string name_;
  U32 instance_;
  const Orb::Shape& key_;
  const Orb::Shape& result_;
  Lookups lookups_;
  bool announcedBefore_ = false;
  std::vector<std::string> warnings_;
  AnyListener admitted_;
};

}  // namespace VelaAgent
