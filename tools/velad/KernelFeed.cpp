#include "KernelFeed.h"

#include <algorithm>
#include <cstring>

namespace Velad {

using VelaService::Clock;

namespace {

constexpr auto pauseLeast = std::chrono::seconds(1);
constexpr auto pauseMost = std::chrono::seconds(64);

}  // namespace

KernelFeed::KernelFeed(Loop& loop, const VelaService::Configuration& configuration, Place place)
    : Feed(std::move(place)), loop_(loop), receiveBuffer_(configuration.kernelReceiveBuffer) {
  connect();
}

void KernelFeed::connect() {
  kernel_.emplace(routes(), source(), receiveBuffer_, Clock::now());
  auto polled = std::make_unique<uv_poll_t>();
  checked(uv_poll_init(loop_.get(), polled.get(), kernel_->file()), "the socket");
  polled_.reset(polled.release());
  polled_->data = this;
  overruns_ = 0;
  error_ = 0;
  reading_ = false;
  readingIs(true);
  log(Level::info, "kernel: connected");
}

/// It is tried again, after a pause that doubles unless it went well for longer than that.
void KernelFeed::fail(const char* why, bool malformed) {
  polled_.reset();
  kernel_.reset();
  routes().disconnected(source(), malformed);
  const auto now = Clock::now();
  const bool wentWell = now - connectAt_ > pauseMost;
  pause_ = wentWell ? pauseLeast : std::clamp<Clock::duration>(2 * pause_, pauseLeast, pauseMost);
  connectAt_ = now + pause_;
  log(Level::error, std::string("kernel: ") + why);
}

void KernelFeed::readingIs(bool reading) {
  if (std::exchange(reading_, reading) == reading) return;
  if (!reading) {
    uv_poll_stop(polled_.get());
    return;
  }
  uv_poll_start(polled_.get(), UV_READABLE, [](uv_poll_t* on, int status, int) {
    auto& feed = *static_cast<KernelFeed*>(on->data);
    // An overrun is an error of the socket, at which libuv stops.
    if (status < 0) feed.reading_ = false;
    feed.received();
  });
}

void KernelFeed::received() {
  const auto now = Clock::now();
  try {
    kernel_->receive(now);
    if (kernel_->overruns() != std::exchange(overruns_, kernel_->overruns())) {
      log(Level::warning, "kernel: changes were lost, all is asked for again");
    }
    const int error = kernel_->error();
    if (std::exchange(error_, error) != error && error != 0) {
      log(Level::error, std::string("kernel: it does not tell all: ") + std::strerror(error));
    }
    readingIs(!routes().full(source()));
  } catch (const std::exception& error) {
    fail(error.what(), true);
  }
  heard(now);
}

void KernelFeed::worked() {
  if (kernel_ && !routes().full(source())) readingIs(true);
}

void KernelFeed::tick(U64 rowWrites) {
  Feed::tick(rowWrites);
  try {
    if (kernel_) {
      if (readable(kernel_->file())) routes().notQuiet(source(), Clock::now());
      if (reading_) kernel_->tick(Clock::now());
    } else if (Clock::now() >= connectAt_) {
      connect();
    }
  } catch (const std::exception& error) {
    fail(error.what(), false);
  }
}

}  // namespace Velad
