#include "transport/RevokeTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::domainAndCode;
using test::serverError;

class RevokeTransactionTest : public test::TransactionTest {
 protected:
  RevokeTransactionTest() { fillRecord(); }

  RevokeTransaction transaction_{record_};
};

TEST_F(RevokeTransactionTest, SendsTheRefreshTokenElseTheAccessToken) {
  record_->setRefreshToken("r/1");
  record_->setAccessToken("a+1");
  test::GeneratedRequest request = test::generate(transaction_);
  EXPECT_EQ(request.body, "token=r%2F1");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::clientAuthenticatedFormHeaders("Basic Y2lkOmNzZWNyZXQ="));
  test::expectResolvedPath(transaction_, "oauth2/v1/tokens/revoke");

  record_->deleteRefreshToken();
  EXPECT_EQ(test::generate(transaction_).body, "token=a%2B1");
  record_->deleteAccessToken();
  EXPECT_EQ(test::generate(transaction_).body, "token=");
}

TEST_F(RevokeTransactionTest, OkOrNoContentSucceedWithoutReadingTheBody) {
  struct Case {
    const char* name;
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<std::string> body;
    std::string outcome;
  } cases[] = {
      {"no content", test::responseOf(204), "", "no error"},
      {"ok with anything", test::responseOf(200, {{"Content-Length", "0"}}), "junk", "no error"},
      {"bad request", test::jsonResponseOf(400), R"({"error":"invalid_request"})", serverError(5)},
      {"no response", nullptr, R"({"error":"invalid_token"})", serverError(7)},
      {"server down", test::responseOf(500), std::nullopt, serverError(500)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<Data> body;
    if (c.body) body = bytesOf(*c.body);
    EXPECT_EQ(domainAndCode(transaction_.handleResponse(c.response, body)), c.outcome);
    EXPECT_EQ(record_->accessToken(), "old-access");
  }
}

}  // namespace
}  // namespace velmor
