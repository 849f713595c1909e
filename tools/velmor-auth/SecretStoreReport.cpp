#include "SecretStoreReport.h"

#include "ToolError.h"
#include "velmor/SecretStore.h"

namespace velmor::tool {

void SecretStoreReport::describe(OutputPrinter& out) {
  const std::shared_ptr<SecretStore> store = SecretStore::defaultStore();
  out.set("store", store->description());
  out.line("Store: " + store->description());
  const SecretStoreCondition condition = store->condition();
  if (condition.usable()) return;
  out.set("storeProblem", condition.reason);
  out.line("Store problem: " + condition.reason);
}

int SecretStoreReport::requireUsable(OutputPrinter& out) {
  const SecretStoreCondition condition = SecretStore::defaultStore()->condition();
  if (condition.usable()) return kExitSuccess;
  return out.fail(toolError(kToolErrorStoreUnusable, condition.reason));
}

int SecretStoreReport::requireKept(OutputPrinter& out, bool kept, const std::string& what) {
  if (kept) return kExitSuccess;
  const SecretStoreCondition condition = SecretStore::defaultStore()->condition();
  std::string reason = condition.usable() ? "the secret store refused it (--log-level 1 shows why)"
                                          : condition.reason;
  // The store's sentence continues this one.
  if (!reason.empty() && reason[0] >= 'A' && reason[0] <= 'Z') reason[0] += 'a' - 'A';
  return out.fail(toolError(kToolErrorStoreUnusable, what + " was not saved: " + reason));
}

}  // namespace velmor::tool
