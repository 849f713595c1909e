#include "transport/ApplicationHttpTransaction.h"

#include <gtest/gtest.h>

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
  return responseOf(status, {{"www-authenticate", *challenge}});
}

class ApplicationHttpTransactionTest : public test::TransactionTest {
 protected:
  ApplicationHttpTransactionTest() { fillRecord(); }

  ApplicationHttpTransaction transaction_{record_};
};

TEST_F(ApplicationHttpTransactionTest, AFailureNeedsTheStatusAndABearerChallenge) {
  struct Case {
    std::int64_t status;
    Optional challenge;
    bool failure;
  } cases[] = {
      {401, R"(Bearer realm="api")", true},
      {400, R"(x BEARER REALM="")", true},
      {403, R"(Bearer realm="api")", true},
      {402, R"(Bearer realm="api")", false},
      {404, R"(Bearer realm="api")", false},
      {200, R"(Bearer realm="api")", false},
      {401, R"(Basic realm="api")", false},
      {401, R"(Bearer realm=api)", false},
      {401, R"(Bearer  realm="api")", false},
      {401, "", false},
      {401, std::nullopt, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.challenge.value_or("none"));
    SCOPED_TRACE(c.status);
    EXPECT_EQ(
        ApplicationHttpTransaction::hasAuthorizationFailureResponse(refusal(c.status, c.challenge)),
        c.failure);
  }
  EXPECT_FALSE(ApplicationHttpTransaction::hasAuthorizationFailureResponse(nullptr));
  // Dictionaries are read under the name responses give the field.
  EXPECT_FALSE(ApplicationHttpTransaction::hasBearerTokenWwwAuthenticateHeader(
      Dictionary{{"www-authenticate", R"(Bearer realm="")"}}));
}

TEST_F(ApplicationHttpTransactionTest, OnlyExpiredOrUnderScopedTokensAreForgotten) {
  struct Case {
    std::int64_t status;
    Optional challenge;
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
      {401, R"(Bearer realm="api", error="INVALID_TOKEN")", "server -1", false},
      // An unquoted value that runs to the end of the header is dropped.
      {401, R"(Bearer realm="api", error=invalid_token)", "server -1", false},
      {401, R"( Bearer error="invalid_token")", "server 1", false},
      {401, R"(Bearer realm="a", Basic realm="b")", "server 1", false},
      {401, R"(Basic realm="api", error="invalid_token")", "client 1", false},
      {401, R"(Bearer2 realm="api", error="invalid_token")", "client 1", false},
      {401, "Bearer", "client 1", false},
      {401, "", "client 1", false},
      {401, std::nullopt, "client 1", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.challenge.value_or("none"));
    SCOPED_TRACE(c.status);
    fillRecord();
    ErrorRef error =
        transaction_.handleAuthorizationFailureResponse(refusal(c.status, c.challenge));
    EXPECT_EQ(outcomeOf(error), c.outcome);
    if (c.outcome == "client 1") {
      EXPECT_EQ(error->userInfo(), std::nullopt);
      EXPECT_EQ(error->description(), "Invalid operation");
    }
    EXPECT_EQ(record_->hasAccessToken(), !c.forgotten);
    EXPECT_EQ(record_->accessTokenValidStartDateTime().has_value(), !c.forgotten);
    EXPECT_EQ(record_->accessTokenValidEndDateTime().has_value(), !c.forgotten);
    EXPECT_EQ(record_->refreshTokenValidEndDateTime(), kOldEnd);
    EXPECT_EQ(record_->clientSecret(), "csecret");
  }
  EXPECT_EQ(outcomeOf(transaction_.handleAuthorizationFailureResponse(nullptr)), "client 1");
}

TEST_F(ApplicationHttpTransactionTest, TheErrorCarriesTheResponseAndTheChallenge) {
  const auto response = refusal(401, R"(Bearer realm="api", error="invalid_token", )"
                                     R"(error_description="expired", error_uri="https://e/t")");
  ErrorRef error = transaction_.handleAuthorizationFailureResponse(response);
  ASSERT_EQ(outcomeOf(error), "server 7");
  const auto& failure = dynamic_cast<const VelmorAuthorizationError&>(*error);
  EXPECT_EQ(failure.userInfo(), std::nullopt);
  EXPECT_EQ(failure.authorizationServerError(), 7);
  EXPECT_EQ(failure.httpUrlResponse(), response);
  ASSERT_NE(failure.serverErrorResponse(), nullptr);
  EXPECT_EQ(failure.serverErrorResponse()->errorUri(), "https://e/t");
  EXPECT_EQ(failure.description(), "Server error: 'invalid_token', Description: 'expired'");
}

}  // namespace
}  // namespace velmor
