// Owner of one OpenSSL cipher context.
#ifndef VELMOR_STORAGE_CIPHER_CONTEXT_H_
#define VELMOR_STORAGE_CIPHER_CONTEXT_H_

#include <openssl/types.h>

#include <optional>

namespace velmor {

// Owns an EVP_CIPHER_CTX, which holds the expanded key of one encryption or
// decryption; freeing it wipes that key. Move-only; use it from one thread at
// a time.
class CipherContext final {
 public:
  // Empty when OpenSSL cannot allocate a context, its only failure.
  static std::optional<CipherContext> create();

  CipherContext(CipherContext&& other) noexcept;
  CipherContext& operator=(CipherContext&& other) noexcept;
  CipherContext(const CipherContext&) = delete;
  CipherContext& operator=(const CipherContext&) = delete;
  ~CipherContext();

  // Never null; still owned by this object.
  EVP_CIPHER_CTX* get() const { return context_; }

 private:
  explicit CipherContext(EVP_CIPHER_CTX* context) : context_(context) {}

  EVP_CIPHER_CTX* context_;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_CIPHER_CONTEXT_H_
