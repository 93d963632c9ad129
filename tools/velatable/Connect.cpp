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
      // A daemon that hung up may have said why.
      if (count < 0 && errno == EPIPE) return;
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
      // Whoever reads along sees what there is before more is waited for.
      std::cout << std::flush;
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

/// The lines of the answer to a request but for the last, which is returned.
template <class Take>
Json answerOf(Connection& connection, const std::string& request, const Take& take) {
  connection.send(request);
  for (;;) {
    const std::string line = connection.line();
    // Lines but for the last have other fields first.
    if (line.starts_with("{\"done\":")) return VelaAgent::jsonFromText(line);
    take(line);
  }
}

/// Throws what the last line of an answer says is wrong.
[[noreturn]] void refuse(const Json& end) {
  const std::string item = end.contains("item") ? "item " + end["item"].dump() + ": " : "";
  throw InputException(item + end["error"].get<std::string>());
}

/// Applies events in requests of bounded size.
class LiveRun {
 public:
  LiveRun(const Options& options, std::ostream& results)
      : options_(options), results_(results), connection_(options.connect) {}

  /// Applies the events of a file; returns whether all is good still.
  bool apply(const std::string& name);
  /// The line that sums up.
  Json summary() const { return {{"events", events_}, {"refusals", refusals_}, {"unmet", unmet_}}; }
  bool refused() const { return refusals_ + unmet_ != 0; }

 private:
  static constexpr std::size_t mostEvents = 256;
  static constexpr std::size_t mostBytes = std::size_t{1} << 18;

  struct Event {
    U64 line;
    std::string text;
  };

  void add(const std::string& line, U64 number);
  void send();
  void take(const std::string& line);
  void tell(U64 line, const std::string& what);

  const Options& options_;
  std::ostream& results_;
  Connection connection_;
  std::string name_;
  std::vector<Event> waiting_;
  std::size_t bytes_ = 0;
  bool good_ = true;
  U64 events_ = 0;
  U64 refusals_ = 0;
  U64 unmet_ = 0;
};

bool LiveRun::apply(const std::string& name) {
  name_ = name == "-" ? "stdin" : name;
  std::ifstream file;
  if (name != "-") file.open(name);
  std::istream& in = name == "-" ? std::cin : file;
  if (!in) throw InputException("cannot read " + name);
  U64 number = 0;
  const auto goes = [&] { return good_ || options_.keepGoing; };
  for (std::string line; goes() && std::getline(in, line);) {
    try {
      add(line, ++number);
    } catch (const InputException& error) {
      send();
      if (goes()) tell(number, error.what());
    }
    // Nobody waits for more before what came is applied.
    if (waiting_.size() == mostEvents || bytes_ >= mostBytes || in.rdbuf()->in_avail() <= 0) send();
  }
  send();
  return good_;
}

void LiveRun::add(const std::string& line, U64 number) {
  if (line.find_first_not_of(" \t\r") == std::string::npos) return;
  std::string text = VelaAgent::jsonFromText(line).dump();
  bytes_ += text.size();
  waiting_.push_back({number, std::move(text)});
}

/// Has applied what waits. The first event that is wrong ends an answer; those behind it are sent
/// again.
void LiveRun::send() {
  while (!waiting_.empty()) {
    std::string request = R"({"request":"run","events":[)";
    for (const Event& event : waiting_) {
      if (&event != &waiting_.front()) request += ',';
      request += event.text;
    }
    const Json end =
        answerOf(connection_, request + "]}\n", [this](const std::string& line) { take(line); });
    const bool all = end["done"] == true;
    if (!all && !end.contains("item")) refuse(end);
    const std::size_t done = all ? waiting_.size() : end["item"].get<std::size_t>();
    events_ += done;
    if (!all) {
      tell(waiting_.at(done - 1).line, end["error"].get<std::string>());
      if (!options_.keepGoing) break;
    }
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(done));
  }
  waiting_.clear();
  bytes_ = 0;
}

void LiveRun::take(const std::string& line) {
  results_ << line << '\n';
  const Json result = VelaAgent::jsonFromText(line);
  refusals_ += result["op"] == "set";
  unmet_ += result.value("met", true) ? 0 : 1;
}

void LiveRun::tell(U64 line, const std::string& what) {
  std::cout << std::flush;
  std::cerr << name_ << ':' << line << ": " << what << '\n';
  good_ = false;
}

/// Prints the lines of an answer; returns how many there were.
U64 print(const std::string& path, const Json& request) {
  Connection connection(path);
  U64 lines = 0;
  const Json end = answerOf(connection, request.dump() + "\n", [&](const std::string& line) {
    std::cout << line << '\n';
    ++lines;
  });
  if (end["done"] != true) refuse(end);
  return lines;
}

}  // namespace

Json answerTo(const std::string& path, const Json& request) {
  Connection connection(path);
  Json answer;
  const Json end = answerOf(connection, request.dump() + "\n", [&](const std::string& line) {
    answer = VelaAgent::jsonFromText(line);
  });
  if (end["done"] != true) refuse(end);
  return answer;
}

int ask(const std::string& path, const Json& request) {
  print(path, request);
  return exitGood;
}

int status(const Options& options, const std::string& table, const std::vector<std::string>& keys) {
  if (!table.empty()) {
    Json request = {{"request", "entry"}, {"table", table}, {"keys", Json::array()}};
    for (const std::string& key : keys) request["keys"].push_back(keyFromText(table, key));
    return ask(options.connect, request);
  }
  return ask(options.connect, {{"request", "status"}, {"refused", options.refused}});
}

int watch(const Options& options) { return ask(options.connect, {{"request", "watch"}}); }

int auditLive(const Options& options) {
  const Json request = {{"request", "audit"}, {"repair", options.repair}};
  return print(options.connect, request) == 0 ? exitGood : exitRefused;
}

int runLive(const Options& options) {
  checkFiles(options);
  auto file = options.results == "-" ? std::nullopt : outputFile(options.results);
  LiveRun run(options, file ? *file : std::cout);
  bool good = true;
  const std::vector<std::string> standardInput{"-"};
  for (const std::string& name : options.events.empty() ? standardInput : options.events) {
    good = run.apply(name) && good;
    if (!good && !options.keepGoing) break;
  }
  std::cout << run.summary().dump() << '\n';
  if (file) finish(*file, options.results);
  if (!good) return exitBadInput;
  return run.refused() ? exitRefused : exitGood;
}

}  // namespace VelaTool
