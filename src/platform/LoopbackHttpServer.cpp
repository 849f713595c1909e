#include "platform/LoopbackHttpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/PosixError.h"
#include "support/Text.h"

namespace velmor {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 16;
constexpr char kPlainText[] = "text/plain; charset=utf-8";

// A connection whose request head is still arriving.
struct PendingRequest {
  FileDescriptor connection;
  std::string head;
  Clock::time_point deadline;
};

void reportFailure(const char* what, ErrorRef* error) {
  if (error != nullptr) *error = posixError(errno, what);
}

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

// The next line of `rest` without its line end, which may be a bare "\n".
std::string_view takeLine(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

// "GET /path?query HTTP/1.1" and the header lines after it. Nothing for a
// request line of another shape, a target that is not a path, or two Host
// headers.
std::optional<LoopbackHttpRequest> parseHead(std::string_view head) {
  const std::string_view requestLine = takeLine(head);
  const std::size_t firstSpace = requestLine.find(' ');
  const std::size_t secondSpace = requestLine.find(' ', firstSpace + 1);
  if (firstSpace == 0 || secondSpace == std::string_view::npos ||
      requestLine.find(' ', secondSpace + 1) != std::string_view::npos) {
    return std::nullopt;
  }
  LoopbackHttpRequest request;
  request.method = requestLine.substr(0, firstSpace);
  request.target = requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
  if (!request.target.starts_with('/') ||
      !requestLine.substr(secondSpace + 1).starts_with("HTTP/1.")) {
    return std::nullopt;
  }
  while (!head.empty()) {
    const std::string_view line = takeLine(head);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos ||
        !text::equalsIgnoringCase(line.substr(0, colon), "host")) {
      continue;
    }
    if (request.host) return std::nullopt;
    request.host = std::string(trimmed(line.substr(colon + 1)));
  }
  return request;
}

bool hasWholeHead(const std::string& bytes) {
  return bytes.find("\r\n\r\n") != std::string::npos || bytes.find("\n\n") != std::string::npos;
}

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

// Reads what arrived when `readable`, and hands a whole head to `handler`
// or answers it. True when the connection is done with here: handed over,
// answered, closed by the browser, or out of time.
bool advance(PendingRequest& request, bool readable, const LoopbackHttpServer::Handler& handler) {
  if (readable) {
    char buffer[4096];
    const ssize_t received = ::recv(request.connection.get(), buffer, sizeof buffer, 0);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    if (received <= 0) return true;
    request.head.append(buffer, static_cast<std::size_t>(received));
  }
  if (hasWholeHead(request.head)) {
    std::optional<LoopbackHttpRequest> parsed = parseHead(request.head);
    LoopbackHttpExchange exchange(std::move(request.connection),
                                  parsed.value_or(LoopbackHttpRequest{}));
    if (parsed) {
      handler(std::move(exchange));
    } else {
      exchange.respond(400, kPlainText, "Bad request\n");
    }
    return true;
  }
  if (request.head.size() > LoopbackHttpServer::kMaxRequestBytes) {
    LoopbackHttpExchange(std::move(request.connection), {})
        .respond(431, kPlainText, "Request header fields too large\n");
    return true;
  }
  return Clock::now() >= request.deadline;
}

// Takes every connection waiting; past the limit the oldest pending one
// makes room. False when the process is out of descriptors: the connection
// stays queued and the listener stays readable, so the caller must stop
// watching it for a while instead of spinning.
bool acceptWaiting(int listener, std::vector<PendingRequest>& pending) {
  for (;;) {
    FileDescriptor connection(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!connection.valid()) return errno != EMFILE && errno != ENFILE;
    if (pending.size() == LoopbackHttpServer::kMaxConnections) pending.erase(pending.begin());
    pending.push_back(
        {std::move(connection), std::string(), Clock::now() + LoopbackHttpServer::kReadTimeout});
  }
}

}  // namespace

std::unique_ptr<LoopbackHttpServer> LoopbackHttpServer::start(Handler handler, ErrorRef* error) {
  FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener.valid()) {
    reportFailure("Cannot make a socket", error);
    return nullptr;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      ::listen(listener.get(), kBacklog) != 0) {
    reportFailure("Cannot listen on 127.0.0.1", error);
    return nullptr;
  }
  int wake[2];
  if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    reportFailure("Cannot make a pipe", error);
    return nullptr;
  }
  std::unique_ptr<LoopbackHttpServer> server(
      new LoopbackHttpServer(std::move(handler), std::move(listener), FileDescriptor(wake[0]),
                             FileDescriptor(wake[1]), ntohs(address.sin_port)));
  try {
    server->thread_ = std::thread([raw = server.get()] { raw->serve(); });
  } catch (const std::system_error& failure) {
    errno = failure.code().value();
    reportFailure("Cannot start the loopback server's thread", error);
    return nullptr;
  }
  return server;
}

LoopbackHttpServer::LoopbackHttpServer(Handler handler, FileDescriptor listener,
                                       FileDescriptor wakeRead, FileDescriptor wakeWrite,
                                       std::uint16_t port)
    : handler_(std::move(handler)),
      listener_(std::move(listener)),
      wakeRead_(std::move(wakeRead)),
      wakeWrite_(std::move(wakeWrite)),
      port_(port) {}

LoopbackHttpServer::~LoopbackHttpServer() {
  if (thread_.joinable()) {
    const char stop = 0;
    // A full pipe already holds a wake-up, so a failed write changes nothing.
    [[maybe_unused]] const ssize_t written = ::write(wakeWrite_.get(), &stop, 1);
    thread_.join();
  }
}

void LoopbackHttpServer::serve() {
  constexpr auto kOutOfDescriptorsPause = std::chrono::milliseconds(100);
  std::vector<PendingRequest> pending;
  std::optional<Clock::time_point> acceptingAgainAt;
  for (;;) {
    if (acceptingAgainAt && Clock::now() >= *acceptingAgainAt) acceptingAgainAt.reset();
    const short listenerEvents = acceptingAgainAt ? 0 : POLLIN;
    std::vector<pollfd> watched = {{listener_.get(), listenerEvents, 0},
                                   {wakeRead_.get(), POLLIN, 0}};
    int timeout = acceptingAgainAt ? millisecondsUntil(*acceptingAgainAt) : -1;
    for (const PendingRequest& request : pending) {
      watched.push_back({request.connection.get(), POLLIN, 0});
      const int left = millisecondsUntil(request.deadline);
      timeout = timeout < 0 ? left : std::min(timeout, left);
    }
    if (::poll(watched.data(), watched.size(), timeout) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[1].revents != 0) return;
    // Oldest first, so that requests are handed over in the order their
    // connections came.
    std::vector<PendingRequest> stillPending;
    for (std::size_t i = 0; i < pending.size(); ++i) {
      if (!advance(pending[i], watched[i + 2].revents != 0, handler_)) {
        stillPending.push_back(std::move(pending[i]));
      }
    }
    pending = std::move(stillPending);
    if ((watched[0].revents & POLLIN) != 0 && !acceptWaiting(listener_.get(), pending)) {
      acceptingAgainAt = Clock::now() + kOutOfDescriptorsPause;
    }
  }
}

}  // namespace velmor
