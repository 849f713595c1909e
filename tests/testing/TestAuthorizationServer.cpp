#include "testing/TestAuthorizationServer.h"

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "testing/TestCertificateAuthority.h"

namespace velmor::test {

namespace {

// Marks a response whose script has no "Content-Type", which the HTTP
// library would otherwise add.
constexpr const char* kNoContentType = "X-Test-Server-No-Content-Type";

bool sameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

// The HTTP library adds the peer's and its own address as header fields.
bool isWireField(const std::string& name) {
  return name != "REMOTE_ADDR" && name != "REMOTE_PORT" && name != "LOCAL_ADDR" &&
         name != "LOCAL_PORT";
}

RecordedRequest record(const httplib::Request& request) {
  RecordedRequest recorded;
  recorded.method = request.method;
  recorded.target = request.target;
  for (const auto& [name, value] : request.headers) {
    if (isWireField(name)) recorded.headers.emplace_back(name, value);
  }
  recorded.body = request.body;
  recorded.remotePort = request.remote_port;
  return recorded;
}

std::optional<std::string> findHeader(const HeaderList& headers, std::string_view name) {
  for (const auto& [fieldName, value] : headers) {
    if (sameName(fieldName, name)) return value;
  }
  return std::nullopt;
}

void writeResponse(const ScriptedResponse& script, httplib::Response& response) {
  response.status = script.status;
  for (const auto& [name, value] : script.headers) {
    if (!sameName(name, "Content-Type")) response.set_header(name, value);
  }
  const std::optional<std::string> contentType = findHeader(script.headers, "Content-Type");
  if (contentType) {
    response.set_header("Content-Type", *contentType);
  } else {
    response.set_header(kNoContentType, "1");
  }
  if (!script.declaredContentLength) {
    response.body = script.body;
    return;
  }
  // The library sends a provider's declared length as it is and closes the
  // connection when the provider gives up.
  auto body = std::make_shared<std::string>(script.body);
  response.set_content_provider(*script.declaredContentLength, contentType.value_or("text/plain"),
                                [body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  if (offset >= body->size()) return false;
                                  return sink.write(body->data() + offset, body->size() - offset);
                                });
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  return findHeader(headers, name);
}

class TestAuthorizationServer::Impl {
 public:
  explicit Impl(Options options) : tls_(options.tls) {
    if (tls_) {
      CertificateFiles files = leafFor(options.certificate);
      server_ =
          std::make_unique<httplib::SSLServer>(files.certificate.c_str(), files.privateKey.c_str());
    } else {
      server_ = std::make_unique<httplib::Server>();
    }
    if (!server_->is_valid()) throw std::runtime_error("test server: cannot set up");
    // Without it every request on a kept connection stalls for the peer's
    // delayed acknowledgement.
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(1000000);
    server_->set_post_routing_handler(&removeUnscriptedContentType);
    route();
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("test server: cannot bind");
    thread_ = std::thread([this] {
      server_->listen_after_bind();
      listenEnded_ = true;
    });
    // stop() does nothing until the accept loop runs.
    while (!server_->is_running() && !listenEnded_) std::this_thread::yield();
    if (listenEnded_) {
      thread_.join();
      throw std::runtime_error("test server: cannot listen");
    }
  }

  ~Impl() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    server_->stop();
    thread_.join();
  }

  int port() const { return port_; }
  bool tls() const { return tls_; }
  const std::string& caFile() const { return authority_.caFile(); }

  void enqueue(ScriptedResponse response) {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(response));
  }

  void answer(std::string path, ScriptedResponse response) {
    std::lock_guard<std::mutex> lock(mutex_);
    byPath_[std::move(path)] = std::move(response);
  }

  std::vector<RecordedRequest> requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

  bool waitForHeldRequest(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return wake_.wait_for(lock, timeout, [this] { return held_ > released_; });
  }

  void releaseHeldRequests() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      released_ = held_;
    }
    wake_.notify_all();
  }

 private:
  CertificateFiles leafFor(Certificate certificate) {
    switch (certificate) {
      case Certificate::kExpired:
        return authority_.expiredLeaf();
      case Certificate::kOtherHost:
        return authority_.leafForHost("other.invalid");
      case Certificate::kLocalhost:
        break;
    }
    return authority_.localhostLeaf();
  }

  void route() {
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      handle(request, response);
    };
    server_->Get(".*", handler);
    server_->Post(".*", handler);
    server_->Put(".*", handler);
    server_->Patch(".*", handler);
    server_->Delete(".*", handler);
    server_->Options(".*", handler);
  }

  static void removeUnscriptedContentType(const httplib::Request&, httplib::Response& response) {
    if (!response.has_header(kNoContentType)) return;
    response.headers.erase(kNoContentType);
    response.headers.erase("Content-Type");
  }

  void handle(const httplib::Request& request, httplib::Response& response) {
    ScriptedResponse script = takeScript(request);
    if (script.holdUntilReleased) hold();
    if (script.delay.count() > 0) {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait_for(lock, script.delay, [this] { return stopping_; });
    }
    writeResponse(script, response);
  }

  void hold() {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::size_t ticket = held_++;
    wake_.notify_all();
    wake_.wait(lock, [this, ticket] { return stopping_ || released_ > ticket; });
  }

  ScriptedResponse takeScript(const httplib::Request& request) {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(record(request));
    if (!queue_.empty()) {
      ScriptedResponse next = std::move(queue_.front());
      queue_.pop_front();
      return next;
    }
    auto found = byPath_.find(request.path);
    if (found != byPath_.end()) return found->second;
    ScriptedResponse notFound;
    notFound.status = 404;
    return notFound;
  }

  const bool tls_;
  TestCertificateAuthority authority_;
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
  std::thread thread_;
  std::atomic<bool> listenEnded_{false};

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;                           // guarded by mutex_
  std::deque<ScriptedResponse> queue_;              // guarded by mutex_
  std::map<std::string, ScriptedResponse> byPath_;  // guarded by mutex_
  std::vector<RecordedRequest> requests_;           // guarded by mutex_
  std::size_t held_ = 0;                            // guarded by mutex_
  std::size_t released_ = 0;                        // guarded by mutex_
};

TestAuthorizationServer::TestAuthorizationServer() : TestAuthorizationServer(Options{}) {}

TestAuthorizationServer::TestAuthorizationServer(Options options)
    : impl_(std::make_unique<Impl>(options)) {}

TestAuthorizationServer::~TestAuthorizationServer() = default;

int TestAuthorizationServer::port() const { return impl_->port(); }

std::string TestAuthorizationServer::url(std::string_view path) const {
  return std::string(impl_->tls() ? "https" : "http") +
         "://127.0.0.1:" + std::to_string(impl_->port()) + std::string(path);
}

const std::string& TestAuthorizationServer::caFile() const { return impl_->caFile(); }

void TestAuthorizationServer::enqueue(ScriptedResponse response) {
  impl_->enqueue(std::move(response));
}

void TestAuthorizationServer::answer(std::string path, ScriptedResponse response) {
  impl_->answer(std::move(path), std::move(response));
}

std::vector<RecordedRequest> TestAuthorizationServer::requests() const { return impl_->requests(); }

bool TestAuthorizationServer::waitForHeldRequest(std::chrono::milliseconds timeout) {
  return impl_->waitForHeldRequest(timeout);
}

void TestAuthorizationServer::releaseHeldRequests() { impl_->releaseHeldRequests(); }

}  // namespace velmor::test
