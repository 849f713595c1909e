// The development authorization server on a socket: HTTPS (or plain HTTP)
// on the loopback interface, serving DevelopmentAuthorizationService.
#ifndef VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_SERVER_H_
#define VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_SERVER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "devserver/Clock.h"
#include "devserver/ServerCertificate.h"
#include "devserver/ServiceSettings.h"

namespace velmor::devserver {

struct DevelopmentServerOptions {
  // The address to listen on; only the loopback interface by default.
  std::string host = "127.0.0.1";
  // 0 lets the system choose a free port.
  int port = 0;
  // HTTPS with the certificate kept in `certificateDirectory`, which is
  // then required; false serves plain HTTP.
  bool tls = true;
  std::string certificateDirectory;
  ServiceSettings settings;
  // The wall clock when null.
  std::shared_ptr<const Clock> clock;
  // Told method, path (without query) and status of every request after it
  // was answered, on the server's threads. Must be thread-safe.
  std::function<void(const std::string& method, const std::string& path, int status)> requestLog;
};

// Serves on threads of its own from start() until stop() or destruction,
// with all state in memory (a restart forgets every client and token).
// Nagle's algorithm is off on every connection: with it, each request on a
// kept connection would wait for a delayed acknowledgement (~40 ms). Bodies
// over 1 MiB are refused. stop() waits for requests in progress and for
// kept connections to be closed by their clients or to idle out (5 s), so
// close clients first.
class DevelopmentServer final {
 public:
  // A running server, or nullptr with a sentence in `error` (certificates
  // that cannot be prepared, an address that cannot be bound).
  static std::unique_ptr<DevelopmentServer> start(DevelopmentServerOptions options,
                                                  std::string* error);
  ~DevelopmentServer();

  DevelopmentServer(const DevelopmentServer&) = delete;
  DevelopmentServer& operator=(const DevelopmentServer&) = delete;

  // "https://127.0.0.1:<port>/" (or "http://..."), ending in "/" so that
  // the protocol's relative paths resolve below it.
  const std::string& baseUrl() const;
  int port() const;
  // The files the server uses; absent for plain HTTP.
  const std::optional<CertificateFiles>& certificateFiles() const;
  // Spent refresh tokens presented again since the start: a client that
  // sent a rotated-out token, which a strict server answers by revoking
  // the sign-in.
  std::uint64_t reusedRefreshTokens();

  void stop();

 private:
  class Impl;
  explicit DevelopmentServer(std::unique_ptr<Impl> impl);

  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_DEVELOPMENT_SERVER_H_
