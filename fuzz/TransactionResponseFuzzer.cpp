// Feeds made-up responses (status, a few header fields, a body) to every
// server transaction's response handling and to the judgement of resource
// server refusals. Nothing may crash or leak, and the credential record,
// which starts full, must end in one of the states the exchange may leave it
// in and only for the outcome that allows it: never a token without both of
// its dates, never a half-written registration.
#include <fuzzer/FuzzedDataProvider.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RecordSnapshot.h"
#include "storage/SecureData.h"
#include "transport/ActivateClientTransaction.h"
#include "transport/ApplicationHttpTransaction.h"
#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/RequestAccessTokenFromAuthCodeTransaction.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "transport/RevokeTransaction.h"
#include "transport/UpdateClientContextTransaction.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace {

using velmor::Data;
using velmor::ErrorRef;
using velmor::HttpUrlResponse;
using velmor::SecureData;
using velmor::Url;
using velmor::fuzz::Date;
using velmor::fuzz::isServerError;
using velmor::fuzz::kInvalidClient;
using velmor::fuzz::kInvalidGrant;
using velmor::fuzz::kUnauthorizedClient;
using velmor::fuzz::require;
using velmor::fuzz::Snapshot;

enum Kind : int {
  kActivate,
  kUpdateClientContext,
  kPasswordGrant,
  kRefreshGrant,
  kAuthorizationCodeGrant,
  kRevoke,
  kApplicationRefusal,
  kLastKind = kApplicationRefusal,
};

constexpr char kHeaderNames[][17] = {"Content-Type", "Content-Length", "WWW-Authenticate",
                                     "Location"};

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
  std::shared_ptr<SecureData> record = velmor::fuzz::freshRecord();
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

  const Snapshot& before = velmor::fuzz::startingRecord().snapshot;
  const Snapshot after = velmor::fuzz::snapshotOf(*record);
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
  std::shared_ptr<SecureData> record = velmor::fuzz::freshRecord();
  const std::shared_ptr<HttpUrlResponse> response = consumeResponse(input);
  const bool failure =
      velmor::ApplicationHttpTransaction::hasAuthorizationFailureResponse(response);
  require(!failure || velmor::ApplicationHttpTransaction::isAuthorizationFailureStatusCode(
                          response->statusCode()));

  velmor::ApplicationHttpTransaction transaction(record);
  const ErrorRef error = transaction.handleAuthorizationFailureResponse(response);
  require(error != nullptr);

  const Snapshot& before = velmor::fuzz::startingRecord().snapshot;
  const Snapshot after = velmor::fuzz::snapshotOf(*record);
  if (after == before) return;
  // Only the access token and its dates go, and only for an expired or
  // under-scoped token.
  const std::int64_t status = response->statusCode();
  require((status == 401 && isServerError(error, 7)) || (status == 403 && isServerError(error, 2)));
  require(after.exists && after.sameRegistration(before) && after.sameRefresh(before));
  require(after.noAccess());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto kind = static_cast<Kind>(input.ConsumeIntegralInRange<int>(0, kLastKind));
  switch (kind) {
    case kApplicationRefusal:
      runApplicationRefusal(input);
      break;
    default:
      runServerTransaction(kind, input);
      break;
  }
  velmor::SecretStore::setDefault(nullptr);
  return 0;
}
