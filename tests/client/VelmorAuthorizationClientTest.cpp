#include "velmor/VelmorAuthorizationClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "client/BusyTimerThread.h"
#include "storage/AuthorizationClientContext.h"
#include "storage/SecureData.h"
#include "testing/FakeHttpClient.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "velmor/Exception.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using Scopes = VelmorAuthorizationClient::Scopes;
using Date = SecureData::Date;
using test::FakeHttpClient;

constexpr auto kBound = 30s;
constexpr char kBase[] = "https://auth.example/api/";
constexpr char kToken[] = "app-token";
constexpr char kTokenAnswer[] =
    R"({"access_token":"access-1","token_type":"bearer","expires_in":3600,)"
    R"("refresh_token":"refresh-1","x_refresh_token_expires_in":86400,"scope":"read write"})";
const Data kKey(32, 7);

ErrorRef sentinelError() { return std::make_shared<Error>("sentinel", 99); }

FakeHttpClient::Answer json(std::string body, std::int64_t status = 200) {
  return {status, {{"Content-Type", "application/json;charset=UTF-8"}}, std::move(body)};
}

std::string pointerText(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

std::string bodyOf(const HttpRequest& request) {
  return std::string(request.body.begin(), request.body.end());
}

// A value that a completion on the caller's queue hands back to the test.
template <typename T>
class Delivery {
 public:
  void deliver(T value) { promise_.set_value(std::move(value)); }
  T await() {
    EXPECT_EQ(future_.wait_for(kBound), std::future_status::ready);
    return future_.get();
  }

 private:
  std::promise<T> promise_;
  std::future<T> future_ = promise_.get_future();
};

struct SignInResult {
  std::optional<std::string> username;
  std::optional<Scopes> scopes;
  ErrorRef error;
};

class CountingDelegate final : public VelmorAuthorizationClientDelegate {
 public:
  void velmorAuthorizationClientDidSignOut(VelmorAuthorizationClient&) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++calls_;
    }
    called_.notify_all();
  }
  int calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }
  void reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_ = 0;
  }
  bool waitForCall() {
    std::unique_lock<std::mutex> lock(mutex_);
    return called_.wait_for(lock, kBound, [&] { return calls_ > 0; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable called_;
  int calls_ = 0;
};

class VelmorAuthorizationClientTest : public ::testing::Test {
 protected:
  VelmorAuthorizationClientTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    // With the device's context already saved, a refresh sends it only when
    // told to always send it.
    bool changed = false;
    AuthorizationClientContext::generateAndSaveIfNeeded(&changed, nullptr);
    HttpClient::setDefault(http_);
  }
  ~VelmorAuthorizationClientTest() override {
    HttpClient::setDefault(nullptr);
    __accessTokenExpirationOverride = 0;
    __refreshTokenExpirationOverride = 0;
    __alwaysSendClientContext = false;
  }

  std::unique_ptr<VelmorAuthorizationClient> makeClient(std::uint64_t slot = 0) {
    return std::make_unique<VelmorAuthorizationClient>(Url::withString(kBase), kToken, kKey, slot);
  }

  // The client's record, read and written through the same store.
  SecureData& record() { return record_; }

  void registerClient() {
    record_.setClientId("cid");
    record_.setClientSecret("secret");
  }

  void storeTokens(std::chrono::seconds accessLeft, std::chrono::seconds refreshLeft) {
    const Date now = std::chrono::time_point_cast<std::chrono::seconds>(Date::clock::now());
    record_.setAccessToken("access-0");
    record_.setAccessTokenValidStartDateTime(now - 60s);
    record_.setAccessTokenValidEndDateTime(now + accessLeft);
    record_.setRefreshToken("refresh-0");
    record_.setRefreshTokenValidStartDateTime(now - 60s);
    record_.setRefreshTokenValidEndDateTime(now + refreshLeft);
  }

  test::TemporaryDirectory directory_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  test::ScopedSecretStore store_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<FakeHttpClient> http_ = std::make_shared<FakeHttpClient>();
  SecureData record_{"auth.example", kToken, kKey, 0};
  std::shared_ptr<OperationQueue> callerQueue_ = std::make_shared<OperationQueue>();
};

struct ThrowCase {
  const char* name;
  std::function<void()> call;
  const char* exceptionName;
  std::string reason;
};

void expectThrows(const ThrowCase& c) {
  SCOPED_TRACE(c.name);
  try {
    c.call();
    ADD_FAILURE() << "nothing thrown";
  } catch (const Exception& e) {
    EXPECT_EQ(e.name(), c.exceptionName);
    EXPECT_EQ(e.reason(), c.reason);
  }
}

TEST_F(VelmorAuthorizationClientTest, ConstructionChecksInOrder) {
  const std::optional<Url> base = Url::withString(kBase);
  const ThrowCase cases[] = {
      {"no URL, no token", [] { VelmorAuthorizationClient(std::nullopt, std::nullopt, kKey); },
       "NSInvalidArgumentException", "serverBaseUrl must not be nil"},
      {"no token", [&] { VelmorAuthorizationClient(base, std::nullopt, kKey, 1); },
       "NSInvalidArgumentException", "token must not be nil"},
      {"blank token reads past its end",
       [&] { VelmorAuthorizationClient(base, std::string("  "), kKey); }, "NSRangeException",
       "Index 2 out of bounds; string length 2"},
      {"slot 2^63", [&] { VelmorAuthorizationClient(base, std::string(kToken), kKey, 1ull << 63); },
       "NSRangeException",
       "Value of authorizedIdentitySlot, -9223372036854775808, is not greater than -1"},
  };
  for (const ThrowCase& c : cases) expectThrows(c);
  EXPECT_NO_THROW(VelmorAuthorizationClient(base, std::string(kToken), std::nullopt, 0));
}

TEST_F(VelmorAuthorizationClientTest, OnlyANonHttpsSchemeIsReportedAndTheClientStaysUsable) {
  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelError, &log);
  VelmorAuthorizationClient secure(Url::withString("HTTPS://auth.example/"), kToken, kKey);
  EXPECT_TRUE(log.messages().empty());
  VelmorAuthorizationClient plain(Url::withString("http://auth.example/"), kToken, kKey);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"ERROR\tInsecure URL provided as parameter"});
  registerClient();
  EXPECT_EQ(plain.authorizationState(), AuthorizationStateSignInRequired);
}

TEST_F(VelmorAuthorizationClientTest, SettingsAreSharedByEveryClientAndRangeChecked) {
  auto a = makeClient();
  auto b = makeClient(1);
  a->setAccessTokenExpirationOverride(31);
  a->setAlwaysSendClientContext(true);
  EXPECT_EQ(b->accessTokenExpirationOverride(), 31u);
  EXPECT_TRUE(b->alwaysSendClientContext());
  const std::uint64_t tooLarge = std::numeric_limits<std::uint64_t>::max();
  const ThrowCase cases[] = {
      {"delay", [&] { a->setSimulatedNetworkDelayInterval(tooLarge); }, "NSRangeException",
       "Value of simulatedNetworkDelayInterval, -1, is not greater than -1"},
      {"access", [&] { a->setAccessTokenExpirationOverride(tooLarge); }, "NSRangeException",
       "Value of accessTokenExpirationOverride, -1, is not greater than -1"},
      {"refresh", [&] { a->setRefreshTokenExpirationOverride(1ull << 63); }, "NSRangeException",
       "Value of refreshTokenExpirationOverride, -9223372036854775808, is not greater than -1"},
  };
  for (const ThrowCase& c : cases) expectThrows(c);
  EXPECT_EQ(b->simulatedNetworkDelayInterval(), 0u);
  EXPECT_EQ(b->accessTokenExpirationOverride(), 31u);
}

TEST_F(VelmorAuthorizationClientTest, CredentialLengthIsCountedInUtf16UnitsAfterTrimming) {
  const struct {
    std::optional<std::string> text;
    bool valid;
  } cases[] = {
      {std::nullopt, false},
      {"  a  ", true},
      {"   ", false},
      {"\n\t", false},
      {std::string(257, 'x'), false},
      {" " + std::string(256, 'x') + " \n", true},
      {"a<b", true},
      // 128 characters outside the basic plane are 256 units; one more is 257.
      {[] {
         std::string s;
         for (int i = 0; i < 128; ++i) s += "\xF0\x9F\x98\x80";
         return s;
       }(),
       true},
      {[] {
         std::string s;
         for (int i = 0; i < 128; ++i) s += "\xF0\x9F\x98\x80";
         return s + "x";
       }(),
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.value_or("(null)").substr(0, 20));
    EXPECT_EQ(VelmorAuthorizationClient::isUsernameValid(c.text), c.valid);
    EXPECT_EQ(VelmorAuthorizationClient::isPasswordValid(c.text), c.valid);
  }
  EXPECT_EQ(VelmorAuthorizationClient::internalUsernameExcludedCharacterSet(), u"()<>,;:\"[]{}'");
  std::uint64_t bound = 0;
  expectThrows({"no maximum location",
                [&] { VelmorAuthorizationClient::usernameMinLength(&bound, nullptr); },
                "NSInvalidArgumentException", "maxLength must not be nil"});
}

// Every line is written before the arguments are checked, so calls that are
// then refused still show their line; none of these reaches the network.
TEST_F(VelmorAuthorizationClientTest, SignInLinesStarSecretsUnlessTheSensitiveLevelIsOn) {
  auto client = makeClient();
  ErrorRef error;
  const std::string at = pointerText(&error);
  const std::string queue = callerQueue_->description();
  const auto completion = [](std::optional<std::string>, std::optional<Scopes>, ErrorRef) {};
  const std::optional<Url> response = Url::withString("https://app.example/cb?code=c1");
  const std::optional<Url> redirect = Url::withString("https://app.example/cb");
  const struct {
    const char* name;
    std::function<void()> call;
    std::string info;
    std::string sensitive;
  } cases[] = {
      {"password, no user name", [&] { client->signInWithUsername(std::nullopt, "pw", &error); },
       "INFO\t-[VelmorAuthorizationClient signInWithUsername:password:error:] username: '(null)' "
       "password: '***' error: '0x" +
           at + "'",
       "SENSITIVE\t-[VelmorAuthorizationClient signInWithUsername:password:error:] username: "
       "'(null)' password: 'pw' error: '0x" +
           at + "'"},
      {"no password, async",
       [&] { client->signInAsyncWithUsername("bob", std::nullopt, callerQueue_, completion); },
       "INFO\t-[VelmorAuthorizationClient signInAsyncWithUsername:password:queue:completion:] "
       "username: 'bob' password: '' queue: '" +
           queue + "' completion: '<__NSMallocBlock__>'",
       "SENSITIVE\t-[VelmorAuthorizationClient signInAsyncWithUsername:password:queue:completion:] "
       "username: 'bob' password: '(null)' queue: '" +
           queue + "' completion: '<__NSMallocBlock__>'"},
      {"all six values, bad scope",
       [&] {
         client->signInWithUsername("bob", "pw", Scopes{"a", "b c"}, "r1", std::nullopt, &error);
       },
       "INFO\t-[VelmorAuthorizationClient "
       "signInWithUsername:password:scopes:realmId:namespaceId:error:] username: 'bob' password: "
       "'***' scopes: '(\n    a,\n    \"b c\"\n)' realmId: 'r1' namespaceId: '(null)' error: '0x" +
           at + "'",
       "SENSITIVE\t-[VelmorAuthorizationClient "
       "signInWithUsername:password:scopes:realmId:namespaceId:error:] username: 'bob' password: "
       "'pw' scopes: '(\n    a,\n    \"b c\"\n)' realmId: 'r1' namespaceId: '(null)' error: '0x" +
           at + "'"},
      {"redirect without a web sign-in",
       [&] { client->signInWithWebAuthorizationResponse(response, &error); },
       "INFO\t-[VelmorAuthorizationClient signInWithWebAuthorizationResponse:error:] "
       "responseUrl: '**...**' error: '0x" +
           at + "'",
       "SENSITIVE\t-[VelmorAuthorizationClient signInWithWebAuthorizationResponse:error:] "
       "responseUrl: 'https://app.example/cb?code=c1' error: '0x" +
           at + "'"},
      {"no redirect, async",
       [&] { client->signInAsyncWithWebAuthorizationResponse(std::nullopt, nullptr, completion); },
       "INFO\t-[VelmorAuthorizationClient signInAsyncWithWebAuthorizationResponse:queue:"
       "completion:] responseUrl: '' queue: '(null)'",
       "SENSITIVE\t-[VelmorAuthorizationClient signInAsyncWithWebAuthorizationResponse:queue:"
       "completion:] responseUrl: '(null)' queue: '(null)'"},
      {"code without queue",
       [&] { client->signInAsyncWithAuthorizationCode("c1", redirect, nullptr, completion); },
       "INFO\t-[VelmorAuthorizationClient signInAsyncWithAuthorizationCode:redirectUrl:queue:"
       "completion:] authorizationCode: '**...**' redirectUrl: 'https://app.example/cb' queue: "
       "'(null)'",
       "SENSITIVE\t-[VelmorAuthorizationClient signInAsyncWithAuthorizationCode:redirectUrl:"
       "queue:completion:] authorizationCode: 'c1' redirectUrl: 'https://app.example/cb' queue: "
       "'(null)'"},
  };
  for (const std::int64_t level :
       {VelmorAuthorizationLogger::kLevelInfo, VelmorAuthorizationLogger::kLevelSensitive}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + " at level " + std::to_string(level));
      test::RecordingLoggerDelegate log;
      test::ScopedLogger scoped(level, &log);
      try {
        c.call();
      } catch (const Exception&) {
      }
      const std::vector<std::string> lines = log.messages();
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.front(),
                level == VelmorAuthorizationLogger::kLevelInfo ? c.info : c.sensitive);
    }
  }
  EXPECT_EQ(error->code(), kClientErrorNoWebSignInRequest);
  EXPECT_TRUE(http_->requests().empty());
}

TEST_F(VelmorAuthorizationClientTest, OtherMembersLogTheirCallWithEveryArgument) {
  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelInfo, &log);
  VelmorAuthorizationClient client(Url::withString(kBase), kToken, Data{1, 2, 3, 0xff, 5}, 3);
  client.simulatedNetworkDelayInterval();
  client.applicationDidBecomeActive();
  client.setAlwaysSendClientContext(true);
  client.refreshTokenExpired();
  std::uint64_t minLength = 0, maxLength = 0;
  VelmorAuthorizationClient::passwordMinLength(&minLength, &maxLength);
  VelmorAuthorizationClient::isPasswordValid("hunter2");
  const std::vector<std::string> expected = {
      "INFO\t-[VelmorAuthorizationClient initWithAuthorizationServerBaseUrl: "
      "'https://auth.example/api/' appToken: 'app-token' encryptionKey: '<010203ff 05>' "
      "authorizedIdentitySlot: '3']",
      "INFO\t-[VelmorAuthorizationClient setAlwaysSendClientContext: '1']",
      "INFO\t-[VelmorAuthorizationClient refreshTokenExpired:]",
      "INFO\t+[VelmorAuthorizationClient passwordMinLength: '0x" + pointerText(&minLength) +
          "' maxLength: '0x" + pointerText(&maxLength) + "']",
      "INFO\t+[VelmorAuthorizationClient isPasswordValid: '***']",
  };
  std::vector<std::string> lines = log.messages();
  // isPasswordValid asks for its bounds through the public member.
  ASSERT_EQ(lines.size(), expected.size() + 1);
  EXPECT_TRUE(lines.back().starts_with("INFO\t+[VelmorAuthorizationClient passwordMinLength: "));
  lines.pop_back();
  EXPECT_EQ(lines, expected);
}

TEST_F(VelmorAuthorizationClientTest, FailureResponseQueriesLogTheResponseAndItsHeaders) {
  registerClient();
  storeTokens(3600s, 86400s);
  auto client = makeClient();
  auto response = std::make_shared<HttpUrlResponse>(
      *Url::withString("https://api.example/x"), 401,
      HttpUrlResponse::HeaderFields{
          {"WWW-Authenticate", R"(Bearer realm="api", error="invalid_token")"}});
  test::RecordingLoggerDelegate log;
  {
    test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelInfo, &log);
    EXPECT_TRUE(client->hasAuthorizationFailureResponse(response));
  }
  const std::vector<std::string> lines = log.messages();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "INFO\t-[VelmorAuthorizationClient hasAuthorizationFailureResponse: "
            "'<HttpUrlResponse: " +
                pointerText(response.get()) +
                "> { URL: https://api.example/x } { Status Code: 401, Headers {\n"
                "    \"WWW-Authenticate\" = \"Bearer realm=\\\"api\\\", "
                "error=\\\"invalid_token\\\"\";\n} }']");
  EXPECT_EQ(lines[1],
            "INFO\t{\n    \"WWW-Authenticate\" = \"Bearer realm=\\\"api\\\", "
            "error=\\\"invalid_token\\\"\";\n}");
  const ErrorRef error = client->handleAuthorizationFailureResponse(response);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), kServerErrorInvalidToken);
  EXPECT_EQ(client->authorizationState(), AuthorizationStateRefreshRequired);
}

TEST_F(VelmorAuthorizationClientTest, ActivationAndPasswordSignInStoreWhatTheServerGranted) {
  auto client = makeClient();
  EXPECT_EQ(client->authorizationState(), AuthorizationStateActivationRequired);
  http_->enqueue(json(R"({"client_id":"cid","client_secret":"secret"})"));
  ErrorRef error = sentinelError();
  EXPECT_TRUE(client->activate(&error));
  EXPECT_FALSE(error);
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);

  client->setAccessTokenExpirationOverride(100);
  client->setRefreshTokenExpirationOverride(200);
  http_->enqueue(json(kTokenAnswer));
  EXPECT_EQ(client->signInWithUsername(" \talice\n", "p w", Scopes{"read"}, &error),
            (Scopes{"read", "write"}));
  EXPECT_FALSE(error);
  const std::vector<HttpRequest> requests = http_->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[1].url.absoluteString(), "https://auth.example/api/oauth2/v1/tokens/bearer");
  EXPECT_EQ(bodyOf(requests[1]), "grant_type=password&username=alice&password=p%20w&scope=read");
  EXPECT_EQ(client->username(), "alice");
  EXPECT_EQ(client->authorizationState(), AuthorizationStateAuthorized);
  EXPECT_EQ(*record().accessTokenValidEndDateTime() - *record().accessTokenValidStartDateTime(),
            100s);
  EXPECT_EQ(*record().refreshTokenValidEndDateTime() - *record().refreshTokenValidStartDateTime(),
            200s);

  // The client-credentials grant clears the stored user name.
  http_->enqueue(json(kTokenAnswer));
  client->signIn(&error);
  EXPECT_EQ(bodyOf(http_->requests().back()), "grant_type=client_credentials");
  EXPECT_FALSE(client->hasUsername());
}

TEST_F(VelmorAuthorizationClientTest, OnlyRefreshSendsTheClientContextUnasked) {
  registerClient();
  storeTokens(-10s, 3600s);
  auto client = makeClient();
  client->setAlwaysSendClientContext(true);
  http_->enqueue(json(R"({"client_id":"cid","client_secret":"secret"})"));
  EXPECT_TRUE(client->activate(nullptr));
  http_->enqueue({204, {}, ""});
  http_->enqueue(json(kTokenAnswer));
  ErrorRef error;
  EXPECT_EQ(client->refreshAccessToken(&error), (Scopes{"read", "write"}));
  EXPECT_FALSE(error);
  const std::vector<HttpRequest> requests = http_->requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[1].method, "PUT");
  EXPECT_TRUE(bodyOf(requests[2]).starts_with("grant_type=refresh_token&refresh_token=refresh-0"));
}

TEST_F(VelmorAuthorizationClientTest, SigningOutASignedOutClientSendsNothing) {
  registerClient();
  auto client = makeClient();
  ErrorRef error = sentinelError();
  EXPECT_TRUE(client->signOut(&error));
  EXPECT_FALSE(error);
  Delivery<ErrorRef> signedOut;
  client->signOutAsync(callerQueue_, [&](ErrorRef e) { signedOut.deliver(e); });
  EXPECT_FALSE(signedOut.await());
  EXPECT_TRUE(http_->requests().empty());
}

TEST_F(VelmorAuthorizationClientTest,
       CheckAuthorizationRefreshesOnlyWhenOnlyTheRefreshTokenIsValid) {
  registerClient();
  auto client = makeClient();
  const Dictionary untouched{{"x", "y"}};
  const struct {
    const char* name;
    std::chrono::seconds accessLeft;
    std::optional<FakeHttpClient::Answer> refreshAnswer;
    AuthorizationState expected;
    std::optional<Dictionary> headers;
    std::optional<std::int64_t> serverError;
  } cases[] = {
      {"authorized", 3600s, std::nullopt, AuthorizationStateAuthorized,
       Dictionary{{"Authorization", "Bearer access-0"}}, std::nullopt},
      {"refreshed", 10s, json(kTokenAnswer), AuthorizationStateAuthorized,
       Dictionary{{"Authorization", "Bearer access-1"}}, std::nullopt},
      {"refresh refused: headers of the old token all the same", 10s,
       json(R"({"error":"invalid_request"})", 400), AuthorizationStateRefreshRequired,
       Dictionary{{"Authorization", "Bearer access-0"}}, kServerErrorInvalidRequest},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    storeTokens(c.accessLeft, 86400s);
    if (c.refreshAnswer) http_->enqueue(*c.refreshAnswer);
    std::optional<Dictionary> headers = untouched;
    ErrorRef error = sentinelError();
    EXPECT_EQ(client->checkAuthorization(&headers, &error), c.expected);
    EXPECT_EQ(headers, c.headers);
    EXPECT_EQ(error ? std::optional<std::int64_t>(error->code()) : std::nullopt, c.serverError);
  }
  record().deleteAccessToken();
  record().deleteRefreshToken();
  std::optional<Dictionary> headers = untouched;
  ErrorRef error = sentinelError();
  EXPECT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateSignInRequired);
  EXPECT_EQ(headers, untouched);
  EXPECT_FALSE(error);
  EXPECT_EQ(client->webRequestAuthorizationHeaders(),
            (Dictionary{{"Authorization", "Bearer (null)"}}));
}

TEST_F(VelmorAuthorizationClientTest, AsynchronousCheckReportsAfterTheRefresh) {
  registerClient();
  storeTokens(10s, 86400s);
  auto client = makeClient();
  http_->enqueue(json(kTokenAnswer));
  struct Check {
    AuthorizationState state;
    std::optional<Dictionary> headers;
    ErrorRef error;
  };
  Delivery<Check> refreshed;
  client->checkAuthorizationAsync(callerQueue_, [&](auto state, auto headers, ErrorRef error) {
    refreshed.deliver({state, headers, error});
  });
  const Check check = refreshed.await();
  EXPECT_EQ(check.state, AuthorizationStateAuthorized);
  EXPECT_EQ(check.headers, (Dictionary{{"Authorization", "Bearer access-1"}}));
  EXPECT_FALSE(check.error);

  record().deleteAccessToken();
  record().deleteRefreshToken();
  Delivery<Check> signedOut;
  client->checkAuthorizationAsync(callerQueue_, [&](auto state, auto headers, ErrorRef error) {
    signedOut.deliver({state, headers, error});
  });
  const Check second = signedOut.await();
  EXPECT_EQ(second.state, AuthorizationStateSignInRequired);
  EXPECT_FALSE(second.headers);
  EXPECT_EQ(http_->requests().size(), 1u);
}

std::string stateOf(const HttpRequest& request) {
  std::smatch match;
  const std::string query = request.url.query().value_or("");
  return std::regex_search(query, match, std::regex("state=([0-9a-f]{32})")) ? match[1].str() : "";
}

TEST_F(VelmorAuthorizationClientTest, WebSignInAnswersOnlyTheLatestRequest) {
  const std::optional<Url> page = Url::withString("https://auth.example/signin");
  const std::optional<Url> callback = Url::withString("https://app.example/cb");
  auto client = makeClient();
  ErrorRef error;
  EXPECT_FALSE(client->createWebSignInRequestWithBaseUrl(page, callback, std::nullopt, std::nullopt,
                                                         &error));
  EXPECT_EQ(error->code(), kClientErrorInvalidOperation);

  registerClient();
  const std::optional<HttpRequest> older = client->createWebSignInRequestWithBaseUrl(
      page, callback, Scopes{"read"}, std::nullopt, &error);
  const std::optional<HttpRequest> latest = client->createWebSignInRequestWithBaseUrl(
      page, callback, Scopes{"read"}, std::nullopt, &error);
  ASSERT_TRUE(older && latest);
  const auto redirectFor = [](const HttpRequest& request) {
    return Url::withString("https://app.example/cb?code=c1&state=" + stateOf(request) +
                           "&x_username=bob");
  };
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(redirectFor(*older), &error));
  EXPECT_EQ(error->code(), kClientErrorInvalidOperation);
  // Kept after the failure; dropped after the success.
  http_->enqueue(json(kTokenAnswer));
  EXPECT_EQ(client->signInWithWebAuthorizationResponse(redirectFor(*latest), &error),
            (Scopes{"read", "write"}));
  EXPECT_FALSE(error);
  EXPECT_EQ(client->username(), "bob");
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(redirectFor(*latest), nullptr));
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(redirectFor(*latest), &error));
  EXPECT_EQ(error->code(), kClientErrorNoWebSignInRequest);

  // A code obtained otherwise replaces the user name with none.
  http_->enqueue(json(kTokenAnswer));
  EXPECT_TRUE(client->signInWithAuthorizationCode("c2", callback, &error));
  EXPECT_FALSE(client->username());
  EXPECT_EQ(bodyOf(http_->requests().back()),
            "grant_type=authorization_code&code=c2&redirect_uri=https%3A%2F%2Fapp.example%2Fcb");
}

TEST_F(VelmorAuthorizationClientTest, AsynchronousWebSignInKeepsItsRequest) {
  registerClient();
  auto client = makeClient();
  const std::optional<HttpRequest> request = client->createWebSignInRequestWithBaseUrl(
      Url::withString("https://auth.example/signin"), Url::withString("https://app.example/cb"),
      std::nullopt, std::nullopt, nullptr);
  ASSERT_TRUE(request);
  const std::optional<Url> redirect = Url::withString(
      "https://app.example/cb?code=c1&state=" + stateOf(*request) + "&x_username=bob");
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    http_->enqueue(json(kTokenAnswer));
    Delivery<SignInResult> done;
    client->signInAsyncWithWebAuthorizationResponse(
        redirect, callerQueue_, [&](auto username, auto scopes, ErrorRef error) {
          done.deliver({username, scopes, error});
        });
    const SignInResult result = done.await();
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.username, "bob");
  }
}

TEST_F(VelmorAuthorizationClientTest, RefreshTokenExpiredTellsTheDelegateOnlyWhenSignedOut) {
  registerClient();
  auto client = makeClient();
  CountingDelegate delegate;
  client->setDelegate(&delegate);
  const struct {
    std::chrono::seconds accessLeft;
    std::chrono::seconds refreshLeft;
    int calls;
  } cases[] = {{3600s, -10s, 0}, {10s, 3600s, 0}, {-10s, -10s, 1}};
  for (const auto& c : cases) {
    storeTokens(c.accessLeft, c.refreshLeft);
    delegate.reset();
    client->refreshTokenExpired();
    EXPECT_EQ(delegate.calls(), c.calls);
  }
}

TEST_F(VelmorAuthorizationClientTest, WakingUpActsAtOnceOnAMomentThatPassedDuringSleep) {
  registerClient();
  storeTokens(-10s, -5s);
  auto client = makeClient();
  CountingDelegate delegate;
  client->setDelegate(&delegate);
  {
    test::BusyTimerThread asleep;
    // A failed sign-in re-arms the timer too, here for a moment already past.
    http_->enqueue(json(R"({"error":"invalid_grant"})", 400));
    ErrorRef error;
    EXPECT_FALSE(client->signInWithUsername("bob", "wrong", &error));
    EXPECT_EQ(error->localizedDescription(),
              "Your User ID or password was entered incorrectly. Please try again.");
    EXPECT_EQ(delegate.calls(), 0);
    client->applicationDidBecomeActive();
    EXPECT_EQ(delegate.calls(), 1);
  }
  client.reset();
  EXPECT_EQ(delegate.calls(), 1);
}

}  // namespace
}  // namespace velmor
