#include "testing/RawTestServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/FileDescriptor.h"

namespace velmor::test {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::size_t declaredLength(std::string_view head) {
  const std::string lower = lowerCase(head);
  const std::size_t at = lower.find("\r\ncontent-length:");
  if (at == std::string::npos) return 0;
  return std::strtoul(lower.c_str() + at + 17, nullptr, 10);
}

FileDescriptor listenOnLoopback(int& port) {
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (!socket.valid() || ::bind(socket.get(), generic, length) != 0 ||
      ::listen(socket.get(), 8) != 0 || ::getsockname(socket.get(), generic, &length) != 0) {
    throw std::runtime_error("raw test server: cannot listen");
  }
  port = ntohs(address.sin_port);
  return socket;
}

}  // namespace

class RawTestServer::Impl {
 public:
  Impl() : listener_(listenOnLoopback(port_)), wake_(::eventfd(0, EFD_CLOEXEC)) {
    if (!wake_.valid()) throw std::runtime_error("raw test server: no eventfd");
    thread_ = std::thread([this] { run(); });
  }

  ~Impl() {
    const std::uint64_t one = 1;
    [[maybe_unused]] ssize_t written = ::write(wake_.get(), &one, sizeof one);
    thread_.join();
  }

  int port() const { return port_; }

  void enqueue(Answer answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    answers_.push_back(std::move(answer));
  }

  std::vector<std::string> requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

 private:
  // False once the server is stopping.
  bool waitReadable(int fd) const {
    pollfd fds[] = {{fd, POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    while (::poll(fds, 2, -1) < 0) {
    }
    return (fds[1].revents & POLLIN) == 0;
  }

  void run() {
    while (waitReadable(listener_.get())) {
      FileDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (connection.valid()) serve(connection.get());
    }
  }

  void serve(int connection) {
    std::string buffer;
    while (std::optional<std::string> request = readRequest(connection, buffer)) {
      std::optional<Answer> answer = takeAnswer(std::move(*request));
      if (!answer) return;
      sendAll(connection, answer->bytes);
      if (answer->reset) {
        resetOnClose(connection);
        return;
      }
      if (answer->closeAfter) return;
    }
  }

  std::optional<std::string> readRequest(int connection, std::string& buffer) const {
    while (true) {
      const std::size_t headEnd = buffer.find(kHeadEnd);
      if (headEnd != std::string::npos) {
        const std::size_t total =
            headEnd + kHeadEnd.size() + declaredLength(buffer.substr(0, headEnd));
        if (buffer.size() >= total) {
          std::string request = buffer.substr(0, total);
          buffer.erase(0, total);
          return request;
        }
      }
      if (!waitReadable(connection)) return std::nullopt;
      char chunk[4096];
      const ssize_t received = ::recv(connection, chunk, sizeof chunk, 0);
      if (received <= 0) return std::nullopt;
      buffer.append(chunk, static_cast<std::size_t>(received));
    }
  }

  std::optional<Answer> takeAnswer(std::string request) {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(std::move(request));
    if (answers_.empty()) return std::nullopt;
    Answer answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
  }

  // A zero linger time makes close() send RST and drop unsent bytes.
  static void resetOnClose(int connection) {
    const linger abort{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  }

  static void sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }

  int port_ = 0;
  FileDescriptor listener_;
  FileDescriptor wake_;
  std::thread thread_;

  mutable std::mutex mutex_;
  std::deque<Answer> answers_;         // guarded by mutex_
  std::vector<std::string> requests_;  // guarded by mutex_
};

RawTestServer::RawTestServer() : impl_(std::make_unique<Impl>()) {}

RawTestServer::~RawTestServer() = default;

int RawTestServer::port() const { return impl_->port(); }

std::string RawTestServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(impl_->port()) + std::string(path);
}

void RawTestServer::enqueue(Answer answer) { impl_->enqueue(std::move(answer)); }

std::vector<std::string> RawTestServer::requests() const { return impl_->requests(); }

}  // namespace velmor::test
