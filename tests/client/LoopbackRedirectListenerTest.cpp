#include "velmor/LoopbackRedirectListener.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <thread>

#include "storage/SecureData.h"
#include "testing/FakeHttpClient.h"
#include "testing/RawHttpConnection.h"
#include "testing/ScopedSecretStore.h"
#include "testing/WaitableCounter.h"
#include "transport/HttpUtility.h"
#include "velmor/Exception.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::RawHttpAnswer;
using test::RawHttpConnection;

constexpr char kToken[] = "app-token";
const Data kKey(32, 7);

// "client 1", "NSURLErrorDomain -1001", "none".
std::string outcomeOf(const ErrorRef& error) {
  if (!error) return "none";
  const std::string domain =
      error->domain() == AuthorizationClientErrorDomain ? "client" : error->domain();
  return domain + " " + std::to_string(error->code());
}

// A browser's request, sent in full at once; the answer is read on a thread
// of its own, since the listener holds it until the sign-in is decided.
class BrowserRequest final {
 public:
  BrowserRequest(std::uint16_t port, const std::string& request)
      : connection_(std::make_unique<RawHttpConnection>(port)) {
    connection_->send(request);
    reader_ = std::thread([this] { response_ = connection_->readToEnd(); });
  }
  ~BrowserRequest() {
    if (reader_.joinable()) reader_.join();
  }

  RawHttpAnswer answer() {
    reader_.join();
    return RawHttpAnswer::of(response_);
  }

 private:
  std::unique_ptr<RawHttpConnection> connection_;
  std::thread reader_;
  std::string response_;
};

class LoopbackRedirectListenerTest : public ::testing::Test {
 protected:
  LoopbackRedirectListenerTest() {
    HttpClient::setDefault(http_);
    SecureData record("auth.example", kToken, kKey, 0);
    record.setClientId("cid");
    record.setClientSecret("secret");
    ErrorRef error;
    listener_ = LoopbackRedirectListener::start(&error);
    EXPECT_TRUE(listener_) << outcomeOf(error);
    port_ = static_cast<std::uint16_t>(std::stoi(listener_->redirectUrl().port().value_or("0")));
  }
  ~LoopbackRedirectListenerTest() override { HttpClient::setDefault(nullptr); }

  // Builds the sign-in request for the listener's redirect URL and answers
  // the state it carries.
  std::string startSignIn() {
    ErrorRef error;
    const std::optional<HttpRequest> page = client_->createWebSignInRequestWithBaseUrl(
        Url::withString("https://auth.example/signin"), listener_->redirectUrl(), std::nullopt,
        std::nullopt, &error);
    EXPECT_TRUE(page) << outcomeOf(error);
    http_->enqueue({200,
                    {{"Content-Type", "application/json"}},
                    R"({"access_token":"a1","token_type":"bearer","expires_in":60})"});
    return *HttpUtility::parseQueryString(page->url.query().value_or("")).findString("state");
  }

  std::string host() const { return "127.0.0.1:" + std::to_string(port_); }
  static std::string callback(const std::string& state) {
    return "/callback?code=c1&state=" + state + "&x_username=anna";
  }
  RawHttpAnswer get(const std::string& target) {
    RawHttpConnection connection(port_);
    connection.send(RawHttpConnection::get(target, host()));
    return RawHttpAnswer::of(connection.readToEnd());
  }

  std::string wait(std::chrono::milliseconds timeout = test::kGenerousTimeout) {
    ErrorRef error;
    const std::optional<LoopbackRedirectListener::Scopes> scopes =
        listener_->waitForSignIn(*client_, timeout, &error);
    EXPECT_EQ(scopes.has_value(), !error);
    return outcomeOf(error);
  }

  test::ScopedSecretStore store_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  std::unique_ptr<VelmorAuthorizationClient> client_ = std::make_unique<VelmorAuthorizationClient>(
      Url::withString("https://auth.example/api/"), kToken, kKey);
  std::unique_ptr<LoopbackRedirectListener> listener_;
  std::uint16_t port_ = 0;
};

TEST_F(LoopbackRedirectListenerTest, ListensAtTheLoopbackIpLiteral) {
  EXPECT_TRUE(std::regex_match(listener_->redirectUrl().absoluteString(),
                               std::regex(R"(http://127\.0\.0\.1:[1-9][0-9]*/callback)")));
  ErrorRef error;
  auto other = LoopbackRedirectListener::start("/signed-in", &error);
  ASSERT_TRUE(other);
  EXPECT_EQ(other->redirectUrl().path(), "/signed-in");
  for (const char* path : {"", "callback", "/a?b", "/a#b"}) {
    SCOPED_TRACE(path);
    EXPECT_THROW(LoopbackRedirectListener::start(path, &error), InvalidArgumentException);
  }
}

TEST_F(LoopbackRedirectListenerTest, AStateDifferingOnlyInCaseSignsInAndTheBrowserIsTold) {
  std::string state = startSignIn();
  for (char& c : state) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  BrowserRequest browser(port_, RawHttpConnection::get(callback(state), host()));
  EXPECT_EQ(wait(), "none");
  const RawHttpAnswer page = browser.answer();
  EXPECT_EQ(page.statusLine, "HTTP/1.1 200 OK");
  EXPECT_NE(page.body.find("<h1>Signed in</h1>"), std::string::npos);
  EXPECT_NE(page.body.find("<p id=\"message\">You are signed in as anna. You can close this "
                           "window and return to the application.</p>"),
            std::string::npos);
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateAuthorized);
  EXPECT_EQ(client_->username(), "anna");

  // One listener, one sign-in.
  const RawHttpAnswer again = get(callback(state));
  EXPECT_EQ(again.statusLine, "HTTP/1.1 409 Conflict");
  EXPECT_NE(again.body.find("<h1>Already handled</h1>"), std::string::npos);
  EXPECT_EQ(wait(0ms), "client 1");
}

TEST_F(LoopbackRedirectListenerTest, AWrongStateReachesTheClientsCheckAndTheErrorPage) {
  startSignIn();
  BrowserRequest browser(port_, RawHttpConnection::get(callback(std::string(32, '0')), host()));
  EXPECT_EQ(wait(), "client 1");
  const RawHttpAnswer page = browser.answer();
  EXPECT_EQ(page.statusLine, "HTTP/1.1 400 Bad Request");
  EXPECT_NE(page.body.find("<h1>Sign-in failed</h1>"), std::string::npos);
  EXPECT_NE(page.body.find("The application could not sign you in: Invalid operation."),
            std::string::npos);
  EXPECT_TRUE(http_->requests().empty());
}

TEST_F(LoopbackRedirectListenerTest, OtherRequestsAreAnsweredAndChangeNothing) {
  const std::string state = startSignIn();
  const std::string others[] = {
      RawHttpConnection::get("/favicon.ico", host()),
      RawHttpConnection::get("/", host()),
      RawHttpConnection::get("/callbackx" + callback(state).substr(9), host()),
      RawHttpConnection::get(callback(state), "localhost:" + std::to_string(port_)),
      "GET " + callback(state) + " HTTP/1.1\r\n\r\n",
      "POST " + callback(state) + " HTTP/1.1\r\nHost: " + host() + "\r\n\r\n",
  };
  for (const std::string& request : others) {
    SCOPED_TRACE(request);
    RawHttpConnection connection(port_);
    connection.send(request);
    const RawHttpAnswer answer = RawHttpAnswer::of(connection.readToEnd());
    EXPECT_EQ(answer.statusLine, "HTTP/1.1 404 Not Found");
    EXPECT_NE(answer.body.find("<h1>Not found</h1>"), std::string::npos);
  }
  EXPECT_EQ(wait(0ms), "NSURLErrorDomain -1001");
  BrowserRequest browser(port_, RawHttpConnection::get(callback(state), host()));
  EXPECT_EQ(wait(), "none");
  EXPECT_EQ(browser.answer().statusLine, "HTTP/1.1 200 OK");
}

TEST_F(LoopbackRedirectListenerTest, APastedRedirectCountsAsTheBrowsers) {
  const std::string state = startSignIn();
  listener_->deliverRedirect(*Url::withString("http://" + host() + callback(state)));
  EXPECT_EQ(wait(), "none");
  EXPECT_EQ(get(callback(state)).statusLine, "HTTP/1.1 409 Conflict");
}

TEST_F(LoopbackRedirectListenerTest, CancelEndsAWaitOnAnotherThread) {
  startSignIn();
  std::string outcome;
  std::thread waiting([&] { outcome = wait(); });
  listener_->cancel();
  waiting.join();
  EXPECT_EQ(outcome, "NSURLErrorDomain -999");
  const RawHttpAnswer late = get(callback("s"));
  EXPECT_EQ(late.statusLine, "HTTP/1.1 503 Service Unavailable");
  EXPECT_NE(late.body.find("<h1>Sign-in stopped</h1>"), std::string::npos);
}

TEST_F(LoopbackRedirectListenerTest, ABrowserLeftWaitingIsToldWhenTheApplicationGoes) {
  const std::string state = startSignIn();
  BrowserRequest browser(port_, RawHttpConnection::get(callback(state), host()));
  // Sent after the redirect was, so answered after it is held.
  EXPECT_EQ(get("/favicon.ico").statusLine, "HTTP/1.1 404 Not Found");
  client_.reset();
  listener_.reset();
  const RawHttpAnswer page = browser.answer();
  EXPECT_EQ(page.statusLine, "HTTP/1.1 503 Service Unavailable");
  EXPECT_NE(page.body.find("The application stopped waiting for this sign-in."), std::string::npos);
}

}  // namespace
}  // namespace velmor
