// A loopback port that refuses connections, for tests of an unreachable
// server.
#ifndef VELMOR_TESTING_REFUSING_PORT_H_
#define VELMOR_TESTING_REFUSING_PORT_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <stdexcept>

#include "platform/FileDescriptor.h"

namespace velmor::test {

// A TCP port on 127.0.0.1 that is bound but not listening: connections to
// it are refused for as long as the object lives, and no other program can
// take the port meanwhile. Throws std::runtime_error when it cannot bind.
class RefusingPort final {
 public:
  RefusingPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (!socket_.valid() || ::bind(socket_.get(), generic, length) != 0 ||
        ::getsockname(socket_.get(), generic, &length) != 0) {
      throw std::runtime_error("refusing port: cannot bind");
    }
    port_ = ntohs(address.sin_port);
  }

  int port() const { return port_; }

 private:
  FileDescriptor socket_;
  int port_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_REFUSING_PORT_H_
