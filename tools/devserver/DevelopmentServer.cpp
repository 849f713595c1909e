#include "devserver/DevelopmentServer.h"

#include <httplib.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>
#include <utility>

#include "devserver/DevelopmentAuthorizationService.h"
#include "devserver/SystemClock.h"

namespace velmor::devserver {

namespace {

constexpr std::size_t kMaxBodyBytes = 1024 * 1024;

ServiceRequest toServiceRequest(const httplib::Request& request) {
  ServiceRequest converted;
  converted.method = request.method;
  converted.path = request.path;
  const std::size_t question = request.target.find('?');
  if (question != std::string::npos) converted.query = request.target.substr(question + 1);
  converted.authorization = request.get_header_value("Authorization");
  converted.contentType = request.get_header_value("Content-Type");
  converted.body = request.body;
  return converted;
}

void writeReply(const ServiceReply& reply, httplib::Response& response) {
  response.status = reply.status;
  std::optional<std::string> contentType;
  for (const auto& [name, value] : reply.headers) {
    if (name == "Content-Type") {
      contentType = value;
    } else {
      response.set_header(name, value);
    }
  }
  if (contentType) {
    response.set_content(reply.body, contentType->c_str());
  } else {
    response.body = reply.body;
  }
}

std::string hostInUrl(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

}  // namespace

class DevelopmentServer::Impl {
 public:
  Impl(DevelopmentServerOptions options, std::unique_ptr<httplib::Server> server,
       std::optional<CertificateFiles> files)
      : options_(std::move(options)),
        server_(std::move(server)),
        files_(std::move(files)),
        service_(options_.settings,
                 options_.clock ? options_.clock : std::make_shared<SystemClock>()) {}

  ~Impl() { stop(); }

  bool listen(std::string* error) {
    server_->set_tcp_nodelay(true);
    // The HTTP library's default also sets SO_REUSEPORT, which would let a
    // second server share the port and take half of the requests.
    server_->set_socket_options([](socket_t socket) {
      int on = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    });
    server_->set_payload_max_length(kMaxBodyBytes);
    server_->set_keep_alive_max_count(100000);
    route();
    port_ = options_.port == 0
                ? server_->bind_to_any_port(options_.host)
                : (server_->bind_to_port(options_.host, options_.port) ? options_.port : -1);
    if (port_ <= 0) {
      *error = "cannot listen on " + options_.host + " port " + std::to_string(options_.port);
      return false;
    }
    baseUrl_ = std::string(files_ ? "https" : "http") + "://" + hostInUrl(options_.host) + ":" +
               std::to_string(port_) + "/";
    thread_ = std::thread([this] {
      server_->listen_after_bind();
      listenEnded_ = true;
    });
    // stop() only takes effect once the accept loop runs.
    while (!server_->is_running() && !listenEnded_) std::this_thread::yield();
    if (listenEnded_) {
      thread_.join();
      *error = "cannot accept connections on " + baseUrl_;
      return false;
    }
    return true;
  }

  void stop() {
    if (!thread_.joinable()) return;
    server_->stop();
    thread_.join();
  }

  const std::string& baseUrl() const { return baseUrl_; }
  int port() const { return port_; }
  const std::optional<CertificateFiles>& files() const { return files_; }
  DevelopmentAuthorizationService& service() { return service_; }

 private:
  void route() {
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      writeReply(service_.handle(toServiceRequest(request)), response);
    };
    server_->Get(".*", handler);
    server_->Post(".*", handler);
    server_->Put(".*", handler);
    server_->Patch(".*", handler);
    server_->Delete(".*", handler);
    server_->Options(".*", handler);
    server_->set_exception_handler(
        [](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
          response.status = 500;
          response.set_content("Internal server error\n", "text/plain; charset=utf-8");
        });
    if (options_.requestLog) {
      server_->set_logger([log = options_.requestLog](const httplib::Request& request,
                                                      const httplib::Response& response) {
        log(request.method, request.path, response.status);
      });
    }
  }

  DevelopmentServerOptions options_;
  std::unique_ptr<httplib::Server> server_;
  std::optional<CertificateFiles> files_;
  DevelopmentAuthorizationService service_;
  int port_ = 0;
  std::string baseUrl_;
  std::thread thread_;
  std::atomic<bool> listenEnded_{false};
};

std::unique_ptr<DevelopmentServer> DevelopmentServer::start(DevelopmentServerOptions options,
                                                            std::string* error) {
  std::string ignored;
  if (error == nullptr) error = &ignored;
  std::optional<CertificateFiles> files;
  std::unique_ptr<httplib::Server> server;
  if (options.tls) {
    files = ServerCertificate::prepare(options.certificateDirectory, error);
    if (!files) return nullptr;
    server =
        std::make_unique<httplib::SSLServer>(files->certificate.c_str(), files->privateKey.c_str());
  } else {
    server = std::make_unique<httplib::Server>();
  }
  if (!server->is_valid()) {
    *error = "cannot set up the server with the certificate in " + options.certificateDirectory;
    return nullptr;
  }
  auto impl = std::make_unique<Impl>(std::move(options), std::move(server), std::move(files));
  if (!impl->listen(error)) return nullptr;
  return std::unique_ptr<DevelopmentServer>(new DevelopmentServer(std::move(impl)));
}

DevelopmentServer::DevelopmentServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

DevelopmentServer::~DevelopmentServer() = default;

const std::string& DevelopmentServer::baseUrl() const { return impl_->baseUrl(); }

int DevelopmentServer::port() const { return impl_->port(); }

const std::optional<CertificateFiles>& DevelopmentServer::certificateFiles() const {
  return impl_->files();
}

std::uint64_t DevelopmentServer::reusedRefreshTokens() {
  return impl_->service().reusedRefreshTokens();
}

void DevelopmentServer::stop() { impl_->stop(); }

}  // namespace velmor::devserver
