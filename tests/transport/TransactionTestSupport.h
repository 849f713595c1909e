// What the transaction tests share: a credential record in a private
// in-memory secret store, responses made to measure, and short outcomes.
#ifndef VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_
#define VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "storage/SecureData.h"
#include "testing/ScopedSecretStore.h"
#include "transport/HttpTransactionProtocol.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::test {

inline Data bytesOf(const std::string& text) { return Data(text.begin(), text.end()); }
// A body that may be absent.
inline std::optional<Data> bodyOf(const std::optional<std::string>& text) {
  return text ? std::optional<Data>(bytesOf(*text)) : std::nullopt;
}
inline Url urlOf(const std::string& text) { return *Url::withString(text); }

inline std::shared_ptr<HttpUrlResponse> responseOf(
    std::int64_t status, const HttpUrlResponse::HeaderFields& headers = {}) {
  return std::make_shared<HttpUrlResponse>(urlOf("https://auth.example.com/x"), status, headers);
}
inline std::shared_ptr<HttpUrlResponse> jsonResponseOf(std::int64_t status) {
  return responseOf(status, {{"Content-Type", "application/json;charset=UTF-8"}});
}

// "server 4", "network 6", "client 3" or "none", so a mismatch shows both.
inline std::string outcomeOf(const ErrorRef& error) {
  if (!error) return "none";
  const std::string& domain = error->domain();
  const char* name = domain == AuthorizationServerErrorDomain    ? "server"
                     : domain == NetworkCommunicationErrorDomain ? "network"
                     : domain == AuthorizationClientErrorDomain  ? "client"
                                                                 : domain.c_str();
  return std::string(name) + " " + std::to_string(error->code());
}

struct GeneratedRequest {
  std::optional<Url> url;
  Dictionary headers;
  std::string verb;
  std::string body;
};

inline GeneratedRequest generate(HttpTransactionProtocol& transaction,
                                 const std::string& base = "https://auth.example.com/base/") {
  GeneratedRequest request;
  const Data body =
      transaction.generateRequest(urlOf(base), &request.url, &request.headers, &request.verb);
  request.body.assign(body.begin(), body.end());
  return request;
}

inline Dictionary formHeaders(std::optional<std::string> basic = "Basic Y2lkOmNzZWNyZXQ=") {
  Dictionary headers{{"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"}};
  if (basic) headers.set("Authorization", *basic);
  return headers;
}

// A credential record under a fixed key in a fresh memory store; fillRecord
// stores client "cid"/"csecret", user "anna" and both tokens.
class TransactionTest : public ::testing::Test {
 protected:
  using Date = SecureData::Date;

  static Data fixedKey() {
    Data key(32);
    for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
    return key;
  }

  void fillRecord() {
    record_->setClientId("cid");
    record_->setClientSecret("csecret");
    record_->setUsername("anna");
    record_->setAccessToken("old-access");
    record_->setAccessTokenValidStartDateTime(kOldStart);
    record_->setAccessTokenValidEndDateTime(kOldEnd);
    record_->setRefreshToken("old-refresh");
    record_->setRefreshTokenValidStartDateTime(kOldStart);
    record_->setRefreshTokenValidEndDateTime(kOldEnd);
  }

  static constexpr Date kOldStart{std::chrono::seconds(1700000000)};
  static constexpr Date kOldEnd{std::chrono::seconds(1700003600)};

  ScopedSecretStore scope_{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("auth.example.com", "apptoken", fixedKey(), 0);
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_
