#include "velmor/VelmorAuthorizationClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/BusyTimerThread.h"
#include "client/SignOutCounter.h"
#include "storage/ProofKey.h"
#include "storage/SecureData.h"
#include "testing/FakeHttpClient.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSecretStore.h"
#include "transport/HttpUtility.h"
#include "velmor/Exception.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using Scopes = VelmorAuthorizationClient::Scopes;

constexpr char kBase[] = "https://auth.example/api/";
constexpr char kToken[] = "app-token";
const Data kKey(32, 7);

std::string pointerText(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

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

class VelmorAuthorizationClientTest : public ::testing::Test {
 protected:
  VelmorAuthorizationClientTest() { HttpClient::setDefault(http_); }
  ~VelmorAuthorizationClientTest() override {
    HttpClient::setDefault(nullptr);
    __accessTokenExpirationOverride = 0;
    __alwaysSendClientContext = false;
  }

  std::unique_ptr<VelmorAuthorizationClient> makeClient(std::uint64_t slot = 0) {
    return std::make_unique<VelmorAuthorizationClient>(Url::withString(kBase), kToken, kKey, slot);
  }

  // The client's record, through the same store.
  void storeRecord(std::chrono::seconds accessLeft, std::chrono::seconds refreshLeft) {
    const auto now = std::chrono::system_clock::now();
    record_.setClientId("cid");
    record_.setClientSecret("secret");
    record_.setAccessToken("access-0");
    record_.setAccessTokenValidStartDateTime(now - 60s);
    record_.setAccessTokenValidEndDateTime(now + accessLeft);
    record_.setRefreshToken("refresh-0");
    record_.setRefreshTokenValidStartDateTime(now - 60s);
    record_.setRefreshTokenValidEndDateTime(now + refreshLeft);
  }

  test::ScopedSecretStore store_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  SecureData record_{"auth.example", kToken, kKey, 0};
};

TEST_F(VelmorAuthorizationClientTest, ConstructionChecksInOrderAndToleratesPlainHttp) {
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

  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelError, &log);
  VelmorAuthorizationClient secure(Url::withString("HTTPS://auth.example/"), kToken, kKey);
  EXPECT_TRUE(log.messages().empty());
  VelmorAuthorizationClient plain(Url::withString("http://auth.example/"), kToken, kKey);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"ERROR\tInsecure URL provided as parameter"});
  storeRecord(3600s, 3600s);
  EXPECT_EQ(plain.authorizationState(), AuthorizationStateAuthorized);
}

TEST_F(VelmorAuthorizationClientTest, SettingsAreSharedByEveryClientAndRangeChecked) {
  auto a = makeClient();
  auto b = makeClient(1);
  a->setAccessTokenExpirationOverride(31);
  a->setAlwaysSendClientContext(true);
  EXPECT_EQ(b->accessTokenExpirationOverride(), 31u);
  EXPECT_TRUE(b->alwaysSendClientContext());
  expectThrows({"2^64 - 1", [&] { a->setSimulatedNetworkDelayInterval(~0ull); }, "NSRangeException",
                "Value of simulatedNetworkDelayInterval, -1, is not greater than -1"});
  expectThrows({"2^63", [&] { a->setRefreshTokenExpirationOverride(1ull << 63); },
                "NSRangeException",
                "Value of refreshTokenExpirationOverride, -9223372036854775808, is not greater "
                "than -1"});
  EXPECT_EQ(b->simulatedNetworkDelayInterval(), 0u);
}

TEST_F(VelmorAuthorizationClientTest, CredentialLengthIsCountedInUtf16UnitsAfterTrimming) {
  std::string faces;  // 128 characters outside the basic plane: 256 units
  for (int i = 0; i < 128; ++i) faces += "\xF0\x9F\x98\x80";
  const struct {
    std::optional<std::string> text;
    bool valid;
  } cases[] = {
      {std::nullopt, false}, {"  a  ", true},      {"   ", false},
      {"\n\t", false},       {"a<b", true},        {std::string(257, 'x'), false},
      {faces, true},         {faces + "x", false}, {" " + std::string(256, 'x') + " \n", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.value_or("(null)").substr(0, 12));
    EXPECT_EQ(VelmorAuthorizationClient::isUsernameValid(c.text), c.valid);
    EXPECT_EQ(VelmorAuthorizationClient::isPasswordValid(c.text), c.valid);
  }
  EXPECT_EQ(VelmorAuthorizationClient::internalUsernameExcludedCharacterSet(), u"()<>,;:\"[]{}'");
  std::uint64_t bound = 0;
  expectThrows({"no maximum location",
                [&] { VelmorAuthorizationClient::usernameMinLength(&bound, nullptr); },
                "NSInvalidArgumentException", "maxLength must not be nil"});
}

// Each line is written before the arguments are checked, so these calls,
// refused afterwards or answered at once, show their line and send nothing.
// In the expected text "{}" stands for the secret as shown.
TEST_F(VelmorAuthorizationClientTest, SignInLinesShowSecretsOnlyAtTheSensitiveLevel) {
  auto client = makeClient();
  auto queue = std::make_shared<OperationQueue>();
  ErrorRef error;
  const auto completion = [](std::optional<std::string>, std::optional<Scopes>, ErrorRef) {};
  const struct {
    std::function<void()> call;
    const char* starred;
    const char* clear;
    std::string line;
  } cases[] = {
      {[&] {
         client->signInWithUsername(std::nullopt, "pw", Scopes{"a", "b"}, &error);
       },
       "***", "pw",
       "-[VelmorAuthorizationClient signInWithUsername:password:scopes:error:] username: "
       "'(null)' password: '{}' scopes: '(\n    a,\n    b\n)' error: '0x" +
           pointerText(&error) + "'"},
      {[&] { client->signInAsyncWithUsername("bob", std::nullopt, queue, completion); }, "",
       "(null)",
       "-[VelmorAuthorizationClient signInAsyncWithUsername:password:queue:completion:] "
       "username: 'bob' password: '{}' queue: '" +
           queue->description() + "' completion: '<__NSMallocBlock__>'"},
      {[&] {
         client->signInWithWebAuthorizationResponse(Url::withString("https://app/cb?code=c1"),
                                                    &error);
       },
       "**...**", "https://app/cb?code=c1",
       "-[VelmorAuthorizationClient signInWithWebAuthorizationResponse:error:] responseUrl: "
       "'{}' error: '0x" +
           pointerText(&error) + "'"},
      {[&] {
         client->signInAsyncWithAuthorizationCode("c1", Url::withString("https://app/cb"), nullptr,
                                                  completion);
       },
       "**...**", "c1",
       "-[VelmorAuthorizationClient signInAsyncWithAuthorizationCode:redirectUrl:queue:"
       "completion:] authorizationCode: '{}' redirectUrl: 'https://app/cb' queue: '(null)'"},
      {[&] {
         client->signInWithAuthorizationCode("c1", Url::withString("https://app/cb"), " ", &error);
       },
       "**...**", "c1",
       "-[VelmorAuthorizationClient signInWithAuthorizationCode:redirectUrl:codeVerifier:error:] "
       "authorizationCode: '{}' redirectUrl: 'https://app/cb' codeVerifier: '{v}' error: "
       "'0x" +
           pointerText(&error) + "'"},
  };
  for (const bool sensitive : {false, true}) {
    for (const auto& c : cases) {
      std::string expected = (sensitive ? "SENSITIVE\t" : "INFO\t") + c.line;
      expected.replace(expected.find("{}"), 2, sensitive ? c.clear : c.starred);
      // The blank verifier that makes the last call throw.
      if (const std::size_t at = expected.find("{v}"); at != std::string::npos) {
        expected.replace(at, 3, sensitive ? " " : "**...**");
      }
      SCOPED_TRACE(expected);
      test::RecordingLoggerDelegate log;
      test::ScopedLogger scoped(sensitive ? 5 : 3, &log);
      try {
        c.call();
      } catch (const Exception&) {
      }
      ASSERT_FALSE(log.messages().empty());
      EXPECT_EQ(log.messages().front(), expected);
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
  std::vector<std::string> lines = log.messages();
  // isPasswordValid asks for its bounds through the public member.
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_TRUE(lines.back().starts_with("INFO\t+[VelmorAuthorizationClient passwordMinLength: "));
  lines.pop_back();
  EXPECT_EQ(lines,
            (std::vector<std::string>{
                "INFO\t-[VelmorAuthorizationClient initWithAuthorizationServerBaseUrl: "
                "'https://auth.example/api/' appToken: 'app-token' encryptionKey: "
                "'***' authorizedIdentitySlot: '3']",
                "INFO\t-[VelmorAuthorizationClient setAlwaysSendClientContext: '1']",
                "INFO\t-[VelmorAuthorizationClient refreshTokenExpired:]",
                "INFO\t+[VelmorAuthorizationClient passwordMinLength: '" + pointerText(&minLength) +
                    "' maxLength: '" + pointerText(&maxLength) + "']",
                "INFO\t+[VelmorAuthorizationClient isPasswordValid: '***']"}));
}

// The key is a secret like a password: in clear only at the sensitive level,
// in the lines that keep the info level.
TEST_F(VelmorAuthorizationClientTest, TheKeyIsStarredUnlessSecretsAreShown) {
  const std::string construction =
      "INFO\t-[VelmorAuthorizationClient initWithAuthorizationServerBaseUrl: "
      "'https://auth.example/api/' appToken: 'app-token' encryptionKey: '{}']";
  const std::string change = "INFO\t-[VelmorAuthorizationClient changeEncryptionKey: '{}']";
  const struct {
    std::int64_t level;
    std::optional<Data> key;
    const char* shown;
  } cases[] = {
      {3, Data{1, 2, 3, 0xff, 5}, "***"},
      {4, Data{1, 2, 3, 0xff, 5}, "***"},
      {3, std::nullopt, ""},
      {5, Data{1, 2, 3, 0xff, 5}, "<010203ff 05>"},
      {5, std::nullopt, "(null)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.level << " " << c.shown);
    test::RecordingLoggerDelegate log;
    test::ScopedLogger scoped(c.level, &log);
    VelmorAuthorizationClient client(Url::withString(kBase), kToken, c.key);
    client.changeEncryptionKey(c.key);
    std::vector<std::string> expected = {construction, change};
    for (std::string& line : expected) line.replace(line.find("{}"), 2, c.shown);
    EXPECT_EQ(log.messages(), expected);
  }
}

TEST_F(VelmorAuthorizationClientTest, NullErrorLocationsPrintAsThePlatformPrintsThem) {
  auto client = makeClient();
  test::RecordingLoggerDelegate log;
  test::ScopedLogger scoped(VelmorAuthorizationLogger::kLevelInfo, &log);
  EXPECT_EQ(client->checkAuthorization(nullptr, nullptr), AuthorizationStateActivationRequired);
  EXPECT_THROW(client->signInWithUsername(std::nullopt, "pw", nullptr), Exception);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "INFO\t-[VelmorAuthorizationClient checkAuthorization: '0x0' error: '0x0']",
                "INFO\t-[VelmorAuthorizationClient signInWithUsername:password:error:] username: "
                "'(null)' password: '***' error: '0x0x0'"}));
}

// The code exchange of a web sign-in with the client's proof-key setting as
// given: the sign-in URL's query, the body the exchange sent, and the log.
struct WebSignInRun {
  Dictionary signInQuery;
  std::string exchangeBody;
  std::vector<test::RecordingLoggerDelegate::Entry> log;
};

class WebSignInTest : public VelmorAuthorizationClientTest {
 protected:
  WebSignInRun signInThroughTheWeb(bool usesPkce, std::int64_t logLevel = 0) {
    storeRecord(-10s, -10s);
    auto client = makeClient();
    client->setUsesPkce(usesPkce);
    test::RecordingLoggerDelegate log;
    WebSignInRun run;
    {
      test::ScopedLogger scoped(logLevel, &log);
      ErrorRef error;
      const std::optional<HttpRequest> page = client->createWebSignInRequestWithBaseUrl(
          Url::withString("https://auth.example/signin"), Url::withString("app:/cb"), std::nullopt,
          std::nullopt, &error);
      run.signInQuery = HttpUtility::parseQueryString(page->url.query().value_or(""));
      http_->enqueue(tokenAnswer());
      EXPECT_TRUE(client->signInWithWebAuthorizationResponse(
          Url::withString("app:/cb?code=c1&x_username=u&state=" +
                          *run.signInQuery.findString("state")),
          &error));
    }
    run.exchangeBody = lastBody();
    run.log = log.entries();
    return run;
  }

  static test::FakeHttpClient::Answer tokenAnswer() {
    return {200,
            {{"Content-Type", "application/json"}},
            R"({"access_token":"a1","token_type":"bearer","expires_in":60})"};
  }

  std::string lastBody() const {
    const Data body = http_->requests().back().body;
    return std::string(body.begin(), body.end());
  }
};

TEST_F(WebSignInTest, WithoutPkceNothingChanges) {
  const WebSignInRun run = signInThroughTheWeb(false);
  EXPECT_EQ(run.signInQuery.findString("code_challenge"), nullptr);
  EXPECT_EQ(run.exchangeBody, "grant_type=authorization_code&code=c1&redirect_uri=app%3A%2Fcb");
}

TEST_F(WebSignInTest, PkceBindsTheExchangeToTheSignInRequest) {
  const WebSignInRun run = signInThroughTheWeb(true);
  const std::string prefix =
      "grant_type=authorization_code&code=c1&redirect_uri=app%3A%2Fcb"
      "&code_verifier=";
  ASSERT_TRUE(run.exchangeBody.starts_with(prefix)) << run.exchangeBody;
  const std::string verifier = run.exchangeBody.substr(prefix.size());
  EXPECT_EQ(verifier.size(), 43u);
  EXPECT_EQ(*run.signInQuery.findString("code_challenge"),
            ProofKey::codeChallengeForVerifier(verifier));
  EXPECT_EQ(*run.signInQuery.findString("code_challenge_method"), "S256");
}

TEST_F(WebSignInTest, TheVerifierIsLoggedOnlyAtTheSensitiveLevel) {
  for (std::int64_t level = 1; level <= 5; ++level) {
    SCOPED_TRACE(level);
    const WebSignInRun run = signInThroughTheWeb(true, level);
    const std::string verifier = run.exchangeBody.substr(run.exchangeBody.rfind('=') + 1);
    bool shown = false;
    for (const auto& entry : run.log) {
      if (entry.message.find(verifier) == std::string::npos) continue;
      EXPECT_EQ(entry.logLevel, VelmorAuthorizationLogger::kLevelSensitive) << entry.message;
      shown = true;
    }
    EXPECT_EQ(shown, level == VelmorAuthorizationLogger::kLevelSensitive);
  }
}

TEST_F(WebSignInTest, AVerifierFromElsewhereGoesWithTheCode) {
  storeRecord(-10s, -10s);
  auto client = makeClient();
  http_->enqueue(tokenAnswer());
  ErrorRef error;
  EXPECT_TRUE(
      client->signInWithAuthorizationCode("c2", Url::withString("app:/cb"), "v-2.x~", &error));
  EXPECT_EQ(lastBody(),
            "grant_type=authorization_code&code=c2&redirect_uri=app%3A%2Fcb&code_verifier=v-2.x~");

  http_->enqueue(tokenAnswer());
  auto queue = std::make_shared<OperationQueue>();
  std::promise<std::string> signedIn;
  client->signInAsyncWithAuthorizationCode(
      "c3", Url::withString("app:/cb"), "v3", queue,
      [&](std::optional<std::string>, std::optional<Scopes> scopes, ErrorRef e) {
        signedIn.set_value(e ? "error" : scopes ? "scopes" : "none");
      });
  EXPECT_EQ(signedIn.get_future().get(), "scopes");
  EXPECT_EQ(lastBody(),
            "grant_type=authorization_code&code=c3&redirect_uri=app%3A%2Fcb&code_verifier=v3");
  expectThrows({"no verifier",
                [&] {
                  client->signInWithAuthorizationCode("c", Url::withString("app:/cb"), std::nullopt,
                                                      &error);
                },
                "NSInvalidArgumentException", "codeVerifier must not be nil"});
}

TEST_F(VelmorAuthorizationClientTest, ExpiryTellsTheDelegateOnlyWhenNothingValidIsLeft) {
  auto client = makeClient();
  test::SignOutCounter delegate;
  client->setDelegate(&delegate);
  const struct {
    std::chrono::seconds accessLeft, refreshLeft;
    int calls;
  } cases[] = {{3600s, -10s, 0}, {10s, 3600s, 0}, {-10s, -10s, 1}};
  for (const auto& c : cases) {
    storeRecord(c.accessLeft, c.refreshLeft);
    delegate.reset();
    client->refreshTokenExpired();
    EXPECT_EQ(delegate.calls(), c.calls);
  }
}

TEST_F(VelmorAuthorizationClientTest, WakingUpActsAtOnceOnAMomentThatPassedDuringSleep) {
  storeRecord(-10s, -5s);
  auto client = makeClient();
  test::SignOutCounter delegate;
  client->setDelegate(&delegate);
  {
    test::BusyTimerThread asleep;
    // A failed sign-in re-arms the timer too, here for a moment already past.
    http_->enqueue({400, {{"Content-Type", "application/json"}}, R"({"error":"invalid_grant"})"});
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
