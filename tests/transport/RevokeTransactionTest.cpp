#include "transport/RevokeTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::outcomeOf;

class RevokeTransactionTest : public test::TransactionTest {
 protected:
  RevokeTransactionTest() { fillRecord(); }

  RevokeTransaction transaction_{record_};
};

TEST_F(RevokeTransactionTest, SendsTheRefreshTokenElseTheAccessToken) {
  record_->setRefreshToken("r/1");
  record_->setAccessToken("a+1");
  const test::GeneratedRequest request = test::generate(transaction_);
  EXPECT_EQ(request.url->absoluteString(), "https://auth.example.com/base/oauth2/v1/tokens/revoke");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::formHeaders());
  EXPECT_EQ(request.body, "token=r%2F1");
  record_->deleteRefreshToken();
  EXPECT_EQ(test::generate(transaction_).body, "token=a%2B1");
}

TEST_F(RevokeTransactionTest, OkOrNoContentSucceedWithoutReadingTheBody) {
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<std::string> body;
    std::string outcome;
  } cases[] = {
      {test::responseOf(204), "", "none"},
      {test::responseOf(200, {{"Content-Length", "0"}}), "junk", "none"},
      {test::jsonResponseOf(400), R"({"error":"invalid_request"})", "server 5"},
      {nullptr, R"({"error":"invalid_token"})", "server 7"},
      {test::responseOf(500), std::nullopt, "server 500"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome);
    EXPECT_EQ(outcomeOf(transaction_.handleResponse(c.response, test::bodyOf(c.body))), c.outcome);
  }
}

}  // namespace
}  // namespace velmor
