#include "transport/HttpTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "json/xSBJsonParser.h"
#include "transport/TransactionTestSupport.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using test::bytesOf;
using test::domainAndCode;
using test::networkError;
using test::serverError;

class HttpTransactionTest : public test::TransactionTest {
 protected:
  HttpTransaction transaction_{record_};
};

TEST_F(HttpTransactionTest, AbstractMembersNameThemselves) {
  try {
    transaction_.generateRequest(test::kServerBase, nullptr, nullptr, nullptr);
    FAIL() << "no exception";
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.name(), "NSInternalInconsistencyException");
    EXPECT_EQ(e.reason(),
              "This method, generateRequest:completeUrl:headers:verb:, must be overridden in a "
              "subclass");
  }
  try {
    transaction_.handleResponse(nullptr, std::nullopt);
    FAIL() << "no exception";
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), "This method, handleResponse:content:, must be overridden in a subclass");
  }
}

TEST_F(HttpTransactionTest, JsonContentTypeTestIsLoose) {
  struct Case {
    std::optional<std::string> contentType;
    bool json;
  } cases[] = {
      {"application/json", true},
      {"Application/JSON; Charset=UTF-8", true},
      {"application/json;charset=utf-8", true},
      {"application/json; charset=latin1; x=utf-8", true},
      {"application/json-patch+json", true},
      {"application/jsonutf-8", true},
      {"text/json", false},
      {"application/json; charset=ISO-8859-1", false},
      {"application/json; CHARSET=utf8", false},
      {" application/json", false},
      {"", false},
      {std::nullopt, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.contentType.value_or("(absent)"));
    EXPECT_EQ(transaction_.isContentTypeJsonUtf8(c.contentType), c.json);
  }
}

TEST_F(HttpTransactionTest, ContentTypeValidationUsesTheExactHeaderName) {
  struct Case {
    Dictionary headers;
    std::string outcome;
  } cases[] = {
      {{{"Content-Type", "application/json"}}, "no error"},
      {{}, networkError(2)},
      {{{"content-type", "application/json"}}, networkError(2)},
      {{{"Content-Type", "text/html"}}, networkError(3)},
      {{{"Content-Type", ""}}, networkError(3)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Value(c.headers).description());
    ErrorRef error = transaction_.validateResponseContentTypeIsJsonUtf8(c.headers);
    EXPECT_EQ(domainAndCode(error), c.outcome);
    if (error) {
      EXPECT_EQ(error->userInfo(), c.headers);
    }
  }
}

TEST_F(HttpTransactionTest, ContentValidationChecksDeclaredAndActualLength) {
  struct Case {
    const char* name;
    std::optional<std::string> declared;
    std::optional<std::string> body;
    std::string outcome;
  } cases[] = {
      {"declared zero, empty body", "0", "", networkError(4)},
      {"declared zero, a body", "0", "{}", networkError(4)},
      {"non-numeric counts as zero", "abc", "{}", networkError(4)},
      {"ten declared, nine sent", "10", "123456789", networkError(5)},
      {"three declared, two sent", "3", "{}", networkError(5)},
      {"nothing declared, empty body", std::nullopt, "", networkError(6)},
      {"nothing declared, no body", std::nullopt, std::nullopt, networkError(6)},
      {"length declared, empty body", "5", "", networkError(6)},
      {"lengths agree", "2", "{}", "no error"},
      {"leading digits count", "2 bytes", "{}", "no error"},
      {"nothing declared, a body", std::nullopt, "{}", "no error"},
      {"empty declaration is none", "", "{}", "no error"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Dictionary headers{{"Content-Type", "application/json"}};
    if (c.declared) headers.set("Content-Length", *c.declared);
    std::optional<Data> body;
    if (c.body) body = bytesOf(*c.body);
    ErrorRef error = transaction_.validateResponseContent(headers, body);
    EXPECT_EQ(domainAndCode(error), c.outcome);
    if (error) {
      EXPECT_EQ(error->userInfo(), headers);
    }
  }
}

TEST_F(HttpTransactionTest, ParseFailureCarriesTheParserReason) {
  xSBJsonParser reference;
  ASSERT_FALSE(reference.objectWithString("{\"a\":"));

  ErrorRef error;
  EXPECT_EQ(transaction_.parseJsonData(bytesOf("{\"a\":"), &error), std::nullopt);
  EXPECT_EQ(domainAndCode(error), networkError(6));
  EXPECT_EQ(error->userInfo(), (Dictionary{{"Parse error detail", *reference.error()}}));
  EXPECT_EQ(error->description(), "Unexpected response content'");

  EXPECT_EQ(transaction_.parseJsonData(std::nullopt, nullptr), std::nullopt);
  ErrorRef untouched;
  EXPECT_EQ(transaction_.parseJsonData(bytesOf("{\"a\":[1]}"), &untouched),
            Value(Dictionary{{"a", Array{Value(1u)}}}));
  EXPECT_FALSE(untouched);
}

TEST_F(HttpTransactionTest, ServerErrorBodyClearsWhatTheServerRejected) {
  enum class Left { kEverything, kClientOnly, kNothing };
  struct Case {
    std::string body;
    std::int64_t code;
    Left left;
  } cases[] = {
      {R"({"error":"invalid_grant","error_description":"expired"})", 4, Left::kClientOnly},
      {R"({"error":"invalid_client"})", 3, Left::kNothing},
      {R"({"error":"unauthorized_client"})", 10, Left::kNothing},
      {R"({"error":"access_denied"})", 1, Left::kEverything},
      {R"({"error":"Invalid_Grant"})", -1, Left::kEverything},
      {R"({"error_description":"no code"})", -1, Left::kEverything},
      {R"(["invalid_client"])", -1, Left::kEverything},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body);
    fillRecord();
    ErrorRef error = transaction_.parseAndHandleResponseContent(bytesOf(c.body));
    EXPECT_EQ(domainAndCode(error), serverError(c.code));
    auto serverError = std::dynamic_pointer_cast<VelmorAuthorizationError>(error);
    ASSERT_TRUE(serverError);
    EXPECT_EQ(serverError->authorizationServerError(), c.code);
    ASSERT_TRUE(serverError->serverErrorResponse());

    std::optional<Dictionary> left = record_->retrieveDataDictionary();
    switch (c.left) {
      case Left::kNothing:
        EXPECT_EQ(left, std::nullopt);
        break;
      case Left::kClientOnly:
        EXPECT_EQ(
            left,
            (Dictionary{{"ClientId", "cid"}, {"ClientSecret", "csecret"}, {"Username", "anna"}}));
        break;
      case Left::kEverything:
        EXPECT_EQ(record_->accessToken(), "old-access");
        EXPECT_EQ(record_->refreshTokenValidEndDateTime(), kOldEnd);
        EXPECT_EQ(left->size(), 9u);
        break;
    }
  }
}

TEST_F(HttpTransactionTest, ServerErrorKeepsTheParsedBodyAsUserInformation) {
  ErrorRef error = transaction_.parseAndHandleResponseContent(
      bytesOf(R"({"error":"invalid_request","error_uri":"https://e","n":1})"));
  EXPECT_EQ(error->userInfo(),
            (Dictionary{{"error", "invalid_request"}, {"error_uri", "https://e"}, {"n", 1u}}));
  auto serverError = std::dynamic_pointer_cast<VelmorAuthorizationError>(error);
  EXPECT_EQ(serverError->serverErrorResponse()->errorUri(), "https://e");
}

TEST_F(HttpTransactionTest, UnreadableErrorBodyClearsNothing) {
  fillRecord();
  EXPECT_EQ(domainAndCode(transaction_.handleAuthenticateResponseError(bytesOf("invalid_client"))),
            networkError(6));
  EXPECT_EQ(domainAndCode(transaction_.handleAuthenticateResponseError(std::nullopt)),
            networkError(6));
  EXPECT_EQ(record_->clientId(), "cid");
}

TEST_F(HttpTransactionTest, ErrorAnswersAreReadAsJsonOrByStatus) {
  const std::string grant = R"({"error":"invalid_grant"})";
  struct Case {
    const char* name;
    std::shared_ptr<HttpUrlResponse> response;
    std::optional<std::string> body;
    std::string outcome;
  } cases[] = {
      {"JSON body", test::jsonResponseOf(400), grant, serverError(4)},
      {"JSON with zero length",
       test::responseOf(400, {{"Content-Type", "application/json"}, {"Content-Length", "0"}}),
       grant, networkError(4)},
      {"JSON without body", test::jsonResponseOf(401), std::nullopt, networkError(6)},
      {"HTML page", test::responseOf(503, {{"Content-Type", "text/html"}}), grant,
       serverError(503)},
      {"lower-case header name", test::responseOf(400, {{"content-type", "application/json"}}),
       grant, serverError(400)},
      {"no response", nullptr, grant, serverError(0)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<Data> body;
    if (c.body) body = bytesOf(*c.body);
    ErrorRef error = transaction_.handleResponseError(c.response, body);
    EXPECT_EQ(domainAndCode(error), c.outcome);
  }
}

TEST_F(HttpTransactionTest, StatusErrorCarriesResponseAndHeaders) {
  auto response = test::responseOf(503, {{"Content-Type", "text/html"}, {"Retry-After", "5"}});
  auto error = std::dynamic_pointer_cast<VelmorAuthorizationError>(
      transaction_.handleResponseError(response, bytesOf("<html/>")));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->httpUrlResponse(), response);
  EXPECT_EQ(error->userInfo(), response->allHeaderFields());
  EXPECT_EQ(error->description(), "Server error status code: 503 'service unavailable'");
}

TEST_F(HttpTransactionTest, BasicHeaderEncodesCredentialsAsStored) {
  struct Case {
    std::optional<std::string> id, secret;
    std::string header;
  } cases[] = {
      {"cid", "sec", "Basic Y2lkOnNlYw=="},
      {"a b&c", "p:w", "Basic YSBiJmM6cDp3"},
      {"cid", std::nullopt, "Basic Y2lkOihudWxsKQ=="},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.header);
    record_->setClientId(c.id);
    record_->setClientSecret(c.secret);
    EXPECT_EQ(transaction_.clientBasicAuthorizationHeader(), c.header);
  }
}

}  // namespace
}  // namespace velmor
