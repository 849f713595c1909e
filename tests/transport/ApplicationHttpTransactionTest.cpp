#include "transport/ApplicationHttpTransaction.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::outcomeOf;
using test::responseOf;
using Optional = std::optional<std::string>;

std::shared_ptr<HttpUrlResponse> refusal(std::int64_t status, const Optional& challenge) {
  if (!challenge) return responseOf(status);
  return responseOf(status, {{"WWW-Authenticate", *challenge}});
}

class ApplicationHttpTransactionTest : public test::TransactionTest {
 protected:
  ApplicationHttpTransactionTest() { fillRecord(); }

  ApplicationHttpTransaction transaction_{record_};
};

TEST_F(ApplicationHttpTransactionTest, OnlyBadRequestUnauthorizedAndForbiddenAreFailures) {
  for (std::int64_t status : {400, 401, 403}) {
    EXPECT_TRUE(ApplicationHttpTransaction::isAuthorizationFailureStatusCode(status)) << status;
  }
  for (std::int64_t status : {0, 200, 399, 402, 404, 407, 500, -401}) {
    EXPECT_FALSE(ApplicationHttpTransaction::isAuthorizationFailureStatusCode(status)) << status;
  }
}

TEST_F(ApplicationHttpTransactionTest, AFailureNeedsTheStatusAndABearerChallenge) {
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    bool failure;
  } cases[] = {
      {refusal(401, R"(Bearer realm="api")"), true},
      {refusal(400, R"(x BEARER REALM="api")"), true},
      {responseOf(403, {{"www-authenticate", R"(Bearer realm="api", error="insufficient_scope")"}}),
       true},
      {refusal(402, R"(Bearer realm="api")"), false},
      {refusal(404, R"(Bearer realm="api")"), false},
      {refusal(401, R"(Basic realm="api")"), false},
      {refusal(401, R"(Bearer realm=api)"), false},
      {refusal(401, R"(Bearer  realm="api")"), false},
      {refusal(401, ""), false},
      {refusal(401, std::nullopt), false},
      {nullptr, false},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(ApplicationHttpTransaction::hasAuthorizationFailureResponse(cases[i].response),
              cases[i].failure);
  }
  // Header dictionaries are read under the exact name responses use.
  EXPECT_TRUE(ApplicationHttpTransaction::hasBearerTokenWwwAuthenticateHeader(
      Dictionary{{"WWW-Authenticate", R"(Bearer realm="")"}}));
  EXPECT_FALSE(ApplicationHttpTransaction::hasBearerTokenWwwAuthenticateHeader(
      Dictionary{{"www-authenticate", R"(Bearer realm="")"}}));
  EXPECT_FALSE(ApplicationHttpTransaction::hasBearerTokenWwwAuthenticateHeader(
      Dictionary{{"WWW-Authenticate", 401}}));
}

TEST_F(ApplicationHttpTransactionTest, OnlyExpiredOrUnderScopedTokensAreForgotten) {
  struct Case {
    std::int64_t status;
    std::string challenge;
    std::string outcome;
    bool forgotten;
  } cases[] = {
      {401, R"(Bearer realm="api", error="invalid_token")", "server 7", true},
      {403, R"(Bearer realm="api", error="insufficient_scope", scope="read write")", "server 2",
       true},
      {401, R"(bearer error=invalid_token, realm="api")", "server 7", true},
      {401, R"(Bearer realm="api", error="insufficient_scope")", "server 2", false},
      {403, R"(Bearer realm="api", error="invalid_token")", "server 7", false},
      {400, R"(Bearer realm="api", error="invalid_request")", "server 5", false},
      {400, R"(Bearer realm="api", error="invalid_token")", "server 7", false},
      {500, R"(Bearer realm="api", error="invalid_token")", "server 7", false},
      {401, R"(Bearer realm="api", error="INVALID_TOKEN")", "server -1", false},
      {401, R"(Bearer realm="api")", "server -1", false},
      // An unquoted value that runs to the end of the header is dropped.
      {401, R"(Bearer realm="api", error=invalid_token)", "server -1", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.challenge);
    SCOPED_TRACE(c.status);
    fillRecord();
    EXPECT_EQ(
        outcomeOf(transaction_.handleAuthorizationFailureResponse(refusal(c.status, c.challenge))),
        c.outcome);
    EXPECT_EQ(record_->hasAccessToken(), !c.forgotten);
    EXPECT_EQ(record_->accessTokenValidStartDateTime().has_value(), !c.forgotten);
    EXPECT_EQ(record_->accessTokenValidEndDateTime().has_value(), !c.forgotten);
    EXPECT_EQ(record_->refreshToken(), "old-refresh");
    EXPECT_EQ(record_->refreshTokenValidEndDateTime(), kOldEnd);
    EXPECT_EQ(record_->clientSecret(), "csecret");
    EXPECT_EQ(record_->username(), "anna");
  }
}

TEST_F(ApplicationHttpTransactionTest, TheErrorCarriesTheResponseAndTheChallenge) {
  const auto response = refusal(
      401,
      R"(Bearer realm="api", error="invalid_token", error_description="expired", error_uri="https://e.example/t")");
  ErrorRef error = transaction_.handleAuthorizationFailureResponse(response);
  ASSERT_EQ(outcomeOf(error), "server 7");
  const auto& failure = dynamic_cast<const VelmorAuthorizationError&>(*error);
  EXPECT_EQ(failure.userInfo(), std::nullopt);
  EXPECT_EQ(failure.authorizationServerError(), 7);
  EXPECT_EQ(failure.httpUrlResponse(), response);
  ASSERT_NE(failure.serverErrorResponse(), nullptr);
  EXPECT_EQ(failure.serverErrorResponse()->error(), "invalid_token");
  EXPECT_EQ(failure.serverErrorResponse()->errorDescription(), "expired");
  EXPECT_EQ(failure.serverErrorResponse()->errorUri(), "https://e.example/t");
  EXPECT_EQ(failure.serverErrorResponse()->errorReason(), std::nullopt);
  EXPECT_EQ(failure.description(), "Server error: 'invalid_token', Description: 'expired'");
}

TEST_F(ApplicationHttpTransactionTest, AnythingButABearerChallengeIsAnInvalidOperation) {
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    std::string outcome;
  } cases[] = {
      {nullptr, "client 1"},
      {refusal(401, std::nullopt), "client 1"},
      {refusal(401, ""), "client 1"},
      {refusal(401, "Bearer"), "client 1"},
      {refusal(401, R"(Basic realm="api", error="invalid_token")"), "client 1"},
      {refusal(401, R"(Bearer2 realm="api", error="invalid_token")"), "client 1"},
      {refusal(401, R"( Bearer error="invalid_token")"), "server 1"},
      {refusal(401, R"(Bearer realm="a", Basic realm="b")"), "server 1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.response ? c.response->valueForHTTPHeaderField("WWW-Authenticate").value_or("-")
                            : "no response");
    ErrorRef error = transaction_.handleAuthorizationFailureResponse(c.response);
    EXPECT_EQ(outcomeOf(error), c.outcome);
    if (c.outcome == "client 1") {
      EXPECT_EQ(error->userInfo(), std::nullopt);
      EXPECT_EQ(error->description(), "Invalid operation");
    }
    EXPECT_EQ(record_->accessToken(), "old-access");
  }
}

}  // namespace
}  // namespace velmor
