#include "transport/RequestAccessTokenTransaction.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"
#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::bytesOf;
using test::clientError;
using test::domainAndCode;
using test::networkError;
using test::serverError;
using Scopes = RequestAccessTokenTransaction::Scopes;
using Optional = std::optional<std::string>;

constexpr char kTokenPath[] = "oauth2/v1/tokens/bearer";
constexpr char kBasic[] = "Basic Y2lkOmNzZWNyZXQ=";

class RequestAccessTokenTransactionTest : public test::TransactionTest {
 protected:
  RequestAccessTokenTransactionTest() { fillRecord(); }

  ErrorRef handle(const std::string& body, std::int64_t status = 200) {
    return transaction_.handleResponse(test::jsonResponseOf(status), bytesOf(body));
  }

  // The whole second the record stores for a moment.
  static Date stored(Date moment) { return std::chrono::floor<std::chrono::seconds>(moment); }

  RequestAccessTokenTransaction transaction_{record_};
};

TEST_F(RequestAccessTokenTransactionTest, BuildsThePasswordOrClientCredentialsForm) {
  struct Case {
    const char* name;
    Optional username;
    std::string password;
    std::optional<Scopes> scopes;
    Optional realm, space;
    std::string body;
  } cases[] = {
      {"empty password is sent", "u", "", std::nullopt, std::nullopt, std::nullopt,
       "grant_type=password&username=u&password="},
      {"values are escaped", "a b@c", "p&w=1'", std::nullopt, std::nullopt, std::nullopt,
       "grant_type=password&username=a%20b%40c&password=p%26w%3D1'"},
      {"no user: client credentials", std::nullopt, "ignored", std::nullopt, std::nullopt,
       std::nullopt, "grant_type=client_credentials"},
      {"two scopes", "u", "p", Scopes{"a", "b"}, std::nullopt, std::nullopt,
       "grant_type=password&username=u&password=p&scope=a%20b"},
      {"no scopes still sends the parameter", std::nullopt, "", Scopes{}, std::nullopt,
       std::nullopt, "grant_type=client_credentials&scope="},
      {"scopes trimmed as a whole", std::nullopt, "", Scopes{"\na ", "b\t"}, std::nullopt,
       std::nullopt, "grant_type=client_credentials&scope=a%20%20b"},
      {"realm and namespace", "u", "p", Scopes{"x/y"}, "r 1", "n&2",
       "grant_type=password&username=u&password=p&scope=x%2Fy&x_realm_id=r%201"
       "&x_namespace_id=n%262"},
      {"empty realm left out", std::nullopt, "", std::nullopt, "", "n",
       "grant_type=client_credentials&x_namespace_id=n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RequestAccessTokenTransaction transaction(record_);
    transaction.setUsername(c.username);
    transaction.setPassword(c.password);
    transaction.setScopes(c.scopes);
    transaction.setRealmId(c.realm);
    transaction.setNamespaceId(c.space);
    const test::GeneratedRequest request = test::generate(transaction);
    EXPECT_EQ(request.body, c.body);
    EXPECT_EQ(request.verb, "POST");
    EXPECT_EQ(request.headers, test::clientAuthenticatedFormHeaders(kBasic));
  }
  test::expectResolvedPath(transaction_, kTokenPath);
}

TEST_F(RequestAccessTokenTransactionTest, RefreshSendsTheStoredRefreshTokenAndScopesOnly) {
  record_->setRefreshToken("r/t+1");
  RefreshAccessTokenTransaction refresh(record_);
  refresh.setUsername("u");
  refresh.setRealmId("r");
  refresh.setNamespaceId("n");
  test::GeneratedRequest request = test::generate(refresh);
  EXPECT_EQ(request.body, "grant_type=refresh_token&refresh_token=r%2Ft%2B1");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::clientAuthenticatedFormHeaders(kBasic));

  refresh.setScopes(Scopes{"a", "b"});
  EXPECT_EQ(test::generate(refresh).body,
            "grant_type=refresh_token&refresh_token=r%2Ft%2B1&scope=a%20b");
  test::expectResolvedPath(refresh, kTokenPath);
}

TEST_F(RequestAccessTokenTransactionTest, CodeExchangeSendsTheCodeUnescaped) {
  RequestAccessTokenFromAuthCodeTransaction exchange(record_);
  exchange.setAuthorizationCode("a/b c&d");
  exchange.setRedirectUrl(test::urlOf("com.example.app://callback/done?x=1"));
  exchange.setScopes(Scopes{"ignored"});
  test::GeneratedRequest request = test::generate(exchange);
  EXPECT_EQ(request.body,
            "grant_type=authorization_code&code=a/b c&d"
            "&redirect_uri=com.example.app%3A%2F%2Fcallback%2Fdone%3Fx%3D1");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::clientAuthenticatedFormHeaders(kBasic));
  test::expectResolvedPath(exchange, kTokenPath);
}

TEST_F(RequestAccessTokenTransactionTest, StoresBothTokensWithPeriodsFromOneMoment) {
  const Date before = std::chrono::system_clock::now();
  ASSERT_FALSE(handle(R"({"access_token":"a2","token_type":"Bearer","expires_in":3600,)"
                      R"("refresh_token":"r2","x_refresh_token_expires_in":"86400",)"
                      R"("scope":"read write"})"));
  const Date after = std::chrono::system_clock::now();

  EXPECT_EQ(record_->accessToken(), "a2");
  EXPECT_EQ(record_->refreshToken(), "r2");
  const Date start = *record_->accessTokenValidStartDateTime();
  EXPECT_GE(start, stored(before));
  EXPECT_LE(start, after);
  EXPECT_EQ(record_->accessTokenValidEndDateTime(), start + 3600s);
  EXPECT_EQ(record_->refreshTokenValidStartDateTime(), start);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), start + 86400s);
  EXPECT_EQ(transaction_.scopes(), (Scopes{"read", "write"}));
  EXPECT_EQ(record_->clientId(), "cid");
  EXPECT_EQ(record_->username(), "anna");
}

TEST_F(RequestAccessTokenTransactionTest, WithoutNewRefreshTokenTheOldOneStays) {
  transaction_.setScopes(Scopes{"asked"});
  ASSERT_FALSE(handle(R"({"access_token":"a2","expires_in":"3600"})"));
  EXPECT_EQ(record_->accessToken(), "a2");
  EXPECT_EQ(record_->accessTokenValidEndDateTime(),
            *record_->accessTokenValidStartDateTime() + 3600s);
  EXPECT_EQ(record_->refreshToken(), "old-refresh");
  EXPECT_EQ(record_->refreshTokenValidStartDateTime(), kOldStart);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), kOldEnd);
  EXPECT_EQ(transaction_.scopes(), Scopes{});
}

TEST_F(RequestAccessTokenTransactionTest, GrantedScopesSplitOnSingleSpaces) {
  struct Case {
    std::string scope;
    Scopes scopes;
  } cases[] = {{"a", {"a"}}, {"a  b", {"a", "", "b"}}, {" a ", {"", "a", ""}}, {"", {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.scope);
    ASSERT_FALSE(handle(R"({"access_token":"a","expires_in":1,"scope":")" + c.scope + "\"}"));
    EXPECT_EQ(transaction_.scopes(), c.scopes);
  }
}

TEST_F(RequestAccessTokenTransactionTest, LifetimeOverridesReplaceGrantedLifetimes) {
  transaction_.setAccessTokenExpirationOverride(60);
  transaction_.setRefreshTokenExpirationOverride(120);
  ASSERT_FALSE(handle(R"({"access_token":"a","expires_in":3600,)"
                      R"("refresh_token":"r","x_refresh_token_expires_in":86400})"));
  const Date start = *record_->accessTokenValidStartDateTime();
  EXPECT_EQ(record_->accessTokenValidEndDateTime(), start + 60s);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), start + 120s);
}

TEST_F(RequestAccessTokenTransactionTest, LifetimesBeyondTheCalendarEndAtTheLatestDate) {
  transaction_.setRefreshTokenExpirationOverride(UINT64_MAX);
  ASSERT_FALSE(handle(R"({"access_token":"a","expires_in":9223372036854775807,)"
                      R"("refresh_token":"r","x_refresh_token_expires_in":1})"));
  const Date latest = stored(Date::max());
  EXPECT_EQ(record_->accessTokenValidEndDateTime(), latest);
  EXPECT_EQ(record_->refreshTokenValidEndDateTime(), latest);
}

TEST_F(RequestAccessTokenTransactionTest, FirstDefectOfTheAnswerIsReportedAndNothingStored) {
  struct Case {
    std::string body;
    std::string missing;
  } cases[] = {
      {R"({"access_token":"a","token_type":"mac","expires_in":1})", "bearer"},
      {R"({"token_type":"mac"})", "bearer"},
      {R"({"token_type":"bearer","expires_in":1})", "access_token"},
      {R"({"access_token":"","expires_in":1})", "access_token"},
      {R"({"access_token":5,"expires_in":1})", "access_token"},
      {R"({"access_token":"a"})", "expires_in"},
      {R"({"access_token":"a","expires_in":0})", "expires_in"},
      {R"({"access_token":"a","expires_in":-5})", "expires_in"},
      {R"({"access_token":"a","expires_in":"soon"})", "expires_in"},
      {R"({"access_token":"a","expires_in":0.5})", "expires_in"},
      {R"({"access_token":"a","expires_in":1,"refresh_token":""})", "refresh_token"},
      {R"({"access_token":"a","expires_in":1,"refresh_token":"r"})", "x_refresh_token_expires_in"},
      {R"({"access_token":"a","expires_in":1,"refresh_token":"r",)"
       R"("x_refresh_token_expires_in":"0"})",
       "x_refresh_token_expires_in"},
      {R"([1,2])", "access_token"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    ErrorRef error = handle(c.body);
    EXPECT_EQ(domainAndCode(error), clientError(3));
    ASSERT_TRUE(error && error->userInfo());
    EXPECT_EQ(*error->userInfo()->findString("MissingResponseValue"), c.missing);
    // The answer as parsed; an array reads as an object without keys.
    const Value body = *transaction_.parseJsonData(bytesOf(c.body), nullptr);
    const Dictionary* object = body.dictionaryValue();
    EXPECT_EQ(*error->userInfo()->find("ResponseData"), Value(object ? *object : Dictionary()));
    EXPECT_EQ(record_->accessToken(), "old-access");
    EXPECT_EQ(record_->accessTokenValidEndDateTime(), kOldEnd);
  }
}

TEST_F(RequestAccessTokenTransactionTest, AcceptedAnswerShapes) {
  for (const std::string body :
       {R"({"access_token":"a","token_type":"BEARER","expires_in":1})",
        R"({"access_token":"a","expires_in":"12ab"})", R"({"access_token":"a","expires_in":1.9})",
        R"({"access_token":"a","expires_in":true})"}) {
    SCOPED_TRACE(body);
    EXPECT_FALSE(handle(body));
  }
}

TEST_F(RequestAccessTokenTransactionTest, ErrorAnswersGoThroughTheFrame) {
  struct Case {
    const char* name;
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<std::string> body;
    std::string outcome;
    bool tokensKept;
    bool clientKept;
  } cases[] = {
      {"rejected grant", test::jsonResponseOf(401), R"({"error":"invalid_grant"})", serverError(4),
       false, true},
      {"unknown client, no response", nullptr, R"({"error":"invalid_client"})", serverError(3),
       false, false},
      {"no response, no body", nullptr, std::nullopt, networkError(6), true, true},
      {"gateway page", test::responseOf(502, {{"Content-Type", "text/html"}}), "<html/>",
       serverError(502), true, true},
      {"ok but not JSON", test::responseOf(200, {{"Content-Type", "text/html"}}), "{}",
       networkError(3), true, true},
      {"ok but body lost", test::jsonResponseOf(200), std::nullopt, networkError(6), true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fillRecord();
    std::optional<Data> body;
    if (c.body) body = bytesOf(*c.body);
    EXPECT_EQ(domainAndCode(transaction_.handleResponse(c.response, body)), c.outcome);
    EXPECT_EQ(record_->hasAccessToken(), c.tokensKept);
    EXPECT_EQ(record_->hasRefreshToken(), c.tokensKept);
    EXPECT_EQ(record_->hasClientId(), c.clientKept);
  }
}

}  // namespace
}  // namespace velmor
