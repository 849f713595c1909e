#include "storage/Pbkdf2Context.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <utility>

namespace velmor {

std::optional<Pbkdf2Context> Pbkdf2Context::create() {
  EVP_KDF* kdf = EVP_KDF_fetch(nullptr, OSSL_KDF_NAME_PBKDF2, nullptr);
  if (kdf == nullptr) return std::nullopt;
  EVP_KDF_CTX* context = EVP_KDF_CTX_new(kdf);
  // The context holds its own reference to the algorithm.
  EVP_KDF_free(kdf);
  if (context == nullptr) return std::nullopt;
  return Pbkdf2Context(context);
}

Pbkdf2Context::Pbkdf2Context(Pbkdf2Context&& other) noexcept
    : context_(std::exchange(other.context_, nullptr)) {}

Pbkdf2Context& Pbkdf2Context::operator=(Pbkdf2Context&& other) noexcept {
  if (this != &other) {
    EVP_KDF_CTX_free(context_);
    context_ = std::exchange(other.context_, nullptr);
  }
  return *this;
}

Pbkdf2Context::~Pbkdf2Context() { EVP_KDF_CTX_free(context_); }

CryptorStatus Pbkdf2Context::derive(std::string_view password, const Data& salt,
                                    std::uint64_t roundCount, Data& key) {
  // OpenSSL's parameter records take mutable pointers but only read them.
  // The iteration count is 64-bit here, so every 32-bit round count fits.
  // PKCS #5 mode: the stored records carry 8-byte salts, which the
  // SP 800-132 checks of a FIPS provider (16 bytes at least) would refuse.
  int pkcs5Mode = 1;
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &pkcs5Mode),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, const_cast<char*>(password.data()),
                                        password.size()),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<std::uint8_t*>(salt.data()),
                                        salt.size()),
      OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &roundCount),
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>("SHA256"), 0),
      OSSL_PARAM_construct_end(),
  };
  if (EVP_KDF_derive(context_, key.data(), key.size(), params) == 1) return CryptorStatus::kSuccess;
  OPENSSL_cleanse(key.data(), key.size());
  return takeOpenSslFailure();
}

}  // namespace velmor
