#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "Commands.h"
#include "Input.h"

namespace VelaTool {

namespace {

/// A connection to a running daemon, at the path of its control socket.
class Connection {
 public:
  explicit Connection(const std::string& path) : path_(path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw InputException(path + " is too long a path");
    std::memcpy(address.sun_path, path.c_str(), path.size());
    file_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* at = reinterpret_cast<const sockaddr*>(&address);
    if (file_ < 0 || ::connect(file_, at, sizeof address) != 0) fail("cannot connect to ");
  }
  ~Connection() {
    if (file_ >= 0) ::close(file_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void send(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t count = ::send(file_, text.data() + done, text.size() - done, MSG_NOSIGNAL);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail("cannot write to ");
      done += static_cast<std::size_t>(count);
    }
  }
  std::string line() {
    for (;;) {
      const std::size_t end = input_.find('\n');
      if (end != std::string::npos) {
        std::string line = input_.substr(0, end);
        input_.erase(0, end + 1);
        return line;
      }
      char bytes[1 << 14];
      const ssize_t count = ::recv(file_, bytes, sizeof bytes, 0);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail("cannot read from ");
      if (count == 0) throw InputException(path_ + " was closed amid an answer");
      input_.append(bytes, static_cast<std::size_t>(count));
    }
  }

 private:
  [[noreturn]] void fail(const char* what) const {
    const int error = errno;
    if (file_ >= 0) ::close(file_);
    throw InputException(what + path_ + ": " + std::strerror(error));
  }

  std::string path_;
  int file_ = -1;
  std::string input_;
};

}  // namespace

int ask(const std::string& path, const Json& request) {
  Connection connection(path);
  connection.send(request.dump() + "\n");
  for (;;) {
    const std::string line = connection.line();
    // Lines but for the last have other fields first.
    if (!line.starts_with("{\"done\":")) {
      std::cout << line << '\n';
      continue;
    }
    const Json end = VelaAgent::jsonFromText(line);
    if (end["done"] == true) return exitGood;
    throw InputException(end.at("error").get<std::string>());
  }
}

int status(const Options& options) {
  return ask(options.connect, {{"request", "status"}, {"refused", options.refused}});
}

}  // namespace VelaTool
