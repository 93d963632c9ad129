#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/Json.h"
#include "service/RouteService.h"

namespace VelaService {

/// Hears what a Watch tells.
class WatchListener {
 public:
  /// What happened, a JSON object without an end of line; `sequence` is its "sequence". It comes
  /// amid changes: the tables must not be touched, nor may listeners come or go.
  virtual void told(U64 sequence, std::string_view line) = 0;

 protected:
  ~WatchListener() = default;
};

/// Tells what happens to a switch: statuses of entries that change, and what others have to tell.
/// Everything has a number, one more than what was told before, whether or not anybody listened.
class Watch {
 public:
  /// Both must outlive it. Each has one watch at most.
  Watch(VelaAgent::Agent& agent, RouteService& routes);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// It must be removed before it goes.
  void listenerIs(WatchListener* listener) { listeners_.push_back(listener); }
  void listenerDel(WatchListener* listener) { std::erase(listeners_, listener); }
  /// The number of what was told last; 0 before the first.
  U64 sequence() const { return sequence_; }

  /// Tells of something else, with the members of an object.
  void tell(std::string_view event, const VelaAgent::Json& members);
  /// What people are to read of it, a sentence, goes to whoever wants to hear; there is one at
  /// most.
  void noticeListenerIs(std::function<void(const std::string&)> listener) {
    notice_ = std::move(listener);
  }
  void notice(const std::string& text) const {
    if (notice_) notice_(text);
  }
  /// While hit bits are polled, entries change without another status.
  void pollingIs(bool polling) { polling_ = polling; }

 private:
  void tellStatus(const VelaAgent::TableAdapter& table, VelaAgent::AnyRef key,
                  VelaAgent::EntryProgrammedStatus status);
  /// Begins the line of the next event; false when nobody listens.
  bool begin(std::string_view event);
  void end();

  VelaAgent::Agent& agent_;
  RouteService& routes_;
  std::vector<WatchListener*> listeners_;
  U64 sequence_ = 0;
  std::string line_;
  std::function<void(const std::string&)> notice_;
  bool polling_ = false;
};

/// The lines that wait for one reader, up to a bound. Whoever does not take them in time gets no
/// more.
class WatchQueue final : public WatchListener {
 public:
  /// `watch` must outlive it; `most` is in bytes.
  WatchQueue(Watch& watch, std::size_t most) : watch_(watch), most_(most) {
    watch_.listenerIs(this);
  }
  ~WatchQueue() { watch_.listenerDel(this); }
  WatchQueue(const WatchQueue&) = delete;
  WatchQueue& operator=(const WatchQueue&) = delete;

  void told(U64 sequence, std::string_view line) override;
  /// Whether more came than the bound allows; what waited is gone then.
  bool overrun() const { return overrun_; }
  bool empty() const { return lines_.empty(); }
  /// What waits, each line with its end.
  std::string take() { return std::exchange(lines_, {}); }

 private:
  Watch& watch_;
  std::size_t most_;
  std::string lines_;
  bool overrun_ = false;
};

}  // namespace VelaService
