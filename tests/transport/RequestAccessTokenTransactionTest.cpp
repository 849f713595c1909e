#include "transport/RequestAccessTokenTransaction.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"
#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::bytesOf;
using test::outcomeOf;
using Scopes = RequestAccessTokenTransaction::Scopes;
using Optional = std::optional<std::string>;

class RequestAccessTokenTransactionTest : public test::TransactionTest {
 protected:
  RequestAccessTokenTransactionTest() { fillRecord(); }

  ErrorRef handle(const std::string& body) {
    return transaction_.handleResponse(test::jsonResponseOf(200), bytesOf(body));
  }

  RequestAccessTokenTransaction transaction_{record_};
};

TEST_F(RequestAccessTokenTransactionTest, BuildsThePasswordOrClientCredentialsForm) {
  struct Case {
    Optional username;
    std::optional<Scopes> scopes;
    Optional realm, space;
    std::string body;
  } cases[] = {
      {"u", std::nullopt, std::nullopt, std::nullopt, "grant_type=password&username=u&password="},
      {"a b@c", Scopes{"a", "b"}, "r 1", "n&2",
       "grant_type=password&username=a%20b%40c&password=&scope=a%20b&x_realm_id=r%201"
       "&x_namespace_id=n%262"},
      {std::nullopt, Scopes{}, "", "n", "grant_type=client_credentials&scope=&x_namespace_id=n"},
      {std::nullopt, Scopes{"\na ", "b\t"}, std::nullopt, "",
       "grant_type=client_credentials&scope=a%20%20b"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    RequestAccessTokenTransaction transaction(record_);
    transaction.setUsername(c.username);
    transaction.setScopes(c.scopes);
    transaction.setRealmId(c.realm);
    transaction.setNamespaceId(c.space);
    EXPECT_EQ(test::generate(transaction).body, c.body);
  }
  transaction_.setUsername("u");
  transaction_.setPassword("p&w=1'");
  const test::GeneratedRequest request = test::generate(transaction_, "https://h.example/base");
  EXPECT_EQ(request.url->absoluteString(), "https://h.example/oauth2/v1/tokens/bearer");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::formHeaders());
  EXPECT_EQ(request.body, "grant_type=password&username=u&password=p%26w%3D1'");
}

TEST_F(RequestAccessTokenTransactionTest, RefreshAndCodeExchangeBuildTheirOwnForms) {
  record_->setRefreshToken("r/t+1");
  RefreshAccessTokenTransaction refresh(record_);
  refresh.setUsername("ignored");
  refresh.setRealmId("ignored");
  refresh.setScopes(Scopes{"a", "b"});
  test::GeneratedRequest request = test::generate(refresh);
  EXPECT_EQ(request.body, "grant_type=refresh_token&refresh_token=r%2Ft%2B1&scope=a%20b");
  EXPECT_EQ(request.url->absoluteString(), "https://auth.example.com/base/oauth2/v1/tokens/bearer");
  EXPECT_EQ(request.headers, test::formHeaders());

  RequestAccessTokenFromAuthCodeTransaction exchange(record_);
  exchange.setAuthorizationCode("a/b c&d");
  exchange.setRedirectUrl(test::urlOf("com.example.app://done?x=1"));
  exchange.setScopes(Scopes{"ignored"});
  request = test::generate(exchange);
  EXPECT_EQ(request.body,
            "grant_type=authorization_code&code=a/b c&d&redirect_uri=com.example.app%3A%2F%2Fdone"
            "%3Fx%3D1");
  EXPECT_EQ(request.headers, test::formHeaders());
  // A verifier handed in by the application is escaped like any value.
  exchange.setCodeVerifier("v~1 &=");
  EXPECT_EQ(test::generate(exchange).body,
            "grant_type=authorization_code&code=a/b c&d&redirect_uri=com.example.app%3A%2F%2Fdone"
            "%3Fx%3D1&code_verifier=v~1%20%26%3D");
}

TEST_F(RequestAccessTokenTransactionTest, StoresTokensWithPeriodsFromOneMoment) {
  const Date before = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  ASSERT_EQ(outcomeOf(handle(R"({"access_token":"a2","token_type":"Bearer","expires_in":3600,)"
                             R"("refresh_token":"r2","x_refresh_token_expires_in":"86400",)"
                             R"("scope":"read  write"})")),
            "none");
  const Date start = *record_->accessTokenValidStartDateTime();
  EXPECT_GE(start, before);
  EXPECT_LE(start, std::chrono::system_clock::now());
  EXPECT_EQ(record_->accessToken(), "a2");
  EXPECT_EQ(record_->accessTokenValidEndDateTime(), start + 3600s);
  EXPECT_EQ(record_->refreshToken(), "r2");
  EXPECT_EQ(record_->refreshTokenValidStartDateTime(), start);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), start + 86400s);
  EXPECT_EQ(transaction_.scopes(), (Scopes{"read", "", "write"}));
}

TEST_F(RequestAccessTokenTransactionTest, WithoutNewRefreshTokenTheOldOneStays) {
  transaction_.setScopes(Scopes{"asked"});
  ASSERT_EQ(outcomeOf(handle(R"({"access_token":"a2","expires_in":"3600"})")), "none");
  EXPECT_EQ(record_->accessTokenValidEndDateTime(),
            *record_->accessTokenValidStartDateTime() + 3600s);
  EXPECT_EQ(record_->refreshToken(), "old-refresh");
  EXPECT_EQ(record_->refreshTokenValidStartDateTime(), kOldStart);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), kOldEnd);
  EXPECT_EQ(transaction_.scopes(), Scopes{});
}

TEST_F(RequestAccessTokenTransactionTest, OverridesReplaceGrantedLifetimesUpToTheLatestDate) {
  transaction_.setAccessTokenExpirationOverride(60);
  transaction_.setRefreshTokenExpirationOverride(UINT64_MAX);
  ASSERT_EQ(outcomeOf(handle(R"({"access_token":"a","expires_in":3600,)"
                             R"("refresh_token":"r","x_refresh_token_expires_in":1})")),
            "none");
  EXPECT_EQ(record_->accessTokenValidEndDateTime(),
            *record_->accessTokenValidStartDateTime() + 60s);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(),
            std::chrono::floor<std::chrono::seconds>(Date::max()));
}

TEST_F(RequestAccessTokenTransactionTest, FirstDefectOfTheAnswerIsReportedAndNothingStored) {
  struct Case {
    std::string body, missing;
  } cases[] = {
      {R"({"token_type":"mac"})", "bearer"},
      {R"({"token_type":"BEARER","access_token":"","expires_in":1})", "access_token"},
      {R"({"access_token":5,"expires_in":1})", "access_token"},
      {R"({"access_token":"a","expires_in":"soon"})", "expires_in"},
      {R"({"access_token":"a","expires_in":0.5})", "expires_in"},
      {R"({"access_token":"a","expires_in":1,"refresh_token":""})", "refresh_token"},
      {R"({"access_token":"a","expires_in":1,"refresh_token":"r"})", "x_refresh_token_expires_in"},
      {R"([1])", "access_token"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    ErrorRef error = handle(c.body);
    ASSERT_EQ(outcomeOf(error), "client 3");
    const Value parsed = *transaction_.parseJsonData(bytesOf(c.body), nullptr);
    const Dictionary* object = parsed.dictionaryValue();
    EXPECT_EQ(error->userInfo(), (Dictionary{{"MissingResponseValue", c.missing},
                                             {"ResponseData", object ? *object : Dictionary()}}));
    EXPECT_EQ(record_->accessToken(), "old-access");
  }
}

TEST_F(RequestAccessTokenTransactionTest, RefusalsClearWhatTheServerRejected) {
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    std::string body, outcome;
    bool tokensKept, clientKept;
  } cases[] = {
      {test::jsonResponseOf(401), R"({"error":"invalid_grant"})", "server 4", false, true},
      {nullptr, R"({"error":"invalid_client"})", "server 3", false, false},
      {test::responseOf(502, {{"Content-Type", "text/html"}}), "{}", "server 502", true, true},
      {test::responseOf(200, {{"Content-Type", "text/html"}}), "{}", "network 3", true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome);
    fillRecord();
    EXPECT_EQ(outcomeOf(transaction_.handleResponse(c.response, bytesOf(c.body))), c.outcome);
    EXPECT_EQ(record_->hasRefreshToken(), c.tokensKept);
    EXPECT_EQ(record_->hasClientId(), c.clientKept);
  }
}

}  // namespace
}  // namespace velmor
