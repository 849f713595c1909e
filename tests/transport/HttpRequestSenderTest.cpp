#include "transport/HttpRequestSender.h"

#include <gtest/gtest.h>

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

using Fields = std::map<std::string, std::string>;

constexpr char kUrl[] = "https://auth.example.com/oauth2/v1/tokens/bearer";
constexpr char kBasic[] = "Basic Y2lkOmNzZWNyZXQ=";           // 22 characters
constexpr char kForm[] = "username=anna&password=p%C3%A4ss";  // 32 characters

class HttpRequestSenderTest : public ::testing::Test {
 protected:
  HttpRequestSenderTest() { identity_.setEnvironmentVariable("LANG", "en_US.UTF-8"); }

  std::optional<Data> send(std::shared_ptr<HttpUrlResponse>* response = nullptr,
                           ErrorRef* error = nullptr) {
    return sender_.send("RequestAccessToken", test::urlOf(kUrl), "POST",
                        Dictionary{{"Authorization", kBasic}, {"user-agent", "mine"}},
                        test::bytesOf(kForm), response, error);
  }
  Fields fieldsOf(std::size_t request) const {
    const HttpUrlResponse::HeaderFields sent = client_->requests().at(request).headerFields;
    return Fields(sent.begin(), sent.end());
  }
  Fields lastFields() const { return fieldsOf(client_->requests().size() - 1); }

  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  std::shared_ptr<test::FakeHttpClient> client_ = std::make_shared<test::FakeHttpClient>();
  std::vector<std::pair<std::uint64_t, std::size_t>> sleeps_;  // seconds, requests sent before
  HttpRequestSender sender_{client_, [this](std::uint64_t seconds) {
                              sleeps_.emplace_back(seconds, client_->requests().size());
                            }};
  test::RecordingLoggerDelegate log_;
};

TEST_F(HttpRequestSenderTest, DecoratesEveryRequestWithAFreshTransactionId) {
  send();
  sender_.setSimulatedNetworkDelayInterval(3);
  send();
  EXPECT_EQ(sleeps_, (decltype(sleeps_){{0, 0}, {3, 1}}));
  const HttpRequest request = client_->requests().back();
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, test::bytesOf(kForm));
  Fields fields = lastFields();
  const std::string tid = fields["velmor_tid"];
  EXPECT_TRUE(std::regex_match(
      tid, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")))
      << tid;
  EXPECT_NE(tid, fieldsOf(0)["velmor_tid"]);
  EXPECT_EQ(fields, (Fields{{"Authorization", kBasic},
                            {"User-Agent", HttpUserAgent::text()},
                            {"Accept-Language", "en-US"},
                            {"Cache-Control", "no-cache, no-store"},
                            {"velmor_tid", tid}}));
}

TEST_F(HttpRequestSenderTest, AcceptLanguageFollowsTheLocaleVariables) {
  struct Case {
    std::optional<std::string> all, messages, lang;
    std::string language;
  } cases[] = {
      {"de_DE.UTF-8", "fr_FR", "it_IT", "de-DE"},
      {"", "pt_BR.UTF-8@x", "it_IT", "pt-BR"},
      {std::nullopt, std::nullopt, "sr_RS@latin", "sr-RS"},
      {std::nullopt, std::nullopt, "C.UTF-8", "en-US"},
      {"POSIX", std::nullopt, "de_DE", "en-US"},
      {std::nullopt, std::nullopt, std::nullopt, "en-US"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.language);
    identity_.setEnvironmentVariable("LC_ALL", c.all);
    identity_.setEnvironmentVariable("LC_MESSAGES", c.messages);
    identity_.setEnvironmentVariable("LANG", c.lang);
    send();
    EXPECT_EQ(lastFields()["Accept-Language"], c.language);
  }
}

TEST_F(HttpRequestSenderTest, InfoLogRedactsSecretsAndCountsUtf16Units) {
  client_->enqueue({200, {{"Content-Type", "application/json"}}, "\"\xC3\xA9\xF0\x9F\x98\x80\""});
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &log_);
  send();
  ASSERT_EQ(log_.entries().size(), 2u);
  EXPECT_EQ(log_.entries()[0].logLevel, VelmorAuthorizationLogger::kLevelInfo);
  EXPECT_EQ(log_.messages()[0],
            "INFO\tSending 'RequestAccessToken' request:\r\nURL: '" + std::string(kUrl) +
                "'\r\nVerb: 'POST'\r\nHeaders: {\n"
                "    \"Accept-Language\" = \"en-US\";\n"
                "    \"Authorization (Redacted)\" = \"Basic ****************\";\n"
                "    \"Cache-Control\" = \"no-cache, no-store\";\n"
                "    \"User-Agent\" = \"" +
                HttpUserAgent::text() + "\";\n    \"velmor_tid\" = \"" +
                lastFields()["velmor_tid"] +
                "\";\n}\r\nContent (Redacted): '********************************'\r\n");
  EXPECT_EQ(log_.messages()[1],
            "INFO\tReceived 'RequestAccessToken' response:\r\nError: '(null)'\r\nURL: '" +
                std::string(kUrl) +
                "'\r\nStatus code: 200\r\n"
                "Headers: '{\n    \"Content-Type\" = \"application/json\";\n}'\r\n"
                "Content (Redacted): '*****'\r\n");
}

TEST_F(HttpRequestSenderTest, SensitiveLogShowsSecretsAndTransportFailures) {
  client_->setTransportFailure(-1012, "{\"error\":\"invalid_client\"}");
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelSensitive, &log_);
  std::shared_ptr<HttpUrlResponse> response = test::responseOf(1);
  ErrorRef error;
  EXPECT_EQ(send(&response, &error), test::bytesOf("{\"error\":\"invalid_client\"}"));
  EXPECT_FALSE(response);
  EXPECT_EQ(error->code(), -1012);
  ASSERT_EQ(log_.entries().size(), 2u);
  EXPECT_EQ(log_.entries()[0].logLevel, VelmorAuthorizationLogger::kLevelSensitive);
  EXPECT_NE(log_.messages()[0].find("    Authorization = \"" + std::string(kBasic) + "\";\n"),
            std::string::npos);
  EXPECT_TRUE(log_.messages()[0].ends_with("\r\nContent: '" + std::string(kForm) + "'\r\n"));
  EXPECT_EQ(log_.messages()[1], "SENSITIVE\tReceived 'RequestAccessToken' response:\r\nError: '" +
                                    *error->description() + "'\r\nURL: '" + kUrl +
                                    "'\r\nStatus code: (null)\r\nHeaders: '(null)'\r\n"
                                    "Content: '{\"error\":\"invalid_client\"}'\r\n");
}

TEST(HttpRequestSenderRedactionTest, AuthorizationBecomesBasicAndStarsOfItsLength) {
  struct Case {
    std::string authorization, redacted;
  } cases[] = {
      {"Bearer abcdefgh", "Basic *********"},
      {"Bearer \xC3\xA9", "Basic **"},
      {"abc", "Bas"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(HttpRequestSender::redactAuthorizationHeader(
                  Dictionary{{"Authorization", c.authorization}, {"Accept", "x"}}),
              (Dictionary{{"Authorization (Redacted)", c.redacted}, {"Accept", "x"}}));
  }
  const Dictionary without{{"authorization", "Bearer t"}};
  EXPECT_EQ(HttpRequestSender::redactAuthorizationHeader(without), without);
}

}  // namespace
}  // namespace velmor
