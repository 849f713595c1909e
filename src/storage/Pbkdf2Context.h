// Owner of one OpenSSL key-derivation context set up for PBKDF2.
#ifndef VELMOR_STORAGE_PBKDF2_CONTEXT_H_
#define VELMOR_STORAGE_PBKDF2_CONTEXT_H_

#include <openssl/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "storage/CryptorStatus.h"
#include "velmor/Data.h"

namespace velmor {

// Owns an EVP_KDF_CTX for PBKDF2 with HMAC-SHA-256. The context keeps a copy
// of the last password, which OpenSSL wipes when it is replaced or freed.
// Move-only; use it from one thread at a time.
class Pbkdf2Context final {
 public:
  // Empty when OpenSSL has no PBKDF2 or cannot allocate a context; the
  // reason is left in OpenSSL's error queue (see takeOpenSslFailure).
  static std::optional<Pbkdf2Context> create();

  Pbkdf2Context(Pbkdf2Context&& other) noexcept;
  Pbkdf2Context& operator=(Pbkdf2Context&& other) noexcept;
  Pbkdf2Context(const Pbkdf2Context&) = delete;
  Pbkdf2Context& operator=(const Pbkdf2Context&) = delete;
  ~Pbkdf2Context();

  // Fills all of `key` (its size is the output length) from the password
  // and salt over `roundCount` rounds (at least 1). On failure `key` holds
  // no key material.
  CryptorStatus derive(std::string_view password, const Data& salt, std::uint64_t roundCount,
                       Data& key);

 private:
  explicit Pbkdf2Context(EVP_KDF_CTX* context) : context_(context) {}

  EVP_KDF_CTX* context_;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_PBKDF2_CONTEXT_H_
