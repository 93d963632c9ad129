#include "service/Nexthops.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "agent/Json.h"

namespace VelaService {

using VelaAgent::Json;

namespace {

/// How many lines the file may have before those that no longer matter go.
constexpr std::size_t linesMost = 4 * Nexthops::lagCount * Nexthops::rewriteCount;

/// Sees to it that the disk has what is in the file.
bool synced(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool good = file >= 0 && fsync(file) == 0;
  if (file >= 0) close(file);
  return good;
}

}  // namespace

Nexthops::Nexthops(std::string file, LagWriter writer)
    : file_(std::move(file)), writer_(std::move(writer)) {}

void Nexthops::lagIs(U8 lag, U64 ports) {
  lags_[lag].ports = ports;
  lags_[lag].kept = true;
}

void Nexthops::rebuilt(Slot slot) {
  Lag& lag = lags_[slot.lag];
  lag.kept = true;
  if (lag.rewrites[slot.rewrite].references++ == 0) ++lag.used;
}

void Nexthops::started() {
  if (file_.empty()) return;
  read();
  if (!compact()) throw std::runtime_error("cannot write " + file_);
}

/// A line that was cut short by a crash had no row yet. Routes that hardware shows no trace of, for
/// longer ones cover them, had next hops as well: what has no reference is known, too.
void Nexthops::read() {
  std::ifstream file(file_);
  for (std::string text; std::getline(file, text);) {
    try {
      const Json json = Json::parse(text);
      const auto at = json.at("l3LagIndex").get<std::size_t>();
      Lag& lag = lags_.at(at);
      Rewrite& rewrite = lag.rewrites.at(json.at("rewriteIndex").get<std::size_t>());
      // The file has the ports of the LAG's last owner too; if they are others, so was the owner.
      rewrite.known = json.at("ports").get<U64>() == lag.ports;
      lag.kept = lag.kept || rewrite.known;
      rewrite.gateway = json.at("gateway").get<U32>();
      rewrite.interface = json.at("interface").get<std::string>();
    } catch (const std::exception&) {
      continue;
    }
  }
}

std::string Nexthops::line(Slot slot) const {
  const Lag& lag = lags_[slot.lag];
  const Rewrite& rewrite = lag.rewrites[slot.rewrite];
  return Json{{"l3LagIndex", slot.lag},
              {"rewriteIndex", slot.rewrite},
              {"ports", lag.ports},
              {"interface", rewrite.interface},
              {"gateway", rewrite.gateway}}
             .dump() +
         "\n";
}

bool Nexthops::compact() {
  const std::string next = file_ + ".new";
  std::ofstream file(next, std::ios::trunc);
  lines_ = 0;
  for (U8 lag = 0; lag < lagCount; ++lag) {
    for (U8 at = 0; at < rewriteCount; ++at) {
      if (!lags_[lag].rewrites[at].known) continue;
      file << line({lag, at});
      ++lines_;
    }
  }
  file.close();
  if (!file || !synced(next) || std::rename(next.c_str(), file_.c_str()) != 0) return false;
  cut_ = false;
  return true;
}

/// Keeps whose slot it is; returns whether it is kept.
bool Nexthops::note(Slot slot) {
  if (file_.empty()) return true;
  const bool good = ++lines_ > linesMost ? compact() : append(slot);
  failure_ = good ? std::string() : file_ + ": " + std::strerror(errno);
  return good;
}

bool Nexthops::append(Slot slot) {
  std::ofstream file(file_, std::ios::app);
  file << (cut_ ? "\n" : "") << line(slot) << std::flush;
  cut_ = !file;
  return !cut_;
}

/// Sees to it that hardware has the LAG.
bool Nexthops::write(U8 lag) {
  Lag& each = lags_[lag];
  if (!each.written) each.written = writer_(lag, each.ports);
  each.left = !each.written && each.used == 0;
  return each.written;
}

void Nexthops::empty(U8 lag) {
  lags_[lag].written = false;
  lags_[lag].left = !writer_(lag, 0);
}

bool Nexthops::leftOver() const {
  return std::any_of(lags_.begin(), lags_.end(), [](const Lag& each) { return each.left; });
}

void Nexthops::emptyLeftOver() {
  for (U8 lag = 0; lag < lagCount; ++lag) {
    if (lags_[lag].left) empty(lag);
  }
}

/// The one that is the owner's, in use or not.
std::optional<Slot> Nexthops::slotOf(const Owner& owner) const {
  for (U8 lag = 0; lag < lagCount; ++lag) {
    if (lags_[lag].ports != owner.ports) continue;
    for (U8 at = 0; at < rewriteCount; ++at) {
      const Rewrite& rewrite = lags_[lag].rewrites[at];
      if (rewrite.known && rewrite.gateway == owner.gateway &&
          rewrite.interface == owner.interface) {
        return Slot{lag, at};
      }
    }
  }
  return std::nullopt;
}

/// A free rewrite of a LAG of the ports, or of a free LAG, best one that nobody may come back to.
std::optional<Slot> Nexthops::freeSlot(const Owner& owner) const {
  std::optional<U8> free;
  for (U8 lag = 0; lag < lagCount; ++lag) {
    const Lag& each = lags_[lag];
    if (each.used == 0 && (!free || (lags_[*free].kept && !each.kept))) free = lag;
    if (each.used == 0 || each.ports != owner.ports) continue;
    for (U8 at = 0; at < rewriteCount; ++at) {
      if (each.rewrites[at].references == 0) return Slot{lag, at};
    }
  }
  return free ? std::optional(Slot{*free, 0}) : std::nullopt;
}

/// Whether a slot that has one reference can be the owner's instead: rows stay as they are, but for
/// its LAG's, where there is nobody else in that.
bool Nexthops::passes(Slot own, const Owner& owner) const {
  const Lag& lag = lags_[own.lag];
  return lag.rewrites[own.rewrite].references == 1 && (lag.ports == owner.ports || lag.used == 1);
}

/// Makes a slot that is nobody else's the owner's; returns whether that is kept.
bool Nexthops::take(Slot slot, const Owner& owner) {
  Lag& lag = lags_[slot.lag];
  if (lag.ports != owner.ports) {
    for (Rewrite& each : lag.rewrites) each.known = false;
    lag.ports = owner.ports;
    lag.written = false;
  }
  lag.kept = true;
  Rewrite& rewrite = lag.rewrites[slot.rewrite];
  rewrite.known = true;
  rewrite.gateway = owner.gateway;
  rewrite.interface = owner.interface;
  return note(slot);
}

Nexthops::Outcome Nexthops::acquire(const Owner& owner, Slot& slot, const Slot* own) {
  auto found = slotOf(owner);
  if (!found) {
    found = freeSlot(owner);
    if (!found && own && passes(*own, owner)) {
      found = *own;
      // Others that found no index may share it.
      freed_ = true;
    }
    if (!found) return Outcome::noIndex;
    if (!take(*found, owner)) {
      lags_[found->lag].rewrites[found->rewrite].known = false;
      return Outcome::hardwareError;
    }
  }
  slot = *found;
  if (!write(slot.lag)) return Outcome::hardwareError;
  Lag& lag = lags_[slot.lag];
  if (lag.rewrites[slot.rewrite].references++ == 0) ++lag.used;
  return Outcome::good;
}

void Nexthops::release(Slot slot) {
  Lag& lag = lags_[slot.lag];
  if (--lag.rewrites[slot.rewrite].references != 0) return;
  freed_ = true;
  if (--lag.used == 0) empty(slot.lag);
}

void Nexthops::forEach(const Visitor& visit) const {
  for (U8 lag = 0; lag < lagCount; ++lag) {
    for (U8 at = 0; at < rewriteCount; ++at) {
      const Rewrite& rewrite = lags_[lag].rewrites[at];
      if (rewrite.references == 0) continue;
      Owner owner{lags_[lag].ports, {}, 0};
      if (rewrite.known) owner = {owner.ports, rewrite.interface, rewrite.gateway};
      visit({lag, at}, owner, rewrite.references);
    }
  }
}

}  // namespace VelaService
