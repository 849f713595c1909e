#include "platform/LoopbackHttpServer.h"

#include <gtest/gtest.h>

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
