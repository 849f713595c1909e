// The credential record as the fuzz targets see it: a full record to start
// every run from, and a snapshot of everything a run could have changed.
#ifndef VELMOR_FUZZ_RECORD_SNAPSHOT_H_
#define VELMOR_FUZZ_RECORD_SNAPSHOT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "FuzzCheck.h"
#include "storage/SecureData.h"
#include "velmor/Error.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::fuzz {

using Date = SecureData::Date;

// Server error codes whose answers may clear stored data.
constexpr std::int64_t kInvalidClient = 3;
constexpr std::int64_t kInvalidGrant = 4;
constexpr std::int64_t kUnauthorizedClient = 10;

inline Data fixedKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
  return key;
}

inline std::shared_ptr<SecureData> newRecord(std::optional<Data> key = fixedKey()) {
  return std::make_shared<SecureData>("auth.example.com", "apptoken", std::move(key), 0);
}

// Everything a transaction could touch, read through the record's getters.
struct Snapshot {
  bool exists = false;
  std::size_t entries = 0;
  std::optional<std::string> clientId, clientSecret, username, accessToken, refreshToken;
  std::optional<Date> accessStart, accessEnd, refreshStart, refreshEnd;

  bool sameRegistration(const Snapshot& other) const {
    return clientId == other.clientId && clientSecret == other.clientSecret &&
           username == other.username;
  }
  bool sameAccess(const Snapshot& other) const {
    return accessToken == other.accessToken && accessStart == other.accessStart &&
           accessEnd == other.accessEnd;
  }
  bool sameRefresh(const Snapshot& other) const {
    return refreshToken == other.refreshToken && refreshStart == other.refreshStart &&
           refreshEnd == other.refreshEnd;
  }
  bool noAccess() const { return !accessToken && !accessStart && !accessEnd; }
  bool noRefresh() const { return !refreshToken && !refreshStart && !refreshEnd; }
  bool operator==(const Snapshot& other) const {
    return exists == other.exists && entries == other.entries && sameRegistration(other) &&
           sameAccess(other) && sameRefresh(other);
  }
};

// Requires every entry of a written record to read back: no stray key, no
// date that does not parse.
inline Snapshot snapshotOf(SecureData& record) {
  Snapshot snapshot;
  const std::optional<Dictionary> dictionary = record.retrieveDataDictionary();
  if (!dictionary) return snapshot;
  snapshot.exists = true;
  snapshot.entries = dictionary->size();
  snapshot.clientId = record.clientId();
  snapshot.clientSecret = record.clientSecret();
  snapshot.username = record.username();
  snapshot.accessToken = record.accessToken();
  snapshot.accessStart = record.accessTokenValidStartDateTime();
  snapshot.accessEnd = record.accessTokenValidEndDateTime();
  snapshot.refreshToken = record.refreshToken();
  snapshot.refreshStart = record.refreshTokenValidStartDateTime();
  snapshot.refreshEnd = record.refreshTokenValidEndDateTime();
  const std::size_t readable = (snapshot.clientId ? 1 : 0) + (snapshot.clientSecret ? 1 : 0) +
                               (snapshot.username ? 1 : 0) + (snapshot.accessToken ? 1 : 0) +
                               (snapshot.accessStart ? 1 : 0) + (snapshot.accessEnd ? 1 : 0) +
                               (snapshot.refreshToken ? 1 : 0) + (snapshot.refreshStart ? 1 : 0) +
                               (snapshot.refreshEnd ? 1 : 0);
  require(readable == snapshot.entries);
  return snapshot;
}

// The full record every run starts from, archived once.
struct StartingRecord {
  Data item;
  std::string service, account;
  Snapshot snapshot;
};

inline const StartingRecord& startingRecord() {
  static const StartingRecord kStart = [] {
    SecretStore::setDefault(std::make_shared<MemorySecretStore>());
    std::shared_ptr<SecureData> record = newRecord();
    record->setClientId("cid");
    record->setClientSecret("csecret");
    record->setUsername("anna");
    record->setAccessToken("old-access");
    record->setAccessTokenValidStartDateTime(Date(std::chrono::seconds(1700000000)));
    record->setAccessTokenValidEndDateTime(Date(std::chrono::seconds(1700003600)));
    record->setRefreshToken("old-refresh");
    record->setRefreshTokenValidStartDateTime(Date(std::chrono::seconds(1700000000)));
    record->setRefreshTokenValidEndDateTime(Date(std::chrono::seconds(1700086400)));
    StartingRecord made{*record->retrieveDataForExistingKeychainItem(),
                        record->keychainItemServiceName(), record->keychainItemServiceAccount(),
                        snapshotOf(*record)};
    require(made.snapshot.entries == 9);
    return made;
  }();
  return kStart;
}

// A fresh default store holding only the starting record.
inline std::shared_ptr<SecureData> freshRecord() {
  const StartingRecord& start = startingRecord();
  auto store = std::make_shared<MemorySecretStore>();
  require(store->add(start.service, start.account, start.item) == kSecretStoreSuccess);
  SecretStore::setDefault(store);
  return newRecord();
}

inline bool isServerError(const ErrorRef& error, std::int64_t code) {
  return error && error->domain() == AuthorizationServerErrorDomain && error->code() == code;
}

}  // namespace velmor::fuzz

#endif  // VELMOR_FUZZ_RECORD_SNAPSHOT_H_
