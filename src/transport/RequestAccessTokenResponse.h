// The server's answer to a token request.
#ifndef VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_RESPONSE_H_
#define VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_RESPONSE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "velmor/Value.h"

namespace velmor {

// A plain record of the parsed answer. Texts are taken as they are; a key
// that is missing or holds no text reads as absent. The lifetimes are the
// integer value of a number (fractions dropped, clamped to 64 bits) or of a
// numeric text ("3600", "12ab" → 12); anything else, or nothing, is 0.
class RequestAccessTokenResponse final {
 public:
  explicit RequestAccessTokenResponse(Dictionary responseDictionary);

  const Dictionary& responseDictionary() const { return responseDictionary_; }
  const std::optional<std::string>& accessToken() const { return accessToken_; }  // "access_token"
  const std::optional<std::string>& tokenType() const { return tokenType_; }      // "token_type"
  std::int64_t expiresIn() const { return expiresIn_; }                           // "expires_in"
  const std::optional<std::string>& refreshToken() const { return refreshToken_; }
  // "x_refresh_token_expires_in"
  std::int64_t refreshTokenExpiresIn() const { return refreshTokenExpiresIn_; }
  // "scope": the granted scopes, separated by spaces.
  const std::optional<std::string>& scope() const { return scope_; }

  void setExpiresIn(std::int64_t seconds) { expiresIn_ = seconds; }
  void setRefreshTokenExpiresIn(std::int64_t seconds) { refreshTokenExpiresIn_ = seconds; }

 private:
  Dictionary responseDictionary_;
  std::optional<std::string> accessToken_;
  std::optional<std::string> tokenType_;
  std::int64_t expiresIn_;
  std::optional<std::string> refreshToken_;
  std::int64_t refreshTokenExpiresIn_;
  std::optional<std::string> scope_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REQUEST_ACCESS_TOKEN_RESPONSE_H_
