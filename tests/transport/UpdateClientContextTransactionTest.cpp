#include "transport/UpdateClientContextTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::domainAndCode;
using test::serverError;

class UpdateClientContextTransactionTest : public test::TransactionTest {
 protected:
  UpdateClientContextTransactionTest() {
    fillRecord();
    transaction_.setAuthorizationClientContext("Device Name: \"Bo's PC\" | Model: \"(null)\"");
  }

  UpdateClientContextTransaction transaction_{record_};
};

TEST_F(UpdateClientContextTransactionTest, PutsTheContextWithClientCredentials) {
  const test::GeneratedRequest request = test::generate(transaction_);
  EXPECT_EQ(request.verb, "PUT");
  EXPECT_EQ(request.headers, test::clientAuthenticatedFormHeaders("Basic Y2lkOmNzZWNyZXQ="));
  EXPECT_EQ(
      request.body,
      "x_client_context=Device%20Name%3A%20%22Bo's%20PC%22%20%7C%20Model%3A%20%22%28null%29%22");
  test::expectResolvedPath(transaction_, "oauth2/v1/clients");
}

TEST_F(UpdateClientContextTransactionTest, OnlyNoContentSucceeds) {
  struct Case {
    const char* name;
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<std::string> body;
    std::string outcome;
  } cases[] = {
      {"no content, body unread", test::responseOf(204), "not json", "no error"},
      {"ok is not enough", test::responseOf(200, {{"Content-Type", "text/plain"}}), "ok",
       serverError(200)},
      {"ok with JSON", test::jsonResponseOf(200), "{}", serverError(-1)},
      {"server error", test::jsonResponseOf(400), R"({"error":"invalid_request"})", serverError(5)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<Data> body;
    if (c.body) body = bytesOf(*c.body);
    EXPECT_EQ(domainAndCode(transaction_.handleResponse(c.response, body)), c.outcome);
    EXPECT_EQ(record_->clientId(), "cid");
  }
}

TEST_F(UpdateClientContextTransactionTest, AbsentResponseIsReadAsServerErrorBody) {
  EXPECT_EQ(
      domainAndCode(transaction_.handleResponse(nullptr, bytesOf(R"({"error":"invalid_client"})"))),
      serverError(3));
  EXPECT_EQ(record_->retrieveDataDictionary(), std::nullopt);
}

}  // namespace
}  // namespace velmor
