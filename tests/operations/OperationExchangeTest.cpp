// Every operation over real HTTPS against the test server: what it sends
// under which name, what its completion gets and what the credential
// record holds afterwards.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "operations/ActivateClientOperation.h"
#include "operations/OperationProbe.h"
#include "operations/RefreshAccessTokenOperation.h"
#include "operations/RequestAccessTokenFromAuthCodeOperation.h"
#include "operations/RequestAccessTokenOperation.h"
#include "operations/RevokeOperation.h"
#include "storage/AuthorizationClientContext.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/RefusingPort.h"
#include "testing/ScopedEnvironmentVariables.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::OperationProbe;
using test::ScriptedResponse;
using Scopes = std::vector<std::string>;
using Date = SecureData::Date;
using MakeOperation = std::function<std::shared_ptr<ServiceOperation>(OperationProbe&)>;
using CheckRecord = std::function<void(SecureData&, const OperationProbe&)>;

constexpr char kTokenAnswer[] =
    R"({"access_token":"a2","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"r2","x_refresh_token_expires_in":86400,"scope":"read write"})";
constexpr char kServerDomain[] = "com.velmor.authorization.server";
constexpr Date kOldDate{std::chrono::seconds(1700000000)};

ScriptedResponse answer(int status, std::string json = "") {
  ScriptedResponse response;
  response.status = status;
  if (!json.empty()) response.headers = {{"Content-Type", "application/json;charset=UTF-8"}};
  response.body = std::move(json);
  return response;
}

ScriptedResponse held(ScriptedResponse response) {
  response.holdUntilReleased = true;
  return response;
}

class OperationExchangeTest : public ::testing::Test {
 protected:
  OperationExchangeTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    identity_.setDeviceName("Anna's PC");
    identity_.setHardwareModel("X1");
    identity_.setUserFullName("Anna");
    fillRecord();
  }

  void fillRecord() {
    record_->setClientId("cid");
    record_->setClientSecret("csecret");
    record_->setUsername("old-user");
    record_->setAccessToken("a1");
    record_->setAccessTokenValidStartDateTime(kOldDate);
    record_->setAccessTokenValidEndDateTime(kOldDate);
    record_->setRefreshToken("r1");
    record_->setRefreshTokenValidStartDateTime(kOldDate);
    record_->setRefreshTokenValidEndDateTime(kOldDate);
  }

  // So that the next refresh finds the client context changed.
  void forgetClientContext() const {
    std::filesystem::remove(directory_.pathOf("UnitTestApp/AuthorizationClientContext.plist"));
  }

  template <typename T>
  std::shared_ptr<T> make(OperationProbe& probe) {
    auto operation = std::make_shared<T>();
    operation->setAuthorizationServerBaseUrl(Url::withString(server_.url("/api/")));
    operation->setSecureData(record_);
    operation->setHttpClient(client_);
    probe.watch(*operation);
    return operation;
  }

  // "POST /api/oauth2/v1/clients" for each request the server got from `first` on.
  std::vector<std::string> sentSince(std::size_t first) const {
    std::vector<std::string> sent;
    const auto requests = server_.requests();
    for (std::size_t i = first; i < requests.size(); ++i)
      sent.push_back(requests[i].method + " " + requests[i].target);
    return sent;
  }

  // The names of the requests the log shows being sent, in order.
  static std::vector<std::string> sentNames(const test::RecordingLoggerDelegate& log) {
    const std::string prefix = "INFO\tSending '";
    std::vector<std::string> names;
    for (const std::string& message : log.messages()) {
      if (message.starts_with(prefix))
        names.push_back(
            message.substr(prefix.size(), message.find('\'', prefix.size()) - prefix.size()));
    }
    return names;
  }

  static std::vector<std::string> errorLines(const test::RecordingLoggerDelegate& log) {
    std::vector<std::string> lines;
    for (const auto& entry : log.entries()) {
      if (entry.logLevel == VelmorAuthorizationLogger::kLevelError) lines.push_back(entry.message);
    }
    return lines;
  }

  // Runs `operation` on this thread while another thread cancels it as soon
  // as the server holds its request, and then lets the server answer.
  void startAndCancelInFlight(Operation& operation) {
    std::thread canceller([&] {
      EXPECT_TRUE(server_.waitForHeldRequest());
      operation.cancel();
      server_.releaseHeldRequests();
    });
    operation.start();
    canceller.join();
  }

  test::ScopedEnvironmentVariables noProxy_{{"no_proxy", "*"}};
  test::TemporaryDirectory directory_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  test::ScopedSecretStore storeScope_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("127.0.0.1", "apptoken", Data(32, 0x5a), 0);
  // Before the client, so that the client and its kept connections go first.
  test::TestAuthorizationServer server_;
  std::shared_ptr<CurlHttpClient> client_ =
      std::make_shared<CurlHttpClient>(CurlHttpClientOptions{60s, server_.caFile(), 1 << 20});
};

void expectNewTokens(SecureData& record, std::chrono::seconds accessLifetime,
                     std::chrono::seconds refreshLifetime) {
  const std::optional<Date> start = record.accessTokenValidStartDateTime();
  ASSERT_TRUE(start);
  EXPECT_GT(*start, kOldDate);
  EXPECT_EQ(record.accessToken(), "a2");
  EXPECT_EQ(record.accessTokenValidEndDateTime(), *start + accessLifetime);
  EXPECT_EQ(record.refreshToken(), "r2");
  EXPECT_EQ(record.refreshTokenValidEndDateTime(), *start + refreshLifetime);
}

void expectNoTokens(SecureData& record) {
  EXPECT_FALSE(record.hasAccessToken());
  EXPECT_FALSE(record.accessTokenValidStartDateTime());
  EXPECT_FALSE(record.accessTokenValidEndDateTime());
  EXPECT_FALSE(record.hasRefreshToken());
  EXPECT_FALSE(record.refreshTokenValidStartDateTime());
  EXPECT_FALSE(record.refreshTokenValidEndDateTime());
  EXPECT_EQ(record.clientId(), "cid");
}

TEST_F(OperationExchangeTest, EachOperationRunsItsExchangeAndUpdatesTheRecord) {
  struct Case {
    std::string name;
    MakeOperation make;
    std::vector<ScriptedResponse> answers;
    std::vector<std::string> sent;
    std::vector<std::string> requestNames;
    CheckRecord check;
  };
  const Case cases[] = {
      {"activation",
       [&](OperationProbe& probe) { return make<ActivateClientOperation>(probe); },
       {answer(200, R"({"client_id":"cid2","client_secret":"sec2"})")},
       {"POST /api/oauth2/v1/clients"},
       {"ActivateClient"},
       [](SecureData& record, const OperationProbe&) {
         EXPECT_EQ(record.clientId(), "cid2");
         EXPECT_EQ(record.clientSecret(), "sec2");
       }},
      {"password sign-in",
       [&](OperationProbe& probe) {
         auto operation = make<RequestAccessTokenOperation>(probe);
         operation->setUsername("anna");
         operation->setPassword("pw");
         operation->setScopes(Scopes{"read"});
         operation->setAccessTokenExpirationOverride(60);
         return operation;
       },
       {answer(200, kTokenAnswer)},
       {"POST /api/oauth2/v1/tokens/bearer"},
       {"RequestAccessToken"},
       [](SecureData& record, const OperationProbe& probe) {
         expectNewTokens(record, 60s, 86400s);
         EXPECT_EQ(record.username(), "anna");
         EXPECT_EQ(probe.username, "anna");
         EXPECT_EQ(probe.scopes, (Scopes{"read", "write"}));
       }},
      {"refresh after a context change",
       [&](OperationProbe& probe) {
         forgetClientContext();
         auto operation = make<RefreshAccessTokenOperation>(probe);
         operation->setRefreshTokenExpirationOverride(120);
         return operation;
       },
       {answer(204), answer(200, kTokenAnswer)},
       {"PUT /api/oauth2/v1/clients", "POST /api/oauth2/v1/tokens/bearer"},
       {"UpdateClientContext", "CreateBearerTokenFromRefreshToken"},
       [](SecureData& record, const OperationProbe& probe) {
         expectNewTokens(record, 3600s, 120s);
         EXPECT_EQ(record.username(), "old-user");
         EXPECT_EQ(probe.scopes, (Scopes{"read", "write"}));
       }},
      {"sign-out",
       [&](OperationProbe& probe) { return make<RevokeOperation>(probe); },
       {answer(200)},
       {"POST /api/oauth2/v1/tokens/revoke"},
       {"RevokeTokensByClientAndUser"},
       [&](SecureData& record, const OperationProbe&) {
         // The request was built while the record still held the token.
         EXPECT_EQ(server_.requests().back().body, "token=r1");
         expectNoTokens(record);
         EXPECT_EQ(record.username(), "old-user");
       }},
      {"code sign-in without a user name",
       [&](OperationProbe& probe) {
         auto operation = make<RequestAccessTokenFromAuthCodeOperation>(probe);
         operation->setAuthorizationCode("c0de");
         operation->setRedirectUrl(Url::withString("https://app.example/cb"));
         return operation;
       },
       {answer(200, kTokenAnswer)},
       {"POST /api/oauth2/v1/tokens/bearer"},
       {"RequestAccessTokenFromAuthToken"},
       [](SecureData& record, const OperationProbe& probe) {
         expectNewTokens(record, 3600s, 86400s);
         EXPECT_FALSE(record.username());
         EXPECT_FALSE(probe.username);
         EXPECT_EQ(probe.scopes, (Scopes{"read", "write"}));
       }},
  };
  const std::shared_ptr<SecretStore> stores[] = {
      std::make_shared<MemorySecretStore>(),
      std::make_shared<FileSecretStore>(directory_.pathOf("keychain"))};
  for (const auto& store : stores) {
    test::ScopedSecretStore storeScope(store);
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      fillRecord();
      for (const ScriptedResponse& response : c.answers) server_.enqueue(response);
      const std::size_t first = server_.requests().size();
      test::RecordingLoggerDelegate log;
      test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log);
      OperationProbe probe;
      c.make(probe)->start();

      EXPECT_EQ(probe.calls, 1);
      EXPECT_EQ(probe.outcome(), "none");
      EXPECT_EQ(sentSince(first), c.sent);
      EXPECT_EQ(sentNames(log), c.requestNames);
      c.check(*record_, probe);
    }
  }
}

TEST_F(OperationExchangeTest, SignInFailuresKeepTheUserNameAndExplainPasswordRejections) {
  struct Case {
    std::string name;
    bool withCode;
    std::string body;
    std::int64_t code;
    std::string description;
  } cases[] = {
      {"wrong password", false, R"({"error":"invalid_grant"})", 4,
       "Your User ID or password was entered incorrectly. Please try again."},
      {"locked account", false,
       R"({"error":"invalid_grant","x_error_reason":"account_lockout",)"
       R"("x_error_reason_detail":"5400"})",
       4,
       "This account has been temporarily locked out. Please try again in 1 hour and 30 minutes."},
      {"other server errors pass", false, R"({"error":"invalid_scope"})", 6,
       "Server error: 'invalid_scope'"},
      {"a rejected code is no password problem", true, R"({"error":"invalid_grant"})", 4,
       "Server error: 'invalid_grant'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fillRecord();
    server_.enqueue(answer(400, c.body));
    OperationProbe probe;
    std::shared_ptr<RequestAccessTokenOperation> operation;
    if (c.withCode) {
      auto codeOperation = make<RequestAccessTokenFromAuthCodeOperation>(probe);
      codeOperation->setAuthorizationCode("c0de");
      operation = codeOperation;
    } else {
      operation = make<RequestAccessTokenOperation>(probe);
      operation->setPassword("wrong");
    }
    operation->setUsername("anna");
    operation->start();

    EXPECT_EQ(probe.calls, 1);
    ASSERT_TRUE(probe.error);
    EXPECT_EQ(probe.error->domain(), kServerDomain);
    EXPECT_EQ(probe.error->code(), c.code);
    EXPECT_EQ(probe.error->description(), c.description);
    EXPECT_EQ(probe.username, "anna");
    EXPECT_EQ(record_->username(), "old-user");
  }
}

TEST_F(OperationExchangeTest, TheClientContextUpdateNeverStopsTheRefresh) {
  const ErrorRef noDirectory = [&] {
    test::FakeSystemIdentity homeless;
    test::ScopedSystemIdentity scope(homeless);
    ErrorRef error;
    AuthorizationClientContext::generateAndSaveIfNeeded(nullptr, &error);
    return error;
  }();
  ASSERT_TRUE(noDirectory);
  struct Case {
    std::string name;
    std::function<void()> arrange;
    bool always;
    std::vector<ScriptedResponse> answers;
    std::vector<std::string> requestNames;
    std::vector<std::string> errorLines;
  } cases[] = {
      {"update refused",
       [&] { forgetClientContext(); },
       false,
       {answer(500), answer(200, kTokenAnswer)},
       {"UpdateClientContext", "CreateBearerTokenFromRefreshToken"},
       {"ERROR\tError updating client context. Details: 'Server error status code: 500 'internal "
        "server error''"}},
      {"context unchanged",
       [] {},
       false,
       {answer(200, kTokenAnswer)},
       {"CreateBearerTokenFromRefreshToken"},
       {}},
      {"context unchanged but always sent",
       [] {},
       true,
       {answer(204), answer(200, kTokenAnswer)},
       {"UpdateClientContext", "CreateBearerTokenFromRefreshToken"},
       {}},
      {"context unreadable",
       [&] { identity_.setEnvironmentVariable("XDG_DATA_HOME", {}); },
       true,
       {answer(200, kTokenAnswer)},
       {"CreateBearerTokenFromRefreshToken"},
       {"ERROR\tError retrieving client context. Detail: '" + *noDirectory->description() + "'"}},
  };
  AuthorizationClientContext::generateAndSaveIfNeeded(nullptr, nullptr);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fillRecord();
    c.arrange();
    for (const ScriptedResponse& response : c.answers) server_.enqueue(response);
    test::RecordingLoggerDelegate log;
    test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log);
    OperationProbe probe;
    auto operation = make<RefreshAccessTokenOperation>(probe);
    operation->setAlwaysSendClientContext(c.always);
    operation->start();

    EXPECT_EQ(probe.calls, 1);
    EXPECT_EQ(probe.outcome(), "none");
    EXPECT_EQ(record_->accessToken(), "a2");
    EXPECT_EQ(sentNames(log), c.requestNames);
    EXPECT_EQ(errorLines(log), c.errorLines);
  }
}

TEST_F(OperationExchangeTest, SignOutWithoutTheServerStillForgetsTheTokens) {
  test::RefusingPort refusing;
  OperationProbe probe;
  auto operation = make<RevokeOperation>(probe);
  operation->setAuthorizationServerBaseUrl(
      Url::withString("https://127.0.0.1:" + std::to_string(refusing.port()) + "/api/"));
  operation->start();
  EXPECT_EQ(probe.calls, 1);
  EXPECT_EQ(probe.outcome(), "NSURLErrorDomain -1004");
  expectNoTokens(*record_);
}

TEST_F(OperationExchangeTest, ACancelledOperationDropsTheAnswerItWasWaitingFor) {
  struct Case {
    std::string name;
    MakeOperation make;
    std::vector<ScriptedResponse> answers;
    std::size_t requests;
    CheckRecord check;
  };
  const Case cases[] = {
      {"activation",
       [&](OperationProbe& probe) { return make<ActivateClientOperation>(probe); },
       {held(answer(200, R"({"client_id":"cid2","client_secret":"sec2"})"))},
       1,
       [](SecureData& record, const OperationProbe&) { EXPECT_EQ(record.clientId(), "cid"); }},
      {"sign-out",
       [&](OperationProbe& probe) { return make<RevokeOperation>(probe); },
       {held(answer(200))},
       1,
       [](SecureData& record, const OperationProbe&) { expectNoTokens(record); }},
      {"refresh cancelled during the context update",
       [&](OperationProbe& probe) {
         forgetClientContext();
         return make<RefreshAccessTokenOperation>(probe);
       },
       {held(answer(204)), answer(200, kTokenAnswer)},
       1,
       [](SecureData& record, const OperationProbe&) { EXPECT_EQ(record.accessToken(), "a1"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fillRecord();
    for (const ScriptedResponse& response : c.answers) server_.enqueue(response);
    const std::size_t first = server_.requests().size();
    OperationProbe probe;
    startAndCancelInFlight(*c.make(probe));
    EXPECT_EQ(probe.calls, 0);
    EXPECT_EQ(sentSince(first).size(), c.requests);
    c.check(*record_, probe);
  }
}

}  // namespace
}  // namespace velmor
