// The send and the judging every operation shares, against a scripted
// client: which transport errors end an exchange, and the simulated delay.
#include "operations/ServiceOperation.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/ActivateClientOperation.h"
#include "operations/OperationProbe.h"
#include "operations/RequestAccessTokenOperation.h"
#include "testing/FakeHttpClient.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/Exception.h"
#include "velmor/MemorySecretStore.h"

namespace velmor {
namespace {

class ServiceOperationTest : public ::testing::Test {
 protected:
  ServiceOperationTest() {
    record_->setClientId("cid");
    record_->setClientSecret("csecret");
  }

  template <typename T>
  std::shared_ptr<T> make() {
    auto operation = std::make_shared<T>();
    operation->setAuthorizationServerBaseUrl(Url::withString("https://auth.example/api/"));
    operation->setSecureData(record_);
    operation->setHttpClient(client_);
    operation->setSleepFunction([](std::uint64_t) {});
    return operation;
  }

  test::ScopedSecretStore storeScope_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("auth.example", "apptoken", std::nullopt, 0);
  std::shared_ptr<test::FakeHttpClient> client_ = std::make_shared<test::FakeHttpClient>();
};

// The loader reports a declined 401 challenge as -1012 and may still hand
// over the body: that body is the server's verdict.
TEST_F(ServiceOperationTest, OnlyADeclinedChallengeWithABodyIsJudged) {
  struct Case {
    std::int64_t code;
    std::optional<std::string> body;
    std::string outcome;
    bool judged;
  } cases[] = {
      {-1012, R"({"error":"invalid_client"})", "com.velmor.authorization.server 3", true},
      {-1012, std::nullopt, "NSURLErrorDomain -1012", false},
      {-1004, R"({"error":"invalid_client"})", "NSURLErrorDomain -1004", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome);
    client_->setTransportFailure(c.code, c.body);
    auto operation = make<RequestAccessTokenOperation>();
    operation->setUsername("anna");
    operation->setPassword("secret");
    operation->setScopes(std::vector<std::string>{"read"});
    test::OperationProbe probe;
    probe.watch(*operation);
    operation->start();

    EXPECT_EQ(probe.calls, 1);
    EXPECT_EQ(probe.outcome(), c.outcome);
    // Only a judged answer passes the user name and scopes on.
    EXPECT_EQ(probe.username, c.judged ? std::optional<std::string>("anna") : std::nullopt);
    EXPECT_EQ(probe.scopes.has_value(), c.judged);
    // "invalid_client" throws the registration away.
    EXPECT_EQ(record_->hasClientId(), !c.judged);
    record_->setClientId("cid");
  }
}

TEST_F(ServiceOperationTest, WaitsTheSimulatedDelayBeforeSending) {
  for (std::uint64_t delay : {0u, 3u}) {
    SCOPED_TRACE(delay);
    auto client = std::make_shared<test::FakeHttpClient>();
    std::vector<std::uint64_t> sleeps;
    std::size_t requestsBeforeSleep = 1;
    auto operation = make<ActivateClientOperation>();
    operation->setHttpClient(client);
    operation->setSimulatedNetworkDelayInterval(delay);
    operation->setSleepFunction([&](std::uint64_t seconds) {
      sleeps.push_back(seconds);
      requestsBeforeSleep = client->requests().size();
    });
    operation->start();
    EXPECT_EQ(sleeps, std::vector<std::uint64_t>{delay});
    EXPECT_EQ(requestsBeforeSleep, 0u);
    EXPECT_EQ(client->requests().size(), 1u);
  }
}

TEST_F(ServiceOperationTest, WithoutABaseUrlNothingIsSent) {
  auto operation = make<ActivateClientOperation>();
  operation->setAuthorizationServerBaseUrl(std::nullopt);
  test::OperationProbe probe;
  probe.watch(*operation);
  operation->start();
  EXPECT_EQ(probe.outcome(), "NSURLErrorDomain -1000");
  EXPECT_TRUE(client_->requests().empty());
}

TEST_F(ServiceOperationTest, TheBaseHasNoExchangeOfItsOwn) {
  ServiceOperation operation;
  try {
    operation.start();
    ADD_FAILURE() << "no exception";
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.name(), "NSInternalInconsistencyException");
    EXPECT_EQ(e.reason(), "This method, main, must be overridden in a subclass");
  }
}

}  // namespace
}  // namespace velmor
