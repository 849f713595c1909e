#include "LoopbackRedirectListener.h"

#include <httplib.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "devserver/SignInPage.h"

namespace velmor::tool {

namespace {

// How long a browser request waits for the sign-in to finish; the exchange
// behind it is bounded by the HTTP client's own timeout.
constexpr std::chrono::seconds kCompletionWait(90);

std::string resultPage(bool succeeded, const std::string& detail) {
  return devserver::SignInPage::problem(succeeded ? "Signed in" : "Sign-in failed",
                                        detail + " You can close this window.");
}

}  // namespace

class LoopbackRedirectListener::Impl {
 public:
  bool listen(std::string* error) {
    server_.set_tcp_nodelay(true);
    server_.set_keep_alive_max_count(1);
    server_.set_keep_alive_timeout(1);
    server_.set_socket_options([](socket_t socket) {
      int on = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    });
    server_.Get("/callback", [this](const httplib::Request& request, httplib::Response& response) {
      answer(request, response);
    });
    const int port = server_.bind_to_any_port("127.0.0.1");
    if (port <= 0) {
      *error = "cannot listen on 127.0.0.1 for the browser's redirect";
      return false;
    }
    base_ = "http://127.0.0.1:" + std::to_string(port);
    redirectUrl_ = base_ + "/callback";
    thread_ = std::thread([this] {
      server_.listen_after_bind();
      ended_ = true;
    });
    while (!server_.is_running() && !ended_) std::this_thread::yield();
    if (ended_) {
      thread_.join();
      *error = "cannot accept the browser's redirect on " + base_;
      return false;
    }
    return true;
  }

  ~Impl() {
    complete(false, "The sign-in was abandoned.");
    if (thread_.joinable()) {
      server_.stop();
      thread_.join();
    }
  }

  const std::string& redirectUrl() const { return redirectUrl_; }

  std::optional<std::string> waitForRedirect(std::chrono::seconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, timeout, [this] { return received_.has_value(); })) {
      return std::nullopt;
    }
    return received_;
  }

  void complete(bool succeeded, const std::string& detail) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (page_) return;
      page_ = resultPage(succeeded, detail);
    }
    changed_.notify_all();
  }

 private:
  void answer(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock<std::mutex> lock(mutex_);
    response.set_header("Cache-Control", "no-store");
    if (received_) {
      response.set_content(
          devserver::SignInPage::problem("Already handled", "This sign-in was handled already."),
          "text/html; charset=utf-8");
      return;
    }
    received_ = base_ + request.target;
    changed_.notify_all();
    changed_.wait_for(lock, kCompletionWait, [this] { return page_.has_value(); });
    response.set_content(page_.value_or(resultPage(false, "velmor-auth did not finish in time.")),
                         "text/html; charset=utf-8");
  }

  httplib::Server server_;
  std::string base_;
  std::string redirectUrl_;
  std::thread thread_;
  std::atomic<bool> ended_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<std::string> received_;  // guarded by mutex_
  std::optional<std::string> page_;      // guarded by mutex_
};

std::unique_ptr<LoopbackRedirectListener> LoopbackRedirectListener::start(std::string* error) {
  auto impl = std::make_unique<Impl>();
  if (!impl->listen(error)) return nullptr;
  return std::unique_ptr<LoopbackRedirectListener>(new LoopbackRedirectListener(std::move(impl)));
}

LoopbackRedirectListener::LoopbackRedirectListener(std::unique_ptr<Impl> impl)
    : impl_(std::move(impl)) {}

LoopbackRedirectListener::~LoopbackRedirectListener() = default;

const std::string& LoopbackRedirectListener::redirectUrl() const { return impl_->redirectUrl(); }

std::optional<std::string> LoopbackRedirectListener::waitForRedirect(std::chrono::seconds timeout) {
  return impl_->waitForRedirect(timeout);
}

void LoopbackRedirectListener::complete(bool succeeded, const std::string& detail) {
  impl_->complete(succeeded, detail);
}

}  // namespace velmor::tool
