// What the credential record costs per call over a secret store, beside the
// bare store operation each call stands on: a getter is one find plus an
// AES pass and an HMAC over the whole record, a setter a read, two more
// finds, an encryption and an update of what the last find found. Every
// store is measured the same way; register more with
// registerStoreBenchmarks() before the run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "TimeKeepingReporter.h"
#include "storage/SecureData.h"
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/SecretStore.h"

namespace velmor {
namespace {

using StoreFactory = std::function<std::shared_ptr<SecretStore>()>;

// Sizes as after a real sign-in: an opaque token pair and client credentials.
const std::string kAccessToken(64, 'a');
const std::string kRefreshToken(64, 'r');

// A store installed as the default, holding a record filled as after a
// sign-in, for one benchmark run; everything is removed afterwards.
class RecordOnStore final {
 public:
  explicit RecordOnStore(const StoreFactory& makeStore) : store_(makeStore()) {
    SecretStore::setDefault(store_);
    const auto now = std::chrono::system_clock::now();
    record_.setClientId(std::string(36, 'c'));
    record_.setClientSecret(std::string(64, 's'));
    record_.setUsername("benchmark.user@example.com");
    record_.setAccessToken(kAccessToken);
    record_.setAccessTokenValidStartDateTime(now);
    record_.setAccessTokenValidEndDateTime(now + std::chrono::hours(1));
    record_.setRefreshToken(kRefreshToken);
    record_.setRefreshTokenValidStartDateTime(now);
    record_.setRefreshTokenValidEndDateTime(now + std::chrono::hours(24 * 30));
    store_->find(service(), account(), &itemData_);
  }
  ~RecordOnStore() {
    record_.deleteAll();
    SecretStore::setDefault(nullptr);
  }
  RecordOnStore(const RecordOnStore&) = delete;
  RecordOnStore& operator=(const RecordOnStore&) = delete;

  SecretStore& store() { return *store_; }
  SecureData& record() { return record_; }
  const Data& itemData() const { return itemData_; }
  std::string service() const { return record_.keychainItemServiceName(); }
  std::string account() const { return record_.keychainItemServiceAccount(); }

 private:
  std::shared_ptr<SecretStore> store_;
  // A fixed key: the 300 ms key derivation is not what is measured here.
  SecureData record_{"auth.example.com", "benchmark-app", Data(32, 0x5a), 0};
  Data itemData_;
};

void storeFind(benchmark::State& state, const StoreFactory& makeStore) {
  RecordOnStore fixture(makeStore);
  const std::string service = fixture.service(), account = fixture.account();
  Data data;
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.store().find(service, account, &data));
  }
}

void getter(benchmark::State& state, const StoreFactory& makeStore) {
  RecordOnStore fixture(makeStore);
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.record().accessToken());
  }
}

void storeUpdate(benchmark::State& state, const StoreFactory& makeStore) {
  RecordOnStore fixture(makeStore);
  const std::string service = fixture.service(), account = fixture.account();
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.store().update(service, account, fixture.itemData()));
  }
}

void setter(benchmark::State& state, const StoreFactory& makeStore) {
  RecordOnStore fixture(makeStore);
  for (auto _ : state) {
    fixture.record().setAccessToken(kAccessToken);
  }
}

// The reads behind one authorization-state query that ends in "refresh
// required": credentials, then the access token and its period, then the
// refresh token and its period. Reported per sequence of eight getters.
void authorizationStateReads(benchmark::State& state, const StoreFactory& makeStore) {
  RecordOnStore fixture(makeStore);
  SecureData& record = fixture.record();
  for (auto _ : state) {
    benchmark::DoNotOptimize(record.hasClientId());
    benchmark::DoNotOptimize(record.hasClientSecret());
    benchmark::DoNotOptimize(record.hasAccessToken());
    benchmark::DoNotOptimize(record.accessTokenValidStartDateTime());
    benchmark::DoNotOptimize(record.accessTokenValidEndDateTime());
    benchmark::DoNotOptimize(record.hasRefreshToken());
    benchmark::DoNotOptimize(record.refreshTokenValidStartDateTime());
    benchmark::DoNotOptimize(record.refreshTokenValidEndDateTime());
  }
}

}  // namespace

// Registers the five measurements for one store, named "<name>/<what>".
// `makeStore` is called once per run and may return a store that needs
// setting up (a temporary directory, a session bus).
void registerStoreBenchmarks(const std::string& name, StoreFactory makeStore) {
  const std::pair<const char*, void (*)(benchmark::State&, const StoreFactory&)> runs[] = {
      {"StoreFind", storeFind},
      {"Getter", getter},
      {"StoreUpdate", storeUpdate},
      {"Setter", setter},
      {"AuthorizationStateEightGetters", authorizationStateReads},
  };
  for (const auto& [what, run] : runs) {
    benchmark::RegisterBenchmark((name + "/" + what).c_str(), run, makeStore)
        ->Unit(benchmark::kMicrosecond);
  }
}

void printRatios(const TimeKeepingReporter& reporter, const std::vector<std::string>& stores) {
  const std::pair<const char*, const char*> pairs[] = {
      {"Getter", "StoreFind"},
      {"Setter", "StoreUpdate"},
      {"AuthorizationStateEightGetters", "StoreFind"},
  };
  for (const std::string& store : stores) {
    for (const auto& [what, bare] : pairs) {
      auto measured = reporter.time(store + "/" + what);
      auto base = reporter.time(store + "/" + bare);
      if (!measured || !base || base->real <= 0) continue;
      std::printf("ratio %s/%s: %.1f us, %.2fx %s (%.1f us)\n", store.c_str(), what, measured->real,
                  measured->real / base->real, bare, base->real);
    }
  }
}

}  // namespace velmor

int main(int argc, char** argv) {
  using velmor::registerStoreBenchmarks;
  std::vector<std::string> stores = {"MemorySecretStore", "FileSecretStore"};
  registerStoreBenchmarks("MemorySecretStore",
                          [] { return std::make_shared<velmor::MemorySecretStore>(); });
  // The file store in a scratch directory on the build's disk, as a user's
  // home directory would be.
  char pattern[] = "velmor-bench-XXXXXX";
  const std::filesystem::path directory = ::mkdtemp(pattern) ? pattern : "velmor-bench";
  registerStoreBenchmarks("FileSecretStore", [&] {
    return std::make_shared<velmor::FileSecretStore>(std::filesystem::absolute(directory));
  });
  if (velmor::SecretServiceStore::isAvailable()) {
    stores.push_back("SecretServiceStore");
    registerStoreBenchmarks("SecretServiceStore",
                            [] { return std::make_shared<velmor::SecretServiceStore>(); });
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  velmor::printRatios(reporter, stores);
  std::filesystem::remove_all(directory);
  return 0;
}
