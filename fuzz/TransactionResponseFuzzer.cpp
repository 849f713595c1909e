// Feeds made-up responses (status, a few header fields, a body) to every
// server transaction's response handling and to the judgement of resource
// server refusals, made-up redirects to the web sign-in reader and made-up
// queries to the query parser. Nothing may crash or leak, and the
// credential record, which starts full, must end in one of the states the
// exchange may leave it in and only for the outcome that allows it: never a
// token without both of its dates, never a half-written registration.
#include <fuzzer/FuzzedDataProvider.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "storage/SecureData.h"
#include "transport/ActivateClientTransaction.h"
#include "transport/ApplicationHttpTransaction.h"
#include "transport/HttpUtility.h"
#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "transport/RequestSignInViaWebTransaction.h"
#include "transport/RevokeTransaction.h"
#include "transport/UpdateClientContextTransaction.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace {

using velmor::Data;
using velmor::Dictionary;
using velmor::ErrorRef;
using velmor::HttpUrlResponse;
using velmor::SecureData;
using velmor::Url;
using Date = SecureData::Date;

void require(bool condition) {
  if (!condition) std::abort();
}

enum Kind : int {
  kActivate,
  kUpdateClientContext,
  kPasswordGrant,
  kRefreshGrant,
  kAuthorizationCodeGrant,
  kRevoke,
  kApplicationRefusal,
  kRedirect,
  kQuery,
  kLastKind = kQuery,
};

constexpr char kKnownState[] = "0123456789abcdef0123456789abcdef";
constexpr char kHeaderNames[][17] = {"Content-Type", "Content-Length", "WWW-Authenticate",
                                     "Location"};
constexpr std::int64_t kInvalidClient = 3;
constexpr std::int64_t kInvalidGrant = 4;
constexpr std::int64_t kUnauthorizedClient = 10;

Data fixedKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
  return key;
}

std::shared_ptr<SecureData> newRecord() {
  return std::make_shared<SecureData>("auth.example.com", "apptoken", fixedKey(), 0);
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

Snapshot snapshotOf(SecureData& record) {
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
  // Every entry reads back: no stray key, no date that does not parse.
  const std::size_t readable = (snapshot.clientId ? 1 : 0) + (snapshot.clientSecret ? 1 : 0) +
                               (snapshot.username ? 1 : 0) + (snapshot.accessToken ? 1 : 0) +
                               (snapshot.accessStart ? 1 : 0) + (snapshot.accessEnd ? 1 : 0) +
                               (snapshot.refreshToken ? 1 : 0) + (snapshot.refreshStart ? 1 : 0) +
                               (snapshot.refreshEnd ? 1 : 0);
  require(readable == snapshot.entries);
  return snapshot;
}

// The full record every run starts from, archived once.
struct Original {
  Data item;
  std::string service, account;
  Snapshot snapshot;
};

const Original& original() {
  static const Original kOriginal = [] {
    velmor::SecretStore::setDefault(std::make_shared<velmor::MemorySecretStore>());
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
    Original made{*record->retrieveDataForExistingKeychainItem(), record->keychainItemServiceName(),
                  record->keychainItemServiceAccount(), snapshotOf(*record)};
    require(made.snapshot.entries == 9);
    return made;
  }();
  return kOriginal;
}

// A fresh store holding only the original record.
std::shared_ptr<SecureData> freshRecord() {
  const Original& start = original();
  auto store = std::make_shared<velmor::MemorySecretStore>();
  require(store->add(start.service, start.account, start.item) == velmor::kSecretStoreSuccess);
  velmor::SecretStore::setDefault(store);
  return newRecord();
}

bool isServerError(const ErrorRef& error, std::int64_t code) {
  return error && error->domain() == velmor::AuthorizationServerErrorDomain &&
         error->code() == code;
}

std::shared_ptr<HttpUrlResponse> consumeResponse(FuzzedDataProvider& input) {
  const bool present = input.ConsumeBool();
  const int status = input.ConsumeIntegralInRange<int>(0, 599);
  HttpUrlResponse::HeaderFields fields;
  const int count = input.ConsumeIntegralInRange<int>(0, 4);
  for (int i = 0; i < count; ++i) {
    const auto which = input.ConsumeIntegralInRange<std::size_t>(0, std::size(kHeaderNames));
    std::string name = which < std::size(kHeaderNames) ? std::string(kHeaderNames[which])
                                                       : input.ConsumeRandomLengthString(32);
    fields.emplace_back(std::move(name), input.ConsumeRandomLengthString(256));
  }
  if (!present) return nullptr;
  return std::make_shared<HttpUrlResponse>(*Url::withString("https://api.example.com/r"), status,
                                           fields);
}

std::optional<Data> consumeBody(FuzzedDataProvider& input) {
  if (!input.ConsumeBool()) return std::nullopt;
  return input.ConsumeRemainingBytes<std::uint8_t>();
}

// What an error answer may have cleared, and only for the code that clears it.
bool isAllowedRefusal(const Snapshot& before, const Snapshot& after, const ErrorRef& error) {
  if (after == before) return true;
  if (!after.exists)
    return isServerError(error, kInvalidClient) || isServerError(error, kUnauthorizedClient);
  return isServerError(error, kInvalidGrant) && after.sameRegistration(before) &&
         after.noAccess() && after.noRefresh();
}

bool isSuccessStatus(Kind kind, const std::shared_ptr<HttpUrlResponse>& response) {
  if (!response) return false;
  const std::int64_t status = response->statusCode();
  switch (kind) {
    case kUpdateClientContext:
      return status == 204;
    case kRevoke:
      return status == 200 || status == 204;
    default:
      return status == 200;
  }
}

void checkRegistration(const Snapshot& before, const Snapshot& after) {
  require(after.exists && after.entries == before.entries);
  require(after.clientId && !after.clientId->empty());
  require(after.clientSecret && !after.clientSecret->empty());
  require(after.username == before.username && after.sameAccess(before) &&
          after.sameRefresh(before));
}

void checkGrant(const Snapshot& before, const Snapshot& after, Date callStart, Date callEnd) {
  require(after.exists && after.sameRegistration(before));
  require(after.accessToken && !after.accessToken->empty());
  require(after.accessStart && after.accessEnd);
  require(*after.accessStart >= std::chrono::floor<std::chrono::seconds>(callStart));
  require(*after.accessStart <= callEnd && *after.accessStart <= *after.accessEnd);
  if (after.sameRefresh(before)) return;
  // A new refresh token starts with the new access token.
  require(after.refreshToken && !after.refreshToken->empty());
  require(after.refreshStart == after.accessStart && after.refreshEnd);
  require(*after.refreshStart <= *after.refreshEnd);
}

void runServerTransaction(Kind kind, FuzzedDataProvider& input) {
  std::shared_ptr<SecureData> record = freshRecord();
  std::unique_ptr<velmor::HttpTransactionProtocol> transaction;
  switch (kind) {
    case kActivate:
      transaction = std::make_unique<velmor::ActivateClientTransaction>(record);
      break;
    case kUpdateClientContext:
      transaction = std::make_unique<velmor::UpdateClientContextTransaction>(record);
      break;
    case kRevoke:
      transaction = std::make_unique<velmor::RevokeTransaction>(record);
      break;
    default: {
      std::unique_ptr<velmor::RequestAccessTokenTransaction> grant;
      if (kind == kPasswordGrant) {
        grant = std::make_unique<velmor::RequestAccessTokenTransaction>(record);
      } else if (kind == kRefreshGrant) {
        grant = std::make_unique<velmor::RefreshAccessTokenTransaction>(record);
      } else {
        grant = std::make_unique<velmor::RequestAccessTokenFromAuthCodeTransaction>(record);
      }
      const auto overrides = input.ConsumeIntegral<std::uint8_t>();
      if (overrides & 1)
        grant->setAccessTokenExpirationOverride(input.ConsumeIntegral<std::uint64_t>());
      if (overrides & 2)
        grant->setRefreshTokenExpirationOverride(input.ConsumeIntegral<std::uint64_t>());
      transaction = std::move(grant);
    }
  }
  const std::shared_ptr<HttpUrlResponse> response = consumeResponse(input);
  const std::optional<Data> body = consumeBody(input);

  const Date callStart = std::chrono::system_clock::now();
  const ErrorRef error = transaction->handleResponse(response, body);
  const Date callEnd = std::chrono::system_clock::now();

  const Snapshot& before = original().snapshot;
  const Snapshot after = snapshotOf(*record);
  if (error) {
    require(isAllowedRefusal(before, after, error));
    return;
  }
  require(isSuccessStatus(kind, response));
  if (kind == kActivate) {
    checkRegistration(before, after);
  } else if (kind == kUpdateClientContext || kind == kRevoke) {
    require(after == before);
  } else {
    checkGrant(before, after, callStart, callEnd);
  }
}

void runApplicationRefusal(FuzzedDataProvider& input) {
  std::shared_ptr<SecureData> record = freshRecord();
  const std::shared_ptr<HttpUrlResponse> response = consumeResponse(input);
  const bool failure =
      velmor::ApplicationHttpTransaction::hasAuthorizationFailureResponse(response);
  require(!failure || velmor::ApplicationHttpTransaction::isAuthorizationFailureStatusCode(
                          response->statusCode()));

  velmor::ApplicationHttpTransaction transaction(record);
  const ErrorRef error = transaction.handleAuthorizationFailureResponse(response);
  require(error != nullptr);

  const Snapshot& before = original().snapshot;
  const Snapshot after = snapshotOf(*record);
  if (after == before) return;
  // Only the access token and its dates go, and only for an expired or
  // under-scoped token.
  const std::int64_t status = response->statusCode();
  require((status == 401 && isServerError(error, 7)) || (status == 403 && isServerError(error, 2)));
  require(after.exists && after.sameRegistration(before) && after.sameRefresh(before));
  require(after.noAccess());
}

void runRedirect(FuzzedDataProvider& input) {
  std::shared_ptr<SecureData> record = freshRecord();
  velmor::RequestSignInViaWebTransaction transaction(record);
  switch (input.ConsumeIntegralInRange<int>(0, 2)) {
    case 1:
      require(transaction
                  .generateRequest(*Url::withString("https://auth.example.com/signin?a=1"),
                                   *Url::withString("com.example.app://done"))
                  .has_value());
      break;
    case 2:
      transaction.setLastGeneratedState(kKnownState);
      break;
    default:
      break;
  }
  const std::string text = input.ConsumeRemainingBytesAsString();
  std::optional<Url> url = Url::withString(text);
  if (!url) url = Url::withString("com.example.app://done?" + text);
  if (!url) return;

  const std::optional<std::string> untouched = "untouched";
  std::optional<std::string> code = untouched, username = untouched;
  std::optional<Url> redirect;
  const ErrorRef error = transaction.handleResponse(*url, &code, &redirect, &username);

  const Snapshot& before = original().snapshot;
  const Snapshot after = snapshotOf(*record);
  if (after != before) {
    require(!after.exists);
    require(isServerError(error, kInvalidClient) || isServerError(error, kUnauthorizedClient));
  }
  if (error && error->domain() == velmor::AuthorizationServerErrorDomain) {
    require(code == untouched && username == untouched && !redirect);
    return;
  }
  require(redirect.has_value() && redirect->absoluteString().find('?') == std::string::npos);
  if (error) {
    require(username == untouched);
    return;
  }
  require(code && !code->empty() && username && !username->empty());
}

void runQuery(FuzzedDataProvider& input) {
  const std::string query = input.ConsumeRemainingBytesAsString();
  const Dictionary parameters = velmor::HttpUtility::parseQueryString(query);
  for (const auto& [key, value] : parameters) {
    const std::string* text = value.stringValue();
    require(text != nullptr);
    require(velmor::HttpUtility::isValidUtf8(key) && velmor::HttpUtility::isValidUtf8(*text));
    // What was read survives being escaped and read again.
    const Dictionary again =
        velmor::HttpUtility::parseQueryString(velmor::HttpUtility::escapeDataString(key) + "=" +
                                              velmor::HttpUtility::escapeDataString(*text));
    require(again == Dictionary{{key, *text}});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto kind = static_cast<Kind>(input.ConsumeIntegralInRange<int>(0, kLastKind));
  switch (kind) {
    case kApplicationRefusal:
      runApplicationRefusal(input);
      break;
    case kRedirect:
      runRedirect(input);
      break;
    case kQuery:
      runQuery(input);
      break;
    default:
      runServerTransaction(kind, input);
      break;
  }
  velmor::SecretStore::setDefault(nullptr);
  return 0;
}
