#include "transport/HttpRequestSender.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "testing/FakeHttpClient.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/ScopedSystemIdentity.h"
#include "transport/HttpUserAgent.h"
#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::textOf;
using test::urlOf;

const Url kTokenUrl = urlOf("https://auth.example.com/base/oauth2/v1/tokens/bearer");
// 34 characters, so its redaction is "Basic " and 28 stars.
constexpr char kBasic[] = "Basic Y2lkOmNzZWNyZXQ6c2VjcmV0MTIz";
constexpr char kForm[] = "grant_type=password&username=anna&password=p%C3%A4ss";

std::map<std::string, std::string> fieldsOf(const HttpRequest& request) {
  std::map<std::string, std::string> fields;
  for (const auto& [name, value] : request.headerFields) fields[name] = value;
  return fields;
}

class HttpRequestSenderTest : public ::testing::Test {
 protected:
  HttpRequestSenderTest() { identity_.setEnvironmentVariable("LANG", "en_US.UTF-8"); }

  std::optional<Data> sendTokenRequest(std::shared_ptr<HttpUrlResponse>* response = nullptr,
                                       ErrorRef* error = nullptr) {
    const Dictionary headers{{"Authorization", kBasic},
                             {"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"}};
    return sender_.send("RequestAccessToken", kTokenUrl, "POST", headers, bytesOf(kForm), response,
                        error);
  }

  std::string lastTransactionId() const {
    return fieldsOf(client_->requests().back())["velmor_tid"];
  }

  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  std::shared_ptr<test::FakeHttpClient> client_ = std::make_shared<test::FakeHttpClient>();
  std::vector<std::pair<std::uint64_t, std::size_t>> sleeps_;  // seconds, requests sent before
  HttpRequestSender sender_{client_, [this](std::uint64_t seconds) {
                              sleeps_.emplace_back(seconds, client_->requests().size());
                            }};
  test::RecordingLoggerDelegate log_;
};

TEST_F(HttpRequestSenderTest, DecoratesTheTransactionsRequest) {
  sendTokenRequest();
  ASSERT_EQ(client_->requests().size(), 1u);
  const HttpRequest request = client_->requests()[0];
  EXPECT_EQ(request.url, kTokenUrl);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(textOf(request.body), kForm);
  const std::string tid = lastTransactionId();
  EXPECT_EQ(fieldsOf(request),
            (std::map<std::string, std::string>{
                {"Authorization", kBasic},
                {"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"},
                {"User-Agent", HttpUserAgent::text()},
                {"Accept-Language", "en-US"},
                {"Cache-Control", "no-cache, no-store"},
                {"velmor_tid", tid}}));
  EXPECT_EQ(request.headerFields.size(), 6u);
}

TEST_F(HttpRequestSenderTest, TransactionIdIsAFreshLowerCaseVersion4Uuid) {
  const std::regex uuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::vector<std::string> ids;
  for (int i = 0; i < 3; ++i) {
    sendTokenRequest();
    ids.push_back(lastTransactionId());
    EXPECT_TRUE(std::regex_match(ids.back(), uuid)) << ids.back();
  }
  EXPECT_NE(ids[0], ids[1]);
  EXPECT_NE(ids[1], ids[2]);
  EXPECT_NE(ids[0], ids[2]);
}

TEST_F(HttpRequestSenderTest, LibraryHeadersReplaceTheTransactionsWhateverTheirCase) {
  sender_.send("X", kTokenUrl, "PUT", Dictionary{{"user-agent", "mine"}, {"CACHE-CONTROL", "max"}},
               Data(), nullptr, nullptr);
  auto fields = fieldsOf(client_->requests().back());
  EXPECT_EQ(fields.count("user-agent") + fields.count("CACHE-CONTROL"), 0u);
  EXPECT_EQ(fields["User-Agent"], HttpUserAgent::text());
  EXPECT_EQ(fields["Cache-Control"], "no-cache, no-store");
  EXPECT_EQ(client_->requests().back().method, "PUT");
}

TEST_F(HttpRequestSenderTest, AcceptLanguageFollowsTheLocaleVariables) {
  struct Case {
    std::optional<std::string> all, messages, lang;
    std::string language;
  } cases[] = {
      {"de_DE.UTF-8", "fr_FR.UTF-8", "it_IT", "de-DE"},
      {"", "pt_BR.UTF-8@x", "it_IT", "pt-BR"},
      {std::nullopt, std::nullopt, "en_GB.UTF-8", "en-GB"},
      {std::nullopt, std::nullopt, "sr_RS@latin", "sr-RS"},
      {std::nullopt, std::nullopt, "ja", "ja"},
      {std::nullopt, std::nullopt, "C.UTF-8", "en-US"},
      {"POSIX", std::nullopt, "de_DE", "en-US"},
      {std::nullopt, std::nullopt, "", "en-US"},
      {std::nullopt, std::nullopt, std::nullopt, "en-US"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.language);
    identity_.setEnvironmentVariable("LC_ALL", c.all);
    identity_.setEnvironmentVariable("LC_MESSAGES", c.messages);
    identity_.setEnvironmentVariable("LANG", c.lang);
    sendTokenRequest();
    EXPECT_EQ(fieldsOf(client_->requests().back())["Accept-Language"], c.language);
  }
}

TEST_F(HttpRequestSenderTest, WaitsTheSimulatedDelayBeforeSending) {
  sendTokenRequest();
  sender_.setSimulatedNetworkDelayInterval(3);
  sendTokenRequest();
  EXPECT_EQ(sleeps_, (std::vector<std::pair<std::uint64_t, std::size_t>>{{0, 0}, {3, 1}}));
}

TEST_F(HttpRequestSenderTest, HandsBackWhatTheClientReturned) {
  client_->enqueue({401, {{"Content-Type", "application/json"}}, R"({"error":"invalid_grant"})"});
  std::shared_ptr<HttpUrlResponse> response;
  ErrorRef error = std::make_shared<Error>("stale", 1);
  std::optional<Data> body = sendTokenRequest(&response, &error);
  EXPECT_EQ(body, bytesOf(R"({"error":"invalid_grant"})"));
  ASSERT_TRUE(response);
  EXPECT_EQ(response->statusCode(), 401);
  EXPECT_FALSE(error);

  client_->setTransportFailure(-1012, "{}");
  body = sendTokenRequest(&response, &error);
  EXPECT_FALSE(response);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), -1012);
  EXPECT_EQ(body, bytesOf("{}"));

  client_->setTransportFailure(-1004);
  EXPECT_EQ(sendTokenRequest(), std::nullopt);
}

std::string requestLogAtInfo(const std::string& tid) {
  return "INFO\tSending 'RequestAccessToken' request:\r\n"
         "URL: 'https://auth.example.com/base/oauth2/v1/tokens/bearer'\r\n"
         "Verb: 'POST'\r\n"
         "Headers: {\n"
         "    \"Accept-Language\" = \"en-US\";\n"
         "    \"Authorization (Redacted)\" = \"Basic ****************************\";\n"
         "    \"Cache-Control\" = \"no-cache, no-store\";\n"
         "    \"Content-Type\" = \"application/x-www-form-urlencoded;charset=UTF-8\";\n"
         "    \"User-Agent\" = \"" +
         HttpUserAgent::text() +
         "\";\n"
         "    \"velmor_tid\" = \"" +
         tid +
         "\";\n"
         "}\r\n"
         "Content (Redacted): '****************************************************'\r\n";
}

TEST_F(HttpRequestSenderTest, InfoLogsRedactSecrets) {
  client_->enqueue(
      {200, {{"Content-Type", "application/json"}}, "{\"a\":\"\xC3\xA9\xF0\x9F\x98\x80\"}"});
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log_);
  sendTokenRequest();
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].logLevel, VelmorAuthorizationLogger::kLevelInfo);
  EXPECT_EQ(entries[0].message, requestLogAtInfo(lastTransactionId()));
  // Stars count UTF-16 units: "é" is one, the emoji two.
  EXPECT_EQ(entries[1].message,
            "INFO\tReceived 'RequestAccessToken' response:\r\n"
            "Error: '(null)'\r\n"
            "URL: 'https://auth.example.com/base/oauth2/v1/tokens/bearer'\r\n"
            "Status code: 200\r\n"
            "Headers: '{\n    \"Content-Type\" = \"application/json\";\n}'\r\n"
            "Content (Redacted): '***********'\r\n");
  for (const auto& entry : entries) {
    EXPECT_EQ(entry.message.find("Y2lk"), std::string::npos);
    EXPECT_EQ(entry.message.find("anna"), std::string::npos);
  }
}

TEST_F(HttpRequestSenderTest, SensitiveLogsShowEverything) {
  client_->enqueue({200, {{"Content-Type", "application/json"}}, "{\"access_token\":\"t\"}"});
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelSensitive, &log_);
  sendTokenRequest();
  const auto entries = log_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].logLevel, VelmorAuthorizationLogger::kLevelSensitive);
  const std::string headers =
      "{\n"
      "    \"Accept-Language\" = \"en-US\";\n"
      "    Authorization = \"" +
      std::string(kBasic) +
      "\";\n"
      "    \"Cache-Control\" = \"no-cache, no-store\";\n"
      "    \"Content-Type\" = "
      "\"application/x-www-form-urlencoded;charset=UTF-8\";\n"
      "    \"User-Agent\" = \"" +
      HttpUserAgent::text() + "\";\n    \"velmor_tid\" = \"" + lastTransactionId() + "\";\n}";
  EXPECT_EQ(entries[0].message,
            "SENSITIVE\tSending 'RequestAccessToken' request:\r\n"
            "URL: 'https://auth.example.com/base/oauth2/v1/tokens/bearer'\r\n"
            "Verb: 'POST'\r\nHeaders: " +
                headers + "\r\nContent: '" + kForm + "'\r\n");
  EXPECT_EQ(entries[1].message,
            "SENSITIVE\tReceived 'RequestAccessToken' response:\r\n"
            "Error: '(null)'\r\n"
            "URL: 'https://auth.example.com/base/oauth2/v1/tokens/bearer'\r\n"
            "Status code: 200\r\n"
            "Headers: '{\n    \"Content-Type\" = \"application/json\";\n}'\r\n"
            "Content: '{\"access_token\":\"t\"}'\r\n");
}

TEST_F(HttpRequestSenderTest, TransportFailureLogShowsTheFailingUrlAndNoStatus) {
  client_->setTransportFailure(-1001);
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log_);
  sendTokenRequest();
  ASSERT_EQ(log_.entries().size(), 2u);
  EXPECT_EQ(log_.entries()[1].message,
            "INFO\tReceived 'RequestAccessToken' response:\r\n"
            "Error: 'Error Domain=NSURLErrorDomain Code=-1001 \"The operation couldn’t be "
            "completed. (NSURLErrorDomain error -1001.)\" UserInfo={\n"
            "    NSErrorFailingURLKey = "
            "\"https://auth.example.com/base/oauth2/v1/tokens/bearer\";\n}'\r\n"
            "URL: 'https://auth.example.com/base/oauth2/v1/tokens/bearer'\r\n"
            "Status code: (null)\r\n"
            "Headers: '(null)'\r\n"
            "Content (Redacted): ''\r\n");
}

TEST_F(HttpRequestSenderTest, NothingIsLoggedBelowInfo) {
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &log_);
  sendTokenRequest();
  EXPECT_TRUE(log_.entries().empty());
}

TEST(HttpRequestSenderRedactionTest, AuthorizationBecomesBasicAndStarsOfItsLength) {
  struct Case {
    std::string authorization, redacted;
  } cases[] = {
      {"Bearer abcdefgh", "Basic *********"},
      {"Basic x", "Basic *"},
      {"Basic ", "Basic "},
      {"abc", "Bas"},
      {"", ""},
      {"Bearer \xC3\xA9", "Basic **"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.authorization);
    EXPECT_EQ(HttpRequestSender::redactAuthorizationHeader(
                  Dictionary{{"Authorization", c.authorization}, {"Accept", "x"}}),
              (Dictionary{{"Authorization (Redacted)", c.redacted}, {"Accept", "x"}}));
  }
  const Dictionary without{{"authorization", "Bearer t"}};
  EXPECT_EQ(HttpRequestSender::redactAuthorizationHeader(without), without);
}

}  // namespace
}  // namespace velmor
