#include "operations/RevokeOperation.h"

#include "transport/RevokeTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "RevokeTokensByClientAndUser";

// The local sign-out: both tokens and their validity dates, in this order.
void forgetTokens(SecureData& record) {
  record.deleteAccessToken();
  record.deleteAccessTokenValidStartDateTime();
  record.deleteAccessTokenValidEndDateTime();
  record.deleteRefreshToken();
  record.deleteRefreshTokenValidStartDateTime();
  record.deleteRefreshTokenValidEndDateTime();
}

}  // namespace

void RevokeOperation::main() {
  RevokeTransaction transaction(secureData());
  // The request must carry the token before the record forgets it.
  const PreparedRequest request = prepare(transaction);
  forgetTokens(*secureData());
  const std::optional<Outcome> outcome = send(transaction, request, kRequestName);
  if (!outcome) return;
  if (completion_) completion_(outcome->error);
}

}  // namespace velmor
