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
using test::outcomeOf;

class ActivateClientTransactionTest : public test::TransactionTest {
 protected:
  ActivateClientTransactionTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", temporary_.path());
    identity_.setDeviceName("Anna's PC");
    identity_.setHardwareModel("X1");
    identity_.setUserFullName("Anna");
  }

  test::TemporaryDirectory temporary_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  ActivateClientTransaction transaction_{record_};
};

TEST_F(ActivateClientTransactionTest, PostsAppTokenAndClientContextWithoutCredentials) {
  record_->setAppToken("app&token=1");
  const test::GeneratedRequest request = test::generate(transaction_, "https://h.example/v2");
  EXPECT_EQ(request.url->absoluteString(), "https://h.example/oauth2/v1/clients");
  EXPECT_EQ(request.verb, "POST");
  EXPECT_EQ(request.headers, test::formHeaders(std::nullopt));
  EXPECT_EQ(request.body,
            "x_app_token=app%26token%3D1&x_client_context=Device%20Name%3A%20%22Anna's%20PC%22"
            "%20%7C%20Model%3A%20%22X1%22%20%7C%20User%3A%20%22Anna%22");
  // The context sent is remembered, so a later change can be noticed.
  EXPECT_TRUE(
      std::filesystem::exists(temporary_.pathOf("UnitTestApp/AuthorizationClientContext.plist")));
}

TEST_F(ActivateClientTransactionTest, StoresBothValuesOrNeither) {
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    std::string body, outcome;
    std::optional<std::string> missing;
  } cases[] = {
      {test::jsonResponseOf(200), R"({"client_id":"id","client_secret":""})", "client 3",
       "client_secret"},
      {test::jsonResponseOf(200), R"({"client_id":7,"client_secret":"s"})", "client 3",
       "client_id"},
      {test::jsonResponseOf(201), R"({"client_id":"id","client_secret":"s"})", "server -1",
       std::nullopt},
      {nullptr, R"({"error":"invalid_client"})", "server 0", std::nullopt},
      {test::responseOf(200), R"({"client_id":"id","client_secret":"s"})", "network 2",
       std::nullopt},
      {test::jsonResponseOf(200), R"({"client_id":"id","client_secret":"s"})", "none",
       std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    record_->setClientId("old");
    ErrorRef error = transaction_.handleResponse(c.response, bytesOf(c.body));
    EXPECT_EQ(outcomeOf(error), c.outcome);
    if (c.missing) {
      EXPECT_EQ(error->userInfo(),
                (Dictionary{{"MissingResponseValue", *c.missing}, {"response_text", c.body}}));
    }
    EXPECT_EQ(record_->clientId(), error ? "old" : "id");
    EXPECT_EQ(record_->clientSecret(), error ? std::nullopt : std::optional<std::string>("s"));
  }
}

}  // namespace
}  // namespace velmor
