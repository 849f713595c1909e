#include "transport/HttpTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "transport/TransactionTestSupport.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::outcomeOf;
using Optional = std::optional<std::string>;

class HttpTransactionTest : public test::TransactionTest {
 protected:
  HttpTransaction transaction_{record_};
};

TEST_F(HttpTransactionTest, AbstractMembersNameThemselves) {
  const std::string tail = ", must be overridden in a subclass";
  try {
    transaction_.generateRequest(test::urlOf("https://h/"), nullptr, nullptr, nullptr);
    ADD_FAILURE();
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), "This method, generateRequest:completeUrl:headers:verb:" + tail);
  }
  try {
    transaction_.handleResponse(nullptr, std::nullopt);
    ADD_FAILURE();
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), "This method, handleResponse:content:" + tail);
  }
}

TEST_F(HttpTransactionTest, ChecksContentTypeThenLength) {
  struct Case {
    Optional type, length, body;
    std::string outcome;
  } cases[] = {
      {"application/json", std::nullopt, "{}", "none"},
      {"Application/JSON; Charset=UTF-8", "2", "{}", "none"},
      {"application/json; charset=latin1; x=utf-8", "", "{}", "none"},  // loose on purpose
      {std::nullopt, "2", "{}", "network 2"},
      {"text/json", "2", "{}", "network 3"},
      {"application/json; charset=ISO-8859-1", "2", "{}", "network 3"},
      {"application/json", "0", "", "network 4"},
      {"application/json", "abc", "{}", "network 4"},
      {"application/json", "10", "123456789", "network 5"},
      {"application/json", std::nullopt, "", "network 6"},
      {"application/json", "5", std::nullopt, "network 6"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type.value_or("-") + " / " + c.length.value_or("-"));
    Dictionary headers;
    if (c.type) headers.set("Content-Type", *c.type);
    if (c.length) headers.set("Content-Length", *c.length);
    ErrorRef error = transaction_.validateResponseContentTypeIsJsonUtf8(headers);
    if (!error) error = transaction_.validateResponseContent(headers, test::bodyOf(c.body));
    EXPECT_EQ(outcomeOf(error), c.outcome);
    if (error) {
      EXPECT_EQ(error->userInfo(), headers);
    }
  }
  // Header names are taken exactly as the server spelt them.
  EXPECT_EQ(outcomeOf(transaction_.validateResponseContentTypeIsJsonUtf8(
                Dictionary{{"content-type", "application/json"}})),
            "network 2");
}

TEST_F(HttpTransactionTest, ServerErrorBodyClearsWhatTheServerRejected) {
  const Dictionary kept{{"ClientId", "cid"}, {"ClientSecret", "csecret"}, {"Username", "anna"}};
  struct Case {
    std::string body, outcome;
    std::optional<std::size_t> entriesLeft;
  } cases[] = {
      {R"({"error":"invalid_grant"})", "server 4", 3},
      {R"({"error":"invalid_client"})", "server 3", std::nullopt},
      {R"({"error":"unauthorized_client"})", "server 10", std::nullopt},
      {R"({"error":"access_denied","n":1})", "server 1", 9},
      {R"({"error_description":"d"})", "server -1", 9},
      {"invalid_client", "network 6", 9},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    fillRecord();
    ErrorRef error = transaction_.handleAuthenticateResponseError(bytesOf(c.body));
    EXPECT_EQ(outcomeOf(error), c.outcome);
    std::optional<Dictionary> left = record_->retrieveDataDictionary();
    EXPECT_EQ(left ? std::optional<std::size_t>(left->size()) : std::nullopt, c.entriesLeft);
    if (c.entriesLeft == 3u) {
      EXPECT_EQ(left, kept);
    }
  }
  auto error = std::dynamic_pointer_cast<VelmorAuthorizationError>(
      transaction_.parseAndHandleResponseContent(bytesOf(R"({"error":"invalid_scope","n":1})")));
  EXPECT_EQ(error->userInfo(), (Dictionary{{"error", "invalid_scope"}, {"n", 1u}}));
  EXPECT_EQ(error->serverErrorResponse()->error(), "invalid_scope");

  ErrorRef parseError = transaction_.parseAndHandleResponseContent(bytesOf("{\"a\":"));
  EXPECT_TRUE(parseError->userInfo()->findString("Parse error detail"));
}

TEST_F(HttpTransactionTest, ErrorAnswersAreReadAsJsonOrByStatus) {
  const std::string grant = R"({"error":"invalid_grant"})";
  struct Case {
    std::shared_ptr<HttpUrlResponse> response;
    std::string outcome;
  } cases[] = {
      {test::jsonResponseOf(400), "server 4"},
      {test::responseOf(400, {{"Content-Type", "application/json"}, {"Content-Length", "0"}}),
       "network 4"},
      {test::responseOf(503, {{"Content-Type", "text/html"}}), "server 503"},
      {nullptr, "server 0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outcome);
    EXPECT_EQ(outcomeOf(transaction_.handleResponseError(c.response, bytesOf(grant))), c.outcome);
  }
  auto response = test::responseOf(503, {{"Retry-After", "5"}});
  ErrorRef error = transaction_.handleResponseError(response, std::nullopt);
  EXPECT_EQ(error->userInfo(), response->allHeaderFields());
  EXPECT_EQ(error->description(), "Server error status code: 503 'service unavailable'");
}

TEST_F(HttpTransactionTest, BasicHeaderEncodesCredentialsAsStored) {
  struct Case {
    Optional id, secret;
    std::string header;
  } cases[] = {
      {"a b&c", "p:w", "Basic YSBiJmM6cDp3"},
      {"cid", std::nullopt, "Basic Y2lkOihudWxsKQ=="},
  };
  for (const Case& c : cases) {
    record_->setClientId(c.id);
    record_->setClientSecret(c.secret);
    EXPECT_EQ(transaction_.clientBasicAuthorizationHeader(), c.header);
  }
}

}  // namespace
}  // namespace velmor
