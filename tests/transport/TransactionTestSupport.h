// What the transaction tests share: a credential record in a private
// in-memory secret store, and responses made to measure.
#ifndef VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_
#define VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "storage/SecureData.h"
#include "testing/ScopedSecretStore.h"
#include "transport/HttpTransactionProtocol.h"
#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/Url.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::test {

inline Data bytesOf(const std::string& text) { return Data(text.begin(), text.end()); }
inline std::string textOf(const Data& data) { return std::string(data.begin(), data.end()); }

inline Url urlOf(const std::string& text) { return *Url::withString(text); }

inline const Url kServerBase = urlOf("https://auth.example.com/base/");

inline std::shared_ptr<HttpUrlResponse> responseOf(std::int64_t status,
                                                   HttpUrlResponse::HeaderFields headers = {}) {
  return std::make_shared<HttpUrlResponse>(urlOf("https://auth.example.com/base/x"), status,
                                           headers);
}

inline std::shared_ptr<HttpUrlResponse> jsonResponseOf(std::int64_t status) {
  return responseOf(status, {{"Content-Type", "application/json;charset=UTF-8"}});
}

// What a transaction's generateRequest produced.
struct GeneratedRequest {
  std::optional<Url> url;
  Dictionary headers;
  std::string verb;
  std::string body;
};

inline GeneratedRequest generate(HttpTransactionProtocol& transaction,
                                 const Url& base = kServerBase) {
  GeneratedRequest request;
  request.body =
      textOf(transaction.generateRequest(base, &request.url, &request.headers, &request.verb));
  return request;
}

// The address a path resolves to under a base with and without a trailing
// "/": the latter loses its last segment.
struct Resolution {
  std::string base, url;
};

inline std::vector<Resolution> resolutionsOf(const std::string& path) {
  return {{"https://auth.example.com/base/", "https://auth.example.com/base/" + path},
          {"https://auth.example.com/base", "https://auth.example.com/" + path},
          {"https://auth.example.com", "https://auth.example.com/" + path}};
}

inline void expectResolvedPath(HttpTransactionProtocol& transaction, const std::string& path) {
  for (const Resolution& r : resolutionsOf(path)) {
    SCOPED_TRACE(r.base);
    std::optional<Url> url = generate(transaction, urlOf(r.base)).url;
    ASSERT_TRUE(url);
    EXPECT_EQ(url->absoluteString(), r.url);
  }
}

inline Dictionary clientAuthenticatedFormHeaders(const std::string& basic) {
  return Dictionary{{"Authorization", basic},
                    {"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"}};
}

// The error's domain and code as one text, so a mismatch shows both.
inline std::string domainAndCode(const ErrorRef& error) {
  if (!error) return "no error";
  return error->domain() + " " + std::to_string(error->code());
}

inline std::string serverError(std::int64_t code) {
  return std::string(AuthorizationServerErrorDomain) + " " + std::to_string(code);
}
inline std::string networkError(std::int64_t code) {
  return std::string(NetworkCommunicationErrorDomain) + " " + std::to_string(code);
}
inline std::string clientError(std::int64_t code) {
  return std::string(AuthorizationClientErrorDomain) + " " + std::to_string(code);
}

// A credential record encrypted under a fixed key in a fresh memory store,
// filled with a registered client, a signed-in user and both tokens.
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

  std::shared_ptr<MemorySecretStore> store_ = std::make_shared<MemorySecretStore>();
  ScopedSecretStore scope_{store_};
  std::shared_ptr<SecureData> record_ =
      std::make_shared<SecureData>("auth.example.com", "apptoken", fixedKey(), 0);
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TRANSPORT_TRANSACTION_TEST_SUPPORT_H_
