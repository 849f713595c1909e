#include "transport/RequestSignInViaWebTransaction.h"

#include <gtest/gtest.h>

#include <cctype>
#include <optional>
#include <regex>
#include <string>

#include "transport/TransactionTestSupport.h"

namespace velmor {
namespace {

using test::outcomeOf;
using test::urlOf;
using Optional = std::optional<std::string>;
using Scopes = RequestSignInViaWebTransaction::Scopes;

constexpr char kState[] = "0123456789abcdef0123456789abcdef";
constexpr char kRedirect[] = "com.example.app://done";

class RequestSignInViaWebTransactionTest : public test::TransactionTest {
 protected:
  RequestSignInViaWebTransactionTest() { fillRecord(); }

  // The sign-in URL with "<state>" standing for the state just generated.
  std::string signInUrl(RequestSignInViaWebTransaction& transaction, const std::string& base,
                        const std::string& redirect = kRedirect) {
    const std::optional<HttpRequest> request =
        transaction.generateRequest(urlOf(base), urlOf(redirect));
    if (!request) return "none";
    std::string url = request->url.absoluteString();
    const std::string state = transaction.lastGeneratedState().value_or("?");
    if (const std::size_t at = url.find(state); at != std::string::npos) {
      url.replace(at, state.size(), "<state>");
    }
    return url;
  }

  RequestSignInViaWebTransaction transaction_{record_};
};

TEST_F(RequestSignInViaWebTransactionTest, BuildsTheSignInUrl) {
  struct Case {
    std::string base;
    std::optional<Scopes> scopes;
    std::optional<Dictionary> extra;
    std::string url;
  } cases[] = {
      {"https://auth.example.com/a/signin", std::nullopt, std::nullopt,
       "https://auth.example.com/a/signin?response_type=code&client_id=cid"
       "&redirect_uri=com.example.app%3A%2F%2Fdone&state=<state>"},
      {"https://auth.example.com/signin?a=1&b=x%20y#top", Scopes{"read", "write all"}, std::nullopt,
       "https://auth.example.com/signin?a=1&b=x%20y&response_type=code&client_id=cid"
       "&redirect_uri=com.example.app%3A%2F%2Fdone&scope=read%20write%20all&state=<state>"},
      {"https://auth.example.com/signin?", Scopes{}, std::nullopt,
       "https://auth.example.com/signin?response_type=code&client_id=cid"
       "&redirect_uri=com.example.app%3A%2F%2Fdone&scope=&state=<state>"},
      {"https://auth.example.com:8443/", Scopes{"\n a", "b\t", "c"},
       Dictionary{{"z", "1"}, {"a b", "c&d=e"}, {"n", 5}},
       "https://auth.example.com:8443/?response_type=code&client_id=cid"
       "&redirect_uri=com.example.app%3A%2F%2Fdone&scope=a%20b%09%20c&state=<state>"
       "&a%20b=c%26d%3De&n=5&z=1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.base);
    RequestSignInViaWebTransaction transaction(record_);
    transaction.setScopes(c.scopes);
    transaction.setExtraParameters(c.extra);
    EXPECT_EQ(signInUrl(transaction, c.base), c.url);
  }
}

TEST_F(RequestSignInViaWebTransactionTest, EscapesTheClientIdAndTheWholeRedirectUrl) {
  record_->setClientId("c id/é");
  EXPECT_EQ(signInUrl(transaction_, "https://h.example/s", "https://app.example/cb?x=1&y='"),
            "https://h.example/s?response_type=code&client_id=c%20id%2F%C3%A9"
            "&redirect_uri=https%3A%2F%2Fapp.example%2Fcb%3Fx%3D1%26y%3D'&state=<state>");
  record_->deleteClientId();
  EXPECT_EQ(signInUrl(transaction_, "https://h.example/s"),
            "https://h.example/s?response_type=code&client_id=(null)"
            "&redirect_uri=com.example.app%3A%2F%2Fdone&state=<state>");
}

TEST_F(RequestSignInViaWebTransactionTest, EveryRequestHasAFreshStateAndTransactionId) {
  // A version-4 UUID: without hyphens for the state, with them for the id.
  const std::regex state("[0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15}");
  const std::regex id("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::string previousState, previousId;
  for (int i = 0; i < 3; ++i) {
    const std::optional<HttpRequest> request =
        transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect));
    ASSERT_TRUE(request.has_value());
    const std::string current = *transaction_.lastGeneratedState();
    EXPECT_TRUE(std::regex_match(current, state)) << current;
    EXPECT_NE(request->url.absoluteString().find("&state=" + current), std::string::npos);
    EXPECT_EQ(request->method, "GET");
    ASSERT_EQ(request->headerFields.size(), 2u);
    EXPECT_EQ(request->headerFields[0],
              (std::pair<std::string, std::string>("Cache-Control", "no-cache, no-store")));
    EXPECT_EQ(request->headerFields[1].first, "velmor_tid");
    const std::string& transactionId = request->headerFields[1].second;
    EXPECT_TRUE(std::regex_match(transactionId, id)) << transactionId;
    EXPECT_TRUE(request->body.empty());
    EXPECT_NE(current, previousState);
    EXPECT_NE(transactionId, previousId);
    previousState = current;
    previousId = transactionId;
  }
}

TEST_F(RequestSignInViaWebTransactionTest, AnOpaqueBaseGivesNoRequest) {
  EXPECT_EQ(signInUrl(transaction_, "urn:example:signin"), "none");
}

TEST_F(RequestSignInViaWebTransactionTest, ReadsTheRedirect) {
  struct Case {
    std::string query;
    std::string outcome;
    std::optional<Dictionary> userInfo;
    Optional code, username;
  } cases[] = {
      {"code=a%2Bb&state=" + std::string(kState) + "&x_username=anna%40example.com", "none",
       std::nullopt, "a+b", "anna@example.com"},
      {"x_username=u&code=c&state=0123456789ABCDEF0123456789abcdef&error=", "none", std::nullopt,
       "c", "u"},
      {"state=s&x_username=u", "client 3", Dictionary{{"Missing response value", "code"}},
       std::nullopt, "untouched"},
      {"code=&state=s", "client 3", Dictionary{{"Missing response value", "code"}}, "",
       "untouched"},
      {"code=%ZZ&state=s", "client 3", Dictionary{{"Missing response value", "code"}}, std::nullopt,
       "untouched"},
      {"code=c&x_username=u", "client 3", Dictionary{{"Missing response value", "state"}}, "c",
       "untouched"},
      {"code=c&state=&x_username=u", "client 3", Dictionary{{"Missing response value", "state"}},
       "c", "untouched"},
      {"code=c&state=0123456789abcdef0123456789abcdee&x_username=u", "client 1", std::nullopt, "c",
       "untouched"},
      {"code=c&state=" + std::string(kState), "client 3",
       Dictionary{{"Missing response value", "x_username"}}, "c", "untouched"},
      {"code=c&state=" + std::string(kState) + "&x_username=", "client 3",
       Dictionary{{"Missing response value", "x_username"}}, "c", "untouched"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    transaction_.setLastGeneratedState(kState);
    Optional code = "untouched", username = "untouched";
    std::optional<Url> redirect = urlOf("untouched:x");
    ErrorRef error = transaction_.handleResponse(urlOf(std::string(kRedirect) + "?" + c.query),
                                                 &code, &redirect, &username);
    ASSERT_EQ(outcomeOf(error), c.outcome);
    if (error) {
      EXPECT_EQ(error->userInfo(), c.userInfo);
    }
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(username, c.username);
    EXPECT_EQ(redirect, urlOf(kRedirect));
  }
}

TEST_F(RequestSignInViaWebTransactionTest, DescribesTheMissingValueAndStateErrors) {
  ErrorRef missing =
      transaction_.handleResponse(urlOf("https://app.example/cb#f"), nullptr, nullptr, nullptr);
  ASSERT_EQ(outcomeOf(missing), "client 3");
  EXPECT_EQ(missing->description(), "Missing response value");
  transaction_.setLastGeneratedState(kState);
  ErrorRef state = transaction_.handleResponse(
      urlOf("https://app.example/cb?code=c&state=x&x_username=u"), nullptr, nullptr, nullptr);
  ASSERT_EQ(outcomeOf(state), "client 1");
  EXPECT_EQ(state->description(), "Invalid operation");
}

TEST_F(RequestSignInViaWebTransactionTest, ServerErrorsSetNothingAndDropAnUnknownClient) {
  struct Case {
    std::string query;
    std::string outcome;
    Dictionary userInfo;
    Optional description;
    bool recordKept;
  } cases[] = {
      {"error=access_denied&error_description=User+cancelled&code=c",
       "server 1",
       {},
       "User cancelled",
       true},
      {"error=invalid_client&error_uri=https%3A%2F%2Fh%2Fe&state=s1", "server 3",
       Dictionary{{"errorUrl", "https://h/e"}, {"state", "s1"}}, std::nullopt, false},
      {"error=unauthorized_client&state=&error_uri=", "server 10", {}, std::nullopt, false},
      {"error=invalid_grant&state=" + std::string(kState), "server 4",
       Dictionary{{"state", kState}}, std::nullopt, true},
      {"error=Invalid_Client", "server -1", {}, std::nullopt, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    fillRecord();
    Optional code = "untouched", username = "untouched";
    std::optional<Url> redirect = urlOf("untouched:x");
    ErrorRef error = transaction_.handleResponse(urlOf(std::string(kRedirect) + "?" + c.query),
                                                 &code, &redirect, &username);
    ASSERT_EQ(outcomeOf(error), c.outcome);
    const auto& failure = dynamic_cast<const VelmorAuthorizationError&>(*error);
    EXPECT_EQ(failure.userInfo(), c.userInfo);
    EXPECT_EQ(failure.authorizationServerError(), error->code());
    const std::string text = c.query.substr(6, c.query.find('&') - 6);
    EXPECT_EQ(failure.serverErrorText(), text);
    EXPECT_EQ(failure.serverErrorDescription(), c.description);
    EXPECT_EQ(failure.description(), "Server error: '" + text + "'");
    EXPECT_EQ(code, "untouched");
    EXPECT_EQ(username, "untouched");
    EXPECT_EQ(redirect, urlOf("untouched:x"));
    EXPECT_EQ(record_->hasClientId(), c.recordKept);
    EXPECT_EQ(record_->hasRefreshToken(), c.recordKept);
  }
}

TEST_F(RequestSignInViaWebTransactionTest, TheStateMustComeFromTheLastRequestBuilt) {
  const Url redirectOf = urlOf(kRedirect);
  auto handle = [&](const std::string& state) {
    return outcomeOf(transaction_.handleResponse(
        urlOf(std::string(kRedirect) + "?code=c&x_username=u&state=" + state), nullptr, nullptr,
        nullptr));
  };
  // Nothing built yet: any state is taken on trust, but one must be there.
  EXPECT_EQ(handle("anything"), "none");
  EXPECT_EQ(handle(""), "client 3");

  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), redirectOf));
  const std::string first = *transaction_.lastGeneratedState();
  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), redirectOf));
  const std::string second = *transaction_.lastGeneratedState();
  EXPECT_EQ(handle(first), "client 1");
  std::string upper = second;
  for (char& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  EXPECT_EQ(handle(upper), "none");
}

}  // namespace
}  // namespace velmor
