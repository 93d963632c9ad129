#include "KernelFeed.h"

namespace Velad {

using VelaService::Clock;

KernelFeed::KernelFeed(Loop& loop, const VelaService::Configuration& configuration, Place place)
    : Feed(std::move(place)), loop_(loop), receiveBuffer_(configuration.kernelReceiveBuffer) {
  connect();
}

void KernelFeed::connect() {
  kernel_.emplace(routes(), source(), receiveBuffer_, Clock::now());
  polled_.reset(new uv_poll_t);
  uv_poll_init(loop_.get(), polled_.get(), kernel_->file());
  polled_->data = this;
  overruns_ = 0;
  reading_ = false;
  readingIs(true);
  log(Level::info, "kernel: connected");
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
    readingIs(!routes().full(source()));
  } catch (const std::exception& error) {
    log(Level::error, std::string("kernel: ") + error.what());
    polled_.reset();
    kernel_.reset();
    routes().disconnected(source(), true);
  }
  heard(now);
}

void KernelFeed::worked() {
  if (kernel_ && !routes().full(source())) readingIs(true);
}

void KernelFeed::tick(U64 rowWrites) {
  Feed::tick(rowWrites);
  if (kernel_) return;
  try {
    connect();
  } catch (const std::exception& error) {
    log(Level::error, std::string("kernel: ") + error.what());
  }
}

}  // namespace Velad
