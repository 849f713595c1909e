#include "operations/ActivateClientOperation.h"

#include "transport/ActivateClientTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "ActivateClient";

}  // namespace

void ActivateClientOperation::perform() {
  ActivateClientTransaction transaction(secureData());
  const std::optional<Outcome> outcome = exchange(transaction, kRequestName);
  if (!outcome) return;
  complete(completion_, outcome->error);
}

bool ActivateClientOperation::completeWithError(const ErrorRef& error) {
  if (!completion_) return false;
  completion_(error);
  return true;
}

}  // namespace velmor
