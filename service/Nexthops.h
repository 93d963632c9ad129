#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "Orb/Types.h"

namespace VelaService {

/// Where a route goes, as the switch says it: the layer-3 LAG, and the rewrite within it.
struct Slot {
  U8 lag = 0;
  U8 rewrite = 0;
  bool operator==(const Slot&) const = default;
};

/// The next hops of a switch. Gateways behind the same ports share a layer-3 LAG and have a rewrite
/// index each; a LAG's row is written before a route can use it, and emptied when none does.
///
/// Registers do not tell which gateway a rewrite index stands for. So that is kept in a file, which
/// has each assignment before any row of it is written.
class Nexthops {
 public:
  static constexpr std::size_t lagCount = 57;
  static constexpr std::size_t rewriteCount = 64;

  /// Whose index it is.
  struct Owner {
    U64 ports = 0;
    std::string interface;  ///< Empty where packets do not leave by a gateway.
    U32 gateway = 0;        ///< In host order.
  };
  enum class Outcome : U8 { good, noIndex, hardwareError };

  /// Writes a LAG's row, or empties it; returns whether hardware has it.
  using LagWriter = std::function<bool(U8 lag, U64 ports)>;

  /// Nothing is kept where `file` is empty.
  Nexthops(std::string file, LagWriter writer);

  /// Takes up what a switch holds that is started again: its LAGs, what the file says of them, and
  /// the references of its routes. First lagIs(), then a rebuilt() for each route, then started().
  void lagIs(U8 lag, U64 ports);
  void rebuilt(Slot slot);
  /// Throws std::runtime_error when the file cannot be written.
  void started();

  /// Adds a reference to the owner's slot, which is a new one if need be. `slot` is set when the
  /// outcome is good. Where all are taken, that is `own`, if it is given and has no other
  /// reference: then it is the owner's from now on.
  Outcome acquire(const Owner& owner, Slot& slot, const Slot* own = nullptr);
  /// Takes a reference away.
  void release(Slot slot);
  /// Whether rows of LAGs that nobody refers to could not be emptied, and tries that again.
  bool leftOver() const;
  void emptyLeftOver();
  /// Whether an index became free since this was asked last.
  bool freed() { return std::exchange(freed_, false); }

  /// The file and why it could not be written last; empty where it could.
  const std::string& failure() const { return failure_; }

  using Visitor = std::function<void(Slot, const Owner&, U32 routes)>;
  /// Every slot that is in use. One that nothing is known of has an empty owner but for its ports.
  void forEach(const Visitor& visit) const;

 private:
  /// One without references is still its last owner's, who may come back, until another needs it.
  struct Rewrite {
    U32 references = 0;
    bool known = false;  ///< Whether it is known whose it is.
    U32 gateway = 0;
    std::string interface;
  };
  struct Lag {
    U64 ports = 0;
    U32 used = 0;          ///< Rewrites that have references.
    bool written = false;  ///< Whether its row was announced and is in hardware.
    bool kept = false;     ///< Whether it had an owner.
    bool left = false;     ///< Unused, its row may hold something.
    std::array<Rewrite, rewriteCount> rewrites;
  };

  void read();
  bool compact();
  bool note(Slot slot);
  bool append(Slot slot);
  bool take(Slot slot, const Owner& owner);
  bool write(U8 lag);
  void empty(U8 lag);
  std::string line(Slot slot) const;
  std::optional<Slot> slotOf(const Owner& owner) const;
  std::optional<Slot> freeSlot(const Owner& owner) const;
  bool passes(Slot own, const Owner& owner) const;

  std::string file_;
  LagWriter writer_;
  std::array<Lag, lagCount> lags_;
  std::size_t lines_ = 0;  ///< Of the file.
  bool cut_ = false;       ///< Its last line may be a part of one.
  std::string failure_;
  bool freed_ = false;
};

}  // namespace VelaService
