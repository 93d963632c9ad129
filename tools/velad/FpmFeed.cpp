#include "FpmFeed.h"

namespace Velad {

using VelaService::Clock;

namespace {

/// A client that takes longer for a frame is none.
constexpr auto frameMost = std::chrono::seconds(10);
constexpr std::size_t answersAtATime = std::size_t{1} << 16;

}  // namespace

FpmFeed::FpmFeed(Loop& loop, const VelaService::Configuration& configuration, Place place)
    : Feed(std::move(place)) {
  uv_tcp_init(loop.get(), listener_.get());
  listener_->data = this;
  const std::string where = configuration.fpmAddress + ":" + std::to_string(configuration.fpmPort);
  sockaddr_in address{};
  checked(uv_ip4_addr(configuration.fpmAddress.c_str(), configuration.fpmPort, &address), where);
  checked(uv_tcp_bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), 0), where);
  checked(uv_listen(
              reinterpret_cast<uv_stream_t*>(listener_.get()), 1,
              [](uv_stream_t* on, int status) { static_cast<FpmFeed*>(on->data)->accept(status); }),
          where);
  log(Level::info, "fpm: listens at " + where);
}

/// The client that comes last has it: the one before may be gone and nobody heard of it.
void FpmFeed::accept(int status) {
  auto stream = Stream::accepted(reinterpret_cast<uv_stream_t*>(listener_.get()), status);
  if (!stream) return log(Level::warning, "fpm: a connection could not be accepted");
  if (stream_) close("another connection came", false);
  frames_ = {};
  answering_ = false;
  stream_ = std::move(stream);
  routes().connected(source(), Clock::now());
  log(Level::info, "fpm: connected");
  stream_->start([this](std::span<const char> bytes) { received(bytes); },
                 [this] { close("the peer is gone", false); });
}

void FpmFeed::received(std::span<const char> bytes) {
  const auto now = Clock::now();
  routes().notQuiet(source(), now);
  try {
    frames_.received(
        bytes, [&](const VelaService::Message& message) { routes().take(source(), message, now); });
  } catch (const VelaService::MalformedMessage& error) {
    close(error.what(), true);
  }
  worked();
  heard(now);
}

void FpmFeed::worked() {
  answer();
  if (stream_) stream_->readingIs(!routes().full(source()));
}

void FpmFeed::tick(U64 rowWrites) {
  Feed::tick(rowWrites);
  worked();
  checkFrame();
}

/// Who says something, and be it a part of a frame, is not quiet; but not for long.
void FpmFeed::checkFrame() {
  if (!stream_) return;
  const auto now = Clock::now();
  const bool unread = stream_->unread();
  const bool same = std::exchange(framesTicked_, frames_.frames()) == frames_.frames();
  if (unread || frames_.unfinished()) routes().notQuiet(source(), now);
  if (unread || !same || !frames_.unfinished()) {
    unfinishedSince_ = now;
  } else if (now - unfinishedSince_ > frameMost) {
    close("a frame does not come to its end", true);
  }
}

/// Tells the client what became of its routes. While it does not read, no more is written, and in
/// the end nothing is read from it.
void FpmFeed::answer() {
  if (!stream_ || answering_) return;
  std::string text;
  while (text.size() < answersAtATime) {
    const auto next = routes().answer(source());
    if (!next) break;
    text += VelaService::offloadFrame(next->route, next->programmed);
  }
  if (text.empty()) return;
  answering_ = true;
  stream_->write(std::move(text), [this] {
    answering_ = false;
    worked();
  });
}

void FpmFeed::close(const std::string& why, bool malformed) {
  log(malformed ? Level::warning : Level::info, "fpm: closed, " + why);
  stream_.reset();
  routes().disconnected(source(), malformed);
}

}  // namespace Velad
