// The Bearer challenge of a resource server's refusal (RFC 6750): why an
// access token was not accepted.
#ifndef VELMOR_TRANSPORT_BEARER_CHALLENGE_H_
#define VELMOR_TRANSPORT_BEARER_CHALLENGE_H_

#include <optional>
#include <string>

#include "transport/WwwAuthenticateChallenge.h"

namespace velmor {

// Made by WwwAuthenticateHeaderParser for a scheme equal to "Bearer" in any
// case. Its scheme() stays absent: the class itself says which scheme it is,
// and readers test for it with the exact dynamic type. Same ownership and
// thread rules as its base.
class BearerChallenge final : public WwwAuthenticateChallenge {
 public:
  // "Bearer".
  static std::string schemeName();

  BearerChallenge() = default;

  // The attributes "error", "error_description", "error_uri" and "scope",
  // each absent when the challenge lacks it (names match exactly).
  std::optional<std::string> error() const;
  std::optional<std::string> errorDescription() const;
  std::optional<std::string> errorUri() const;
  std::optional<std::string> scope() const;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_BEARER_CHALLENGE_H_
