// AES in CBC mode with PKCS#7 padding, the cipher of the library's stores.
#ifndef VELMOR_STORAGE_AES_CBC_H_
#define VELMOR_STORAGE_AES_CBC_H_

#include <cstddef>

#include "storage/CryptorStatus.h"
#include "velmor/Data.h"

namespace velmor {

// The key's length (16, 24 or 32 bytes) selects AES-128, -192 or -256; the
// IV must be 16 bytes. On failure the output is wiped and emptied, since a
// failed decryption may have produced part of the plaintext. Stateless; safe
// on any thread.
class AesCbc final {
 public:
  static constexpr std::size_t kBlockLength = 16;

  static CryptorStatus encrypt(const Data& plaintext, const Data& key, const Data& iv,
                               Data& ciphertext);
  // A wrong key almost always shows as bad padding (kDecodeError).
  static CryptorStatus decrypt(const Data& ciphertext, const Data& key, const Data& iv,
                               Data& plaintext);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_AES_CBC_H_
