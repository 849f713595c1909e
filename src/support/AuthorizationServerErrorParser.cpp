#include "support/AuthorizationServerErrorParser.h"

#include <iterator>
#include <string_view>

#include "velmor/VelmorAuthorizationError.h"

namespace velmor {

namespace {

// A code is the one-based position in this list, so the order is part of
// the protocol. "unauthorized_response_type" is what our servers send, not
// the RFC's "unsupported_response_type".
constexpr std::string_view kErrorTexts[] = {
    "access_denied",       "insufficient_scope",     "invalid_client",
    "invalid_grant",       "invalid_request",        "invalid_scope",
    "invalid_token",       "server_error",           "temporarily_unavailable",
    "unauthorized_client", "unsupported_grant_type", "unauthorized_response_type",
};

}  // namespace

std::int64_t AuthorizationServerErrorParser::parse(const std::optional<std::string>& error) {
  if (!error) return kServerErrorOther;
  for (std::size_t i = 0; i < std::size(kErrorTexts); ++i) {
    if (kErrorTexts[i] == *error) return static_cast<std::int64_t>(i + 1);
  }
  return kServerErrorOther;
}

}  // namespace velmor
