// One identity, several threads of one process: each race is forced at the
// exact point where it used to lose the record, a token or an answer. The
// secret store's hook stops a thread inside a call while another one acts;
// nothing waits on the clock.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "faults/ClientHarness.h"
#include "storage/AuthorizationClientContext.h"
#include "testing/FakeHttpClient.h"
#include "testing/FaultySecretStore.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/WaitableCounter.h"
#include "velmor/Exception.h"
#include "velmor/OperationQueue.h"

namespace velmor {
namespace {

using Call = test::FaultySecretStore::Call;
using Scopes = VelmorAuthorizationClient::Scopes;
using test::StoredRecord;

const std::string kService = "Velmor ID (fault-app-token-0)";
const std::string kAccount = "127.0.0.1-fault-app-token-0";

test::FakeHttpClient::Answer tokenAnswer(const std::string& access, const std::string& refresh) {
  return {
      200, {{"Content-Type", "application/json;charset=UTF-8"}}, test::tokenJson(access, refresh)};
}

test::FakeHttpClient::Answer invalidGrant() {
  return {
      400, {{"Content-Type", "application/json;charset=UTF-8"}}, R"({"error":"invalid_grant"})"};
}

// Runs tasks where they are posted: on the client's queue thread, for
// completions delivered from there.
std::shared_ptr<OperationQueue> inlineQueue() {
  return std::make_shared<OperationQueue>([](OperationQueue::Task task) { task(); });
}

bool onThread(std::thread::id id) { return std::this_thread::get_id() == id; }

class ClientRaceTest : public ::testing::Test {
 protected:
  ClientRaceTest() {
    HttpClient::setDefault(http_);
    // Saved once, so that no refresh sends the client context first.
    bool changed = false;
    ErrorRef ignored;
    AuthorizationClientContext::generateAndSaveIfNeeded(&changed, &ignored);
    test::storeSignedInRecord();
  }
  ~ClientRaceTest() override { store_->setHook(nullptr); }

  void expireAccessToken() {
    SecureData(test::kHost, test::kAppToken, test::clientKey(), 0)
        .setAccessTokenValidEndDateTime(std::chrono::system_clock::now() - std::chrono::hours(1));
  }

  const std::thread::id main_ = std::this_thread::get_id();
  std::shared_ptr<test::FaultySecretStore> store_ = std::make_shared<test::FaultySecretStore>();
  test::ClientEnvironment environment_{store_};
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  std::unique_ptr<VelmorAuthorizationClient> client_ = test::clientFor("https://127.0.0.1/");
};

// A read whose key was swapped under it while the record was not yet
// rewritten used to fail, and then delete the record: the registration lost.
TEST_F(ClientRaceTest, AKeyChangeDuringAReadCostsNeitherTheAnswerNorTheRecord) {
  const Data newKey(32, 0x5A);
  std::atomic<bool> armed{true};
  std::atomic<std::thread::id> readerId;
  std::atomic<int> readerCalls{0};
  test::WaitableCounter readerHasRead;
  std::thread reader;
  AuthorizationState seen{};
  store_->setHook([&](Call call) {
    // The reader's second call comes after its read has returned.
    if (onThread(readerId.load()) && ++readerCalls == 2) readerHasRead.increment();
    if (call != Call::kUpdate || !onThread(main_) || !armed.exchange(false)) return;
    // The key is swapped; the record is still under the old one.
    reader = std::thread([&] {
      readerId = std::this_thread::get_id();
      seen = client_->authorizationState();
    });
    EXPECT_TRUE(readerHasRead.waitFor(1));
  });
  client_->changeEncryptionKey(newKey);
  store_->setHook(nullptr);
  reader.join();

  EXPECT_EQ(seen, AuthorizationStateAuthorized);
  VelmorAuthorizationClient reopened(Url::withString("https://127.0.0.1/"), test::kAppToken,
                                     newKey);
  EXPECT_EQ(reopened.authorizationState(), AuthorizationStateAuthorized);
  EXPECT_EQ(reopened.username(), "anna");
}

// A resource server's refusal forgets the access token in a read-modify-write
// on the caller's thread; a refresh storing in between used to be undone,
// its spent refresh token written back.
TEST_F(ClientRaceTest, ARefusalHandledDuringARefreshKeepsTheRotatedTokens) {
  http_->enqueue(tokenAnswer("new-access", "new-refresh"));
  std::atomic<bool> armed{true};
  test::WaitableCounter refreshWaitsOrIsDone;
  std::thread refresher;
  std::optional<Scopes> granted;
  ErrorRef refreshError;
  store_->setHook([&](Call call) {
    if (call == Call::kLockItem && !onThread(main_)) refreshWaitsOrIsDone.increment();
    if (call != Call::kFind || !onThread(main_) || !armed.exchange(false)) return;
    // The refusal has taken the record and not yet written it back.
    refresher = std::thread([&] {
      granted = client_->refreshAccessToken(&refreshError);
      refreshWaitsOrIsDone.increment();
    });
    EXPECT_TRUE(refreshWaitsOrIsDone.waitFor(1));
  });
  auto refusal = std::make_shared<HttpUrlResponse>(
      *Url::withString("https://api.example/v1"), 401,
      HttpUrlResponse::HeaderFields{
          {"WWW-Authenticate", R"(Bearer realm="api", error="invalid_token")"}});
  EXPECT_EQ(test::outcomeOf(client_->handleAuthorizationFailureResponse(refusal)), "server 7");
  refresher.join();

  EXPECT_EQ(test::outcomeOf(refreshError), "none");
  EXPECT_TRUE(granted);
  const StoredRecord after = StoredRecord::read();
  EXPECT_EQ(after.refreshToken, "new-refresh");
  EXPECT_EQ(after.accessToken, "new-access");
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateAuthorized);
}

// A delete on the caller's thread while a refresh stored its answer used to
// leave a record of tokens without a registration behind.
TEST_F(ClientRaceTest, ADeleteDuringARefreshLeavesNoRecord) {
  const struct {
    const char* name;
    std::function<void(VelmorAuthorizationClient&)> erase;
  } deletes[] = {
      {"deleteAllData", [](VelmorAuthorizationClient& client) { client.deleteAllData(); }},
      {"web sign-in refused as an unknown client",
       [](VelmorAuthorizationClient& client) {
         ErrorRef error;
         client.signInWithWebAuthorizationResponse(
             Url::withString("app:/cb?error=invalid_client&state=s"), &error);
         EXPECT_EQ(test::outcomeOf(error), "server 3");
       }},
  };
  for (const auto& c : deletes) {
    SCOPED_TRACE(c.name);
    test::storeSignedInRecord();
    ErrorRef requestError;
    ASSERT_TRUE(client_->createWebSignInRequestWithBaseUrl(
        Url::withString("https://127.0.0.1/authorize"), Url::withString("app:/cb"), std::nullopt,
        std::nullopt, &requestError));
    http_->enqueue(tokenAnswer("new-access", "new-refresh"));
    std::atomic<bool> armed{true};
    std::atomic<std::thread::id> deleterId;
    test::WaitableCounter deleteWaitsOrIsDone;
    std::thread deleter;
    store_->setHook([&](Call call) {
      if (call == Call::kLockItem && onThread(deleterId.load())) deleteWaitsOrIsDone.increment();
      if (call != Call::kUpdate || onThread(main_) || !armed.exchange(false)) return;
      // The refresh is storing its answer.
      deleter = std::thread([&] {
        deleterId = std::this_thread::get_id();
        c.erase(*client_);
        deleteWaitsOrIsDone.increment();
      });
      EXPECT_TRUE(deleteWaitsOrIsDone.waitFor(1));
    });
    ErrorRef refreshError;
    EXPECT_TRUE(client_->refreshAccessToken(&refreshError));
    deleter.join();
    store_->setHook(nullptr);

    EXPECT_EQ(store_->target()->find(kService, kAccount, nullptr), kSecretStoreItemNotFound);
    EXPECT_EQ(client_->authorizationState(), AuthorizationStateActivationRequired);
  }
}

// Tells the test it was called, then waits until let go and does `then`.
class BlockingDelegate final : public VelmorAuthorizationClientDelegate {
 public:
  void velmorAuthorizationClientDidSignOut(VelmorAuthorizationClient& client) override {
    entered.increment();
    EXPECT_TRUE(resume.waitFor(1));
    then(client);
  }

  test::WaitableCounter entered, resume;
  std::function<void(VelmorAuthorizationClient&)> then;
};

// The expiry timer's action may queue work while the client is being
// destroyed; that work used to be able to run on a client half destroyed.
// The destructor now stops the timer (waiting for a running action) before
// it drains the queue, so what the action queued runs on a whole client.
TEST_F(ClientRaceTest, WorkTheDelegateQueuesDuringDestructionRunsOnAWholeClient) {
  BlockingDelegate delegate;
  test::WaitableCounter checked;
  AuthorizationState state{};
  delegate.then = [&](VelmorAuthorizationClient& client) {
    // Signed in again elsewhere, with an access token that must be refreshed.
    test::storeSignedInRecord("other-access", "other-refresh");
    expireAccessToken();
    client.checkAuthorizationAsync(inlineQueue(),
                                   [&](AuthorizationState s, std::optional<Dictionary>, ErrorRef) {
                                     state = s;
                                     checked.increment();
                                   });
  };
  client_->setDelegate(&delegate);
  // A rejected refresh leaves no token, and arms the timer for now.
  http_->enqueue(invalidGrant());
  http_->enqueue(tokenAnswer("new-access", "new-refresh"));
  EXPECT_FALSE(client_->refreshAccessToken(nullptr));
  ASSERT_TRUE(delegate.entered.waitFor(1));

  std::thread destroyer([&] { client_.reset(); });
  delegate.resume.increment();
  destroyer.join();
  EXPECT_EQ(checked.value(), 1);
  EXPECT_EQ(state, AuthorizationStateAuthorized);
  EXPECT_EQ(StoredRecord::read().refreshToken, "new-refresh");
}

// Throws from the logger on the request line of a refresh, on the queue.
class ThrowingLoggerDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t) override {
    if (message.find("Sending 'CreateBearerTokenFromRefreshToken'") != std::string::npos)
      throw std::runtime_error("logger broke");
  }
};

// An exception escaping an exchange used to end it without a completion:
// synchronous callers got nothing, asynchronous ones never heard back.
TEST_F(ClientRaceTest, AnExceptionInAnExchangeReachesTheCallerAsAnError) {
  ThrowingLoggerDelegate throwing;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &throwing);
  const auto expectUnknownError = [](const ErrorRef& error) {
    ASSERT_EQ(test::outcomeOf(error), "client 0");
    EXPECT_EQ(error->description(), "Unknown error");
    EXPECT_EQ(error->userInfo(), (Dictionary{{"Exception", "an exception: logger broke"}}));
  };
  ErrorRef error;
  EXPECT_FALSE(client_->refreshAccessToken(&error));
  expectUnknownError(error);

  test::WaitableCounter reported;
  std::optional<Scopes> scopes = Scopes{"unset"};
  client_->refreshAccessTokenAsync(inlineQueue(), [&](std::optional<Scopes> s, ErrorRef e) {
    scopes = std::move(s);
    error = std::move(e);
    reported.increment();
  });
  ASSERT_TRUE(reported.waitFor(1));
  EXPECT_EQ(scopes, std::nullopt);
  expectUnknownError(error);

  expireAccessToken();
  AuthorizationState state{};
  client_->checkAuthorizationAsync(
      inlineQueue(), [&](AuthorizationState s, std::optional<Dictionary>, ErrorRef e) {
        state = s;
        error = std::move(e);
        reported.increment();
      });
  ASSERT_TRUE(reported.waitFor(2));
  EXPECT_EQ(state, AuthorizationStateRefreshRequired);
  expectUnknownError(error);
}

// A synchronous call from a completion that runs on the client's own queue
// used to wait for ever for the task it was made from.
TEST_F(ClientRaceTest, ASynchronousCallOnTheClientsOwnQueueThrowsInsteadOfWaitingForEver) {
  const struct {
    const char* name;
    std::function<void(VelmorAuthorizationClient&)> call;
  } calls[] = {
      {"-[VelmorAuthorizationClient refreshAccessToken:]",
       [](VelmorAuthorizationClient& client) { client.refreshAccessToken(nullptr); }},
      {"-[VelmorAuthorizationClient refreshAccessTokenWithScopes:error:]",
       [](VelmorAuthorizationClient& client) {
         client.refreshAccessTokenWithScopes(Scopes{"profile"}, nullptr);
       }},
      {"-[VelmorAuthorizationClient signOut:]",
       [](VelmorAuthorizationClient& client) { client.signOut(nullptr); }},
  };
  for (const auto& c : calls) {
    SCOPED_TRACE(c.name);
    http_->enqueue(tokenAnswer("new-access", "new-refresh"));
    test::WaitableCounter done;
    std::string reason;
    client_->refreshAccessTokenAsync(inlineQueue(), [&](std::optional<Scopes>, ErrorRef) {
      try {
        c.call(*client_);
      } catch (const InternalInconsistencyException& e) {
        reason = e.reason();
      }
      done.increment();
    });
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_EQ(reason, std::string(c.name) +
                          " was called on the client's own queue, where it would wait for ever "
                          "for the task it was called from; call it from another thread, or use "
                          "its asynchronous form there");
  }
  EXPECT_EQ(http_->requests().size(), 3u);  // the three asynchronous refreshes only
}

// Each of these answers from one read of the record, so its parts agree.
TEST_F(ClientRaceTest, StateQueriesReadTheRecordOnce) {
  const struct {
    const char* name;
    std::function<void(VelmorAuthorizationClient&)> query;
  } queries[] = {
      {"authorizationState", [](VelmorAuthorizationClient& c) { c.authorizationState(); }},
      {"hasUsername", [](VelmorAuthorizationClient& c) { c.hasUsername(); }},
      {"username", [](VelmorAuthorizationClient& c) { c.username(); }},
      {"checkAuthorization",
       [](VelmorAuthorizationClient& c) {
         std::optional<Dictionary> headers;
         EXPECT_EQ(c.checkAuthorization(&headers, nullptr), AuthorizationStateAuthorized);
         EXPECT_EQ(headers, (Dictionary{{"Authorization", "Bearer old-access"}}));
       }},
      {"accessTokenValidEndDateTime",
       [](VelmorAuthorizationClient& c) { c.accessTokenValidEndDateTime(); }},
      {"webRequestAuthorizationHeaders",
       [](VelmorAuthorizationClient& c) { c.webRequestAuthorizationHeaders(); }},
  };
  store_->locks = 0;
  for (const auto& q : queries) {
    SCOPED_TRACE(q.name);
    store_->finds = 0;
    q.query(*client_);
    EXPECT_EQ(store_->finds, 1);
  }
  EXPECT_EQ(store_->locks, 0);
}

// A refresh that waited for the record's lock while a sibling (another
// client, thread or process) refreshed takes the sibling's fresh tokens
// instead of sending the spent refresh token again; one caller refreshing
// twice still sends twice.
TEST_F(ClientRaceTest, ARefreshTakesTheTokensASiblingStoredWhileItWaited) {
  std::atomic<bool> armed{true};
  store_->setHook([&](Call call) {
    if (call != Call::kLockItem || onThread(main_) || !armed.exchange(false)) return;
    // The refresh has begun and is about to wait for the lock: a sibling
    // refreshes first.
    std::thread([] { test::storeSignedInRecord("sibling-access", "sibling-refresh"); }).join();
  });
  ErrorRef error;
  EXPECT_EQ(client_->refreshAccessToken(&error), Scopes());
  EXPECT_EQ(test::outcomeOf(error), "none");
  EXPECT_TRUE(http_->requests().empty());
  EXPECT_EQ(StoredRecord::read().refreshToken, "sibling-refresh");
  store_->setHook(nullptr);

  http_->enqueue(tokenAnswer("a1", "r1"));
  http_->enqueue(tokenAnswer("a2", "r2"));
  EXPECT_TRUE(client_->refreshAccessToken(nullptr));
  EXPECT_TRUE(client_->refreshAccessToken(nullptr));
  EXPECT_EQ(http_->requests().size(), 2u);
  EXPECT_EQ(StoredRecord::read().refreshToken, "r2");
}

// The lock of a sibling that hangs holds a refresh up only so long: then the
// refresh fails, says why, and sends nothing. A sign-out forgets the tokens
// all the same.
TEST_F(ClientRaceTest, WithoutTheLockARefreshSendsNothingAndASignOutStillForgets) {
  const StoredRecord before = StoredRecord::read();
  store_->lockFault = kSecretStoreTimedOut;
  ErrorRef error;
  EXPECT_FALSE(client_->refreshAccessToken(&error));
  EXPECT_EQ(test::outcomeOf(error), "client 100060");
  EXPECT_EQ(error->description(), "Keychain error: 100060, 'Operation timed out.' in lockItem");
  EXPECT_TRUE(http_->requests().empty());
  EXPECT_EQ(StoredRecord::read(), before);

  client_->signOut(nullptr);
  store_->lockFault = 0;
  EXPECT_EQ(StoredRecord::read(), before.signedOut());
}

// A sibling that does not take the record's lock (an older build, say)
// stores newer tokens while the server rejects the refresh token sent: the
// rejection is about the old token, so the new ones stay and are used.
TEST_F(ClientRaceTest, ARejectedRefreshTokenThatWasReplacedMeanwhileCostsNothing) {
  test::storeSignedInRecord("sibling-access", "sibling-refresh");
  Data sibling;
  ASSERT_EQ(store_->target()->find(kService, kAccount, &sibling), kSecretStoreSuccess);
  test::storeSignedInRecord();
  http_->enqueue(invalidGrant());
  std::atomic<int> queueLocks{0};
  store_->setHook([&](Call call) {
    // The first lock is the refresh's own, the second the judgement's write.
    if (call == Call::kLockItem && !onThread(main_) && ++queueLocks == 2) {
      EXPECT_EQ(store_->target()->update(kService, kAccount, sibling), kSecretStoreSuccess);
    }
  });
  ErrorRef error;
  EXPECT_EQ(client_->refreshAccessToken(&error), Scopes());
  EXPECT_EQ(test::outcomeOf(error), "none");
  EXPECT_EQ(StoredRecord::read().refreshToken, "sibling-refresh");
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateAuthorized);

  // With the token sent still stored, the rejection costs the tokens as ever.
  store_->setHook(nullptr);
  http_->enqueue(invalidGrant());
  EXPECT_FALSE(client_->refreshAccessToken(&error));
  EXPECT_EQ(test::outcomeOf(error), "server 4");
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateSignInRequired);
}

}  // namespace
}  // namespace velmor
