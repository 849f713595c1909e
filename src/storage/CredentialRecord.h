// One reading of the credential record: its entries as they stood at one
// moment, so that answers drawn from several of them agree with each other.
#ifndef VELMOR_STORAGE_CREDENTIAL_RECORD_H_
#define VELMOR_STORAGE_CREDENTIAL_RECORD_H_

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "velmor/Value.h"

namespace velmor {

// A plain value: copied freely, changed by nobody, safe to read from any
// thread. Absent entries, and dates whose text does not parse, read as
// nothing.
class CredentialRecord final {
 public:
  using Date = std::chrono::system_clock::time_point;

  static constexpr char kClientIdKey[] = "ClientId";
  static constexpr char kClientSecretKey[] = "ClientSecret";
  static constexpr char kUsernameKey[] = "Username";
  static constexpr char kAccessTokenKey[] = "AccessToken";
  static constexpr char kAccessTokenValidStartKey[] = "AccessTokenValidStartDateTime";
  static constexpr char kAccessTokenValidEndKey[] = "AccessTokenValidEndDateTime";
  static constexpr char kRefreshTokenKey[] = "RefreshToken";
  static constexpr char kRefreshTokenValidStartKey[] = "RefreshTokenValidStartDateTime";
  static constexpr char kRefreshTokenValidEndKey[] = "RefreshTokenValidEndDateTime";

  // No record stored (or none readable).
  CredentialRecord() = default;
  explicit CredentialRecord(std::optional<Dictionary> entries) : entries_(std::move(entries)) {}

  bool exists() const { return entries_.has_value(); }

  // The text stored under `key`.
  std::optional<std::string> value(std::string_view key) const;
  // The date stored under `key`, to the second.
  std::optional<Date> date(std::string_view key) const;

  std::optional<std::string> clientId() const { return value(kClientIdKey); }
  std::optional<std::string> clientSecret() const { return value(kClientSecretKey); }
  std::optional<std::string> username() const { return value(kUsernameKey); }
  std::optional<std::string> accessToken() const { return value(kAccessTokenKey); }
  std::optional<Date> accessTokenValidStartDateTime() const {
    return date(kAccessTokenValidStartKey);
  }
  std::optional<Date> accessTokenValidEndDateTime() const { return date(kAccessTokenValidEndKey); }
  std::optional<std::string> refreshToken() const { return value(kRefreshTokenKey); }
  std::optional<Date> refreshTokenValidStartDateTime() const {
    return date(kRefreshTokenValidStartKey);
  }
  std::optional<Date> refreshTokenValidEndDateTime() const {
    return date(kRefreshTokenValidEndKey);
  }

 private:
  std::optional<Dictionary> entries_;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_CREDENTIAL_RECORD_H_
