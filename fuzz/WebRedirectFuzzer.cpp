// Feeds made-up redirects to the web sign-in transaction's redirect reader,
// before any request was built, after one was built and with a known state.
// Nothing may crash or leak; the credential record, which starts full, may
// only be removed, and only for the server errors that say the client is
// unknown; out-parameters are set exactly as far as the reading got.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "FuzzCheck.h"
#include "RecordSnapshot.h"
#include "transport/RequestSignInViaWebTransaction.h"
#include "velmor/SecretStore.h"
#include "velmor/Url.h"

namespace {

using velmor::ErrorRef;
using velmor::Url;
using velmor::fuzz::isServerError;
using velmor::fuzz::require;
using velmor::fuzz::Snapshot;

constexpr char kKnownState[] = "0123456789abcdef0123456789abcdef";

void prepare(velmor::RequestSignInViaWebTransaction& transaction, int how) {
  if (how == 1) {
    require(transaction
                .generateRequest(*Url::withString("https://auth.example.com/signin?a=1"),
                                 *Url::withString("com.example.app://done"))
                .has_value());
  } else if (how == 2) {
    transaction.setLastGeneratedState(kKnownState);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  std::shared_ptr<velmor::SecureData> record = velmor::fuzz::freshRecord();
  velmor::RequestSignInViaWebTransaction transaction(record);
  prepare(transaction, input.ConsumeIntegralInRange<int>(0, 2));

  // The text as a whole URL, else as the query of the app's redirect URL.
  const std::string text = input.ConsumeRemainingBytesAsString();
  std::optional<Url> url = Url::withString(text);
  if (!url) url = Url::withString("com.example.app://done?" + text);
  if (url) {
    const std::optional<std::string> untouched = "untouched";
    std::optional<std::string> code = untouched, username = untouched;
    std::optional<Url> redirect;
    const ErrorRef error = transaction.handleResponse(*url, &code, &redirect, &username);

    const Snapshot& before = velmor::fuzz::startingRecord().snapshot;
    const Snapshot after = velmor::fuzz::snapshotOf(*record);
    if (after != before) {
      require(!after.exists);
      require(isServerError(error, velmor::fuzz::kInvalidClient) ||
              isServerError(error, velmor::fuzz::kUnauthorizedClient));
    }
    if (error && error->domain() == velmor::AuthorizationServerErrorDomain) {
      require(code == untouched && username == untouched && !redirect);
    } else {
      require(redirect.has_value() && redirect->absoluteString().find('?') == std::string::npos);
      if (error) {
        require(username == untouched);
      } else {
        require(code && !code->empty() && username && !username->empty());
      }
    }
  }
  velmor::SecretStore::setDefault(nullptr);
  return 0;
}
