#include "velmor/LoopbackRedirectListener.h"

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

#include "client/RedirectResultPage.h"
#include "platform/LoopbackHttpServer.h"
#include "platform/Mutex.h"
#include "platform/UrlLoadingError.h"
#include "transport/HttpUtility.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kHtml[] = "text/html; charset=utf-8";
constexpr char kLoopbackAddress[] = "127.0.0.1";
constexpr char kCloseWindow[] = "You can close this window and return to the application.";

void store(ErrorRef* location, ErrorRef error) {
  if (location != nullptr) *location = std::move(error);
}

void checkPath(const std::string& path) {
  if (!path.starts_with('/') || path.find_first_of("?#") != std::string::npos) {
    throw InvalidArgumentException("path must start with \"/\" and hold no \"?\" or \"#\"");
  }
}

std::string withCloseHint(std::string sentence) { return sentence + " " + kCloseWindow; }

void answerStoppedWaiting(LoopbackHttpExchange& browser) {
  browser.respond(
      503, kHtml,
      RedirectResultPage::failure(
          "Sign-in stopped", withCloseHint("The application stopped waiting for this sign-in.")));
}

// The page for the client's verdict on the redirect.
void answerOutcome(LoopbackHttpExchange& browser, const Url& redirect, bool signedIn,
                   const ErrorRef& failure) {
  if (failure) {
    const std::string reason = failure->localizedDescription().value_or("unknown error");
    browser.respond(400, kHtml,
                    RedirectResultPage::failure(
                        "Sign-in failed",
                        withCloseHint("The application could not sign you in: " + reason + ".")));
    return;
  }
  if (!signedIn) {
    answerStoppedWaiting(browser);
    return;
  }
  const Dictionary query = HttpUtility::parseQueryString(redirect.query().value_or(""));
  const std::string* username = query.findString("x_username");
  const std::string who = username != nullptr ? " as " + *username : std::string();
  browser.respond(200, kHtml,
                  RedirectResultPage::success(withCloseHint("You are signed in" + who + ".")));
}

}  // namespace

class LoopbackRedirectListener::Impl {
 public:
  explicit Impl(std::string path) : path_(std::move(path)) {}

  ~Impl() {
    // The server's thread calls in here: it goes first.
    server_.reset();
    if (std::optional<LoopbackHttpExchange> browser = takeHeldBrowser()) {
      answerStoppedWaiting(*browser);
    }
  }

  bool listen(ErrorRef* error) {
    server_ = LoopbackHttpServer::start(
        [this](LoopbackHttpExchange exchange) { onRequest(std::move(exchange)); }, error);
    if (!server_) return false;
    port_.store(server_->port());
    redirectUrl_ = Url::withString(origin() + path_);
    return true;
  }

  const Url& redirectUrl() const { return *redirectUrl_; }

  std::optional<Scopes> waitForSignIn(VelmorAuthorizationClient& client,
                                      std::chrono::milliseconds timeout, ErrorRef* error) {
    std::optional<Url> redirect;
    std::optional<LoopbackHttpExchange> browser;
    if (ErrorRef failure = takeRedirect(timeout, &redirect, &browser)) {
      store(error, std::move(failure));
      return std::nullopt;
    }
    ErrorRef failure;
    std::optional<Scopes> scopes = client.signInWithWebAuthorizationResponse(*redirect, &failure);
    if (browser) answerOutcome(*browser, *redirect, scopes.has_value(), failure);
    store(error, std::move(failure));
    return scopes;
  }

  void deliverRedirect(const Url& redirect) {
    MutexLock lock(mutex_);
    if (!isOpen()) return;
    redirect_ = redirect;
    changed_.signalAll();
  }

  void cancel() {
    {
      MutexLock lock(mutex_);
      cancelled_ = true;
      changed_.signalAll();
    }
    if (std::optional<LoopbackHttpExchange> browser = takeHeldBrowser()) {
      answerStoppedWaiting(*browser);
    }
  }

 private:
  // "http://127.0.0.1:<port>", and "127.0.0.1:<port>" as the browser's Host
  // header names it; the port is 0 until the server is up.
  std::string host() const {
    return std::string(kLoopbackAddress) + ":" + std::to_string(port_.load());
  }
  std::string origin() const { return "http://" + host(); }

  // Still waiting for its redirect.
  bool isOpen() const REQUIRES(mutex_) { return !redirect_ && !taken_ && !cancelled_; }

  // On the server's thread.
  void onRequest(LoopbackHttpExchange exchange) {
    const LoopbackHttpRequest& request = exchange.request();
    const std::string_view target = request.target;
    if (request.method != "GET" || request.host != host() ||
        target.substr(0, target.find('?')) != path_) {
      exchange.respond(404, kHtml,
                       RedirectResultPage::failure("Not found", "There is nothing here."));
      return;
    }
    const std::optional<Url> redirect = Url::withString(origin() + request.target);
    if (!redirect) {
      exchange.respond(400, kHtml,
                       RedirectResultPage::failure("Sign-in failed",
                                                   "The address the browser came back to cannot "
                                                   "be read."));
      return;
    }
    bool cancelled = false;
    {
      MutexLock lock(mutex_);
      if (isOpen()) {
        redirect_ = redirect;
        browser_ = std::move(exchange);
        changed_.signalAll();
        return;
      }
      cancelled = cancelled_;
    }
    if (cancelled) {
      answerStoppedWaiting(exchange);
      return;
    }
    exchange.respond(409, kHtml,
                     RedirectResultPage::failure(
                         "Already handled", withCloseHint("This sign-in was handled already.")));
  }

  // The redirect and the browser that brought it, once one came; otherwise
  // why there is none.
  ErrorRef takeRedirect(std::chrono::milliseconds timeout, std::optional<Url>* redirect,
                        std::optional<LoopbackHttpExchange>* browser) {
    const auto deadline = std::chrono::system_clock::now() + timeout;
    MutexLock lock(mutex_);
    while (isOpen() && std::chrono::system_clock::now() < deadline) {
      changed_.waitUntil(mutex_, deadline);
    }
    if (cancelled_) return urlLoadingError(url_error::kCancelled, *redirectUrl_, 0);
    if (!redirect_) {
      if (taken_) {
        return VelmorAuthorizationError::errorWithDomain(
            AuthorizationClientErrorDomain, kClientErrorInvalidOperation, std::nullopt);
      }
      return urlLoadingError(url_error::kTimedOut, *redirectUrl_, 0);
    }
    taken_ = true;
    *redirect = std::exchange(redirect_, std::nullopt);
    *browser = std::exchange(browser_, std::nullopt);
    return nullptr;
  }

  std::optional<LoopbackHttpExchange> takeHeldBrowser() {
    MutexLock lock(mutex_);
    return std::exchange(browser_, std::nullopt);
  }

  const std::string path_;
  std::atomic<std::uint16_t> port_{0};
  std::optional<Url> redirectUrl_;
  Mutex mutex_;
  CondVar changed_;
  // The redirect that came and is not yet taken, and the browser held open
  // for it (none for a delivered one).
  std::optional<Url> redirect_ GUARDED_BY(mutex_);
  std::optional<LoopbackHttpExchange> browser_ GUARDED_BY(mutex_);
  bool taken_ GUARDED_BY(mutex_) = false;
  bool cancelled_ GUARDED_BY(mutex_) = false;
  // Last, so that it stops before anything it calls into goes.
  std::unique_ptr<LoopbackHttpServer> server_;
};

std::unique_ptr<LoopbackRedirectListener> LoopbackRedirectListener::start(ErrorRef* error) {
  return start(kDefaultPath, error);
}

std::unique_ptr<LoopbackRedirectListener> LoopbackRedirectListener::start(const std::string& path,
                                                                          ErrorRef* error) {
  checkPath(path);
  auto impl = std::make_unique<Impl>(path);
  if (!impl->listen(error)) return nullptr;
  return std::unique_ptr<LoopbackRedirectListener>(new LoopbackRedirectListener(std::move(impl)));
}

LoopbackRedirectListener::LoopbackRedirectListener(std::unique_ptr<Impl> impl)
    : impl_(std::move(impl)) {}

LoopbackRedirectListener::~LoopbackRedirectListener() = default;

const Url& LoopbackRedirectListener::redirectUrl() const { return impl_->redirectUrl(); }

std::optional<LoopbackRedirectListener::Scopes> LoopbackRedirectListener::waitForSignIn(
    VelmorAuthorizationClient& client, std::chrono::milliseconds timeout, ErrorRef* error) {
  return impl_->waitForSignIn(client, timeout, error);
}

void LoopbackRedirectListener::deliverRedirect(const Url& redirect) {
  impl_->deliverRedirect(redirect);
}

void LoopbackRedirectListener::cancel() { impl_->cancel(); }

}  // namespace velmor
