// What the fault and secret-leak tests share: a client in a sealed-off
// environment, the answers of a well-behaved server, and the stored record
// read back field by field.
#ifndef VELMOR_TESTS_FAULTS_CLIENT_HARNESS_H_
#define VELMOR_TESTS_FAULTS_CLIENT_HARNESS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "storage/SecureData.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/ScopedSecretStore.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/Error.h"
#include "velmor/HttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"
#include "velmor/Url.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor::test {

constexpr char kAppToken[] = "fault-app-token";
// Every server of these tests listens on 127.0.0.1, so every client of one
// test shares the record of this host, whatever the port.
constexpr char kHost[] = "127.0.0.1";

inline Data clientKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0xA0 + i);
  return key;
}

inline std::string registrationJson(const std::string& clientId, const std::string& secret) {
  return R"({"client_id":")" + clientId + R"(","client_secret":")" + secret + R"("})";
}

inline std::string tokenJson(const std::string& access, const std::string& refresh) {
  return R"({"access_token":")" + access + R"(","token_type":"bearer","expires_in":3600,)" +
         R"("refresh_token":")" + refresh + R"(","x_refresh_token_expires_in":86400,)" +
         R"("scope":"openid profile"})";
}

inline ScriptedResponse jsonAnswer(std::string body, int status = 200) {
  ScriptedResponse answer;
  answer.status = status;
  answer.headers = {{"Content-Type", "application/json;charset=UTF-8"}};
  answer.body = std::move(body);
  return answer;
}

// The credential record as its getters read it; `exists` is false when no
// readable record is stored.
struct StoredRecord {
  using Date = SecureData::Date;

  bool exists = false;
  std::optional<std::string> clientId, clientSecret, username, accessToken, refreshToken;
  std::optional<Date> accessStart, accessEnd, refreshStart, refreshEnd;

  static StoredRecord read() {
    SecureData record(kHost, kAppToken, clientKey(), 0);
    StoredRecord stored;
    stored.exists = record.retrieveDataDictionary().has_value();
    stored.clientId = record.clientId();
    stored.clientSecret = record.clientSecret();
    stored.username = record.username();
    stored.accessToken = record.accessToken();
    stored.accessStart = record.accessTokenValidStartDateTime();
    stored.accessEnd = record.accessTokenValidEndDateTime();
    stored.refreshToken = record.refreshToken();
    stored.refreshStart = record.refreshTokenValidStartDateTime();
    stored.refreshEnd = record.refreshTokenValidEndDateTime();
    return stored;
  }

  // The same record after a sign-out: registration and user name only.
  StoredRecord signedOut() const {
    StoredRecord out;
    out.exists = exists;
    out.clientId = clientId;
    out.clientSecret = clientSecret;
    out.username = username;
    return out;
  }

  bool operator==(const StoredRecord&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const StoredRecord& record) {
  auto text = [](const std::optional<std::string>& value) { return value.value_or("(none)"); };
  return out << "{exists " << record.exists << ", client " << text(record.clientId) << ", user "
             << text(record.username) << ", access " << text(record.accessToken) << ", refresh "
             << text(record.refreshToken) << "}";
}

// A signed-in record, written the way a sign-in writes it.
inline void storeSignedInRecord(const std::string& accessToken = "old-access",
                                const std::string& refreshToken = "old-refresh") {
  SecureData record(kHost, kAppToken, clientKey(), 0);
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  record.setClientId("old-client");
  record.setClientSecret("old-secret");
  record.setUsername("anna");
  record.setAccessToken(accessToken);
  record.setAccessTokenValidStartDateTime(now);
  record.setAccessTokenValidEndDateTime(now + std::chrono::hours(1));
  record.setRefreshToken(refreshToken);
  record.setRefreshTokenValidStartDateTime(now);
  record.setRefreshTokenValidEndDateTime(now + std::chrono::hours(24));
}

// The process-wide settings a client depends on, for one test: a machine
// identity and data directory of its own, a secret store (memory unless
// given) and an HTTP client trusting one extra CA with a chosen timeout.
class ClientEnvironment final {
 public:
  explicit ClientEnvironment(
      std::shared_ptr<SecretStore> store = std::make_shared<MemorySecretStore>())
      : store_(std::move(store)), storeScope_(store_) {
    identity_.setEnvironmentVariable("XDG_DATA_HOME", directory_.path());
    identity_.setEnvironmentVariable("LANG", "en_US.UTF-8");
    identity_.setDeviceName("Fault Test PC");
    identity_.setHardwareModel("X1");
    identity_.setUserFullName("Anna");
  }
  ~ClientEnvironment() { HttpClient::setDefault(nullptr); }
  ClientEnvironment(const ClientEnvironment&) = delete;
  ClientEnvironment& operator=(const ClientEnvironment&) = delete;

  void useHttpClient(std::optional<std::string> caFile,
                     std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    CurlHttpClientOptions options;
    options.extraCaFile = std::move(caFile);
    options.timeout = timeout;
    HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
  }

  const std::shared_ptr<SecretStore>& store() const { return store_; }
  const std::string& directory() const { return directory_.path(); }

 private:
  TemporaryDirectory directory_;
  FakeSystemIdentity identity_;
  ScopedSystemIdentity identityScope_{identity_};
  std::shared_ptr<SecretStore> store_;
  ScopedSecretStore storeScope_;
};

inline std::unique_ptr<VelmorAuthorizationClient> clientFor(const std::string& baseUrl) {
  return std::make_unique<VelmorAuthorizationClient>(Url::withString(baseUrl), kAppToken,
                                                     clientKey());
}

// "server 4", "network 6", "client 3", "NSURLErrorDomain -1005" or "none".
inline std::string outcomeOf(const ErrorRef& error) {
  if (!error) return "none";
  const std::string& domain = error->domain();
  const std::string name = domain == AuthorizationServerErrorDomain    ? "server"
                           : domain == NetworkCommunicationErrorDomain ? "network"
                           : domain == AuthorizationClientErrorDomain  ? "client"
                                                                       : domain;
  return name + " " + std::to_string(error->code());
}

}  // namespace velmor::test

#endif  // VELMOR_TESTS_FAULTS_CLIENT_HARNESS_H_
