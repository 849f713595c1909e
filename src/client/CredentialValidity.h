// Where a client stands, judged from its credential record and a moment.
#ifndef VELMOR_CLIENT_CREDENTIAL_VALIDITY_H_
#define VELMOR_CLIENT_CREDENTIAL_VALIDITY_H_

#include <chrono>

#include "storage/SecureData.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor {

// The rules behind AuthorizationState. Each call reads the record afresh
// (every read decrypts the whole item), so the answer moves with the clock
// alone: nothing is cached. Stateless; the record it reads serves one thread
// at a time, as SecureData requires.
class CredentialValidity final {
 public:
  using Date = SecureData::Date;

  // An access token that ends within this margin already counts as expired,
  // so that a request sent with it does not lapse on its way.
  static constexpr std::chrono::seconds kAccessTokenMargin{30};

  CredentialValidity() = delete;

  // Activation required, else authorized, else refresh required, else sign-in
  // required.
  static AuthorizationState authorizationState(SecureData& record, Date now);
  static AuthorizationState authorizationState(SecureData& record);

  // No client id, or a client id without its secret.
  static bool isActivationRequired(SecureData& record);
  // A token whose period has begun and whose end lies at least the margin
  // ahead; a missing start or end makes it invalid.
  static bool hasValidAccessToken(SecureData& record, Date now);
  // A token with start <= now <= end and no margin. Missing dates are not
  // tested for: an absent date compares as equal to now, so it passes.
  static bool hasValidRefreshToken(SecureData& record, Date now);
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_CREDENTIAL_VALIDITY_H_
