#pragma once

#include <list>

#include "Loop.h"
#include "service/Control.h"

namespace Velad {

/// Operators at the control socket, each on a connection. Their answers are made in pieces, in
/// turns with each other and with what else the loop does.
class Operators {
 public:
  /// `busy` says whether routes wait to be programmed, who then get most of the time. All must
  /// outlive it. Throws LoopException when the socket cannot be had.
  Operators(Loop& loop, VelaService::Control& control, std::string path,
            std::function<bool()> busy);
  ~Operators();
  Operators(const Operators&) = delete;
  Operators& operator=(const Operators&) = delete;

 private:
  class Operator;

  void accept(int status);
  void turn();

  Loop& loop_;
  VelaService::Control& control_;
  std::string path_;
  std::function<bool()> busy_;
  uv_pipe_t listener_{};
  uv_prepare_t turning_{};
  std::list<std::unique_ptr<Operator>> all_;  ///< Whose turn it is comes first.
};

}  // namespace Velad
