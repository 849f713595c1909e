// English messages for the secret store's status codes, the texts error
// descriptions show after a failed keychain call.
#ifndef VELMOR_SUPPORT_KEYCHAIN_STATUS_H_
#define VELMOR_SUPPORT_KEYCHAIN_STATUS_H_

#include <cstdint>
#include <string>

namespace velmor {

// A fixed table; stateless and thread-safe.
class KeychainStatus final {
 public:
  KeychainStatus() = delete;

  // The message for `status` ("The specified item could not be found in the
  // keychain." for -25300), or "OSStatus <status>" for a status not listed.
  static std::string errorMessage(std::int32_t status);
};

}  // namespace velmor

#endif  // VELMOR_SUPPORT_KEYCHAIN_STATUS_H_
