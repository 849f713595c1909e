// K refreshers of one identity, each its own client, refreshing at the same
// moment against the development server in its strict mode: in one process
// (K threads) and spread over four processes (K/4 threads each, copies of
// this program). Each iteration is one round in which every refresher
// refreshes once. The program reports the token requests the server got per
// round and the wall time per refresh, and prints the ratio of each row to
// one refresher alone. With one refresh at a time per identity, a round
// sends one request and the other refreshers take its tokens.
//
// The identity lives in the file secret store, in /dev/shm when there is
// one, so that the figures show the refresh discipline rather than the
// disk's flushes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TimeKeepingReporter.h"
#include "devserver/DevelopmentServer.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/HttpClient.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationLogger.h"

extern char** environ;

namespace velmor {
namespace {

constexpr char kAppToken[] = "velmor-dev-app";
constexpr char kWorkerFlag[] = "--refresher-worker";
constexpr int kProcesses = 4;

Data identityKey() { return Data(32, 0x42); }

std::unique_ptr<VelmorAuthorizationClient> clientFor(const std::string& server) {
  return std::make_unique<VelmorAuthorizationClient>(Url::withString(server), kAppToken,
                                                     identityKey());
}

void trust(const std::string& caFile) {
  CurlHttpClientOptions options;
  options.extraCaFile = caFile;
  HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
}

// Threads that each refresh once per round, all starting together.
class Refreshers final {
 public:
  Refreshers(const std::string& server, int count) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back(
          [this, client = std::shared_ptr<VelmorAuthorizationClient>(clientFor(server))] {
            for (std::uint64_t seen = 0;;) {
              {
                std::unique_lock<std::mutex> lock(mutex_);
                start_.wait(lock, [&] { return round_ != seen || stopping_; });
                if (stopping_) return;
                seen = round_;
              }
              ErrorRef error;
              const bool refreshed = client->refreshAccessToken(&error).has_value();
              std::lock_guard<std::mutex> lock(mutex_);
              failed_ |= !refreshed;
              if (++finished_ == threads_.size()) done_.notify_all();
            }
          });
    }
  }
  ~Refreshers() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    start_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  // One round; false when a refresh failed.
  bool round() {
    std::unique_lock<std::mutex> lock(mutex_);
    finished_ = 0;
    ++round_;
    start_.notify_all();
    done_.wait(lock, [&] { return finished_ == threads_.size(); });
    return !std::exchange(failed_, false);
  }

 private:
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable start_, done_;
  std::uint64_t round_ = 0;
  std::size_t finished_ = 0;
  bool failed_ = false;
  bool stopping_ = false;
};

// A worker process: reads one byte per round from standard input, runs the
// round, answers one byte ('1' all refreshed, '0' not).
int runWorker(const std::string& server, const std::string& caFile, int threads) {
  trust(caFile);
  int status = 0;
  {
    Refreshers refreshers(server, threads);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) == 1) {
      const char answer = refreshers.round() ? '1' : '0';
      if (write(STDOUT_FILENO, &answer, 1) != 1) status = 1;
    }
  }
  HttpClient::setDefault(nullptr);
  return status;
}

class WorkerProcess final {
 public:
  WorkerProcess(const std::string& server, const std::string& caFile, int threads) {
    // Close-on-exec, so that no other worker keeps this one's input open.
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, toChild[1]);
    posix_spawn_file_actions_addclose(&actions, fromChild[0]);
    std::string self = "/proc/self/exe", flag = kWorkerFlag, url = server, ca = caFile,
                count = std::to_string(threads);
    char* arguments[] = {self.data(), flag.data(), url.data(), ca.data(), count.data(), nullptr};
    if (posix_spawn(&pid_, self.c_str(), &actions, nullptr, arguments, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);
    in_ = toChild[1];
    out_ = fromChild[0];
  }
  ~WorkerProcess() {
    close(in_);  // ends the worker's loop
    close(out_);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }

  bool start() { return pid_ > 0 && write(in_, "r", 1) == 1; }
  bool finished() {
    char answer = 0;
    return read(out_, &answer, 1) == 1 && answer == '1';
  }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
};

// The server, the store and a signed-in identity for the whole run.
struct Setup {
  Setup() {
    const bool shared = std::filesystem::is_directory("/dev/shm");
    char pattern[64];
    std::snprintf(pattern, sizeof pattern, "%s/velmor-refresh-bench-XXXXXX",
                  shared ? "/dev/shm" : "/tmp");
    directory = mkdtemp(pattern) ? pattern : "";
    setenv("VELMOR_SECRET_STORE", "file", 1);
    setenv("VELMOR_SECRET_STORE_DIR", (directory + "/keychain").c_str(), 1);
    setenv("XDG_DATA_HOME", (directory + "/data").c_str(), 1);
    setenv("no_proxy", "*", 1);
    devserver::DevelopmentServerOptions options;
    options.certificateDirectory = directory + "/certificates";
    options.requestLog = [this](const std::string&, const std::string& path, int) {
      if (path == "/oauth2/v1/tokens/bearer") ++tokenRequests;
    };
    std::string problem;
    server = devserver::DevelopmentServer::start(options, &problem);
    if (!server) {
      std::fprintf(stderr, "no development server: %s\n", problem.c_str());
      std::exit(1);
    }
    caFile = server->certificateFiles()->caCertificate;
    trust(caFile);
    VelmorAuthorizationLogger::sharedLogger().setLogLevel(0);
    auto client = clientFor(server->baseUrl());
    ErrorRef error;
    if (!client->activate(&error) || !client->signInWithUsername("alice", "wonderland", &error)) {
      std::fprintf(stderr, "the identity could not sign in\n");
      std::exit(1);
    }
  }
  ~Setup() {
    HttpClient::setDefault(nullptr);
    server.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  std::string directory;
  std::atomic<int> tokenRequests{0};
  std::unique_ptr<devserver::DevelopmentServer> server;
  std::string caFile;
};

Setup& setup() {
  static Setup instance;
  return instance;
}

void report(benchmark::State& state, int refreshers, int requestsBefore) {
  const double rounds = static_cast<double>(state.iterations());
  state.counters["requests/round"] = (setup().tokenRequests - requestsBefore) / rounds;
  state.counters["refreshes/round"] = refreshers;
  state.SetItemsProcessed(state.iterations() * refreshers);
}

void inOneProcess(benchmark::State& state, int refreshers) {
  Refreshers threads(setup().server->baseUrl(), refreshers);
  const int before = setup().tokenRequests;
  for (auto _ : state) {
    if (!threads.round()) {
      state.SkipWithError("a refresh failed");
      break;
    }
  }
  report(state, refreshers, before);
}

void acrossProcesses(benchmark::State& state, int refreshers) {
  std::vector<std::unique_ptr<WorkerProcess>> workers;
  for (int p = 0; p < kProcesses; ++p) {
    workers.push_back(std::make_unique<WorkerProcess>(setup().server->baseUrl(), setup().caFile,
                                                      refreshers / kProcesses));
  }
  const int before = setup().tokenRequests;
  for (auto _ : state) {
    bool refreshed = true;
    for (auto& worker : workers) refreshed &= worker->start();
    for (auto& worker : workers) refreshed &= worker->finished();
    if (!refreshed) {
      state.SkipWithError("a refresh failed");
      break;
    }
  }
  report(state, refreshers, before);
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], velmor::kWorkerFlag) == 0) {
    return velmor::runWorker(argv[2], argv[3], std::atoi(argv[4]));
  }
  velmor::setup();
  for (int refreshers : {1, 8, 32}) {
    benchmark::RegisterBenchmark(
        ("ConcurrentRefresh/oneProcess/" + std::to_string(refreshers)).c_str(),
        [refreshers](benchmark::State& state) { velmor::inOneProcess(state, refreshers); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  for (int refreshers : {4, 8, 32}) {
    benchmark::RegisterBenchmark(
        ("ConcurrentRefresh/fourProcesses/" + std::to_string(refreshers)).c_str(),
        [refreshers](benchmark::State& state) { velmor::acrossProcesses(state, refreshers); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const auto alone = reporter.time("ConcurrentRefresh/oneProcess/1");
  const struct {
    const char* name;
    int refreshers;
  } rows[] = {{"ConcurrentRefresh/oneProcess/8", 8},
              {"ConcurrentRefresh/oneProcess/32", 32},
              {"ConcurrentRefresh/fourProcesses/4", 4},
              {"ConcurrentRefresh/fourProcesses/8", 8},
              {"ConcurrentRefresh/fourProcesses/32", 32}};
  for (const auto& row : rows) {
    const auto time = reporter.time(row.name);
    if (!alone || !time || alone->real <= 0) continue;
    const double perRefresh = time->real / row.refreshers;
    std::printf("ratio %s: %.2f ms per refresh against %.2f ms alone, %.2fx\n", row.name,
                perRefresh, alone->real, perRefresh / alone->real);
  }
  return 0;
}
