#include "platform/LoopbackHttpServer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "testing/RawHttpConnection.h"
#include "testing/WaitableCounter.h"

namespace velmor {
namespace {

using test::RawHttpAnswer;
using test::RawHttpConnection;

std::string exchangeOver(std::uint16_t port, const std::string& request) {
  RawHttpConnection connection(port);
  connection.send(request);
  return connection.readToEnd();
}

// Answers every request with what it understood of it.
std::unique_ptr<LoopbackHttpServer> echoServer() {
  ErrorRef error;
  auto server = LoopbackHttpServer::start(
      [](LoopbackHttpExchange exchange) {
        const LoopbackHttpRequest& request = exchange.request();
        exchange.respond(
            200, "text/plain",
            request.method + " " + request.target + " " + request.host.value_or("(none)"));
      },
      &error);
  EXPECT_TRUE(server) << (error ? *error->localizedDescription() : "");
  return server;
}

TEST(LoopbackHttpServer, ReadsRequestHeadsAndRefusesMalformedOnes) {
  auto server = echoServer();
  ASSERT_TRUE(server);
  const struct {
    std::string request;
    std::string statusLine, body;
  } cases[] = {
      {"GET /a?b=%20c HTTP/1.1\r\nHost: 127.0.0.1:9\r\nAccept: */*\r\n\r\n", "HTTP/1.1 200 OK",
       "GET /a?b=%20c 127.0.0.1:9"},
      {"POST /x HTTP/1.0\nhOST:  h \n\nbody", "HTTP/1.1 200 OK", "POST /x h"},
      {"GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 200 OK", "GET / (none)"},
      {"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", "HTTP/1.1 400 Bad Request", "Bad request\n"},
      {"GET http://h/ HTTP/1.1\r\n\r\n", "HTTP/1.1 400 Bad Request", "Bad request\n"},
      {"GET / HTTP/2\r\n\r\n", "HTTP/1.1 400 Bad Request", "Bad request\n"},
      {"GET  / HTTP/1.1\r\n\r\n", "HTTP/1.1 400 Bad Request", "Bad request\n"},
      {"GET /" + std::string(LoopbackHttpServer::kMaxRequestBytes, 'a'),
       "HTTP/1.1 431 Request Header Fields Too Large", "Request header fields too large\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.request.substr(0, 40));
    const RawHttpAnswer answer = RawHttpAnswer::of(exchangeOver(server->port(), c.request));
    EXPECT_EQ(answer.statusLine, c.statusLine);
    EXPECT_EQ(answer.body, c.body);
  }
}

TEST(LoopbackHttpServer, AnIdleConnectionHoldsUpNobody) {
  auto server = echoServer();
  ASSERT_TRUE(server);
  // As a browser's spare connection: opened, never used.
  RawHttpConnection idle(server->port());
  EXPECT_EQ(RawHttpAnswer::of(exchangeOver(server->port(), RawHttpConnection::get("/", "h"))).body,
            "GET / h");
  EXPECT_TRUE(idle.isQuiet());
}

// Out of descriptors, a queued connection cannot be taken; the server rests
// instead of spinning on the listener, and serves it once descriptors are
// free again.
TEST(LoopbackHttpServer, OutOfDescriptorsItRestsThenServesTheWaitingConnection) {
  auto server = echoServer();
  ASSERT_TRUE(server);
  rlimit original{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &original), 0);
  rlimit lowered = original;
  lowered.rlim_cur = 256;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  std::vector<int> filler;
  for (int fd = ::dup(0); fd >= 0; fd = ::dup(0)) filler.push_back(fd);
  // The last free descriptor goes to the client; the server has none left.
  ::close(filler.back());
  filler.pop_back();
  RawHttpConnection waiting(server->port());
  waiting.send(RawHttpConnection::get("/", "h"));

  // The main thread sleeps, so the process's CPU time is the server's.
  timespec before{}, after{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
  for (const int fd : filler) ::close(fd);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &original), 0);
  const double busySeconds = static_cast<double>(after.tv_sec - before.tv_sec) +
                             static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
  EXPECT_LT(busySeconds, 0.2);

  EXPECT_EQ(RawHttpAnswer::of(waiting.readToEnd()).body, "GET / h");
}

TEST(LoopbackHttpServer, AnExchangeIsAnsweredWheneverItsHolderSays) {
  std::mutex mutex;
  std::vector<LoopbackHttpExchange> held;
  test::WaitableCounter handedOver;
  ErrorRef error;
  auto server = LoopbackHttpServer::start(
      [&](LoopbackHttpExchange exchange) {
        {
          std::lock_guard<std::mutex> lock(mutex);
          held.push_back(std::move(exchange));
        }
        handedOver.increment();
      },
      &error);
  ASSERT_TRUE(server);
  RawHttpConnection answered(server->port());
  answered.send(RawHttpConnection::get("/a", "h"));
  RawHttpConnection dropped(server->port());
  dropped.send(RawHttpConnection::get("/b", "h"));
  ASSERT_TRUE(handedOver.waitFor(2));
  std::lock_guard<std::mutex> lock(mutex);
  ASSERT_EQ(held[0].request().target, "/a");
  std::thread([&] { held[0].respond(200, "text/html; charset=utf-8", "<p>done</p>"); }).join();
  EXPECT_EQ(answered.readToEnd(),
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: text/html; charset=utf-8\r\n"
            "Content-Length: 11\r\n"
            "Cache-Control: no-store\r\n"
            "Connection: close\r\n"
            "X-Content-Type-Options: nosniff\r\n"
            "Referrer-Policy: no-referrer\r\n"
            "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'\r\n"
            "\r\n<p>done</p>");
  held.clear();
  EXPECT_EQ(dropped.readToEnd(), "");
}

}  // namespace
}  // namespace velmor
