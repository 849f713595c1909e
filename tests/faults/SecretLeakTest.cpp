// Runs every flow that handles a secret (activation, password sign-in,
// refresh, authorization check, web sign-in, code sign-in, key change,
// sign-out, passcode store) with the logger at each level, and searches
// every log line and everything written to standard error for the secrets.
// Below level 5 none may appear; at level 5 the lines that carry them in
// clear appear, each at the level the library gives it.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "faults/ClientHarness.h"
#include "testing/CapturedStandardError.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/TestAuthorizationServer.h"
#include "transport/HttpUtility.h"
#include "velmor/Base64.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationLogger.h"
#include "velmor/VelmorSimpleSecureStore.h"

namespace velmor {
namespace {

using test::RecordingLoggerDelegate;

constexpr char kClientId[] = "client-id-Q7";
constexpr char kClientSecret[] = "client-secret-Z3k9";
constexpr char kPassword[] = "user-password-X4m2";
constexpr char kWebCode[] = "web-code-R8p1";
constexpr char kOtherCode[] = "other-code-J5n6";
constexpr char kPasscode[] = "passcode-T8w3";
constexpr char kAppSecret[] = "app-secret-K6v7";
constexpr char kRedirect[] = "com.example.app://signed-in";

std::string accessToken(int n) { return "access-token-" + std::to_string(n) + "-Ub2"; }
std::string refreshToken(int n) { return "refresh-token-" + std::to_string(n) + "-Hc5"; }

std::string hex(const Data& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

Data newKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x11 * i + 3);
  return key;
}

// Every secret in every form it could be written in.
std::vector<std::string> secrets() {
  std::vector<std::string> all = {kClientSecret, kPassword, kWebCode,
                                  kOtherCode,    kPasscode, kAppSecret};
  for (int n = 1; n <= 4; ++n) {
    all.push_back(accessToken(n));
    all.push_back(refreshToken(n));
  }
  const std::string credentials = std::string(kClientId) + ":" + kClientSecret;
  all.push_back(*Base64::encodeBase64WithData(Data(credentials.begin(), credentials.end())));
  for (const Data& key : {test::clientKey(), newKey()}) {
    all.push_back(hex(key));
    all.push_back(*Base64::encodeBase64WithData(key));
  }
  return all;
}

struct Outcome {
  std::vector<RecordingLoggerDelegate::Entry> entries;
  std::string standardError;
  std::size_t requests = 0;
};

// The client's flows, in the order a user meets them.
void clientFlows(const std::string& baseUrl) {
  auto client = test::clientFor(baseUrl);
  client->setAlwaysSendClientContext(true);
  ErrorRef error;
  ASSERT_TRUE(client->activate(&error)) << test::outcomeOf(error);
  ASSERT_TRUE(client->signInWithUsername("anna", kPassword, &error)) << test::outcomeOf(error);
  ASSERT_TRUE(client->refreshAccessToken(&error)) << test::outcomeOf(error);
  std::optional<Dictionary> headers;
  ASSERT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateAuthorized);
  ASSERT_TRUE(headers.has_value());

  const std::optional<HttpRequest> page = client->createWebSignInRequestWithBaseUrl(
      Url::withString(baseUrl + "signin"), Url::withString(kRedirect), std::nullopt, std::nullopt,
      &error);
  ASSERT_TRUE(page.has_value()) << test::outcomeOf(error);
  const std::string state =
      *HttpUtility::parseQueryString(page->url.query().value_or("")).findString("state");
  const std::string response =
      std::string(kRedirect) + "?code=" + kWebCode + "&state=" + state + "&x_username=anna";
  ASSERT_TRUE(client->signInWithWebAuthorizationResponse(Url::withString(response), &error))
      << test::outcomeOf(error);
  ASSERT_TRUE(client->signInWithAuthorizationCode(kOtherCode, Url::withString(kRedirect), &error))
      << test::outcomeOf(error);

  client->changeEncryptionKey(newKey());
  ASSERT_TRUE(client->signOut(&error)) << test::outcomeOf(error);
  client->setAlwaysSendClientContext(false);
}

void passcodeStoreFlows() {
  VelmorSimpleSecureStore store("com.example.leak-test", "notes");
  ASSERT_TRUE(store.changePasscode(std::string(kPasscode)));
  ASSERT_TRUE(store.saveObject(Value(Dictionary{{"api-key", kAppSecret}})));
  ASSERT_TRUE(store.lock());
  ASSERT_FALSE(store.checkPasscode("wrong-passcode"));
  ASSERT_TRUE(store.checkPasscode(kPasscode));
  ASSERT_TRUE(store.unlock(kPasscode));
  ASSERT_EQ(store.loadObject(), Value(Dictionary{{"api-key", kAppSecret}}));
  ASSERT_TRUE(store.deleteStore());
}

Outcome runEverything(std::int64_t level) {
  test::TestAuthorizationServer server;  // outlives the HTTP client's connections
  test::ClientEnvironment environment;
  environment.useHttpClient(server.caFile());
  for (const test::ScriptedResponse& answer : {
           test::jsonAnswer(test::registrationJson(kClientId, kClientSecret)),
           test::jsonAnswer(test::tokenJson(accessToken(1), refreshToken(1))),
           test::ScriptedResponse{204, {}, "", std::nullopt, {}},  // the client context
           test::jsonAnswer(test::tokenJson(accessToken(2), refreshToken(2))),
           test::jsonAnswer(test::tokenJson(accessToken(3), refreshToken(3))),
           test::jsonAnswer(test::tokenJson(accessToken(4), refreshToken(4))),
           test::jsonAnswer("{}"),  // the revocation
       }) {
    server.enqueue(answer);
  }

  RecordingLoggerDelegate delegate;
  Outcome run;
  {
    test::CapturedStandardError standardError;
    test::ScopedLogger logger(level, &delegate);
    clientFlows(server.url("/"));
    passcodeStoreFlows();
    run.standardError = standardError.text();
  }
  run.entries = delegate.entries();
  run.requests = server.requests().size();
  return run;
}

bool anyLineHas(const Outcome& run, std::int64_t level, const std::string& text) {
  for (const auto& entry : run.entries) {
    if (entry.logLevel == level && entry.message.find(text) != std::string::npos) return true;
  }
  return false;
}

class SecretLeakTest : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(SecretLeakTest, NoSecretInAnyLogLineOrStandardError) {
  const Outcome run = runEverything(GetParam());
  if (HasFatalFailure()) return;
  ASSERT_EQ(run.requests, 7u);
  for (const std::string& secret : secrets()) {
    SCOPED_TRACE(secret);
    for (const auto& entry : run.entries) {
      EXPECT_EQ(entry.message.find(secret), std::string::npos) << entry.message;
    }
    EXPECT_EQ(run.standardError.find(secret), std::string::npos);
  }
  // The lines that would carry secrets are there, starred.
  if (GetParam() >= VelmorAuthorizationLogger::kLevelInfo) {
    EXPECT_TRUE(anyLineHas(run, 3, "password: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "authorizationCode: '**...**'"));
    EXPECT_TRUE(anyLineHas(run, 3, "responseUrl: '**...**'"));
    EXPECT_TRUE(anyLineHas(run, 3, "Content (Redacted): '****"));
    EXPECT_TRUE(anyLineHas(run, 3, "unlock: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "saveObject: '<redacted>'"));
  }
}

INSTANTIATE_TEST_SUITE_P(LevelsBelowSensitive, SecretLeakTest, ::testing::Values(1, 2, 3, 4));

TEST(SecretLeakTest, SensitiveLevelShowsTheSecretsWhereTheLibrarySays) {
  const Outcome run = runEverything(VelmorAuthorizationLogger::kLevelSensitive);
  if (HasFatalFailure()) return;
  constexpr std::int64_t kSensitive = VelmorAuthorizationLogger::kLevelSensitive;
  constexpr std::int64_t kInfo = VelmorAuthorizationLogger::kLevelInfo;
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("password: '") + kPassword + "'"));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("password=") + kPassword));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "Content: '{\"access_token\":\"" + accessToken(1)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "refresh_token=" + refreshToken(1)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("code=") + kWebCode));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("authorizationCode: '") + kOtherCode + "'"));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "token=" + refreshToken(4)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("\"client_secret\":\"") + kClientSecret));
  // The passcode store logs its calls at the info level, in clear only now.
  EXPECT_TRUE(anyLineHas(run, kInfo, std::string("unlock: '") + kPasscode + "'"));
  EXPECT_TRUE(anyLineHas(run, kInfo, kAppSecret));
  // Redacted forms are not written when the full ones are.
  EXPECT_FALSE(anyLineHas(run, kInfo, "Content (Redacted)"));
  EXPECT_FALSE(anyLineHas(run, kInfo, "password: '***'"));
  // Standard error stays clean even so.
  for (const std::string& secret : secrets()) {
    EXPECT_EQ(run.standardError.find(secret), std::string::npos) << secret;
  }
}

}  // namespace
}  // namespace velmor
