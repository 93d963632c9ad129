#pragma once

#include <uv.h>

#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "Orb/Types.h"

/// The event loop as the daemon needs it, over libuv. Everything runs in the thread of run().
namespace Velad {

class LoopException : public std::runtime_error {
 public:
  LoopException(const std::string& what, int error)
      : runtime_error(what + ": " + uv_strerror(error)) {}
};

/// Throws LoopException for a result of libuv's that is an error.
inline void checked(int result, const std::string& what) {
  if (result < 0) throw LoopException(what, result);
}

/// Whether there is something to read from the file that nobody read.
bool readable(int file);

class Loop {
 public:
  Loop() { checked(uv_loop_init(&loop_), "the event loop"); }
  /// Closes every handle that is left.
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  uv_loop_t* get() { return &loop_; }
  void run() { uv_run(&loop_, UV_RUN_DEFAULT); }
  void stop() { uv_stop(&loop_); }

 private:
  uv_loop_t loop_;
};

/// A handle of libuv's, to be initialised at once, that is closed when its owner goes.
struct HandleCloser {
  template <class Body>
  void operator()(Body* handle) const {
    uv_close(reinterpret_cast<uv_handle_t*>(handle),
             [](uv_handle_t* closed) { delete reinterpret_cast<Body*>(closed); });
  }
};
template <class Body>
using Handle = std::unique_ptr<Body, HandleCloser>;

/// A connected stream that closes itself when it is destroyed.
class Stream {
 public:
  using Received = std::function<void(std::span<const char>)>;
  using Closed = std::function<void()>;

  /// Accepts a connection of the listener, which is a TCP or a Unix domain socket, with the status
  /// that its callback got. Null where there is none to be had.
  static std::unique_ptr<Stream> accepted(uv_stream_t* listener, int status);
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// What is received goes to `received`; `closed` is called when the peer is gone or cannot be
  /// read, here already perhaps, and has to destroy the stream. `received` may.
  void start(Received received, Closed closed);
  /// May call `closed`, too.
  void readingIs(bool reading);
  /// Writes `text`; calls `done` when it is written and the stream is still there, or what was
  /// given for a peer that is gone.
  void write(std::string text, std::function<void()> done);
  /// The credentials of a Unix domain socket's peer, for people.
  std::string peer() const;
  /// Whether the peer said something that nobody read.
  bool unread() const;

 private:
  struct Body;
  explicit Stream(uv_loop_t* loop, uv_handle_type type);
  Body* body_;  ///< It goes when libuv has closed its handle.
};

}  // namespace Velad
