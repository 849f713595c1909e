// Bad networks and bad servers, met through the client's public calls over
// real sockets: every call returns the error the library names for the
// fault, and the stored record afterwards is the one from before the call
// (or, for sign-out, the one without tokens that sign-out always leaves).
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "faults/ClientHarness.h"
#include "testing/RawTestServer.h"
#include "testing/RefusingPort.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::ScriptedResponse;
using test::StoredRecord;
using test::TestAuthorizationServer;

// A server that misbehaves in one way, for every request it gets.
class FaultyServer {
 public:
  virtual ~FaultyServer() = default;
  virtual std::string url() const = 0;
  virtual std::optional<std::string> caFile() const { return std::nullopt; }
  virtual std::chrono::milliseconds timeout() const { return 30s; }
};

// Raw bytes over plain HTTP, for what an HTTP library would not send.
class RawFault final : public FaultyServer {
 public:
  RawFault(const std::string& bytes, bool reset) {
    // A refresh may first send the client context: both requests get it.
    for (int i = 0; i < 3; ++i) server_.enqueue({bytes, true, reset});
  }
  std::string url() const override { return server_.url("/"); }

 private:
  test::RawTestServer server_;
};

// An HTTPS server answering every endpoint alike, with a certificate of
// the kind asked for.
class TlsFault final : public FaultyServer {
 public:
  TlsFault(TestAuthorizationServer::Certificate certificate, const ScriptedResponse& answer,
           std::chrono::milliseconds timeout = 30s)
      : server_({true, certificate}), timeout_(timeout) {
    for (const char* path :
         {"/oauth2/v1/clients", "/oauth2/v1/tokens/bearer", "/oauth2/v1/tokens/revoke"}) {
      server_.answer(path, answer);
    }
  }
  std::string url() const override { return server_.url("/"); }
  std::optional<std::string> caFile() const override { return server_.caFile(); }
  std::chrono::milliseconds timeout() const override { return timeout_; }

 private:
  TestAuthorizationServer server_;
  std::chrono::milliseconds timeout_;
};

class Refused final : public FaultyServer {
 public:
  std::string url() const override {
    return "http://127.0.0.1:" + std::to_string(port_.port()) + "/";
  }

 private:
  test::RefusingPort port_;
};

std::string rawResponse(const std::string& head, const std::string& body) {
  return "HTTP/1.1 " + head + "\r\n\r\n" + body;
}

const std::string kTokenBody = test::tokenJson("new-access", "new-refresh");

ScriptedResponse htmlPage(int status) {
  ScriptedResponse page;
  page.status = status;
  page.headers = {{"Content-Type", "text/html; charset=utf-8"}};
  page.body =
      "<html><body><h1>" + std::to_string(status) + " Service Unavailable</h1></body></html>";
  return page;
}

ScriptedResponse slowAnswer() {
  // Held until the server stops, long after the client gave up.
  ScriptedResponse answer = test::jsonAnswer(kTokenBody);
  answer.delay = 10min;
  return answer;
}

enum class Flow { kSignIn, kRefresh, kActivate, kSignOut };

struct FaultCase {
  const char* fault;
  std::function<std::unique_ptr<FaultyServer>()> make;
  // The outcome of sign-in and refresh, of activation and of sign-out.
  const char* tokenOutcome;
  const char* activateOutcome;
  const char* signOutOutcome;
};

std::vector<FaultCase> faultCases() {
  using Certificate = TestAuthorizationServer::Certificate;
  const std::string jsonHead = "200 OK\r\nContent-Type: application/json";
  return {
      {"connection refused", [] { return std::make_unique<Refused>(); }, "NSURLErrorDomain -1004",
       "NSURLErrorDomain -1004", "NSURLErrorDomain -1004"},
      {"reset during the header",
       [] { return std::make_unique<RawFault>("HTTP/1.1 200 OK\r\nContent-Ty", true); },
       "NSURLErrorDomain -1005", "NSURLErrorDomain -1005", "NSURLErrorDomain -1005"},
      {"reset during the body",
       [=] {
         return std::make_unique<RawFault>(
             rawResponse(jsonHead + "\r\nContent-Length: 400", kTokenBody.substr(0, 20)), true);
       },
       "NSURLErrorDomain -1005", "NSURLErrorDomain -1005", "NSURLErrorDomain -1005"},
      {"server slower than the timeout",
       [] { return std::make_unique<TlsFault>(Certificate::kLocalhost, slowAnswer(), 300ms); },
       "NSURLErrorDomain -1001", "NSURLErrorDomain -1001", "NSURLErrorDomain -1001"},
      {"HTML 503 page",
       [] { return std::make_unique<TlsFault>(Certificate::kLocalhost, htmlPage(503)); },
       "server 503", "server 503", "server 503"},
      {"HTML 500 page without a type",
       [] {
         return std::make_unique<RawFault>(
             rawResponse("500 Internal Server Error\r\nContent-Length: 21",
                         "<h1>Server Error</h1>"),
             false);
       },
       "server 500", "server 500", "server 500"},
      {"declared length longer than the body",
       [=] {
         return std::make_unique<RawFault>(
             rawResponse(jsonHead + "\r\nContent-Length: 4000", kTokenBody), false);
       },
       "NSURLErrorDomain -1005", "NSURLErrorDomain -1005", "NSURLErrorDomain -1005"},
      // The answer is cut at the declared length: what is left is no JSON.
      {"declared length shorter than the body",
       [=] {
         return std::make_unique<RawFault>(
             rawResponse(jsonHead + "\r\nContent-Length: 12", kTokenBody), false);
       },
       "network 6", "network 6", "none"},
      {"declared length zero",
       [=] {
         return std::make_unique<RawFault>(rawResponse(jsonHead + "\r\nContent-Length: 0", ""),
                                           false);
       },
       "network 4", "network 4", "none"},
      {"invalid JSON",
       [] {
         return std::make_unique<TlsFault>(Certificate::kLocalhost,
                                           test::jsonAnswer(R"({"access_token":"x",})"));
       },
       "network 6", "network 6", "none"},
      {"certificate for another host",
       [] {
         return std::make_unique<TlsFault>(Certificate::kOtherHost, test::jsonAnswer(kTokenBody));
       },
       "NSURLErrorDomain -1202", "NSURLErrorDomain -1202", "NSURLErrorDomain -1202"},
      {"expired certificate",
       [] {
         return std::make_unique<TlsFault>(Certificate::kExpired, test::jsonAnswer(kTokenBody));
       },
       "NSURLErrorDomain -1201", "NSURLErrorDomain -1201", "NSURLErrorDomain -1201"},
  };
}

// Runs one flow against the server; the error it returned.
ErrorRef run(Flow flow, VelmorAuthorizationClient& client) {
  ErrorRef error;
  switch (flow) {
    case Flow::kSignIn:
      EXPECT_FALSE(client.signInWithUsername("anna", "password", &error));
      break;
    case Flow::kRefresh:
      EXPECT_FALSE(client.refreshAccessToken(&error));
      break;
    case Flow::kActivate:
      EXPECT_FALSE(client.activate(&error));
      break;
    case Flow::kSignOut: {
      const bool signedOut = client.signOut(&error);
      EXPECT_EQ(signedOut, error == nullptr);
      break;
    }
  }
  return error;
}

class NetworkFaultTest : public ::testing::TestWithParam<Flow> {};

TEST_P(NetworkFaultTest, CallReturnsTheNamedErrorAndKeepsTheRecord) {
  const Flow flow = GetParam();
  for (const FaultCase& fault : faultCases()) {
    SCOPED_TRACE(fault.fault);
    // Made first and so stopped last, after the HTTP client let go of its
    // connections: a server waits for open connections when it stops.
    std::unique_ptr<FaultyServer> server = fault.make();
    test::ClientEnvironment environment;
    environment.useHttpClient(server->caFile(), server->timeout());
    if (flow != Flow::kActivate) test::storeSignedInRecord();
    const StoredRecord before = StoredRecord::read();
    auto client = test::clientFor(server->url());

    const ErrorRef error = run(flow, *client);

    const char* expected = flow == Flow::kActivate  ? fault.activateOutcome
                           : flow == Flow::kSignOut ? fault.signOutOutcome
                                                    : fault.tokenOutcome;
    EXPECT_EQ(test::outcomeOf(error), expected);
    const StoredRecord after = StoredRecord::read();
    if (flow == Flow::kSignOut) {
      // The tokens go first, whatever the server does.
      EXPECT_EQ(after, before.signedOut());
      EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
    } else {
      EXPECT_EQ(after, before);
    }
  }
}

std::string flowName(const ::testing::TestParamInfo<Flow>& flow) {
  constexpr const char* kNames[] = {"SignIn", "Refresh", "Activate", "SignOut"};
  return kNames[static_cast<int>(flow.param)];
}

INSTANTIATE_TEST_SUITE_P(EveryFlow, NetworkFaultTest,
                         ::testing::Values(Flow::kSignIn, Flow::kRefresh, Flow::kActivate,
                                           Flow::kSignOut),
                         flowName);

}  // namespace
}  // namespace velmor
