#pragma once

#include <memory>

#include "service/RouteService.h"

namespace VelaService {

/// An answer under way. It is made in pieces, so that whoever asks for much holds nothing up.
class Answer {
 public:
  virtual ~Answer() = default;
  /// Whether prepare() has something to do.
  virtual bool prepares() const { return false; }
  /// What may run in any thread, before the first piece.
  virtual void prepare() {}
  /// Adds lines to `out`; returns whether there are more.
  virtual bool piece(std::string& out) = 0;
};

/// Answers the requests of operators: a line of JSON each, and lines of JSON for an answer, of
/// which the last has "done". See docs/velad.md.
class Control {
 public:
  /// Both must outlive this, and any answer.
  Control(VelaAgent::Agent& agent, const RouteService& routes) : agent_(agent), routes_(routes) {}

  /// The answer to a line, whatever it is.
  std::unique_ptr<Answer> ask(std::string_view line);

 private:
  std::unique_ptr<Answer> answerTo(const VelaAgent::Json& request);

  VelaAgent::Agent& agent_;
  const RouteService& routes_;
};

}  // namespace VelaService
