#include "Loop.h"

#include <poll.h>
#include <sys/socket.h>

#include <utility>
#include <vector>

namespace Velad {

bool readable(int file) {
  pollfd polled{file, POLLIN, 0};
  return poll(&polled, 1, 0) > 0;
}

Loop::~Loop() {
  uv_walk(
      &loop_,
      [](uv_handle_t* handle, void*) {
        if (!uv_is_closing(handle)) uv_close(handle, nullptr);
      },
      nullptr);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

struct Stream::Body {
  union {
    uv_handle_t handle;
    uv_stream_t stream;
    uv_tcp_t tcp;
    uv_pipe_t pipe;
  };
  Received received;
  Closed closed;
  bool reading = false;
  std::vector<char> buffer = std::vector<char>(1 << 16);

  int read() {
    return uv_read_start(
        &stream,
        [](uv_handle_t* on, std::size_t, uv_buf_t* to) {
          auto& all = static_cast<Body*>(on->data)->buffer;
          *to = uv_buf_init(all.data(), static_cast<unsigned>(all.size()));
        },
        [](uv_stream_t* on, ssize_t count, const uv_buf_t* bytes) {
          const auto* body = static_cast<Body*>(on->data);
          // Copies: either may destroy the stream.
          if (count > 0) {
            const auto take = body->received;
            take({bytes->base, static_cast<std::size_t>(count)});
          } else if (count < 0) {
            uv_read_stop(on);
            const auto tell = body->closed;
            tell();
          }
        });
  }
};

Stream::Stream(uv_loop_t* loop, uv_handle_type type) : body_(new Body) {
  if (type == UV_TCP) {
    uv_tcp_init(loop, &body_->tcp);
  } else {
    uv_pipe_init(loop, &body_->pipe, 0);
  }
  body_->handle.data = body_;
}

std::unique_ptr<Stream> Stream::accepted(uv_stream_t* listener, int status) {
  if (status < 0) return nullptr;
  std::unique_ptr<Stream> stream(new Stream(listener->loop, listener->type));
  if (uv_accept(listener, &stream->body_->stream) < 0) return nullptr;
  return stream;
}

Stream::~Stream() {
  uv_close(&body_->handle, [](uv_handle_t* handle) { delete static_cast<Body*>(handle->data); });
}

void Stream::start(Received received, Closed closed) {
  body_->received = std::move(received);
  body_->closed = std::move(closed);
  readingIs(true);
}

void Stream::readingIs(bool reading) {
  if (std::exchange(body_->reading, reading) == reading) return;
  if (!reading) {
    uv_read_stop(&body_->stream);
  } else if (body_->read() < 0) {
    const auto tell = body_->closed;
    tell();
  }
}

void Stream::write(std::string text, std::function<void()> done) {
  struct Writing {
    uv_write_t request;
    std::string text;
    std::function<void()> done;
  };
  auto* writing = new Writing{{}, std::move(text), std::move(done)};
  writing->request.data = writing;
  const uv_buf_t bytes =
      uv_buf_init(writing->text.data(), static_cast<unsigned>(writing->text.size()));
  const int result =
      uv_write(&writing->request, &body_->stream, &bytes, 1, [](uv_write_t* request, int status) {
        const std::unique_ptr<Writing> owned(static_cast<Writing*>(request->data));
        // Of what was written before its stream went nobody is to hear.
        if (status == UV_ECANCELED ||
            uv_is_closing(reinterpret_cast<uv_handle_t*>(request->handle)))
          return;
        if (status == 0) return owned->done();
        const auto tell = static_cast<Body*>(request->handle->data)->closed;
        tell();
      });
  if (result >= 0) return;
  delete writing;
  const auto tell = body_->closed;
  tell();
}

bool Stream::unread() const {
  uv_os_fd_t file = -1;
  return uv_fileno(&body_->handle, &file) == 0 && readable(file);
}

std::string Stream::peer() const {
  uv_os_fd_t file = -1;
  ucred who{};
  socklen_t size = sizeof who;
  if (uv_fileno(&body_->handle, &file) != 0 ||
      getsockopt(file, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0) {
    return "nobody that is known";
  }
  return "user " + std::to_string(who.uid) + ", group " + std::to_string(who.gid) + ", process " +
         std::to_string(who.pid);
}

}  // namespace Velad
