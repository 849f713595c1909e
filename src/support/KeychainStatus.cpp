#include "support/KeychainStatus.h"

#include "support/Format.h"

namespace velmor {

namespace {

struct StatusMessage {
  std::int32_t status;
  const char* message;
};

// The store implementations answer with these statuses, so these are the
// messages users and logs will see.
constexpr StatusMessage kStatusMessages[] = {
    {0, "No error."},
    {-4, "Function or operation not implemented."},
    {-36, "I/O error."},
    {-50, "One or more parameters passed to a function were not valid."},
    {-61, "Write permissions error."},
    {-108, "Failed to allocate memory."},
    {-128, "The user canceled the operation."},
    {-25291, "No keychain is available. You may need to restart your computer."},
    {-25292, "This keychain cannot be modified."},
    {-25293, "The user name or passphrase you entered is not correct."},
    {-25294, "The specified keychain could not be found."},
    {-25295, "The specified keychain is not a valid keychain file."},
    {-25299, "The specified item already exists in the keychain."},
    {-25300, "The specified item could not be found in the keychain."},
    // What the secret stores mean by it: the keyring would have to be unlocked first.
    {-25308, "The keyring is locked, or there is no default keyring."},
    {-26275, "Unable to decode the provided data."},
    {-34018, "A required entitlement isn't present."},
    {100060, "Operation timed out."},
};

}  // namespace

std::string KeychainStatus::errorMessage(std::int32_t status) {
  for (const StatusMessage& entry : kStatusMessages) {
    if (entry.status == status) return entry.message;
  }
  return stringWithFormat("OSStatus %d", status);
}

}  // namespace velmor
