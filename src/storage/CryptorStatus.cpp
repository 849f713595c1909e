#include "storage/CryptorStatus.h"

#include <openssl/err.h>
#include <openssl/evperr.h>
#include <openssl/proverr.h>

namespace velmor {
namespace {

// Reason numbers are only unique within one part of OpenSSL (the provider's
// 107 is a short final block, the EVP layer's 107 an unsupported cipher), so
// the switch keys on both.
constexpr std::uint64_t reasonKey(int library, int reason) {
  return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(library)) << 32) |
         static_cast<std::uint32_t>(reason);
}

// Reasons shared by all of OpenSSL mean the same whichever part raised them.
constexpr int kAnyLibrary = 0;

CryptorStatus statusForOpenSslError(unsigned long error) {
  const int library = ERR_COMMON_ERROR(error) ? kAnyLibrary : ERR_GET_LIB(error);
  switch (reasonKey(library, ERR_GET_REASON(error))) {
    case reasonKey(ERR_LIB_PROV, PROV_R_BAD_DECRYPT):
    case reasonKey(ERR_LIB_EVP, EVP_R_BAD_DECRYPT):
      return CryptorStatus::kDecodeError;
    case reasonKey(ERR_LIB_PROV, PROV_R_WRONG_FINAL_BLOCK_LENGTH):
    case reasonKey(ERR_LIB_EVP, EVP_R_WRONG_FINAL_BLOCK_LENGTH):
    case reasonKey(ERR_LIB_EVP, EVP_R_DATA_NOT_MULTIPLE_OF_BLOCK_LENGTH):
      return CryptorStatus::kAlignmentError;
    case reasonKey(ERR_LIB_PROV, PROV_R_OUTPUT_BUFFER_TOO_SMALL):
    case reasonKey(ERR_LIB_EVP, EVP_R_OUTPUT_WOULD_OVERFLOW):
      return CryptorStatus::kBufferTooSmall;
    case reasonKey(kAnyLibrary, ERR_R_MALLOC_FAILURE):
      return CryptorStatus::kMemoryFailure;
    case reasonKey(kAnyLibrary, ERR_R_UNSUPPORTED):
    case reasonKey(ERR_LIB_EVP, EVP_R_UNSUPPORTED_CIPHER):
    case reasonKey(ERR_LIB_EVP, EVP_R_UNSUPPORTED_ALGORITHM):
      return CryptorStatus::kUnimplemented;
    default:
      return CryptorStatus::kParamError;
  }
}

}  // namespace

CryptorStatus takeOpenSslFailure() {
  const CryptorStatus status = statusForOpenSslError(ERR_peek_error());
  ERR_clear_error();
  return status;
}

}  // namespace velmor
