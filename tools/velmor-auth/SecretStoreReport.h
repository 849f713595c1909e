// What the tool says about the secret store the library uses: what and
// where it is, and why nothing can be saved in it.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_SECRET_STORE_REPORT_H_
#define VELMOR_TOOLS_VELMOR_AUTH_SECRET_STORE_REPORT_H_

#include <string>

#include "OutputPrinter.h"

namespace velmor::tool {

// Every command that writes credentials or the store's value asks
// requireUsable() first, so that a locked keyring is named before anything
// is sent to the server, and requireKept() after, so that a write the store
// refused (a full disk, a keyring locked meanwhile) is never reported as
// success. All on SecretStore::defaultStore().
class SecretStoreReport final {
 public:
  SecretStoreReport() = delete;

  // The "store" member (the store's description) and a line "Store: ...";
  // when it cannot be used, also "storeProblem" and "Store problem: ...".
  static void describe(OutputPrinter& out);
  // kExitSuccess when the store can be used now; otherwise fails with the
  // store's own sentence (tool error kToolErrorStoreUnusable).
  static int requireUsable(OutputPrinter& out);
  // kExitSuccess when `kept`; otherwise fails with "<what> was not saved: "
  // and the store's reason (kToolErrorStoreUnusable).
  static int requireKept(OutputPrinter& out, bool kept, const std::string& what);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_SECRET_STORE_REPORT_H_
