#include "platform/LoopbackHttpExchange.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <utility>

#include "support/Format.h"

namespace velmor {
namespace {

constexpr char kResponseHead[] =
    "HTTP/1.1 %d %s\r\n"
    "Content-Type: %@\r\n"
    "Content-Length: %lu\r\n"
    "Cache-Control: no-store\r\n"
    "Connection: close\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'\r\n"
    "\r\n";

// How long a browser may take to read the answer.
constexpr timeval kSendTimeout{5, 0};

const char* reasonPhrase(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 404:
      return "Not Found";
    case 409:
      return "Conflict";
    case 431:
      return "Request Header Fields Too Large";
    case 503:
      return "Service Unavailable";
    default:
      return "Unknown";
  }
}

void sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

}  // namespace

LoopbackHttpExchange::LoopbackHttpExchange(FileDescriptor connection, LoopbackHttpRequest request)
    : connection_(std::move(connection)), request_(std::move(request)) {}

void LoopbackHttpExchange::respond(int status, std::string_view contentType,
                                   std::string_view body) {
  if (!connection_.valid()) return;
  const int fd = connection_.get();
  // The server reads without blocking; the answer is written in one go, with
  // a bound on a browser that does not read.
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);
  sendAll(fd, stringWithFormat(kResponseHead, status, reasonPhrase(status), contentType,
                               static_cast<unsigned long>(body.size())));
  sendAll(fd, body);
  // The browser sees the end of the answer before the connection goes.
  ::shutdown(fd, SHUT_WR);
  connection_.close();
}

}  // namespace velmor
