// One TCP connection to a server on 127.0.0.1, written and read byte for
// byte: for requests a browser sends and an HTTP library would not (a wrong
// Host header, a malformed request line, a connection that never speaks).
#ifndef VELMOR_TESTING_RAW_HTTP_CONNECTION_H_
#define VELMOR_TESTING_RAW_HTTP_CONNECTION_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velmor::test {

// Reads wait at most a minute, so a server that never answers fails the
// test instead of hanging it. Throws std::runtime_error when it cannot
// connect. One thread at a time.
class RawHttpConnection final {
 public:
  explicit RawHttpConnection(std::uint16_t port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const timeval patience{60, 0};
    if (fd_ < 0 || ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      if (fd_ >= 0) ::close(fd_);
      throw std::runtime_error("cannot connect to 127.0.0.1:" + std::to_string(port));
    }
  }
  ~RawHttpConnection() { ::close(fd_); }
  RawHttpConnection(const RawHttpConnection&) = delete;
  RawHttpConnection& operator=(const RawHttpConnection&) = delete;

  // "GET <target> HTTP/1.1" with the given Host header, as a browser sends it.
  static std::string get(std::string_view target, std::string_view host) {
    return "GET " + std::string(target) + " HTTP/1.1\r\nHost: " + std::string(host) +
           "\r\nAccept: text/html\r\nConnection: keep-alive\r\n\r\n";
  }

  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }

  // Everything until the server closes the connection.
  std::string readToEnd() {
    std::string received;
    char buffer[4096];
    for (;;) {
      const ssize_t count = ::recv(fd_, buffer, sizeof buffer, 0);
      if (count <= 0) return received;
      received.append(buffer, static_cast<std::size_t>(count));
    }
  }

  // Whether the server has neither answered nor closed yet.
  bool isQuiet() const {
    pollfd watched{fd_, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 0;
  }

 private:
  int fd_;
};

// A response split into its status line and body.
struct RawHttpAnswer {
  std::string statusLine;
  std::string body;

  static RawHttpAnswer of(const std::string& response) {
    const std::size_t lineEnd = response.find("\r\n");
    const std::size_t headEnd = response.find("\r\n\r\n");
    return {response.substr(0, lineEnd),
            headEnd == std::string::npos ? std::string() : response.substr(headEnd + 4)};
  }
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_RAW_HTTP_CONNECTION_H_
