#pragma once

#include <sys/types.h>

#include <list>
#include <string>

#include "Loop.h"
#include "service/Control.h"

namespace Velad {

/// A Unix domain socket at a path.
class ControlSocket {
 public:
  /// Takes the place of one that nobody serves any more. Throws std::exception where there is
  /// something else.
  explicit ControlSocket(std::string path);
  /// Removes it, unless another one is at its place by now.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  int file() const { return file_; }  ///< Whoever serves it has to close it.

 private:
  void bind();

  std::string path_;
  int file_ = -1;
  ino_t inode_ = 0;
};

/// Operators at the control socket, each on a connection. Their answers are made in pieces, in
/// turns with each other and with what else the loop does.
class Operators {
 public:
  /// The others must outlive it. Throws std::exception when the socket cannot be had, as while
  /// another process serves one of that path.
  Operators(Loop& loop, VelaService::Control& control, const std::string& path);
  ~Operators();
  Operators(const Operators&) = delete;
  Operators& operator=(const Operators&) = delete;

 private:
  class Operator;

  void accept(int status);
  void turn();

  Loop& loop_;
  VelaService::Control& control_;
  ControlSocket socket_;
  uv_pipe_t listener_{};
  uv_prepare_t turning_{};
  uv_idle_t goingOn_{};                       ///< While some of them had no turn yet.
  std::list<std::unique_ptr<Operator>> all_;  ///< Whose turn it is comes first.
};

}  // namespace Velad
