// Every server transaction over a real HTTPS connection: what goes out on
// the wire, byte for byte, and how the answer that comes back is judged and
// stored.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "storage/SecureData.h"
#include "testing/FakeHttpClient.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/RawTestServer.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "transport/ActivateClientTransaction.h"
#include "transport/HttpRequestSender.h"
#include "transport/HttpUserAgent.h"
#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "transport/RevokeTransaction.h"
#include "transport/UpdateClientContextTransaction.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::HeaderList;
using test::RecordedRequest;
using test::ScriptedResponse;
using Date = SecureData::Date;
using MakeTransaction =
    std::function<std::unique_ptr<HttpTransaction>(std::shared_ptr<SecureData>)>;

constexpr char kFormType[] = "application/x-www-form-urlencoded;charset=UTF-8";
constexpr char kJsonType[] = "application/json;charset=UTF-8";
// "cid:csecret".
constexpr char kBasic[] = "Basic Y2lkOmNzZWNyZXQ=";
constexpr char kTokenAnswer[] =
    R"({"access_token":"a2","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"r2","x_refresh_token_expires_in":86400,"scope":"read write"})";
constexpr Date kOldStart{std::chrono::seconds(1700000000)};
constexpr Date kOldEnd{std::chrono::seconds(1700003600)};

ScriptedResponse jsonAnswer(int status, std::string body) {
  return {status, {{"Content-Type", kJsonType}}, std::move(body), std::nullopt, 0ms};
}

// "server 4", "network 6", "client 3", "NSURLErrorDomain -1005" or "none".
std::string outcomeOf(const ErrorRef& error) {
  if (!error) return "none";
  const std::string& domain = error->domain();
  const std::string name = domain == AuthorizationServerErrorDomain    ? "server"
                           : domain == NetworkCommunicationErrorDomain ? "network"
                           : domain == AuthorizationClientErrorDomain  ? "client"
                                                                       : domain;
  return name + " " + std::to_string(error->code());
}

Data fixedKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
  return key;
}

// One transaction run the way the client runs it: generate, send through
// the decorating sender, judge.
struct Exchange {
  ErrorRef transportError;
  ErrorRef outcome;
  std::optional<Data> body;
};

class TransactionWireTest : public ::testing::Test {
 protected:
  TransactionWireTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    identity_.setEnvironmentVariable("LANG", "de_DE.UTF-8");
    identity_.setDeviceName("Anna's PC");
    identity_.setHardwareModel("X1");
    identity_.setUserFullName("Anna");
  }

  void fillRecord() {
    record_->setClientId("cid");
    record_->setClientSecret("csecret");
    record_->setAccessToken("old-access");
    record_->setAccessTokenValidStartDateTime(kOldStart);
    record_->setAccessTokenValidEndDateTime(kOldEnd);
    record_->setRefreshToken("old/refresh");
    record_->setRefreshTokenValidStartDateTime(kOldStart);
    record_->setRefreshTokenValidEndDateTime(kOldEnd);
  }

  Exchange run(HttpTransaction& transaction, const std::string& base,
               HttpRequestSender* sender = nullptr) {
    std::optional<Url> url;
    Dictionary headers;
    std::string verb;
    const Data body = transaction.generateRequest(*Url::withString(base), &url, &headers, &verb);
    Exchange exchange;
    std::shared_ptr<HttpUrlResponse> response;
    exchange.body =
        (sender ? *sender : sender_)
            .send("wire test", *url, verb, headers, body, &response, &exchange.transportError);
    if (!exchange.transportError) {
      exchange.outcome = transaction.handleResponse(response, exchange.body);
    }
    return exchange;
  }

  std::string base(bool trailingSlash) const {
    return server_.url(trailingSlash ? "/api/" : "/api");
  }

  // The request's fields other than the transaction id, which is checked
  // on its own, and the framing fields libcurl adds.
  HeaderList fieldsOf(const std::string& contentLength, bool basic) const {
    HeaderList fields{{"Accept", "*/*"}, {"Accept-Language", "de-DE"}};
    if (basic) fields.emplace_back("Authorization", kBasic);
    fields.insert(fields.end(), {{"Cache-Control", "no-cache, no-store"},
                                 {"Content-Length", contentLength},
                                 {"Content-Type", kFormType},
                                 {"Host", "127.0.0.1:" + std::to_string(server_.port())},
                                 {"User-Agent", HttpUserAgent::text()}});
    return fields;
  }

  static HeaderList withoutTransactionId(HeaderList fields) {
    std::erase_if(fields, [](const auto& field) { return field.first == "velmor_tid"; });
    return fields;
  }

  test::TemporaryDirectory directory_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  test::ScopedSecretStore storeScope_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("127.0.0.1", "apptoken", fixedKey(), 0);
  // Declared before the client, so the client and its kept connections go
  // first.
  test::TestAuthorizationServer server_;
  std::shared_ptr<CurlHttpClient> client_ = std::make_shared<CurlHttpClient>(
      CurlHttpClientOptions{60s, server_.caFile(), 4 * 1024 * 1024});
  HttpRequestSender sender_{client_};
};

template <typename T>
MakeTransaction maker(std::function<void(T&)> configure = nullptr) {
  return [configure](std::shared_ptr<SecureData> record) {
    auto transaction = std::make_unique<T>(std::move(record));
    if (configure) configure(*transaction);
    return transaction;
  };
}

std::string clientContextForm() {
  return "x_client_context=Device%20Name%3A%20%22Anna's%20PC%22%20%7C%20Model%3A%20%22X1%22"
         "%20%7C%20User%3A%20%22Anna%22";
}

void expectNewTokens(SecureData& record) {
  const std::optional<Date> start = record.accessTokenValidStartDateTime();
  ASSERT_TRUE(start);
  EXPECT_GT(*start, kOldEnd);
  EXPECT_EQ(record.accessToken(), "a2");
  EXPECT_EQ(record.accessTokenValidEndDateTime(), *start + 3600s);
  EXPECT_EQ(record.refreshToken(), "r2");
  EXPECT_EQ(record.refreshTokenValidStartDateTime(), start);
  EXPECT_EQ(record.refreshTokenValidEndDateTime(), *start + 86400s);
  EXPECT_EQ(record.clientId(), "cid");
}

void expectRecordUnchanged(SecureData& record) {
  EXPECT_EQ(record.clientId(), "cid");
  EXPECT_EQ(record.accessToken(), "old-access");
  EXPECT_EQ(record.accessTokenValidEndDateTime(), kOldEnd);
  EXPECT_EQ(record.refreshToken(), "old/refresh");
  EXPECT_EQ(record.refreshTokenValidEndDateTime(), kOldEnd);
}

TEST_F(TransactionWireTest, EachTransactionSendsItsRequestAndStoresTheAnswer) {
  struct Case {
    std::string name;
    MakeTransaction make;
    std::string method, path, body;
    bool basic;
    ScriptedResponse answer;
    std::function<void(SecureData&)> check;
  } cases[] = {
      {"activate", maker<ActivateClientTransaction>(), "POST", "oauth2/v1/clients",
       "x_app_token=apptoken&" + clientContextForm(), false,
       jsonAnswer(200, R"({"client_id":"new-id","client_secret":"new-secret"})"),
       [](SecureData& record) {
         EXPECT_EQ(record.clientId(), "new-id");
         EXPECT_EQ(record.clientSecret(), "new-secret");
         EXPECT_EQ(record.accessToken(), "old-access");
       }},
      {"update client context",
       maker<UpdateClientContextTransaction>([](UpdateClientContextTransaction& t) {
         t.setAuthorizationClientContext("Device Name: \"B|x\"");
       }),
       "PUT", "oauth2/v1/clients", "x_client_context=Device%20Name%3A%20%22B%7Cx%22", true,
       ScriptedResponse{204, {}, "", std::nullopt, 0ms}, expectRecordUnchanged},
      {"password grant", maker<RequestAccessTokenTransaction>([](RequestAccessTokenTransaction& t) {
         t.setUsername("anna@example.com");
         t.setPassword("p&ss w=rd");
         t.setScopes(RequestAccessTokenTransaction::Scopes{"read", "write"});
         t.setRealmId("r1");
       }),
       "POST", "oauth2/v1/tokens/bearer",
       "grant_type=password&username=anna%40example.com&password=p%26ss%20w%3Drd"
       "&scope=read%20write&x_realm_id=r1",
       true, jsonAnswer(200, kTokenAnswer), expectNewTokens},
      {"client-credentials grant",
       maker<RequestAccessTokenTransaction>(
           [](RequestAccessTokenTransaction& t) { t.setNamespaceId("n/1"); }),
       "POST", "oauth2/v1/tokens/bearer", "grant_type=client_credentials&x_namespace_id=n%2F1",
       true, jsonAnswer(200, kTokenAnswer), expectNewTokens},
      {"refresh", maker<RefreshAccessTokenTransaction>(), "POST", "oauth2/v1/tokens/bearer",
       "grant_type=refresh_token&refresh_token=old%2Frefresh", true, jsonAnswer(200, kTokenAnswer),
       expectNewTokens},
      {"authorization-code grant",
       maker<RequestAccessTokenFromAuthCodeTransaction>(
           [](RequestAccessTokenFromAuthCodeTransaction& t) {
             t.setAuthorizationCode("c0de/x");
             t.setRedirectUrl(*Url::withString("com.example.app://done"));
           }),
       "POST", "oauth2/v1/tokens/bearer",
       "grant_type=authorization_code&code=c0de/x&redirect_uri=com.example.app%3A%2F%2Fdone", true,
       jsonAnswer(200, kTokenAnswer), expectNewTokens},
      {"revoke", maker<RevokeTransaction>(), "POST", "oauth2/v1/tokens/revoke",
       "token=old%2Frefresh", true, ScriptedResponse{200, {}, "", std::nullopt, 0ms},
       expectRecordUnchanged},
  };
  const std::regex uuid("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");
  std::set<std::string> transactionIds;
  std::size_t sent = server_.requests().size();
  for (const Case& c : cases) {
    for (bool trailingSlash : {true, false}) {
      SCOPED_TRACE(c.name + (trailingSlash ? " under \"/api/\"" : " under \"/api\""));
      fillRecord();
      server_.enqueue(c.answer);
      std::unique_ptr<HttpTransaction> transaction = c.make(record_);
      const Exchange exchange = run(*transaction, base(trailingSlash));
      EXPECT_EQ(outcomeOf(exchange.transportError), "none");
      EXPECT_EQ(outcomeOf(exchange.outcome), "none");
      c.check(*record_);

      const std::vector<RecordedRequest> requests = server_.requests();
      ASSERT_EQ(requests.size(), sent + 1);
      const RecordedRequest& request = requests.back();
      sent = requests.size();
      EXPECT_EQ(request.method, c.method);
      EXPECT_EQ(request.target, (trailingSlash ? "/api/" : "/") + c.path);
      EXPECT_EQ(request.body, c.body);
      EXPECT_EQ(withoutTransactionId(request.headers),
                fieldsOf(std::to_string(c.body.size()), c.basic));
      const std::string id = request.header("velmor_tid").value_or("");
      EXPECT_TRUE(std::regex_match(id, uuid)) << id;
      EXPECT_TRUE(transactionIds.insert(id).second) << id << " sent twice";
    }
  }
}

TEST_F(TransactionWireTest, RefusalsAreJudgedAndClearWhatTheServerRejected) {
  struct Case {
    ScriptedResponse answer;
    std::string outcome;
    std::optional<std::string> serverError;
    bool clientKept, tokensKept;
  } cases[] = {
      {jsonAnswer(400, R"({"error":"invalid_grant","error_description":"expired"})"), "server 4",
       "invalid_grant", true, false},
      {jsonAnswer(401, R"({"error":"invalid_client"})"), "server 3", "invalid_client", false,
       false},
      {jsonAnswer(400, R"({"error":"unauthorized_client"})"), "server 10", "unauthorized_client",
       false, false},
      {jsonAnswer(400, R"({"error":"invalid_scope"})"), "server 6", "invalid_scope", true, true},
      // A proxy's or load balancer's page rather than the server's answer.
      {{503,
        {{"Content-Type", "text/html"}},
        "<html><body>Unavailable</body></html>",
        std::nullopt,
        0ms},
       "server 503",
       std::nullopt,
       true,
       true},
      {jsonAnswer(200, R"({"access_token":"a2","token_type":"mac","expires_in":1})"), "client 3",
       std::nullopt, true, true},
      {jsonAnswer(200, R"({"access_token":"a2")"), "network 6", std::nullopt, true, true},
      {{200, {{"Content-Type", "text/plain"}}, kTokenAnswer, std::nullopt, 0ms},
       "network 3",
       std::nullopt,
       true,
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome + " " + c.answer.body);
    fillRecord();
    server_.enqueue(c.answer);
    RefreshAccessTokenTransaction transaction(record_);
    const Exchange exchange = run(transaction, base(true));
    ASSERT_EQ(outcomeOf(exchange.transportError), "none");
    EXPECT_EQ(outcomeOf(exchange.outcome), c.outcome);
    auto* error = dynamic_cast<VelmorAuthorizationError*>(exchange.outcome.get());
    ASSERT_NE(error, nullptr);
    if (c.serverError) {
      ASSERT_NE(error->serverErrorResponse(), nullptr);
      EXPECT_EQ(error->serverErrorResponse()->error(), c.serverError);
    }
    if (c.answer.status == 503) {
      ASSERT_NE(error->httpUrlResponse(), nullptr);
      EXPECT_EQ(error->httpUrlResponse()->statusCode(), 503);
      EXPECT_EQ(error->userInfo()->find("Content-Type")->description(), "text/html");
    }
    EXPECT_EQ(record_->hasClientId(), c.clientKept);
    EXPECT_EQ(record_->hasClientSecret(), c.clientKept);
    EXPECT_EQ(record_->hasAccessToken(), c.tokensKept);
    EXPECT_EQ(record_->hasRefreshToken(), c.tokensKept);
    EXPECT_EQ(record_->accessTokenValidEndDateTime().has_value(), c.tokensKept);
    EXPECT_EQ(record_->refreshTokenValidEndDateTime().has_value(), c.tokensKept);
    if (c.tokensKept) expectRecordUnchanged(*record_);
  }
}

TEST_F(TransactionWireTest, AnAnswerCutShortOfItsDeclaredLengthIsATransportError) {
  fillRecord();
  ScriptedResponse cut = jsonAnswer(200, kTokenAnswer);
  cut.declaredContentLength = sizeof(kTokenAnswer) + 40;
  server_.enqueue(cut);
  RequestAccessTokenTransaction transaction(record_);
  const Exchange exchange = run(transaction, base(true));
  EXPECT_EQ(outcomeOf(exchange.transportError), "NSURLErrorDomain -1005");
  expectRecordUnchanged(*record_);
}

TEST_F(TransactionWireTest, OnlyTheDeclaredLengthOfALongerAnswerIsRead) {
  fillRecord();
  // Plain HTTP: the test server cannot send a length shorter than its body.
  test::RawTestServer raw;
  const std::string body = kTokenAnswer;
  raw.enqueue(
      {"HTTP/1.1 200 OK\r\nContent-Type: application/json;charset=UTF-8\r\n"
       "Content-Length: 20\r\n\r\n" +
       body});
  HttpRequestSender sender(std::make_shared<CurlHttpClient>());
  RequestAccessTokenTransaction transaction(record_);
  const Exchange exchange = run(transaction, raw.url("/api/"), &sender);
  ASSERT_EQ(outcomeOf(exchange.transportError), "none");
  EXPECT_EQ(exchange.body, Data(body.begin(), body.begin() + 20));
  EXPECT_EQ(outcomeOf(exchange.outcome), "network 6");
  expectRecordUnchanged(*record_);
  ASSERT_EQ(raw.requests().size(), 1u);
  EXPECT_TRUE(raw.requests()[0].starts_with("POST /api/oauth2/v1/tokens/bearer HTTP/1.1\r\n"));
}

TEST_F(TransactionWireTest, AClosedConnectionComesBackFromTheSenderAsTransportError) {
  fillRecord();
  test::RawTestServer raw;  // closes every connection it has no answer for
  HttpRequestSender sender(std::make_shared<CurlHttpClient>());
  RevokeTransaction transaction(record_);
  std::optional<Url> url;
  Dictionary headers;
  std::string verb;
  const Data body =
      transaction.generateRequest(*Url::withString(raw.url("/api/")), &url, &headers, &verb);
  std::shared_ptr<HttpUrlResponse> response;
  ErrorRef error;
  sender.send("revoke", *url, verb, headers, body, &response, &error);
  EXPECT_EQ(outcomeOf(error), "NSURLErrorDomain -1005");
  EXPECT_EQ(response, nullptr);
  EXPECT_EQ(error->userInfo()->find("NSErrorFailingURLKey")->description(),
            raw.url("/api/oauth2/v1/tokens/revoke"));
  EXPECT_EQ(raw.requests().size(), 1u);
}

// When the platform gets a 401 without a challenge it can answer, it hands
// back the body with no response at all: the body is read as the server's
// error.
TEST_F(TransactionWireTest, AnAbsentResponseIsJudgedFromItsBody) {
  struct Case {
    MakeTransaction make;
    std::string body, outcome;
    bool clientKept, tokensKept;
  } cases[] = {
      {maker<RefreshAccessTokenTransaction>(), R"({"error":"invalid_grant"})", "server 4", true,
       false},
      {maker<RequestAccessTokenTransaction>(), R"({"error":"invalid_client"})", "server 3", false,
       false},
      {maker<UpdateClientContextTransaction>(), R"({"error":"unauthorized_client"})", "server 10",
       false, false},
      {maker<RevokeTransaction>(), R"({"error":"invalid_grant"})", "server 4", true, false},
      {maker<RevokeTransaction>(), "not json", "network 6", true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    fillRecord();
    auto fake = std::make_shared<test::FakeHttpClient>();
    fake->setTransportFailure(-1012, c.body);
    HttpRequestSender sender(fake);
    std::unique_ptr<HttpTransaction> transaction = c.make(record_);
    std::optional<Url> url;
    Dictionary headers;
    std::string verb;
    const Data body = transaction->generateRequest(*Url::withString("https://h.example/api/"), &url,
                                                   &headers, &verb);
    std::shared_ptr<HttpUrlResponse> response;
    ErrorRef transportError;
    const std::optional<Data> content =
        sender.send("absent", *url, verb, headers, body, &response, &transportError);
    EXPECT_EQ(outcomeOf(transportError), "NSURLErrorDomain -1012");
    ASSERT_EQ(response, nullptr);
    EXPECT_EQ(outcomeOf(transaction->handleResponse(nullptr, content)), c.outcome);
    EXPECT_EQ(record_->hasClientId(), c.clientKept);
    EXPECT_EQ(record_->hasRefreshToken(), c.tokensKept);
    EXPECT_EQ(record_->accessTokenValidStartDateTime().has_value(), c.tokensKept);
  }
}

}  // namespace
}  // namespace velmor
