#include "operations/RevokeOperation.h"

#include "transport/RevokeTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "RevokeTokensByClientAndUser";

}  // namespace

void RevokeOperation::perform() {
  RevokeTransaction transaction(secureData());
  PreparedRequest request;
  {
    // Without the lock the local sign-out still happens (the delete forgets
    // the tokens all the same): it must not depend on another process.
    SecretStoreLock lock;
    secureData()->lockRecord(&lock);
    // The request must carry the token before the record forgets it.
    request = prepare(transaction);
    secureData()->deleteTokenEntries();
  }
  const std::optional<Outcome> outcome = send(transaction, request, kRequestName);
  if (!outcome) return;
  complete(completion_, outcome->error);
}

bool RevokeOperation::completeWithError(const ErrorRef& error) {
  if (!completion_) return false;
  completion_(error);
  return true;
}

}  // namespace velmor
