// Runs every flow that handles a secret, through the client and through the
// velmor-auth tool, with the logger at each level, and searches everything
// logged and written to standard error for the secrets in every rendering a
// line could give them. Below level 5 none may appear; at level 5 the lines
// that carry them in clear appear, each at the level the library gives it.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "faults/ClientHarness.h"
#include "testing/CapturedStandardError.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "transport/HttpUtility.h"
#include "velmor/Base64.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationLogger.h"
#include "velmor/VelmorSimpleSecureStore.h"
#ifdef VELMOR_AUTH_PATH
#include "tools/ToolProcess.h"
#endif

namespace velmor {
namespace {

using test::RecordingLoggerDelegate;
using namespace std::string_literals;

constexpr char kClientId[] = "client-id-Q7";
constexpr char kClientSecret[] = "client-secret-Z3k9";
constexpr char kPassword[] = "user pass/word+X4m2";
constexpr char kWebCode[] = "web-code-R8p1";
constexpr char kOtherCode[] = "other-code-J5n6";
constexpr char kPasscode[] = "passcode-T8w3";
constexpr char kAppSecret[] = "app-secret-K6v7";
constexpr char kRedirect[] = "com.example.app://signed-in";

std::string accessToken(int n) { return "access-token-" + std::to_string(n) + "-Ub2"; }
std::string refreshToken(int n) { return "refresh-token-" + std::to_string(n) + "-Hc5"; }

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

Data newKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x11 * i + 3);
  return key;
}

// What a search compares: no white space, no angle brackets, lower case; so
// "<a0a1a2a3 a4a5...>" still holds "a0a1a2a3a4a5".
std::string normalised(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) || c == '<' || c == '>') continue;
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

std::string hex(const Data& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

// A secret as a line could write it: as it is, in hex, in Base64 and
// percent-escaped, each normalised.
std::vector<std::string> renderingsOf(const Data& secret) {
  const std::string text(secret.begin(), secret.end());
  return {normalised(text), hex(secret), normalised(*Base64::encodeBase64WithData(secret)),
          normalised(HttpUtility::escapeDataString(text))};
}

struct Secret {
  std::string name;
  std::vector<std::string> renderings;
};

// Every secret of the flows, the Basic header of the client credentials
// and both encryption keys included.
std::vector<Secret> secrets() {
  std::vector<std::pair<std::string, Data>> all = {
      {"client secret", bytesOf(kClientSecret)}, {"password", bytesOf(kPassword)},
      {"web code", bytesOf(kWebCode)},           {"other code", bytesOf(kOtherCode)},
      {"passcode", bytesOf(kPasscode)},          {"stored object", bytesOf(kAppSecret)},
      {"client key", test::clientKey()},         {"new key", newKey()},
  };
  for (int n = 1; n <= 4; ++n) {
    all.emplace_back("access token " + std::to_string(n), bytesOf(accessToken(n)));
    all.emplace_back("refresh token " + std::to_string(n), bytesOf(refreshToken(n)));
  }
  std::vector<Secret> out;
  for (const auto& [name, bytes] : all) out.push_back({name, renderingsOf(bytes)});
  const std::string basic = std::string(kClientId) + ":" + kClientSecret;
  out.push_back({"Basic header", {normalised(*Base64::encodeBase64WithData(bytesOf(basic)))}});
  return out;
}

// The first secret found in `text`, by name; nothing when it is clean.
std::optional<std::string> leakIn(std::string_view text) {
  const std::string searched = normalised(text);
  for (const Secret& secret : secrets()) {
    for (const std::string& rendering : secret.renderings) {
      if (searched.find(rendering) != std::string::npos) return secret.name + " as " + rendering;
    }
  }
  return std::nullopt;
}

const std::vector<test::ScriptedResponse>& serverAnswers() {
  static const std::vector<test::ScriptedResponse> answers = {
      test::jsonAnswer(test::registrationJson(kClientId, kClientSecret)),
      test::jsonAnswer(test::tokenJson(accessToken(1), refreshToken(1))),
      test::ScriptedResponse{204, {}, "", std::nullopt, {}},  // the client context
      test::jsonAnswer(test::tokenJson(accessToken(2), refreshToken(2))),
      test::jsonAnswer(test::tokenJson(accessToken(3), refreshToken(3))),
      test::jsonAnswer(test::tokenJson(accessToken(4), refreshToken(4))),
      test::jsonAnswer("{}"),  // the revocation
  };
  return answers;
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
  ASSERT_TRUE(VelmorAuthorizationClient::isPasswordValid(kPassword));
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
  ASSERT_TRUE(store.changePasscode(std::nullopt));
  ASSERT_TRUE(store.deleteStore());
}

Outcome runClientFlows(std::int64_t level) {
  test::TestAuthorizationServer server;  // outlives the HTTP client's connections
  test::ClientEnvironment environment;
  environment.useHttpClient(server.caFile());
  for (const test::ScriptedResponse& answer : serverAnswers()) server.enqueue(answer);

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

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

TEST(SecretLeakTest, NormalisedSearchFindsEveryRendering) {
  const Data key = test::clientKey();
  const std::string credentials = std::string(kClientId) + ":" + kClientSecret;
  const struct {
    std::string text;
    bool leaks;
  } cases[] = {
      {"encryptionKey: '" + Value(key).description() + "'", true},
      {"key " + *Base64::encodeBase64WithData(key), true},
      {"in capitals and words " + upper(hex(key).substr(0, 20)) + " " + hex(key).substr(20), true},
      {"password=user%20pass%2Fword%2BX4m2", true},
      {"Authorization: Basic " + *Base64::encodeBase64WithData(bytesOf(credentials)), true},
      {"refresh_token=REFRESH-TOKEN-2-HC5", true},
      {"password: '***' encryptionKey: '***' responseUrl: '**...**'", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(leakIn(c.text).has_value(), c.leaks);
  }
}

class SecretLeakTest : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(SecretLeakTest, NoSecretInAnyLogLineOrStandardError) {
  const Outcome run = runClientFlows(GetParam());
  if (HasFatalFailure()) return;
  ASSERT_EQ(run.requests, 7u);
  for (const auto& entry : run.entries) {
    EXPECT_EQ(leakIn(entry.message), std::nullopt) << entry.message;
  }
  EXPECT_EQ(leakIn(run.standardError), std::nullopt) << run.standardError;
  // The lines that would carry secrets are there, starred.
  if (GetParam() >= VelmorAuthorizationLogger::kLevelInfo) {
    EXPECT_TRUE(anyLineHas(run, 3, "encryptionKey: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "changeEncryptionKey: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "password: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "isPasswordValid: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "authorizationCode: '**...**'"));
    EXPECT_TRUE(anyLineHas(run, 3, "responseUrl: '**...**'"));
    EXPECT_TRUE(anyLineHas(run, 3, "Content (Redacted): '****"));
    EXPECT_TRUE(anyLineHas(run, 3, "unlock: '***'"));
    EXPECT_TRUE(anyLineHas(run, 3, "saveObject: '<redacted>'"));
  }
}

INSTANTIATE_TEST_SUITE_P(LevelsBelowSensitive, SecretLeakTest, ::testing::Values(1, 2, 3, 4));

TEST(SecretLeakTest, SensitiveLevelShowsTheSecretsWhereTheLibrarySays) {
  const Outcome run = runClientFlows(VelmorAuthorizationLogger::kLevelSensitive);
  if (HasFatalFailure()) return;
  constexpr std::int64_t kSensitive = VelmorAuthorizationLogger::kLevelSensitive;
  constexpr std::int64_t kInfo = VelmorAuthorizationLogger::kLevelInfo;
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("password: '") + kPassword + "'"));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "password=" + HttpUtility::escapeDataString(kPassword)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "Content: '{\"access_token\":\"" + accessToken(1)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "refresh_token=" + refreshToken(1)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("code=") + kWebCode));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("authorizationCode: '") + kOtherCode + "'"));
  EXPECT_TRUE(anyLineHas(run, kSensitive, "token=" + refreshToken(4)));
  EXPECT_TRUE(anyLineHas(run, kSensitive, std::string("\"client_secret\":\"") + kClientSecret));
  // Members logged through logMethod keep the info level, in clear only now.
  EXPECT_TRUE(
      anyLineHas(run, kInfo, "encryptionKey: '" + Value(test::clientKey()).description() + "'"));
  EXPECT_TRUE(anyLineHas(run, kInfo, "changeEncryptionKey: '" + Value(newKey()).description()));
  EXPECT_TRUE(anyLineHas(run, kInfo, std::string("isPasswordValid: '") + kPassword + "'"));
  EXPECT_TRUE(anyLineHas(run, kInfo, std::string("unlock: '") + kPasscode + "'"));
  EXPECT_TRUE(anyLineHas(run, kInfo, kAppSecret));
  // Redacted forms are not written when the full ones are.
  EXPECT_FALSE(anyLineHas(run, kInfo, "Content (Redacted)"));
  EXPECT_FALSE(anyLineHas(run, kInfo, "password: '***'"));
  // Standard error stays clean even so.
  EXPECT_EQ(leakIn(run.standardError), std::nullopt) << run.standardError;
}

#ifdef VELMOR_AUTH_PATH

using Words = std::vector<std::string>;

// velmor-auth driven through the same flows against the scripted server,
// with its log lines on standard error.
class ToolFlows final {
 public:
  explicit ToolFlows(std::int64_t level) : level_(std::to_string(level)) {
    home_.writeFile("key", *Base64::encodeBase64WithData(test::clientKey()) + "\n");
  }

  // Everything the tool wrote to standard error, over every command.
  std::string run() {
    expect({"activate"}, {0});
    expect({"sign-in", "--username", "anna", "--password-stdin"}, {1}, kPassword + "\n"s);
    expect({"refresh"}, {3});
    expect({"headers"}, {});
    server_.enqueue({401,
                     {{"WWW-Authenticate", R"(Bearer realm="api", error="invalid_token")"}},
                     "",
                     std::nullopt,
                     {}});
    expect({"call", server_.url("/api/v1/me")}, {}, "", 1);
    webSignIn();
    expect({"code-exchange", "--code", kOtherCode, "--redirect-url", kRedirect}, {5});
    expect({"sign-out"}, {6});
    const Words store = {"store", "--service", "com.example.leak-test", "--account", "notes"};
    expect(with(store, {"change-passcode", "--passcode-stdin"}), {}, kPasscode + "\n"s);
    expect(with(store, {"save", "--passcode-stdin"}), {},
           kPasscode + "\n{\"api-key\":\""s + kAppSecret + "\"}");
    expect(with(store, {"load", "--passcode-stdin"}), {}, kPasscode + "\n"s);
    expect({"delete"}, {});
    return standardError_;
  }

 private:
  static Words with(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  Words command(const Words& words) const {
    return with({"--server", server_.url("/"), "--ca-file", server_.caFile(), "--key-file",
                 home_.pathOf("key"), "--app-token", test::kAppToken, "--log-level", level_},
                words);
  }

  // Runs one command after queueing the server's answers to it.
  void expect(const Words& words, const std::vector<std::size_t>& answers,
              const std::string& input = "", int exitCode = 0) {
    for (std::size_t answer : answers) server_.enqueue(serverAnswers()[answer]);
    const test::ToolRun result = test::ToolProcess::run(command(words), environment_, input);
    EXPECT_EQ(result.exitCode, exitCode) << words.front() << ": " << result.err;
    standardError_ += result.err;
  }

  // The tool prints the sign-in URL and waits for the browser to come back
  // to its loopback redirect URL; the test plays the browser.
  void webSignIn() {
    server_.enqueue(serverAnswers()[4]);
    test::ToolProcess signIn(command({"web-sign-in", "--no-browser"}), environment_);
    const std::optional<std::string> url =
        signIn.readLine([](const std::string& line) { return line.rfind("https://", 0) == 0; },
                        std::chrono::seconds(60));
    ASSERT_TRUE(url);
    const Dictionary query =
        HttpUtility::parseQueryString(Url::withString(*url)->query().value_or(""));
    const std::string redirect = *query.findString("redirect_uri") + "?code=" + kWebCode +
                                 "&state=" + *query.findString("state") + "&x_username=anna";
    CurlHttpClient browser;
    EXPECT_NE(browser.send(HttpRequest(*Url::withString(redirect))).response, nullptr);
    const test::ToolRun result = signIn.finish();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    standardError_ += result.err;
  }

  const std::string level_;
  test::TemporaryDirectory home_;
  test::TestAuthorizationServer server_;
  const test::EnvironmentChanges environment_ = test::isolatedToolEnvironment(home_.path());
  std::string standardError_;
};

class ToolSecretLeakTest : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(ToolSecretLeakTest, NoSecretOnStandardError) {
  const std::string standardError = ToolFlows(GetParam()).run();
  EXPECT_EQ(leakIn(standardError), std::nullopt) << standardError;
  if (GetParam() >= VelmorAuthorizationLogger::kLevelInfo) {
    EXPECT_NE(standardError.find("encryptionKey: '***'"), std::string::npos);
    EXPECT_NE(standardError.find("password: '***'"), std::string::npos);
    EXPECT_NE(standardError.find("responseUrl: '**...**'"), std::string::npos);
    EXPECT_NE(standardError.find("unlock: '***'"), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(LevelsBelowSensitive, ToolSecretLeakTest, ::testing::Values(1, 2, 3, 4));

TEST(ToolSecretLeakTest, SensitiveLevelShowsTheSecrets) {
  const std::string standardError = ToolFlows(VelmorAuthorizationLogger::kLevelSensitive).run();
  for (const std::string& shown :
       {"encryptionKey: '" + Value(test::clientKey()).description() + "'",
        std::string("password: '") + kPassword + "'", std::string("code=") + kWebCode,
        std::string("authorizationCode: '") + kOtherCode + "'", "token=" + refreshToken(4),
        std::string("unlock: '") + kPasscode + "'", std::string(kAppSecret)}) {
    EXPECT_NE(standardError.find(shown), std::string::npos) << shown;
  }
}

#endif  // VELMOR_AUTH_PATH

}  // namespace
}  // namespace velmor
