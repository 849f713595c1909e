// Where a client stands, judged from one reading of its credential record
// and a moment.
#ifndef VELMOR_STORAGE_CREDENTIAL_VALIDITY_H_
#define VELMOR_STORAGE_CREDENTIAL_VALIDITY_H_

#include <chrono>

#include "storage/CredentialRecord.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor {

// The rules behind AuthorizationState. They judge one reading of the record
// (SecureData::snapshot()), so that every answer of one call agrees with
// the others even while another thread or process rewrites the record; the
// answer still moves with the clock alone, as nothing is cached between
// calls. Stateless and thread-safe.
class CredentialValidity final {
 public:
  using Date = CredentialRecord::Date;

  // An access token that ends within this margin already counts as expired,
  // so that a request sent with it does not lapse on its way.
  static constexpr std::chrono::seconds kAccessTokenMargin{30};

  CredentialValidity() = delete;

  // Activation required, else authorized, else refresh required, else sign-in
  // required.
  static AuthorizationState authorizationState(const CredentialRecord& record, Date now);
  static AuthorizationState authorizationState(const CredentialRecord& record);

  // No client id, or a client id without its secret.
  static bool isActivationRequired(const CredentialRecord& record);
  // A token whose period has begun and whose end lies at least the margin
  // ahead; a missing start or end makes it invalid.
  static bool hasValidAccessToken(const CredentialRecord& record, Date now);
  // A token with start <= now <= end and no margin. Missing dates are not
  // tested for: an absent date compares as equal to now, so it passes.
  static bool hasValidRefreshToken(const CredentialRecord& record, Date now);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_CREDENTIAL_VALIDITY_H_
