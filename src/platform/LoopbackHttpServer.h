// A small HTTP/1.1 server on the loopback interface, for a browser that
// comes back to the application at the end of a web sign-in.
#ifndef VELMOR_PLATFORM_LOOPBACK_HTTP_SERVER_H_
#define VELMOR_PLATFORM_LOOPBACK_HTTP_SERVER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "platform/FileDescriptor.h"
#include "platform/LoopbackHttpExchange.h"
#include "velmor/Error.h"

namespace velmor {

// Listens on 127.0.0.1 at a port the system picks, so nothing outside the
// machine can reach it. One thread of its own reads the requests of up to
// kMaxConnections connections at a time (browsers open spare connections
// they may never use): a request whose head is read in full goes to the
// handler; a head over kMaxRequestBytes gets 431, a malformed one 400, and
// a connection that has not sent its head within kReadTimeout is closed.
// Request bodies are not read. Every answer closes its connection. Of the
// requests read at one time, those of older connections go first, so a
// request sent in full before a later connection was made reaches the
// handler before that connection's request does.
class LoopbackHttpServer final {
 public:
  // Called on the server's thread; it answers the exchange at once or keeps
  // it to answer later from any thread. It must not throw.
  using Handler = std::function<void(LoopbackHttpExchange exchange)>;

  static constexpr std::size_t kMaxConnections = 16;
  static constexpr std::size_t kMaxRequestBytes = 16 * 1024;
  static constexpr std::chrono::seconds kReadTimeout{10};

  // A listening server, or nullptr and an Error in "NSPOSIXErrorDomain" in
  // `error` (when given) when the socket cannot be made, bound or listened
  // on, or the thread cannot start.
  static std::unique_ptr<LoopbackHttpServer> start(Handler handler, ErrorRef* error);
  // Stops the thread and closes every connection it still reads; exchanges
  // already handed out stay with whoever holds them.
  ~LoopbackHttpServer();

  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  std::uint16_t port() const { return port_; }

 private:
  LoopbackHttpServer(Handler handler, FileDescriptor listener, FileDescriptor wakeRead,
                     FileDescriptor wakeWrite, std::uint16_t port);

  void serve();

  Handler handler_;
  FileDescriptor listener_;
  // Written to once, by the destructor, to end serve().
  FileDescriptor wakeRead_;
  FileDescriptor wakeWrite_;
  std::uint16_t port_;
  std::thread thread_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_LOOPBACK_HTTP_SERVER_H_
