#include "RedisPoll.h"

namespace Velad {

namespace {

/// It goes with the context, when libuv has closed its handle.
struct RedisPoll {
  uv_poll_t handle{};
  redisAsyncContext* context = nullptr;
  std::function<void()> heard;
  int events = 0;

  void eventsAre(int wanted) {
    events = wanted;
    if (events == 0) {
      uv_poll_stop(&handle);
    } else {
      uv_poll_start(&handle, events, ready);
    }
  }
  static void ready(uv_poll_t* on, int status, int events) {
    const auto* poll = static_cast<RedisPoll*>(on->data);
    // A reading finds out what is wrong. Each may end the context.
    if (poll->context && (status < 0 || (events & UV_READABLE) != 0)) {
      poll->heard();
      redisAsyncHandleRead(poll->context);
    }
    if (poll->context && (events & UV_WRITABLE) != 0) redisAsyncHandleWrite(poll->context);
  }
};

template <int bit, bool on>
void change(void* data) {
  auto* poll = static_cast<RedisPoll*>(data);
  poll->eventsAre(on ? poll->events | bit : poll->events & ~bit);
}

void end(void* data) {
  auto* poll = static_cast<RedisPoll*>(data);
  poll->context = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(&poll->handle),
           [](uv_handle_t* handle) { delete static_cast<RedisPoll*>(handle->data); });
}

}  // namespace

void drive(Loop& loop, redisAsyncContext* context, std::function<void()> heard) {
  auto* poll = new RedisPoll;
  poll->context = context;
  poll->heard = std::move(heard);
  poll->handle.data = poll;
  uv_poll_init(loop.get(), &poll->handle, context->c.fd);
  context->ev.data = poll;
  context->ev.addRead = change<UV_READABLE, true>;
  context->ev.delRead = change<UV_READABLE, false>;
  context->ev.addWrite = change<UV_WRITABLE, true>;
  context->ev.delWrite = change<UV_WRITABLE, false>;
  context->ev.cleanup = end;
}

}  // namespace Velad
