// The development server over real sockets, spoken to by the library's own
// transactions: what the server answers is what the client library reads.
#include "devserver/DevelopmentServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "storage/SecureData.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedEnvironmentVariables.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "transport/ActivateClientTransaction.h"
#include "transport/ApplicationHttpTransaction.h"
#include "transport/HttpRequestSender.h"
#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "transport/RevokeTransaction.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::devserver {
namespace {

using namespace std::chrono_literals;

std::string text(const std::optional<Data>& body) {
  return body ? std::string(body->begin(), body->end()) : std::string();
}

class DevelopmentServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    DevelopmentServerOptions options;
    options.certificateDirectory = directory_.pathOf("certificates");
    std::string error;
    server_ = DevelopmentServer::start(std::move(options), &error);
    ASSERT_TRUE(server_) << error;
    http_ = std::make_shared<CurlHttpClient>(
        CurlHttpClientOptions{60s, server_->certificateFiles()->caCertificate, 1024 * 1024});
    sender_ = std::make_unique<HttpRequestSender>(http_);
    base_ = *Url::withString(server_->baseUrl());
  }

  void TearDown() override {
    // Kept connections go first, or stopping waits for them to idle out.
    sender_.reset();
    http_.reset();
    server_.reset();
  }

  ErrorRef run(HttpTransaction& transaction) {
    std::optional<Url> url;
    Dictionary headers;
    std::string verb;
    const Data body = transaction.generateRequest(*base_, &url, &headers, &verb);
    std::shared_ptr<HttpUrlResponse> response;
    ErrorRef transportError;
    const std::optional<Data> answer =
        sender_->send("test", *url, verb, headers, body, &response, &transportError);
    if (transportError) return transportError;
    return transaction.handleResponse(response, answer);
  }

  ErrorRef signIn(const std::string& username, const std::string& password,
                  std::optional<std::vector<std::string>> scopes = std::nullopt) {
    RequestAccessTokenTransaction transaction(record_);
    transaction.setUsername(username);
    transaction.setPassword(password);
    transaction.setScopes(std::move(scopes));
    return run(transaction);
  }

  HttpResult get(const std::string& url, HttpUrlResponse::HeaderFields fields = {}) {
    HttpRequest request(*Url::withString(url));
    request.headerFields = std::move(fields);
    return http_->send(request);
  }

  HttpResult callResource() {
    return get(server_->baseUrl() + "api/v1/me",
               {{"Authorization", "Bearer " + record_->accessToken().value_or("")}});
  }

  test::ScopedEnvironmentVariables noProxy_{{"no_proxy", "*"}};
  test::TemporaryDirectory directory_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  test::ScopedSecretStore storeScope_{std::make_shared<MemorySecretStore>()};
  std::unique_ptr<DevelopmentServer> server_;
  std::shared_ptr<CurlHttpClient> http_;
  std::unique_ptr<HttpRequestSender> sender_;
  std::optional<Url> base_;
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("127.0.0.1", "velmor-dev-app", Data(32, 7), 0);
};

TEST_F(DevelopmentServerTest, ServesTheLibrarysExchangesOverHttps) {
  ASSERT_EQ(server_->baseUrl().rfind("https://127.0.0.1:", 0), 0u);
  ActivateClientTransaction activate(record_);
  ASSERT_EQ(run(activate), nullptr);
  ASSERT_TRUE(record_->clientId());

  ASSERT_EQ(signIn("alice", "wonderland", std::vector<std::string>{"profile", "email"}), nullptr);
  const std::optional<std::string> firstRefresh = record_->refreshToken();
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(),
            *record_->refreshTokenValidStartDateTime() + std::chrono::seconds(14 * 24 * 3600));
  HttpResult resource = callResource();
  ASSERT_TRUE(resource.response);
  EXPECT_EQ(resource.response->statusCode(), 200);
  EXPECT_NE(text(resource.body).find("\"username\":\"alice\""), std::string::npos);

  RefreshAccessTokenTransaction refresh(record_);
  ASSERT_EQ(run(refresh), nullptr);
  EXPECT_NE(record_->refreshToken(), firstRefresh);
  EXPECT_EQ(refresh.scopes(), (std::vector<std::string>{"profile", "email"}));

  const std::optional<std::string> accessToken = record_->accessToken();
  RevokeTransaction revoke(record_);
  ASSERT_EQ(run(revoke), nullptr);
  resource = callResource();
  ASSERT_TRUE(resource.response);
  ASSERT_TRUE(ApplicationHttpTransaction::hasAuthorizationFailureResponse(resource.response));
  ApplicationHttpTransaction application(record_);
  const ErrorRef refused = application.handleAuthorizationFailureResponse(resource.response);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->domain(), AuthorizationServerErrorDomain);
  EXPECT_EQ(refused->code(), kServerErrorInvalidToken);
  EXPECT_EQ(refused->description(),
            "Server error: 'invalid_token', Description: 'The access token was revoked'");
  // The library forgot the refused token.
  EXPECT_FALSE(record_->accessToken());
  EXPECT_TRUE(accessToken);
}

TEST(DevelopmentServerPlainHttpTest, ServesPlainHttpOnRequest) {
  test::ScopedEnvironmentVariables noProxy{{"no_proxy", "*"}};
  DevelopmentServerOptions options;
  options.tls = false;
  std::string error;
  std::unique_ptr<DevelopmentServer> server = DevelopmentServer::start(options, &error);
  ASSERT_TRUE(server) << error;
  EXPECT_EQ(server->baseUrl(), "http://127.0.0.1:" + std::to_string(server->port()) + "/");
  EXPECT_FALSE(server->certificateFiles());
  HttpResult result;
  {
    CurlHttpClient http;
    result = http.send(HttpRequest(*Url::withString(server->baseUrl() + "api/v1/me")));
  }
  ASSERT_TRUE(result.response);
  EXPECT_EQ(result.response->statusCode(), 401);
  EXPECT_EQ(result.response->valueForHTTPHeaderField("WWW-Authenticate"),
            "Bearer realm=\"velmor-dev\"");
}

TEST(DevelopmentServerPortTest, ReportsAPortInUse) {
  DevelopmentServerOptions first;
  first.tls = false;
  std::string error;
  std::unique_ptr<DevelopmentServer> server = DevelopmentServer::start(first, &error);
  ASSERT_TRUE(server) << error;
  DevelopmentServerOptions second;
  second.tls = false;
  second.port = server->port();
  EXPECT_FALSE(DevelopmentServer::start(second, &error));
  EXPECT_EQ(error, "cannot listen on 127.0.0.1 port " + std::to_string(server->port()));
}

}  // namespace
}  // namespace velmor::devserver
