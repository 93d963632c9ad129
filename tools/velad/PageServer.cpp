#include "PageServer.h"

#include "Http.h"
#include "tools/page/Page.h"

namespace Velad {

namespace {

/// From one picture to the next, however many ask; and how long who asks waits for one.
constexpr auto pictureAge = std::chrono::seconds(2);
constexpr auto longestWait = std::chrono::seconds(10);
constexpr unsigned refreshSeconds = 5;

void answerWith(mg_connection* connection, const char* type, const std::string& text) {
  mg_printf(connection,
            "HTTP/1.1 200 OK\r\nContent-Type: %s; charset=utf-8\r\nContent-Length: %zu\r\n"
            "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n",
            type, text.size());
  mg_write(connection, text.data(), text.size());
}

}  // namespace

PageServer::PageServer(Loop& loop, const std::string& address, VelaAgent::Agent& agent,
                       const VelaService::Thresholds& thresholds)
    : agent_(agent), thresholds_(thresholds) {
  uv_async_init(loop.get(), &wanting_,
                [](uv_async_t* on) { of(reinterpret_cast<uv_handle_t*>(on)).begin(); });
  uv_idle_init(loop.get(), &making_);
  wanting_.data = making_.data = this;
  try {
    server_.emplace(httpOptions(address));
  } catch (const CivetException&) {
    throw std::runtime_error("page: cannot listen at " + address);
  }
  server_->addHandler("/", this);
}

PageServer::~PageServer() {
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  server_.reset();
}

bool PageServer::handleGet(CivetServer*, mg_connection* connection) {
  const std::string_view path = mg_get_request_info(connection)->local_uri;
  if (path != "/" && path != "/picture.json") {
    mg_send_http_error(connection, 404, "there are / and /picture.json");
    return true;
  }
  const Picture latest = picture();
  if (!latest) {
    mg_send_http_error(connection, 503, "the switch is busy");
  } else if (path == "/") {
    answerWith(connection, "text/html", VelaPage::pageOf(*latest));
  } else {
    answerWith(connection, "application/json", latest->dump());
  }
  return true;
}

/// The latest, a new one unless it is young; none when that takes too long.
PageServer::Picture PageServer::picture() {
  std::unique_lock lock(mutex_);
  if (latest_ && Clock::now() - made_ < pictureAge) return latest_;
  wanted_ = true;
  uv_async_send(&wanting_);
  changed_.wait_for(lock, longestWait, [this] { return !wanted_ || ends_; });
  return wanted_ ? nullptr : latest_;
}

void PageServer::begin() {
  if (parts_) return;
  parts_.emplace(agent_, meter_, thresholds_);
  uv_idle_start(&making_, [](uv_idle_t* on) { of(reinterpret_cast<uv_handle_t*>(on)).step(); });
}

/// One part; sources and operators are heard before the next.
void PageServer::step() {
  if (parts_->step()) return;
  uv_idle_stop(&making_);
  VelaAgent::Json made = parts_->take();
  made["refresh"] = refreshSeconds;
  parts_.reset();
  {
    const std::lock_guard lock(mutex_);
    latest_ = std::make_shared<const VelaAgent::Json>(std::move(made));
    made_ = Clock::now();
    wanted_ = false;
  }
  changed_.notify_all();
}

}  // namespace Velad
