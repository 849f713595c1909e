#include "operations/ActivateClientOperation.h"

#include "transport/ActivateClientTransaction.h"

namespace velmor {
namespace {

constexpr char kRequestName[] = "ActivateClient";

}  // namespace

void ActivateClientOperation::main() {
  ActivateClientTransaction transaction(secureData());
  const std::optional<Outcome> outcome = exchange(transaction, kRequestName);
  if (!outcome) return;
  if (completion_) completion_(outcome->error);
}

}  // namespace velmor
