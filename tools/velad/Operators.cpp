#include "Operators.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "Log.h"

namespace Velad {

using VelaService::Clock;

namespace {

constexpr std::size_t longestRequest = std::size_t{1} << 20;
constexpr std::size_t operatorsMost = 64;
/// What operators may take of a turn; a piece that is begun then is made.
constexpr auto shareOfTurn = std::chrono::milliseconds(5);

[[noreturn]] void refuseSocket(const std::string& why) {
  throw std::runtime_error("control: " + why);
}

int newSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) refuseSocket(path + " is too long a path");
  path.copy(address.sun_path, path.size());
  return address;
}

bool isServed(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  const int file = newSocket();
  // One who is slow to accept answers that it should be tried again.
  const bool served =
      connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno == EAGAIN;
  close(file);
  return served;
}

/// 0 where there is none.
ino_t inodeOf(const std::string& path) {
  struct stat at {};
  return lstat(path.c_str(), &at) == 0 ? at.st_ino : 0;
}

}  // namespace

ControlSocket::ControlSocket(std::string path) : path_(std::move(path)) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::absolute(path_).parent_path();
  if (!fs::is_directory(folder)) refuseSocket("there is no folder " + folder.string());
  const fs::file_type there = fs::symlink_status(path_).type();
  if (there == fs::file_type::socket) {
    if (isServed(path_)) refuseSocket("another process serves " + path_);
    fs::remove(path_);
  } else if (there != fs::file_type::not_found) {
    refuseSocket(path_ + " is there and is no socket");
  }
  bind();
}

void ControlSocket::bind() {
  const sockaddr_un address = addressOf(path_);
  file_ = newSocket();
  const mode_t mask = umask(0117);
  const int bound = ::bind(file_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = errno;
  umask(mask);
  if (bound != 0) {
    close(file_);
    refuseSocket(path_ + ": " + std::strerror(error));
  }
  inode_ = inodeOf(path_);
}

ControlSocket::~ControlSocket() {
  if (inodeOf(path_) == inode_) unlink(path_.c_str());
}

/// A connection: lines come in and are answered one after the other.
class Operators::Operator {
 public:
  Operator(Operators& all, std::unique_ptr<Stream> stream)
      : all_(all), stream_(std::move(stream)), who_(stream_->peer()) {}
  ~Operator() {
    if (preparing_) preparing_->owner = nullptr;
  }

  void start() {
    log(Level::info, "control: connected, " + who_);
    stream_->start([this](std::span<const char> bytes) { received(bytes); }, [this] { end(""); });
  }
  /// Makes a piece of an answer, or takes up the next request, if that is what comes next.
  void go() {
    if (answer_ && answer_->overrun()) return end("reading too slowly");
    if (writing_ || preparing_) return;
    if (!answer_) return next();
    // Of an answer without an end the peer's is to be heard.
    if (answer_->waits()) return stream_->readingIs(true);
    make();
  }

 private:
  /// What runs in another thread outlives an operator who does not wait for it.
  struct Preparing {
    uv_work_t request;
    Operator* owner;
    std::unique_ptr<VelaService::Answer> answer;
  };

  void received(std::span<const char> bytes) {
    input_.append(bytes.begin(), bytes.end());
    if (input_.size() > longestRequest) return end("too long a request");
    if (!answer_) stream_->readingIs(false);
  }
  void next() {
    const std::size_t end = input_.find('\n');
    if (end == std::string::npos) return stream_->readingIs(true);
    answer_ = all_.control_.ask(std::string_view(input_).substr(0, end));
    input_.erase(0, end + 1);
    make();
  }
  void make() { answer_->prepares() ? prepare() : piece(); }
  void prepare() {
    preparing_ = new Preparing{{}, this, std::move(answer_)};
    preparing_->request.data = preparing_;
    uv_queue_work(
        all_.loop_.get(), &preparing_->request,
        [](uv_work_t* request) { static_cast<Preparing*>(request->data)->answer->prepare(); },
        [](uv_work_t* request, int) {
          const std::unique_ptr<Preparing> done(static_cast<Preparing*>(request->data));
          if (!done->owner) return;
          done->owner->preparing_ = nullptr;
          done->owner->answer_ = std::move(done->answer);
        });
  }
  void piece() {
    std::string text;
    try {
      if (!answer_->piece(text)) answer_.reset();
    } catch (const std::exception& error) {
      text += VelaService::Control::errorLine(error.what());
      answer_.reset();
    }
    writing_ = true;
    stream_->write(std::move(text), [this] { writing_ = false; });
  }
  void end(const std::string& why) {
    log(why.empty() ? Level::info : Level::warning,
        "control: closed" + (why.empty() ? why : " for " + why) + ", " + who_);
    all_.all_.remove_if([this](const auto& each) { return each.get() == this; });
  }

  Operators& all_;
  std::unique_ptr<Stream> stream_;
  std::string who_;
  std::string input_;
  std::unique_ptr<VelaService::Answer> answer_;
  bool writing_ = false;
  Preparing* preparing_ = nullptr;
};

Operators::Operators(Loop& loop, VelaService::Control& control, const std::string& path)
    : loop_(loop), control_(control), socket_(path) {
  uv_pipe_init(loop_.get(), &listener_, 0);
  uv_prepare_init(loop_.get(), &turning_);
  uv_idle_init(loop_.get(), &goingOn_);
  listener_.data = turning_.data = this;
  checked(uv_pipe_open(&listener_, socket_.file()), path);
  auto* listener = reinterpret_cast<uv_stream_t*>(&listener_);
  checked(uv_listen(listener, 16,
                    [](uv_stream_t* on, int status) {
                      static_cast<Operators*>(on->data)->accept(status);
                    }),
          path);
  uv_prepare_start(&turning_, [](uv_prepare_t* on) { static_cast<Operators*>(on->data)->turn(); });
}

Operators::~Operators() = default;

void Operators::accept(int status) {
  auto stream = Stream::accepted(reinterpret_cast<uv_stream_t*>(&listener_), status);
  if (!stream) return log(Level::warning, "control: a connection could not be accepted");
  if (all_.size() == operatorsMost) {
    log(Level::warning, "control: closed, too many are connected, " + stream->peer());
    return stream->write(VelaService::Control::errorLine("too many are connected"), [] {});
  }
  all_.push_back(std::make_unique<Operator>(*this, std::move(stream)));
  all_.back()->start();
}

void Operators::turn() {
  const auto end = Clock::now() + shareOfTurn;
  for (std::size_t left = all_.size(); left > 0 && !all_.empty(); --left) {
    all_.splice(all_.end(), all_, all_.begin());
    all_.back()->go();
    if (Clock::now() < end) continue;
    // The next turn is at once: what made this one long may wake nothing.
    uv_idle_start(&goingOn_, [](uv_idle_t* on) { uv_idle_stop(on); });
    return;
  }
}

}  // namespace Velad
