#pragma once

#include <algorithm>
#include <deque>

#include "service/RouteService.h"

namespace VelaService {

/// How long changes take from the message that asked for them until they are carried out, which is
/// in the order in which they were queued.
class Delays {
 public:
  /// `queued` changes were queued so far; those that are new were asked for by what came at the
  /// time.
  void asked(U64 queued, Clock::time_point came) {
    if (queued > queued_) waiting_.push_back({queued_, queued, came});
    queued_ = queued;
  }
  /// Nobody asked for those that are new.
  void unasked(U64 queued) { queued_ = queued; }
  /// `done` changes were carried out so far: calls `visit(count, delay)` for those that are new and
  /// were asked for.
  template <class Visitor>
  void done(U64 done, Clock::time_point now, const Visitor& visit) {
    while (!waiting_.empty() && waiting_.front().first < done) {
      Asked& front = waiting_.front();
      const U64 end = std::min(front.end, done);
      visit(end - front.first, now - front.came);
      front.first = end;
      if (front.first == front.end) waiting_.pop_front();
    }
  }

 private:
  /// Changes by their numbers, up to one before the end.
  struct Asked {
    U64 first;
    U64 end;
    Clock::time_point came;
  };
  std::deque<Asked> waiting_;
  U64 queued_ = 0;
};

}  // namespace VelaService
