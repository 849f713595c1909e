#include "transport/UpdateClientContextTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::outcomeOf;

class UpdateClientContextTransactionTest : public test::TransactionTest {};

TEST_F(UpdateClientContextTransactionTest, PutsTheContextAndAcceptsOnlyNoContent) {
  fillRecord();
  UpdateClientContextTransaction transaction(record_);
  transaction.setAuthorizationClientContext("Device Name: \"Bo's\" | User: (null)");
  const test::GeneratedRequest request = test::generate(transaction);
  EXPECT_EQ(request.url->absoluteString(), "https://auth.example.com/base/oauth2/v1/clients");
  EXPECT_EQ(request.verb, "PUT");
  EXPECT_EQ(request.headers, test::formHeaders());
  EXPECT_EQ(request.body,
            "x_client_context=Device%20Name%3A%20%22Bo's%22%20%7C%20User%3A%20%28null%29");

  EXPECT_EQ(outcomeOf(transaction.handleResponse(test::responseOf(204), bytesOf("junk"))), "none");
  EXPECT_EQ(outcomeOf(transaction.handleResponse(test::responseOf(200), bytesOf("ok"))),
            "server 200");
  EXPECT_EQ(record_->clientId(), "cid");
  // Without a response the body is read as the server's refusal.
  EXPECT_EQ(
      outcomeOf(transaction.handleResponse(nullptr, bytesOf(R"({"error":"invalid_client"})"))),
      "server 3");
  EXPECT_EQ(record_->retrieveDataDictionary(), std::nullopt);
}

}  // namespace
}  // namespace velmor
