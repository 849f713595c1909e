#include "platform/SecureRandom.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <algorithm>

#include "support/Format.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

// OpenSSL counts lengths in int; longer requests go through in pieces.
constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

}  // namespace

Data SecureRandom::bytes(std::size_t length) {
  Data bytes(length);
  for (std::size_t offset = 0; offset < length; offset += kLargestPiece) {
    const int pieceLength = static_cast<int>(std::min(kLargestPiece, length - offset));
    const int status = RAND_bytes(bytes.data() + offset, pieceLength);
    if (status != 1) {
      ERR_clear_error();
      OPENSSL_cleanse(bytes.data(), bytes.size());
      throw GenericException(stringWithFormat("SecRandomCopyBytes failed with error: %d", status));
    }
  }
  return bytes;
}

}  // namespace velmor
