// The client's flows end to end: real HTTPS to a scripted test server, the
// credential record in the file secret store of a temporary directory.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "client/SignOutCounter.h"
#include "storage/AuthorizationClientContext.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/Exception.h"
#include "velmor/FileSecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

using namespace std::chrono_literals;
using test::ScriptedResponse;
using Scopes = VelmorAuthorizationClient::Scopes;
using Paths = std::vector<std::string>;

constexpr auto kBound = 30s;
constexpr char kRegister[] = "POST /api/oauth2/v1/clients";
constexpr char kToken[] = "POST /api/oauth2/v1/tokens/bearer";
constexpr char kRevoke[] = "POST /api/oauth2/v1/tokens/revoke";
const Data kKey(32, 9);

constexpr char kTokenAnswer[] =
    R"({"access_token":"access-1","token_type":"bearer","expires_in":3600,)"
    R"("refresh_token":"refresh-1","x_refresh_token_expires_in":86400,"scope":"read"})";

ScriptedResponse jsonAnswer(std::string body, int status = 200) {
  ScriptedResponse answer;
  answer.status = status;
  answer.headers = {{"Content-Type", "application/json;charset=UTF-8"}};
  answer.body = std::move(body);
  return answer;
}

// A token answer that waits until the test releases it.
ScriptedResponse heldTokenAnswer() {
  ScriptedResponse held = jsonAnswer(kTokenAnswer);
  held.holdUntilReleased = true;
  return held;
}

// What a completion handed back on the caller's queue.
template <typename T>
T await(std::promise<T>& promise) {
  std::future<T> future = promise.get_future();
  EXPECT_EQ(future.wait_for(kBound), std::future_status::ready);
  return future.get();
}

class ClientFlowTest : public ::testing::Test {
 protected:
  ClientFlowTest() {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    // With the device's context saved already, no refresh sends it.
    bool changed = false;
    AuthorizationClientContext::generateAndSaveIfNeeded(&changed, nullptr);
    CurlHttpClientOptions options;
    options.extraCaFile = server_.caFile();
    HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
    server_.answer("/api/oauth2/v1/clients",
                   jsonAnswer(R"({"client_id":"cid","client_secret":"secret"})"));
    server_.answer("/api/oauth2/v1/tokens/bearer", jsonAnswer(kTokenAnswer));
    server_.answer("/api/oauth2/v1/tokens/revoke", ScriptedResponse());
  }
  ~ClientFlowTest() override {
    HttpClient::setDefault(nullptr);
    __accessTokenExpirationOverride = 0;
    __refreshTokenExpirationOverride = 0;
  }

  std::unique_ptr<VelmorAuthorizationClient> makeClient(std::uint64_t slot = 0) {
    return std::make_unique<VelmorAuthorizationClient>(Url::withString(server_.url("/api/")),
                                                       "app-token", kKey, slot);
  }

  Paths paths() const {
    Paths out;
    for (const auto& request : server_.requests())
      out.push_back(request.method + " " + request.target);
    return out;
  }

  test::TemporaryDirectory directory_;
  test::FakeSystemIdentity identity_;
  test::ScopedSystemIdentity identityScope_{identity_};
  test::ScopedSecretStore store_{std::make_shared<FileSecretStore>(directory_.pathOf("keychain"))};
  test::TestAuthorizationServer server_;
  std::shared_ptr<OperationQueue> callerQueue_ = std::make_shared<OperationQueue>();
};

// 1 → 2 → 3 → 4 → 3 → 2; a one-second access token is already within the
// 30-second margin, so state 4 needs no waiting.
TEST_F(ClientFlowTest, SynchronousFlowsWalkEveryState) {
  auto client = makeClient();
  ErrorRef error;
  EXPECT_EQ(client->authorizationState(), AuthorizationStateActivationRequired);
  EXPECT_TRUE(client->activate(&error));
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
  EXPECT_EQ(client->signInWithUsername(" alice\n", "pw", Scopes{"read"}, &error), Scopes{"read"});
  EXPECT_EQ(client->authorizationState(), AuthorizationStateAuthorized);
  client->setAccessTokenExpirationOverride(1);
  EXPECT_EQ(client->refreshAccessToken(&error), Scopes{"read"});
  EXPECT_EQ(client->authorizationState(), AuthorizationStateRefreshRequired);
  client->setAccessTokenExpirationOverride(0);
  std::optional<Dictionary> headers;
  EXPECT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateAuthorized);
  EXPECT_EQ(headers, (Dictionary{{"Authorization", "Bearer access-1"}}));
  EXPECT_TRUE(client->signOut(&error));
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
  EXPECT_TRUE(client->signOut(&error));  // nothing left to revoke: nothing sent
  EXPECT_FALSE(error);
  EXPECT_EQ(client->username(), "alice");
  EXPECT_EQ(client->signIn(&error), Scopes{"read"});
  EXPECT_FALSE(client->hasUsername());
  EXPECT_EQ(paths(), (Paths{kRegister, kToken, kToken, kToken, kRevoke, kToken}));
}

TEST_F(ClientFlowTest, AsynchronousFlowsWalkEveryState) {
  auto client = makeClient();
  std::promise<ErrorRef> activated;
  client->activateAsync(callerQueue_, [&](ErrorRef e) { activated.set_value(e); });
  EXPECT_FALSE(await(activated));
  // The completion arrives while the exchange still counts as queued, and a
  // sign-in would be refused as busy; a new client object starts idle (the
  // old one waits for its queue as it goes).
  client = makeClient();
  std::promise<std::optional<std::string>> signedIn;
  client->signInAsyncWithUsername("alice", "pw", callerQueue_, [&](auto username, auto, ErrorRef) {
    signedIn.set_value(username);
  });
  EXPECT_EQ(await(signedIn), "alice");
  client->setAccessTokenExpirationOverride(1);
  std::promise<ErrorRef> refreshed;
  client->refreshAccessTokenAsync(callerQueue_, [&](auto, ErrorRef e) { refreshed.set_value(e); });
  EXPECT_FALSE(await(refreshed));
  EXPECT_EQ(client->authorizationState(), AuthorizationStateRefreshRequired);
  client->setAccessTokenExpirationOverride(0);
  // The check refreshes first and reports 3 with the new token's header.
  std::promise<std::optional<Dictionary>> checked;
  client->checkAuthorizationAsync(callerQueue_, [&](AuthorizationState state, auto headers, auto) {
    EXPECT_EQ(state, AuthorizationStateAuthorized);
    checked.set_value(headers);
  });
  EXPECT_EQ(await(checked), (Dictionary{{"Authorization", "Bearer access-1"}}));
  std::promise<ErrorRef> signedOut;
  client->signOutAsync(callerQueue_, [&](ErrorRef e) { signedOut.set_value(e); });
  EXPECT_FALSE(await(signedOut));
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
  EXPECT_EQ(paths(), (Paths{kRegister, kToken, kToken, kToken, kRevoke}));
}

TEST_F(ClientFlowTest, AFailedRefreshStillFillsTheHeaders) {
  auto client = makeClient();
  ASSERT_TRUE(client->activate(nullptr));
  std::optional<Dictionary> headers = Dictionary{{"kept", "yes"}};
  ErrorRef error;
  EXPECT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateSignInRequired);
  EXPECT_EQ(headers, (Dictionary{{"kept", "yes"}}));
  client->setAccessTokenExpirationOverride(1);
  ASSERT_TRUE(client->signIn(nullptr));
  server_.enqueue(jsonAnswer(R"({"error":"temporarily_unavailable"})", 503));
  EXPECT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateRefreshRequired);
  EXPECT_EQ(headers, (Dictionary{{"Authorization", "Bearer access-1"}}));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), kServerErrorTemporarilyUnavailable);
}

std::optional<Url> redirectAnswering(const std::optional<HttpRequest>& request) {
  std::smatch state;
  const std::string query = request ? request->url.query().value_or("") : "";
  std::regex_search(query, state, std::regex("state=([0-9a-f]{32})"));
  return Url::withString("https://app.example/cb?code=c1&state=" + state[1].str() +
                         "&x_username=bob");
}

TEST_F(ClientFlowTest, WebSignInAnswersOnlyTheLatestRequest) {
  const std::optional<Url> page = Url::withString("https://auth.example/signin");
  const std::optional<Url> callback = Url::withString("https://app.example/cb");
  auto client = makeClient();
  ErrorRef error;
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(callback, &error));
  EXPECT_EQ(error->code(), kClientErrorNoWebSignInRequest);
  EXPECT_FALSE(client->createWebSignInRequestWithBaseUrl(page, callback, {}, {}, &error));
  EXPECT_EQ(error->code(), kClientErrorInvalidOperation);
  ASSERT_TRUE(client->activate(nullptr));
  const auto older = client->createWebSignInRequestWithBaseUrl(page, callback, {}, {}, &error);
  const auto latest = client->createWebSignInRequestWithBaseUrl(page, callback, {}, {}, &error);
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(redirectAnswering(older), &error));
  EXPECT_EQ(error->code(), kClientErrorInvalidOperation);
  // Kept after that failure, dropped after the success.
  EXPECT_EQ(client->signInWithWebAuthorizationResponse(redirectAnswering(latest), &error),
            Scopes{"read"});
  EXPECT_EQ(client->username(), "bob");
  EXPECT_FALSE(client->signInWithWebAuthorizationResponse(redirectAnswering(latest), nullptr));

  // A code obtained otherwise leaves no user name.
  EXPECT_EQ(client->signInWithAuthorizationCode("c2", callback, &error), Scopes{"read"});
  EXPECT_FALSE(client->hasUsername());
  EXPECT_EQ(server_.requests().back().body,
            "grant_type=authorization_code&code=c2&redirect_uri=https%3A%2F%2Fapp.example%2Fcb");

  // The asynchronous form keeps its request: the same redirect works twice.
  const auto request = client->createWebSignInRequestWithBaseUrl(page, callback, {}, {}, nullptr);
  for (int round = 0; round < 2; ++round) {
    std::promise<ErrorRef> done;
    client->signInAsyncWithWebAuthorizationResponse(
        redirectAnswering(request), callerQueue_,
        [&](auto, auto, ErrorRef e) { done.set_value(e); });
    EXPECT_FALSE(await(done));
    // Its exchange still counts as queued when the completion arrives; a
    // synchronous refresh waits for it to end.
    if (round == 0) {
      EXPECT_TRUE(client->refreshAccessToken(nullptr));
    }
  }
}

TEST_F(ClientFlowTest, SignOutDropsASignInWaitingForASlowAnswer) {
  auto client = makeClient();
  ASSERT_TRUE(client->activate(nullptr));
  ASSERT_TRUE(client->signIn(nullptr));
  server_.enqueue(heldTokenAnswer());
  std::atomic<bool> signInReported{false};
  client->signInAsyncWithUsername("bob", "pw", callerQueue_,
                                  [&](auto, auto, ErrorRef) { signInReported = true; });
  ASSERT_TRUE(server_.waitForHeldRequest(kBound));
  std::promise<ErrorRef> signedOut;
  client->signOutAsync(callerQueue_, [&](ErrorRef e) { signedOut.set_value(e); });
  server_.releaseHeldRequests();
  EXPECT_FALSE(await(signedOut));
  client.reset();
  callerQueue_->waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(signInReported);
  // Its answer came and was dropped: no tokens, and not its user name.
  auto restarted = makeClient();
  EXPECT_EQ(restarted->authorizationState(), AuthorizationStateSignInRequired);
  EXPECT_FALSE(restarted->hasUsername());
  EXPECT_EQ(paths(), (Paths{kRegister, kToken, kToken, kRevoke}));
}

TEST_F(ClientFlowTest, ABusyClientRefusesNewSignInsWithoutSendingAnything) {
  auto client = makeClient();
  ASSERT_TRUE(client->activate(nullptr));
  server_.enqueue(heldTokenAnswer());
  std::promise<ErrorRef> first;
  client->signInAsync(callerQueue_, [&](auto, auto, ErrorRef e) { first.set_value(e); });
  ASSERT_TRUE(server_.waitForHeldRequest(kBound));
  ErrorRef error;
  const std::function<bool()> refusals[] = {
      [&] { return client->activate(&error); },
      [&] { return client->signInWithUsername("bob", "pw", &error).has_value(); },
      [&] {
        return client->signInWithAuthorizationCode("c", Url::withString("https://a/"), &error)
            .has_value();
      },
  };
  for (const auto& refused : refusals) {
    error = nullptr;
    EXPECT_FALSE(refused());
    EXPECT_EQ(error ? error->code() : -1, kClientErrorInvalidOperation);
  }
  std::promise<ErrorRef> refusedAsync;
  client->activateAsync(callerQueue_, [&](ErrorRef e) { refusedAsync.set_value(e); });
  EXPECT_EQ(await(refusedAsync)->code(), kClientErrorInvalidOperation);
  client->signInAsyncWithUsername("bob", "pw", nullptr, [](auto, auto, ErrorRef) { FAIL(); });
  try {  // scopes are checked before the busy test
    client->signInWithUsername("bob", "pw", Scopes{"ok", "a b"}, &error);
    ADD_FAILURE() << "a scope with a blank passed";
  } catch (const Exception& e) {
    EXPECT_EQ(e.reason(), "scope item at index 1 must not contain any whitespace characters");
  }
  // A refresh waits its turn instead.
  std::promise<ErrorRef> refreshed;
  client->refreshAccessTokenAsync(callerQueue_, [&](auto, ErrorRef e) { refreshed.set_value(e); });
  server_.releaseHeldRequests();
  EXPECT_FALSE(await(first));
  EXPECT_FALSE(await(refreshed));
  EXPECT_EQ(paths(), (Paths{kRegister, kToken, kToken}));
}

TEST_F(ClientFlowTest, TheDelegateIsToldOnceWhenTheRefreshTokenLapses) {
  auto client = makeClient();
  test::SignOutCounter delegate;
  client->setDelegate(&delegate);
  ASSERT_TRUE(client->activate(nullptr));
  client->setAccessTokenExpirationOverride(1);
  client->setRefreshTokenExpirationOverride(1);
  ASSERT_TRUE(client->signInWithUsername("alice", "pw", nullptr));
  ASSERT_TRUE(delegate.waitForCall());
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
  client->applicationDidBecomeActive();  // spent: nothing left to fire
  client.reset();
  EXPECT_EQ(delegate.calls(), 1);
}

TEST_F(ClientFlowTest, ARestartedClientFindsItsSlotAndOnlyItsSlot) {
  {
    auto first = makeClient();
    ASSERT_TRUE(first->activate(nullptr));
    ASSERT_TRUE(first->signInWithUsername("alice", "pw", nullptr));
  }
  auto restarted = makeClient();
  auto other = makeClient(1);
  EXPECT_EQ(other->authorizationState(), AuthorizationStateActivationRequired);
  ASSERT_TRUE(other->activate(nullptr));
  ASSERT_TRUE(other->signInWithUsername("bob", "pw", nullptr));
  other->deleteAllData();
  EXPECT_EQ(restarted->authorizationState(), AuthorizationStateAuthorized);
  EXPECT_EQ(restarted->username(), "alice");
}

}  // namespace
}  // namespace velmor
