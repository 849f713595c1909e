#include "storage/CipherContext.h"

#include <openssl/evp.h>

#include <utility>

namespace velmor {

std::optional<CipherContext> CipherContext::create() {
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  if (context == nullptr) return std::nullopt;
  return CipherContext(context);
}

CipherContext::CipherContext(CipherContext&& other) noexcept
    : context_(std::exchange(other.context_, nullptr)) {}

CipherContext& CipherContext::operator=(CipherContext&& other) noexcept {
  if (this != &other) {
    EVP_CIPHER_CTX_free(context_);
    context_ = std::exchange(other.context_, nullptr);
  }
  return *this;
}

CipherContext::~CipherContext() { EVP_CIPHER_CTX_free(context_); }

}  // namespace velmor
