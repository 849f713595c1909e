// The Secret Service store beside bare libsecret on the same gnome-keyring:
// run under tests/platform/with-secret-service, which starts a private
// session bus and an unlocked keyring. In one run it measures
// - a bare libsecret lookup, and a lookup followed by a store, from a
//   service object kept across calls (libsecret's fastest way);
// - the store's own find, and a find followed by an update of what it found;
// - through the client's public calls, on a record filled as after a sign-in:
//   a getter (username()) and authorizationState(), on the Secret Service and
//   on the file store (beside the file store's own find);
// - a password sign-in through velmor-auth processes against a development
//   server, on the Secret Service and on the file store;
// and prints each target as met or MISSED.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <libsecret/secret.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "TimeKeepingReporter.h"
#include "storage/SecureData.h"
#include "velmor/FileSecretStore.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"

extern char** environ;

namespace velmor {
namespace {

constexpr char kBase[] = "https://auth.example.com/";
constexpr char kAppToken[] = "benchmark-app";
// A fixed key: the 300 ms key derivation is not what is measured here.
const Data kKey(32, 0x5a);

std::string scratchDirectory() {
  static const std::string path = [] {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "velmor-keyring-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    return pattern;
  }();
  return path;
}

// A record as a sign-in leaves it, on `store`, for one benchmark run.
class SignedInRecord final {
 public:
  explicit SignedInRecord(std::shared_ptr<SecretStore> store) : store_(std::move(store)) {
    SecretStore::setDefault(store_);
    const auto now = std::chrono::system_clock::now();
    record_.setClientId(std::string(36, 'c'));
    record_.setClientSecret(std::string(64, 's'));
    record_.setUsername("benchmark.user@example.com");
    record_.setAccessToken(std::string(900, 'a'));
    record_.setAccessTokenValidStartDateTime(now);
    record_.setAccessTokenValidEndDateTime(now + std::chrono::hours(1));
    record_.setRefreshToken(std::string(64, 'r'));
    record_.setRefreshTokenValidStartDateTime(now);
    record_.setRefreshTokenValidEndDateTime(now + std::chrono::hours(24 * 30));
  }
  ~SignedInRecord() {
    record_.deleteAll();
    SecretStore::setDefault(nullptr);
  }
  SignedInRecord(const SignedInRecord&) = delete;
  SignedInRecord& operator=(const SignedInRecord&) = delete;

  SecretStore& store() { return *store_; }
  SecureData& record() { return record_; }
  std::string service() const { return record_.keychainItemServiceName(); }
  std::string account() const { return record_.keychainItemServiceAccount(); }

 private:
  std::shared_ptr<SecretStore> store_;
  SecureData record_{"auth.example.com", kAppToken, kKey, 0};
};

std::shared_ptr<SecretStore> secretServiceStore() { return std::make_shared<SecretServiceStore>(); }
std::shared_ptr<SecretStore> fileStore() {
  return std::make_shared<FileSecretStore>(scratchDirectory() + "/keychain");
}

// --- bare libsecret, on a service object kept for the run ---------------

const SecretSchema* anySchema() {
  static const SecretSchema schema = [] {
    SecretSchema s{};
    s.name = "com.velmor.authorization.Item";
    s.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
    s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return s;
  }();
  return &schema;
}

struct BareLibsecret {
  BareLibsecret()
      : service(secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, nullptr)) {}
  ~BareLibsecret() {
    if (service) g_object_unref(service);
  }
  BareLibsecret(const BareLibsecret&) = delete;
  BareLibsecret& operator=(const BareLibsecret&) = delete;

  // The record's own item, as the library stored it.
  bool lookup(const std::string& service_, const std::string& account) const {
    GHashTable* attributes = secret_attributes_build(anySchema(), "service", service_.c_str(),
                                                     "account", account.c_str(), nullptr);
    SecretValue* value =
        secret_service_lookup_sync(service, anySchema(), attributes, nullptr, nullptr);
    g_hash_table_unref(attributes);
    if (!value) return false;
    secret_value_unref(value);
    return true;
  }

  bool store(const std::string& service_, const std::string& account, const std::string& text) {
    GHashTable* attributes = secret_attributes_build(anySchema(), "service", service_.c_str(),
                                                     "account", account.c_str(), nullptr);
    SecretValue* value =
        secret_value_new(text.data(), static_cast<gssize>(text.size()), "text/plain");
    const gboolean stored =
        secret_service_store_sync(service, anySchema(), attributes, SECRET_COLLECTION_DEFAULT,
                                  "bare", value, nullptr, nullptr);
    secret_value_unref(value);
    g_hash_table_unref(attributes);
    return stored;
  }

  SecretService* service;
};

void bareLookup(benchmark::State& state) {
  SignedInRecord fixture(secretServiceStore());
  BareLibsecret bare;
  for (auto _ : state) {
    if (!bare.lookup(fixture.service(), fixture.account())) {
      state.SkipWithError("the bare lookup failed");
      break;
    }
  }
}

// A read and a write of an item of the record's size, as a setter needs;
// on an item of its own, so that the record stays the library's.
void bareLookupAndStore(benchmark::State& state) {
  SignedInRecord fixture(secretServiceStore());
  BareLibsecret bare;
  const std::string text(1800, 'x');
  bare.store("bare", "pair", text);
  for (auto _ : state) {
    if (!bare.lookup("bare", "pair") || !bare.store("bare", "pair", text)) {
      state.SkipWithError("the bare lookup and store failed");
      break;
    }
  }
  secret_password_clear_sync(anySchema(), nullptr, nullptr, "service", "bare", "account", "pair",
                             nullptr);
}

// --- the store and the client ----------------------------------------------

using StoreFactory = std::shared_ptr<SecretStore> (*)();

void storeFind(benchmark::State& state, StoreFactory makeStore) {
  SignedInRecord fixture(makeStore());
  Data data;
  for (auto _ : state) {
    if (fixture.store().find(fixture.service(), fixture.account(), &data) != 0) {
      state.SkipWithError("the find failed");
      break;
    }
  }
}

void storeFindAndUpdateItem(benchmark::State& state, StoreFactory makeStore) {
  SignedInRecord fixture(makeStore());
  Data data;
  for (auto _ : state) {
    std::unique_ptr<SecretStoreItem> item;
    if (fixture.store().findItem(fixture.service(), fixture.account(), &data, &item) != 0 ||
        fixture.store().updateItem(*item, data) != 0) {
      state.SkipWithError("the find and update failed");
      break;
    }
  }
}

void recordSetter(benchmark::State& state, StoreFactory makeStore) {
  SignedInRecord fixture(makeStore());
  for (auto _ : state) fixture.record().setAccessToken(std::string(900, 'a'));
}

void clientGetter(benchmark::State& state, StoreFactory makeStore) {
  SignedInRecord fixture(makeStore());
  VelmorAuthorizationClient client(*Url::withString(kBase), kAppToken, kKey);
  for (auto _ : state) {
    if (!client.username()) {
      state.SkipWithError("no user name read");
      break;
    }
  }
}

void clientAuthorizationState(benchmark::State& state, StoreFactory makeStore) {
  SignedInRecord fixture(makeStore());
  VelmorAuthorizationClient client(*Url::withString(kBase), kAppToken, kKey);
  for (auto _ : state) {
    if (client.authorizationState() != AuthorizationStateAuthorized) {
      state.SkipWithError("the record does not read as authorized");
      break;
    }
  }
}

// --- velmor-auth processes ---------------------------------------------------

// Runs velmor-auth with `arguments`, `input` on its standard input, its
// output discarded; the exit status, -1 when it could not run.
int runTool(const std::vector<std::string>& arguments, const std::string& input = "") {
  int in[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> words = {VELMOR_AUTH_PATH};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, VELMOR_AUTH_PATH, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  if (spawned == 0 && !input.empty()) {
    [[maybe_unused]] ssize_t written = ::write(in[1], input.data(), input.size());
  }
  ::close(in[1]);
  int status = 0;
  if (spawned != 0 || ::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// `velmor-auth serve` for the run, with its base URL and CA file.
class DevelopmentServer final {
 public:
  DevelopmentServer() {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> words = {
        VELMOR_AUTH_PATH, "serve", "--port", "0", "--dir", scratchDirectory() + "/devserver",
        "--json"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, VELMOR_AUTH_PATH, &actions, nullptr, argv.data(), environ) != 0) {
      pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    std::string line;
    char c = 0;
    while (::read(out[0], &c, 1) == 1 && c != '\n') line += c;
    ::close(out[0]);
    const nlohmann::json announced = nlohmann::json::parse(line, nullptr, false);
    if (announced.is_object() && announced.contains("baseUrl")) {
      baseUrl_ = announced.at("baseUrl");
      caFile_ = announced.at("caFile");
    }
  }
  ~DevelopmentServer() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  DevelopmentServer(const DevelopmentServer&) = delete;
  DevelopmentServer& operator=(const DevelopmentServer&) = delete;

  bool running() const { return !baseUrl_.empty(); }

  // The common options that point velmor-auth at this server and `store`.
  std::vector<std::string> client(const std::vector<std::string>& store) const {
    std::vector<std::string> words = {"--server", baseUrl_,     "--ca-file",
                                      caFile_,    "--key-file", scratchDirectory() + "/key"};
    words.insert(words.end(), store.begin(), store.end());
    return words;
  }

 private:
  pid_t pid_ = -1;
  std::string baseUrl_;
  std::string caFile_;
};

void toolSignIn(benchmark::State& state, std::vector<std::string> store) {
  DevelopmentServer server;
  if (!server.running()) {
    state.SkipWithError("the development server did not start");
    return;
  }
  std::vector<std::string> activate = server.client(store);
  activate.push_back("activate");
  std::vector<std::string> signIn = server.client(store);
  signIn.insert(signIn.end(), {"sign-in", "--username", "alice", "--password-stdin"});
  if (runTool(activate) != 0) {
    state.SkipWithError("velmor-auth activate failed");
    return;
  }
  for (auto _ : state) {
    if (runTool(signIn, "wonderland\n") != 0) {
      state.SkipWithError("velmor-auth sign-in failed");
      break;
    }
  }
  std::vector<std::string> remove = server.client(store);
  remove.push_back("delete");
  runTool(remove);
}

// --- targets -----------------------------------------------------------------

bool check(const char* what, double value, double limit) {
  const bool met = value <= limit;
  std::printf("%-62s %6.2fx (limit %.2fx): %s\n", what, value, limit, met ? "met" : "MISSED");
  return met;
}

void registerAll(bool secretService) {
  const auto add = [](const std::string& name, auto&& function, auto... arguments) {
    benchmark::RegisterBenchmark(name.c_str(), function, arguments...)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
  };
  add("FileStore/Find", storeFind, &fileStore);
  add("FileStore/ClientAuthorizationState", clientAuthorizationState, &fileStore);
  const std::vector<std::string> files = {"--store", "file", "--store-dir",
                                          scratchDirectory() + "/tool-keychain"};
  add("FileStore/ToolSignIn", toolSignIn, files);
  if (!secretService) return;
  add("Bare/Lookup", bareLookup);
  add("Bare/LookupAndStore", bareLookupAndStore);
  add("SecretService/Find", storeFind, &secretServiceStore);
  add("SecretService/FindAndUpdateItem", storeFindAndUpdateItem, &secretServiceStore);
  add("SecretService/RecordSetter", recordSetter, &secretServiceStore);
  add("SecretService/ClientGetter", clientGetter, &secretServiceStore);
  add("SecretService/ClientAuthorizationState", clientAuthorizationState, &secretServiceStore);
  add("SecretService/ToolSignIn", toolSignIn,
      std::vector<std::string>{"--store", "secret-service"});
}

bool printTargets(const TimeKeepingReporter& reporter) {
  auto real = [&](const char* name) {
    const auto times = reporter.time(name);
    return times ? times->real : 0.0;
  };
  bool met = true;
  if (real("FileStore/Find") > 0) {
    met &= check("file store: authorizationState() / one bare find",
                 real("FileStore/ClientAuthorizationState") / real("FileStore/Find"), 1.5);
  }
  const double lookup = real("Bare/Lookup");
  const double pair = real("Bare/LookupAndStore");
  if (lookup > 0 && pair > 0) {
    std::printf("%-62s %6.2fx\n", "Secret Service: store find / bare lookup",
                real("SecretService/Find") / lookup);
    std::printf("%-62s %6.2fx\n", "Secret Service: find and update / bare lookup and store",
                real("SecretService/FindAndUpdateItem") / pair);
    std::printf("%-62s %6.2fx\n", "Secret Service: record setter / bare lookup and store",
                real("SecretService/RecordSetter") / pair);
    met &= check("Secret Service: getter / one bare lookup",
                 real("SecretService/ClientGetter") / lookup, 1.3);
    met &= check("Secret Service: authorizationState() / one bare lookup",
                 real("SecretService/ClientAuthorizationState") / lookup, 2.0);
    const double extra = real("SecretService/ToolSignIn") - real("FileStore/ToolSignIn");
    std::printf(
        "velmor-auth sign-in: Secret Service %.1f ms, file store %.1f ms, extra %.1f ms; "
        "seven bare lookup-and-store pairs %.1f ms\n",
        real("SecretService/ToolSignIn") / 1000, real("FileStore/ToolSignIn") / 1000, extra / 1000,
        7 * pair / 1000);
    met &= check("velmor-auth sign-in: extra on the Secret Service / 7 bare pairs",
                 extra / (7 * pair), 1.3);
  }
  std::printf("targets: %s\n", met ? "all met" : "NOT all met");
  return met;
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  const bool secretService = velmor::SecretServiceStore::isAvailable();
  if (!secretService) {
    std::printf(
        "No Secret Service answers: run under tests/platform/with-secret-service for "
        "the Secret Service rows.\n");
  }
  velmor::registerAll(secretService);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  velmor::printTargets(reporter);
  std::error_code ignored;
  std::filesystem::remove_all(velmor::scratchDirectory(), ignored);
  return 0;
}
