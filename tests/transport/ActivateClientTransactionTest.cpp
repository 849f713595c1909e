#include "transport/ActivateClientTransaction.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::clientError;
using test::domainAndCode;
using test::networkError;
using test::serverError;

class ActivateClientTransactionTest : public test::TransactionTest {
 protected:
  ActivateClientTransactionTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", temporary_.path());
    identity_.setDeviceName("Anna's Laptop");
    identity_.setHardwareModel("X1 Carbon");
    identity_.setUserFullName("Anna Example");
  }

  ErrorRef handle(std::shared_ptr<HttpUrlResponse> response, const std::string& body) {
    return transaction_.handleResponse(response, bytesOf(body));
  }

  test::TemporaryDirectory temporary_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  ActivateClientTransaction transaction_{record_};
};

TEST_F(ActivateClientTransactionTest, PostsAppTokenAndClientContextWithoutCredentials) {
  record_->setAppToken("app&token=1");
  const test::GeneratedRequest request = test::generate(transaction_);
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers,
            (Dictionary{{"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"}}));
  EXPECT_EQ(request.body,
            "x_app_token=app%26token%3D1&x_client_context=Device%20Name%3A%20%22Anna's%20Laptop%22"
            "%20%7C%20Model%3A%20%22X1%20Carbon%22%20%7C%20User%3A%20%22Anna%20Example%22");
  // The context sent is remembered, so a later change can be noticed.
  EXPECT_TRUE(
      std::filesystem::exists(temporary_.pathOf("UnitTestApp/AuthorizationClientContext.plist")));
  test::expectResolvedPath(transaction_, "oauth2/v1/clients");
}

TEST_F(ActivateClientTransactionTest, StoresIssuedCredentials) {
  EXPECT_FALSE(
      handle(test::jsonResponseOf(200), R"({"client_id":"id-1","client_secret":"s-1","x":2})"));
  EXPECT_EQ(record_->clientId(), "id-1");
  EXPECT_EQ(record_->clientSecret(), "s-1");
}

TEST_F(ActivateClientTransactionTest, MissingValueStoresNeither) {
  struct Case {
    std::string body;
    std::string missing;
  } cases[] = {
      {R"({"client_id":"id-1","client_secret":""})", "client_secret"},
      {R"({"client_id":"id-1"})", "client_secret"},
      {R"({"client_id":"","client_secret":"s-1"})", "client_id"},
      {R"({"client_id":7,"client_secret":"s-1"})", "client_id"},
      {R"({})", "client_id"},
      {R"([])", "client_id"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    record_->setClientId("old-id");
    record_->setClientSecret("old-secret");
    ErrorRef error = handle(test::jsonResponseOf(200), c.body);
    EXPECT_EQ(domainAndCode(error), clientError(3));
    EXPECT_EQ(error->userInfo(),
              (Dictionary{{"MissingResponseValue", c.missing}, {"response_text", c.body}}));
    EXPECT_EQ(record_->clientId(), "old-id");
    EXPECT_EQ(record_->clientSecret(), "old-secret");
  }
}

TEST_F(ActivateClientTransactionTest, AnythingButAGoodOkIsAnError) {
  const std::string issued = R"({"client_id":"id-1","client_secret":"s-1"})";
  struct Case {
    const char* name;
    std::shared_ptr<HttpUrlResponse> response;
    std::string body;
    std::string outcome;
  } cases[] = {
      {"created is not ok", test::jsonResponseOf(201), issued, serverError(-1)},
      {"server error body", test::jsonResponseOf(400), R"({"error":"invalid_request"})",
       serverError(5)},
      {"no response", nullptr, R"({"error":"invalid_client"})", serverError(0)},
      {"not JSON", test::responseOf(200, {{"Content-Type", "text/plain"}}), issued,
       networkError(3)},
      {"no content type", test::responseOf(200), issued, networkError(2)},
      {"truncated",
       test::responseOf(200, {{"Content-Type", "application/json"}, {"Content-Length", "99"}}),
       issued, networkError(5)},
      {"empty", test::jsonResponseOf(200), "", networkError(6)},
      {"not parseable", test::jsonResponseOf(200), "{client_id}", networkError(6)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(domainAndCode(handle(c.response, c.body)), c.outcome);
    EXPECT_EQ(record_->clientId(), std::nullopt);
  }
}

}  // namespace
}  // namespace velmor
