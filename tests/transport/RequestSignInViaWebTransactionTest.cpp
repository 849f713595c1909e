#include "transport/RequestSignInViaWebTransaction.h"

#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <string>

#include "storage/ProofKey.h"
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

  RequestSignInViaWebTransaction transaction_{record_};
};

TEST_F(RequestSignInViaWebTransactionTest, BuildsTheSignInUrl) {
  record_->setClientId("c id/é");
  const std::string kFront = "response_type=code&client_id=c%20id%2F%C3%A9&redirect_uri=";
  struct Case {
    std::string base, redirect;
    std::optional<Scopes> scopes;
    std::optional<Dictionary> extra;
    std::string url;  // "<state>" stands for the state generated
  } cases[] = {
      {"https://h.example/a/signin", kRedirect, std::nullopt, std::nullopt,
       "https://h.example/a/signin?" + kFront + "com.example.app%3A%2F%2Fdone&state=<state>"},
      {"https://h.example/signin?a=1&b=x%20y#top", "https://app.example/cb?x=1&y='",
       Scopes{"read", "write all"}, std::nullopt,
       "https://h.example/signin?a=1&b=x%20y&" + kFront +
           "https%3A%2F%2Fapp.example%2Fcb%3Fx%3D1%26y%3D'&scope=read%20write%20all&state=<state>"},
      {"https://h.example/signin?", kRedirect, Scopes{}, std::nullopt,
       "https://h.example/signin?" + kFront + "com.example.app%3A%2F%2Fdone&scope=&state=<state>"},
      {"https://h.example:8443/", kRedirect, Scopes{"\n a", "b\t", "c"},
       Dictionary{{"z", "1"}, {"a b", "c&d=e"}, {"n", 5}},
       "https://h.example:8443/?" + kFront +
           "com.example.app%3A%2F%2Fdone&scope=a%20b%09%20c&state=<state>&a%20b=c%26d%3De&n=5&z=1"},
      {"urn:example:signin", kRedirect, std::nullopt, std::nullopt, "none"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.base);
    RequestSignInViaWebTransaction transaction(record_);
    transaction.setScopes(c.scopes);
    transaction.setExtraParameters(c.extra);
    const std::optional<HttpRequest> request =
        transaction.generateRequest(urlOf(c.base), urlOf(c.redirect));
    std::string url = request ? request->url.absoluteString() : "none";
    if (const std::size_t at = url.find(*transaction.lastGeneratedState()); at != url.npos) {
      url.replace(at, 32, "<state>");
    }
    EXPECT_EQ(url, c.url);
  }
}

TEST_F(RequestSignInViaWebTransactionTest, AHashRoutedPageKeepsItsPathAndLosesItsFragment) {
  record_->setClientId("c");
  const std::optional<HttpRequest> request =
      transaction_.generateRequest(urlOf("https://h.example/app/?a=1#/sign/in"), urlOf(kRedirect));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->url.absoluteString(),
            "https://h.example/app/?a=1&response_type=code&client_id=c&redirect_uri=com.example."
            "app%3A%2F%2Fdone&state=" +
                *transaction_.lastGeneratedState());
}

TEST_F(RequestSignInViaWebTransactionTest, AProofKeyChallengeEndsTheQueryWhenAskedFor) {
  record_->setClientId("c");
  transaction_.setExtraParameters(Dictionary{{"prompt", "login"}});
  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect)));
  EXPECT_EQ(transaction_.codeVerifier(), std::nullopt);

  transaction_.setUsesPkce(true);
  const std::optional<HttpRequest> request =
      transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect));
  ASSERT_TRUE(request && transaction_.codeVerifier());
  const std::string verifier = *transaction_.codeVerifier();
  EXPECT_EQ(verifier.size(), 43u);
  EXPECT_EQ(request->url.absoluteString(),
            "https://h.example/s?response_type=code&client_id=c&redirect_uri=com.example.app%3A%2F%"
            "2Fdone&state=" +
                *transaction_.lastGeneratedState() + "&prompt=login&code_challenge=" +
                ProofKey::codeChallengeForVerifier(verifier) + "&code_challenge_method=S256");
  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect)));
  EXPECT_NE(transaction_.codeVerifier(), verifier);
}

TEST_F(RequestSignInViaWebTransactionTest, EveryRequestHasAFreshStateAndTransactionId) {
  // Version-4 UUIDs: without hyphens for the state, with them for the id.
  const std::regex state("[0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15}");
  const std::regex id("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  const auto first = transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect));
  const std::string firstState = *transaction_.lastGeneratedState();
  const auto second = transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect));
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(std::regex_match(firstState, state)) << firstState;
  EXPECT_NE(firstState, transaction_.lastGeneratedState());
  EXPECT_EQ(second->method, "GET");
  ASSERT_EQ(second->headerFields.size(), 2u);
  EXPECT_EQ(second->headerFields[0].first + ": " + second->headerFields[0].second,
            "Cache-Control: no-cache, no-store");
  EXPECT_EQ(second->headerFields[1].first, "velmor_tid");
  EXPECT_TRUE(std::regex_match(second->headerFields[1].second, id));
  EXPECT_NE(first->headerFields[1].second, second->headerFields[1].second);
}

TEST_F(RequestSignInViaWebTransactionTest, ReadsTheRedirectOrReportsWhatIsWrong) {
  const std::string s = kState;
  const Dictionary none;
  auto missing = [](const char* name) { return Dictionary{{"Missing response value", name}}; };
  struct Case {
    std::string query, outcome;
    std::optional<Dictionary> userInfo;
    Optional description, code, username;
    bool recordKept = true;
  } cases[] = {
      {"code=a%2Bb&state=" + s + "&x_username=anna%40example.com",
       "none",
       {},
       {},
       "a+b",
       "anna@example.com"},
      {"x_username=u&code=c&state=0123456789ABCDEF0123456789abcdef&error=",
       "none",
       {},
       {},
       "c",
       "u"},
      {"state=s&x_username=u", "client 3", missing("code"), "Missing response value", {}, "-"},
      {"code=&state=s", "client 3", missing("code"), "Missing response value", "", "-"},
      {"code=%ZZ&state=s", "client 3", missing("code"), "Missing response value", {}, "-"},
      {"code=c&x_username=u", "client 3", missing("state"), "Missing response value", "c", "-"},
      {"code=c&state=&x_username=u", "client 3", missing("state"), "Missing response value", "c",
       "-"},
      {"code=c&state=" + s + "0&x_username=u", "client 1", {}, "Invalid operation", "c", "-"},
      {"code=c&state=" + s, "client 3", missing("x_username"), "Missing response value", "c", "-"},
      {"code=c&state=" + s + "&x_username=", "client 3", missing("x_username"),
       "Missing response value", "c", "-"},
      {"error=access_denied&error_description=User+cancelled&code=c", "server 1", none,
       "Server error: 'access_denied'", "-", "-"},
      {"error=invalid_client&error_uri=https%3A%2F%2Fh%2Fe&state=s1", "server 3",
       Dictionary{{"errorUrl", "https://h/e"}, {"state", "s1"}}, "Server error: 'invalid_client'",
       "-", "-", false},
      {"error=unauthorized_client&state=&error_uri=", "server 10", none,
       "Server error: 'unauthorized_client'", "-", "-", false},
      {"error=invalid_grant&state=" + s, "server 4", Dictionary{{"state", kState}},
       "Server error: 'invalid_grant'", "-", "-"},
      {"error=Invalid_Client", "server -1", none, "Server error: 'Invalid_Client'", "-", "-"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    fillRecord();
    transaction_.setLastGeneratedState(kState);
    Optional code = "-", username = "-";
    std::optional<Url> redirect = urlOf("untouched:x");
    ErrorRef error = transaction_.handleResponse(urlOf(std::string(kRedirect) + "?" + c.query),
                                                 &code, &redirect, &username);
    ASSERT_EQ(outcomeOf(error), c.outcome);
    if (error) {
      EXPECT_EQ(error->userInfo(), c.userInfo);
      EXPECT_EQ(error->description(), c.description);
    }
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(username, c.username);
    const bool serverError = c.outcome.starts_with("server");
    EXPECT_EQ(redirect, urlOf(serverError ? "untouched:x" : kRedirect));
    EXPECT_EQ(record_->hasClientId(), c.recordKept);
    EXPECT_EQ(record_->hasRefreshToken(), c.recordKept);
  }
  const ErrorRef error = transaction_.handleResponse(
      urlOf("app:x?error=access_denied&error_description=User+cancelled"), nullptr, nullptr,
      nullptr);
  const auto& denied = dynamic_cast<const VelmorAuthorizationError&>(*error);
  EXPECT_EQ(denied.serverErrorText(), "access_denied");
  EXPECT_EQ(denied.serverErrorDescription(), "User cancelled");
  EXPECT_EQ(denied.authorizationServerError(), 1);
}

TEST_F(RequestSignInViaWebTransactionTest, TheStateMustComeFromTheLastRequestBuilt) {
  auto handle = [&](const std::string& state) {
    return outcomeOf(transaction_.handleResponse(
        urlOf(std::string(kRedirect) + "?code=c&x_username=u&state=" + state), nullptr, nullptr,
        nullptr));
  };
  // Nothing built yet: any state is taken on trust, but one must be there.
  EXPECT_EQ(handle("anything"), "none");
  EXPECT_EQ(handle(""), "client 3");
  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect)));
  const std::string first = *transaction_.lastGeneratedState();
  ASSERT_TRUE(transaction_.generateRequest(urlOf("https://h.example/s"), urlOf(kRedirect)));
  std::string second = *transaction_.lastGeneratedState();
  EXPECT_EQ(handle(first), "client 1");
  for (char& ch : second) ch = static_cast<char>(ch >= 'a' ? ch - 'a' + 'A' : ch);
  EXPECT_EQ(handle(second), "none");
}

}  // namespace
}  // namespace velmor
