#pragma once

#include <memory>

#include "agent/Fit.h"
#include "service/RouteTimes.h"
#include "service/StreamFollower.h"
#include "service/Upkeep.h"

namespace VelaService {

/// An answer under way. It is made in pieces, so that whoever asks for much holds nothing up.
class Answer {
 public:
  virtual ~Answer() = default;
  /// Whether prepare() has something to do before the next piece.
  virtual bool prepares() const { return false; }
  /// What may run in any thread.
  virtual void prepare() {}
  /// Adds lines to `out`; returns whether there are more.
  virtual bool piece(std::string& out) = 0;
  /// Whether there are more only when something happens.
  virtual bool waits() const { return false; }
  /// Whether whoever asked reads too slowly, and is to be dropped.
  virtual bool overrun() const { return false; }
};

/// Answers the requests of operators: a line of JSON each, and lines of JSON for an answer, of
/// which the last has "done". See docs/velad.md.
class Control {
 public:
  /// All must outlive this, and any answer. `stream` is null where there is none.
  Control(VelaAgent::Agent& agent, const RouteService& routes, const RouteTimes& times,
          Watch& watch, const Upkeep& upkeep, const StreamFollower* stream = nullptr)
      : agent_(agent),
        routes_(routes),
        times_(times),
        watch_(watch),
        upkeep_(upkeep),
        stream_(stream) {}

  /// The answer to a line, whatever it is.
  std::unique_ptr<Answer> ask(std::string_view line);

  /// The same of a line that was read.
  std::unique_ptr<Answer> askRead(VelaAgent::Json request);

  /// The line that ends an answer that cannot go on.
  static std::string errorLine(const std::string& why);

 private:
  std::unique_ptr<Answer> answerTo(VelaAgent::Json request);

  VelaAgent::Agent& agent_;
  const RouteService& routes_;
  const RouteTimes& times_;
  Watch& watch_;
  const Upkeep& upkeep_;
  const StreamFollower* stream_;
  VelaAgent::FitMeter meter_;
  unsigned copies_ = 0;  ///< Of the registers, that answers have.
};

}  // namespace VelaService
