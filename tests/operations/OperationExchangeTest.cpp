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
using Scopes = OperationProbe::Scopes;
using Names = std::vector<std::string>;
using Date = SecureData::Date;

constexpr char kTokenAnswer[] =
    R"({"access_token":"a2","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"r2","x_refresh_token_expires_in":86400,"scope":"read write"})";
constexpr Date kOldDate{std::chrono::seconds(1700000000)};

ScriptedResponse answer(int status, std::string json = "", bool holdUntilReleased = false) {
  ScriptedResponse response;
  response.status = status;
  if (!json.empty()) response.headers = {{"Content-Type", "application/json;charset=UTF-8"}};
  response.body = std::move(json);
  response.holdUntilReleased = holdUntilReleased;
  return response;
}

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
  EXPECT_FALSE(record.hasAccessToken() || record.accessTokenValidStartDateTime() ||
               record.accessTokenValidEndDateTime() || record.hasRefreshToken() ||
               record.refreshTokenValidStartDateTime() || record.refreshTokenValidEndDateTime());
  EXPECT_EQ(record.clientId(), "cid");
}

class OperationExchangeTest : public ::testing::Test {
 protected:
  OperationExchangeTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
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

  // What the log shows while `operation` runs with `answers` queued: the
  // names of the requests sent, in order, and the error lines.
  struct Logged {
    Names sent, errors;
  };
  Logged run(Operation& operation, const std::vector<ScriptedResponse>& answers) {
    for (const ScriptedResponse& response : answers) server_.enqueue(response);
    test::RecordingLoggerDelegate log;
    test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log);
    operation.start();
    const std::string prefix = "INFO\tSending '";
    Logged logged;
    for (const auto& [line, level] : log.entries()) {
      if (level == VelmorAuthorizationLogger::kLevelError) logged.errors.push_back(line);
      if (line.starts_with(prefix))
        logged.sent.push_back(
            line.substr(prefix.size(), line.find('\'', prefix.size()) - prefix.size()));
    }
    return logged;
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

TEST_F(OperationExchangeTest, EachOperationRunsItsExchangeAndUpdatesTheRecord) {
  const Scopes granted{"read", "write"};
  const std::shared_ptr<SecretStore> stores[] = {
      std::make_shared<MemorySecretStore>(),
      std::make_shared<FileSecretStore>(directory_.pathOf("keychain"))};
  for (const auto& store : stores) {
    test::ScopedSecretStore storeScope(store);
    fillRecord();
    OperationProbe activated, signedIn, refreshed, codeSignedIn, signedOut;

    auto activate = make<ActivateClientOperation>(activated);
    EXPECT_EQ(run(*activate, {answer(200, R"({"client_id":"cid2","client_secret":"sec2"})")}).sent,
              Names{"ActivateClient"});
    EXPECT_EQ(record_->clientSecret(), "sec2");

    fillRecord();
    auto signIn = make<RequestAccessTokenOperation>(signedIn);
    signIn->setUsername("anna");
    signIn->setScopes(Scopes{"read"});
    signIn->setAccessTokenExpirationOverride(60);
    EXPECT_EQ(run(*signIn, {answer(200, kTokenAnswer)}).sent, Names{"RequestAccessToken"});
    expectNewTokens(*record_, 60s, 86400s);
    EXPECT_EQ(record_->username(), "anna");
    EXPECT_EQ(signedIn.username, "anna");
    EXPECT_EQ(signedIn.scopes, granted);

    fillRecord();
    forgetClientContext();
    auto refresh = make<RefreshAccessTokenOperation>(refreshed);
    refresh->setRefreshTokenExpirationOverride(120);
    EXPECT_EQ(run(*refresh, {answer(204), answer(200, kTokenAnswer)}).sent,
              (Names{"UpdateClientContext", "CreateBearerTokenFromRefreshToken"}));
    expectNewTokens(*record_, 3600s, 120s);
    EXPECT_EQ(record_->username(), "old-user");
    EXPECT_EQ(refreshed.scopes, granted);

    // Without a user name, which then replaces the record's.
    fillRecord();
    auto code = make<RequestAccessTokenFromAuthCodeOperation>(codeSignedIn);
    code->setAuthorizationCode("c0de");
    EXPECT_EQ(run(*code, {answer(200, kTokenAnswer)}).sent,
              Names{"RequestAccessTokenFromAuthToken"});
    expectNewTokens(*record_, 3600s, 86400s);
    EXPECT_FALSE(record_->username());
    EXPECT_EQ(codeSignedIn.scopes, granted);

    fillRecord();
    auto signOut = make<RevokeOperation>(signedOut);
    EXPECT_EQ(run(*signOut, {answer(200)}).sent, Names{"RevokeTokensByClientAndUser"});
    // Built while the record still held the token.
    EXPECT_EQ(server_.requests().back().body, "token=r1");
    expectNoTokens(*record_);

    for (const OperationProbe* probe :
         {&activated, &signedIn, &refreshed, &codeSignedIn, &signedOut}) {
      EXPECT_EQ(probe->calls, 1);
      EXPECT_EQ(probe->outcome(), "none");
    }
  }
}

TEST_F(OperationExchangeTest, SignInFailuresKeepTheUserNameAndExplainPasswordRejections) {
  struct Case {
    bool withCode;
    std::string body;
    std::string outcome;
    std::string description;
  } cases[] = {
      {false, R"({"error":"invalid_grant"})", "com.velmor.authorization.server 4",
       "Your User ID or password was entered incorrectly. Please try again."},
      {false,
       R"({"error":"invalid_grant","x_error_reason":"account_lockout",)"
       R"("x_error_reason_detail":"5400"})",
       "com.velmor.authorization.server 4",
       "This account has been temporarily locked out. Please try again in 1 hour and 30 minutes."},
      {false, R"({"error":"invalid_scope"})", "com.velmor.authorization.server 6",
       "Server error: 'invalid_scope'"},
      // A rejected code says nothing about the password.
      {true, R"({"error":"invalid_grant"})", "com.velmor.authorization.server 4",
       "Server error: 'invalid_grant'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    fillRecord();
    server_.enqueue(answer(400, c.body));
    OperationProbe probe;
    std::shared_ptr<RequestAccessTokenOperation> operation =
        make<RequestAccessTokenOperation>(probe);
    if (c.withCode) operation = make<RequestAccessTokenFromAuthCodeOperation>(probe);
    operation->setUsername("anna");
    operation->start();

    ASSERT_EQ(probe.outcome(), c.outcome);
    EXPECT_EQ(probe.error->description(), c.description);
    EXPECT_EQ(probe.username, "anna");
    EXPECT_EQ(record_->username(), "old-user");
  }
}

TEST_F(OperationExchangeTest, TheClientContextUpdateNeverStopsTheRefresh) {
  ErrorRef noDirectory;
  {
    test::FakeSystemIdentity homeless;
    test::ScopedSystemIdentity scope(homeless);
    AuthorizationClientContext::generateAndSaveIfNeeded(nullptr, &noDirectory);
  }
  ASSERT_TRUE(noDirectory);
  const Names both{"UpdateClientContext", "CreateBearerTokenFromRefreshToken"};
  const Names refreshOnly{"CreateBearerTokenFromRefreshToken"};
  struct Case {
    std::function<void()> arrange;
    bool always;
    ScriptedResponse updateAnswer;
    Names requestNames;
    Names errorLog;
  } cases[] = {
      {[&] { forgetClientContext(); },
       false,
       answer(500),
       both,
       {"ERROR\tError updating client context. Details: 'Server error status code: 500 'internal "
        "server error''"}},
      {[] {}, false, {}, refreshOnly, {}},
      {[] {}, true, answer(204), both, {}},
      {[&] { identity_.setEnvironmentVariable("XDG_DATA_HOME", {}); },
       true,
       {},
       refreshOnly,
       {"ERROR\tError retrieving client context. Detail: '" + *noDirectory->description() + "'"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.errorLog.empty() ? c.requestNames.front() : c.errorLog.front());
    fillRecord();
    c.arrange();
    std::vector<ScriptedResponse> answers{answer(200, kTokenAnswer)};
    if (c.requestNames.size() == 2) answers.insert(answers.begin(), c.updateAnswer);
    OperationProbe probe;
    auto operation = make<RefreshAccessTokenOperation>(probe);
    operation->setAlwaysSendClientContext(c.always);
    const Logged logged = run(*operation, answers);

    EXPECT_EQ(probe.outcome(), "none");
    EXPECT_EQ(record_->accessToken(), "a2");
    EXPECT_EQ(logged.sent, c.requestNames);
    EXPECT_EQ(logged.errors, c.errorLog);
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

// Another thread cancels the operation while the server holds its request.
TEST_F(OperationExchangeTest, ACancelledOperationCallsNoCompletion) {
  OperationProbe signedOut, refreshed;
  const std::pair<std::shared_ptr<ServiceOperation>, Names> cases[] = {
      {make<RevokeOperation>(signedOut), {"RevokeTokensByClientAndUser"}},
      // Cancelled during the context update: the refresh is never sent.
      {make<RefreshAccessTokenOperation>(refreshed), {"UpdateClientContext"}},
  };
  forgetClientContext();
  for (const auto& [operation, sent] : cases) {
    ServiceOperation& running = *operation;
    std::thread canceller([&] {
      EXPECT_TRUE(server_.waitForHeldRequest());
      running.cancel();
      server_.releaseHeldRequests();
    });
    EXPECT_EQ(run(running, {answer(204, "", true)}).sent, sent);
    canceller.join();
  }
  EXPECT_EQ(signedOut.calls + refreshed.calls, 0);
  // The local sign-out holds all the same.
  expectNoTokens(*record_);
}

}  // namespace
}  // namespace velmor
