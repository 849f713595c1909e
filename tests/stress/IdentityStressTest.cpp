// One identity shared by six processes of four threads each, against the
// development server in its strict mode, which revokes the whole sign-in
// when a spent refresh token comes back. Every call must succeed, the server
// must never see a spent refresh token, and the identity must end signed in.
//
// The binary is its own worker: the test starts copies of itself that run
// only IdentityStressWorker. VELMOR_STRESS_STORE chooses the secret store
// ("file", the default, or "secret-service" under with-secret-service).
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "devserver/DevelopmentServer.h"
#include "testing/ScopedEnvironmentVariables.h"
#include "testing/TemporaryDirectory.h"
#include "testing/WaitableCounter.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/HttpClient.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"

extern char** environ;

namespace velmor {
namespace {

using namespace std::chrono_literals;
using Scopes = VelmorAuthorizationClient::Scopes;

constexpr int kProcesses = 6;
constexpr int kThreads = 4;
constexpr int kRounds = 20;
// Whole runs take seconds; this only ends a run that hangs.
constexpr auto kDeadline = 110s;
constexpr char kAppToken[] = "velmor-dev-app";
// Tokens stay valid for ten seconds (the client counts the last thirty as
// expired already), so refreshes come due while the workers run.
constexpr auto kAccessTokenLifetime = 40s;

const char* environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

Data identityKey() { return Data(32, 0x3C); }

std::unique_ptr<VelmorAuthorizationClient> clientFor(const std::string& server) {
  return std::make_unique<VelmorAuthorizationClient>(Url::withString(server), kAppToken,
                                                     identityKey());
}

void trustServer(const std::string& caFile) {
  CurlHttpClientOptions options;
  options.extraCaFile = caFile;
  HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
}

std::string describe(const ErrorRef& error) {
  return error ? error->domain() + " " + std::to_string(error->code()) + " " +
                     error->description().value_or("")
               : "none";
}

// One round of one worker thread: a refresh, a check, or the headers of an
// asynchronous check, as an application's UI would ask for them.
void runRound(VelmorAuthorizationClient& client, int kind) {
  ErrorRef error;
  switch (kind) {
    case 0: {
      const std::optional<Scopes> granted = client.refreshAccessToken(&error);
      EXPECT_TRUE(granted) << describe(error);
      EXPECT_EQ(error, nullptr) << describe(error);
      break;
    }
    case 1: {
      std::optional<Dictionary> headers;
      EXPECT_EQ(client.checkAuthorization(&headers, &error), AuthorizationStateAuthorized)
          << describe(error);
      EXPECT_TRUE(headers);
      break;
    }
    default: {
      test::WaitableCounter done;
      AuthorizationState state{};
      std::optional<Dictionary> headers;
      client.checkAuthorizationAsync(
          std::make_shared<OperationQueue>(),
          [&](AuthorizationState s, std::optional<Dictionary> h, ErrorRef e) {
            state = s;
            headers = std::move(h);
            error = std::move(e);
            done.increment();
          });
      ASSERT_TRUE(done.waitFor(1));
      EXPECT_EQ(state, AuthorizationStateAuthorized) << describe(error);
      ASSERT_TRUE(headers);
      EXPECT_EQ(headers->findString("Authorization")->rfind("Bearer ", 0), 0u);
    }
  }
}

TEST(IdentityStressWorker, FourThreadsOfTwoClientsRunTheirRounds) {
  const std::string server = environmentValue("VELMOR_STRESS_SERVER");
  if (server.empty()) GTEST_SKIP() << "a worker of IdentityStress";
  trustServer(environmentValue("VELMOR_STRESS_CA"));
  // Two windows of one program: two clients, each used by two threads.
  std::unique_ptr<VelmorAuthorizationClient> clients[] = {clientFor(server), clientFor(server)};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) runRound(*clients[t % 2], (r + t) % 3);
    });
  }
  for (std::thread& thread : threads) thread.join();
  HttpClient::setDefault(nullptr);
}

// Kills what is still running when the deadline passes.
class Watchdog final {
 public:
  explicit Watchdog(std::vector<pid_t> children) : children_(std::move(children)) {
    thread_ = std::thread([this] {
      std::unique_lock<std::mutex> lock(mutex_);
      if (done_.wait_for(lock, kDeadline, [this] { return finished_; })) return;
      fired_ = true;
      for (pid_t child : children_) kill(child, SIGKILL);
    });
  }
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      finished_ = true;
    }
    done_.notify_all();
    thread_.join();
  }
  bool fired() const { return fired_; }

 private:
  std::vector<pid_t> children_;
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::atomic<bool> fired_{false};
  std::thread thread_;
};

pid_t startWorker() {
  const std::string self = "/proc/self/exe";
  std::string filter = "--gtest_filter=IdentityStressWorker.*";
  char* arguments[] = {const_cast<char*>(self.c_str()), filter.data(), nullptr};
  pid_t pid = -1;
  EXPECT_EQ(posix_spawn(&pid, self.c_str(), nullptr, nullptr, arguments, environ), 0);
  return pid;
}

TEST(IdentityStress, ProcessesAndThreadsShareOneIdentityAndNoSpentTokenComesBack) {
  const std::string store =
      std::getenv("VELMOR_STRESS_STORE") ? environmentValue("VELMOR_STRESS_STORE") : "file";
  if (store == "secret-service" && !SecretServiceStore::isAvailable()) {
    GTEST_SKIP() << "runs under tests/platform/with-secret-service";
  }
  test::TemporaryDirectory home;
  devserver::DevelopmentServerOptions options;
  options.certificateDirectory = home.pathOf("certificates");
  options.settings.accessTokenLifetime = kAccessTokenLifetime;
  std::atomic<int> tokenRequests{0};
  options.requestLog = [&](const std::string&, const std::string& path, int) {
    if (path == "/oauth2/v1/tokens/bearer") ++tokenRequests;
  };
  std::string problem;
  std::unique_ptr<devserver::DevelopmentServer> server =
      devserver::DevelopmentServer::start(options, &problem);
  ASSERT_TRUE(server) << problem;
  const std::string caFile = server->certificateFiles()->caCertificate;

  // Inherited by the workers: the store, the client context's directory
  // and the server.
  test::ScopedEnvironmentVariables environment{
      {"VELMOR_SECRET_STORE", store.c_str()},
      {"VELMOR_SECRET_STORE_DIR", home.pathOf("keychain").c_str()},
      {"XDG_DATA_HOME", home.pathOf("data").c_str()},
      {"VELMOR_STRESS_SERVER", server->baseUrl().c_str()},
      {"VELMOR_STRESS_CA", caFile.c_str()},
      {"no_proxy", "*"}};
  SecretStore::setDefault(nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<SecretServiceStore>(SecretStore::defaultStore()) != nullptr,
            store == "secret-service");
  trustServer(caFile);
  {
    auto client = clientFor(server->baseUrl());
    ErrorRef error;
    ASSERT_TRUE(client->activate(&error)) << describe(error);
    ASSERT_TRUE(client->signInWithUsername("alice", "wonderland", &error)) << describe(error);
  }

  std::vector<pid_t> workers;
  for (int p = 0; p < kProcesses; ++p) workers.push_back(startWorker());
  std::vector<int> exits;
  {
    Watchdog watchdog(workers);
    for (pid_t worker : workers) {
      int status = 0;
      waitpid(worker, &status, 0);
      exits.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    EXPECT_FALSE(watchdog.fired()) << "the workers did not finish in time";
  }
  EXPECT_EQ(exits, std::vector<int>(kProcesses, 0));
  EXPECT_EQ(server->reusedRefreshTokens(), 0u);
  // A third of the rounds refresh on purpose; most of those find that a
  // sibling has just done so and take its tokens instead.
  std::printf("%d token requests for %d refresh rounds on the %s store\n", tokenRequests.load(),
              kProcesses * kThreads * kRounds / 3, store.c_str());
  EXPECT_GE(tokenRequests.load(), 2);
  auto client = clientFor(server->baseUrl());
  std::optional<Dictionary> headers;
  EXPECT_EQ(client->checkAuthorization(&headers, nullptr), AuthorizationStateAuthorized);
  EXPECT_EQ(client->username(), "alice");
  client.reset();
  HttpClient::setDefault(nullptr);
  SecretStore::setDefault(nullptr);
}

}  // namespace
}  // namespace velmor
