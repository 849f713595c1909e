// What the credential record costs per call over a secret store, beside the
// bare store operation each call stands on: a getter is one find plus an
// AES pass and an HMAC over the whole record, a setter a read, three more
// finds, an encryption and an update. Every store is measured the same way;
// register more with registerStoreBenchmarks() before the run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "storage/SecureData.h"
#include "velmor/MemorySecretStore.h"
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

}  // namespace velmor

int main(int argc, char** argv) {
  velmor::registerStoreBenchmarks("MemorySecretStore",
                                  [] { return std::make_shared<velmor::MemorySecretStore>(); });
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
