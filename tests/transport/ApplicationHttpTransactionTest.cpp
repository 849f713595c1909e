#include "transport/ApplicationHttpTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

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

// Each line is read alone once the joined value fails, and the first Bearer
// one is acted on as if it had come alone.
TEST_F(ApplicationHttpTransactionTest, SeveralChallengeLinesAreReadOneByOne) {
  struct Case {
    std::int64_t status;
    std::vector<std::string> lines;
    std::string outcome;
    bool forgotten;
    std::optional<std::string> description;  // of the challenge acted on
  } cases[] = {
      {401,
       {R"(Basic realm="api")",
        R"(Bearer realm="api", error="invalid_token", error_description="b")"},
       "server 7",
       true,
       "b"},
      {403,
       {R"(Basic realm="api")", R"(Bearer error="insufficient_scope", error_description="b")",
        R"(Bearer error="invalid_token", error_description="c")"},
       "server 2",
       true,
       "b"},
      {401,
       {R"(Bearer realm="a", error="invalid_token", error_description="a")", R"(Basic realm="b")"},
       "server 7",
       true,
       "a"},
      // As if alone: a 400 refusal forgets nothing.
      {400,
       {R"(Basic realm="a")", R"(Bearer error="invalid_request")"},
       "server 5",
       false,
       std::nullopt},
      // Nothing but other schemes: the joined value's parse error stands.
      {401, {R"(Basic realm="a")", R"(Digest realm="b")"}, "server 1", false, std::nullopt},
      // One line is read as it is, even when it holds two challenges.
      {401, {R"(Basic realm="a", Bearer error="invalid_token")"}, "server 1", false, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines.back());
    fillRecord();
    HttpUrlResponse::HeaderFields fields;
    for (const std::string& line : c.lines) fields.emplace_back("WWW-Authenticate", line);
    ErrorRef error = transaction_.handleAuthorizationFailureResponse(responseOf(c.status, fields));
    ASSERT_EQ(outcomeOf(error), c.outcome);
    EXPECT_EQ(record_->hasAccessToken(), !c.forgotten);
    EXPECT_EQ(record_->accessTokenValidEndDateTime().has_value(), !c.forgotten);
    if (c.outcome == "server 1") {
      EXPECT_EQ(error->description().value_or("").rfind(
                    "Unexpected WWW-Authenticate header format. Expecting attribute name end but "
                    "found character: ' ' at position ",
                    0),
                0u)
          << error->description().value_or("");
    } else {
      const auto& failure = dynamic_cast<const VelmorAuthorizationError&>(*error);
      EXPECT_EQ(failure.serverErrorResponse()->errorDescription(), c.description);
    }
  }
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
