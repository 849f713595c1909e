// Maps the OAuth "error" text of a server refusal to the numeric code that
// becomes the error code in the server error domain.
#ifndef VELMOR_SUPPORT_AUTHORIZATION_SERVER_ERROR_PARSER_H_
#define VELMOR_SUPPORT_AUTHORIZATION_SERVER_ERROR_PARSER_H_

#include <cstdint>
#include <optional>
#include <string>

namespace velmor {

// Stateless and thread-safe.
class AuthorizationServerErrorParser final {
 public:
  AuthorizationServerErrorParser() = delete;

  // 1 "access_denied", 2 "insufficient_scope", 3 "invalid_client",
  // 4 "invalid_grant", 5 "invalid_request", 6 "invalid_scope",
  // 7 "invalid_token", 8 "server_error", 9 "temporarily_unavailable",
  // 10 "unauthorized_client", 11 "unsupported_grant_type",
  // 12 "unauthorized_response_type"; -1 for any other text or none.
  // Matching is exact and case-sensitive; never 0.
  static std::int64_t parse(const std::optional<std::string>& error);
};

}  // namespace velmor

#endif  // VELMOR_SUPPORT_AUTHORIZATION_SERVER_ERROR_PARSER_H_
