#include "platform/SecretServiceSession.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <utility>

namespace velmor {

namespace {

constexpr std::size_t kGroupBytes = 128;  // the 1024-bit group
constexpr std::size_t kKeyBytes = 16;     // AES-128
constexpr std::size_t kIvBytes = 16;

struct BignumFree {
  void operator()(BIGNUM* number) const { BN_clear_free(number); }
};
using Bignum = std::unique_ptr<BIGNUM, BignumFree>;

struct ContextFree {
  void operator()(BN_CTX* context) const { BN_CTX_free(context); }
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
  void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
  void operator()(EVP_KDF_CTX* context) const { EVP_KDF_CTX_free(context); }
};
template <typename T>
using Owned = std::unique_ptr<T, ContextFree>;

Bignum groupPrime() { return Bignum(BN_get_rfc2409_prime_1024(nullptr)); }

Data bytesOf(const BIGNUM* number, std::size_t paddedLength) {
  Data bytes(paddedLength);
  if (BN_bn2binpad(number, bytes.data(), static_cast<int>(bytes.size())) < 0) bytes.clear();
  return bytes;
}

// base ^ exponent mod p, in constant time for the secret exponent.
Bignum power(const BIGNUM* base, const BIGNUM* exponent, const BIGNUM* prime) {
  Owned<BN_CTX> context(BN_CTX_secure_new());
  Bignum result(BN_secure_new());
  if (!context || !result ||
      !BN_mod_exp_mont_consttime(result.get(), base, exponent, prime, context.get(), nullptr)) {
    return nullptr;
  }
  return result;
}

std::optional<Data> hkdfSha256(const Data& input) {
  Owned<EVP_KDF> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
  Owned<EVP_KDF_CTX> context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
  if (!context) return std::nullopt;
  char digest[] = "SHA256";
  OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<std::uint8_t*>(input.data()),
                                        input.size()),
      OSSL_PARAM_construct_end(),
  };
  Data key(kKeyBytes);
  if (EVP_KDF_derive(context.get(), key.data(), key.size(), parameters) != 1) return std::nullopt;
  return key;
}

// AES-128-CBC with PKCS#7 padding either way; nothing on failure (for
// decryption: a wrong key or damaged bytes).
std::optional<Data> crypt(bool encrypt, const Data& key, const Data& iv, const Data& input) {
  Owned<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
  if (!context || iv.size() != kIvBytes ||
      EVP_CipherInit_ex(context.get(), EVP_aes_128_cbc(), nullptr, key.data(), iv.data(),
                        encrypt ? 1 : 0) != 1) {
    return std::nullopt;
  }
  Data output(input.size() + kIvBytes);
  int written = 0, finished = 0;
  if (EVP_CipherUpdate(context.get(), output.data(), &written, input.data(),
                       static_cast<int>(input.size())) != 1 ||
      EVP_CipherFinal_ex(context.get(), output.data() + written, &finished) != 1) {
    OPENSSL_cleanse(output.data(), output.size());
    ERR_clear_error();
    return std::nullopt;
  }
  output.resize(static_cast<std::size_t>(written) + static_cast<std::size_t>(finished));
  return output;
}

Data bytesOfVariant(GVariant* bytes) {
  gsize length = 0;
  const auto* data = static_cast<const std::uint8_t*>(
      g_variant_get_fixed_array(bytes, &length, sizeof(std::uint8_t)));
  return Data(data, data + length);
}

GVariant* byteArray(const Data& bytes) {
  return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(),
                                   sizeof(std::uint8_t));
}

}  // namespace

std::optional<SecretServiceSession::KeyAgreement> SecretServiceSession::KeyAgreement::start() {
  Bignum prime = groupPrime();
  Bignum range(BN_new());
  Bignum generator(BN_new());
  KeyAgreement agreement;
  agreement.privateKey_.reset(BN_secure_new());
  // A private value in [2, p - 2].
  if (!prime || !range || !generator || !agreement.privateKey_ ||
      !BN_sub(range.get(), prime.get(), BN_value_one()) || !BN_sub_word(range.get(), 2) ||
      !BN_priv_rand_range(agreement.privateKey_.get(), range.get()) ||
      !BN_add_word(agreement.privateKey_.get(), 2) || !BN_set_word(generator.get(), 2)) {
    ERR_clear_error();
    return std::nullopt;
  }
  Bignum publicKey = power(generator.get(), agreement.privateKey_.get(), prime.get());
  if (!publicKey) return std::nullopt;
  agreement.publicKey_ = bytesOf(publicKey.get(), kGroupBytes);
  if (agreement.publicKey_.empty()) return std::nullopt;
  return agreement;
}

std::optional<SecretServiceSession> SecretServiceSession::agree(const KeyAgreement& agreement,
                                                                GVariant* servicePublicKey,
                                                                std::string path) {
  if (!g_variant_is_of_type(servicePublicKey, G_VARIANT_TYPE_BYTESTRING)) return std::nullopt;
  const Data serviceKey = bytesOfVariant(servicePublicKey);
  Bignum prime = groupPrime();
  Bignum peer(BN_bin2bn(serviceKey.data(), static_cast<int>(serviceKey.size()), nullptr));
  Bignum highest(BN_new());
  // 1 and p - 1 would give away the shared value; anything outside is no
  // member of the group.
  if (!prime || !peer || !highest || !BN_sub(highest.get(), prime.get(), BN_value_one()) ||
      BN_cmp(peer.get(), BN_value_one()) <= 0 || BN_cmp(peer.get(), highest.get()) >= 0) {
    ERR_clear_error();
    return std::nullopt;
  }
  Bignum shared = power(peer.get(), agreement.privateKey_.get(), prime.get());
  if (!shared) return std::nullopt;
  Data sharedBytes = bytesOf(shared.get(), kGroupBytes);
  std::optional<Data> key = sharedBytes.empty() ? std::nullopt : hkdfSha256(sharedBytes);
  OPENSSL_cleanse(sharedBytes.data(), sharedBytes.size());
  if (!key) return std::nullopt;
  return SecretServiceSession(std::move(path), std::move(*key));
}

SecretServiceSession SecretServiceSession::plain(std::string path) {
  return SecretServiceSession(std::move(path), Data());
}

SecretServiceSession::SecretServiceSession(std::string path, Data key)
    : path_(std::move(path)), key_(std::move(key)) {}

SecretServiceSession::~SecretServiceSession() { OPENSSL_cleanse(key_.data(), key_.size()); }

SecretServiceSession::SecretServiceSession(SecretServiceSession&& other) noexcept
    : path_(std::move(other.path_)), key_(std::move(other.key_)) {
  other.key_.clear();
}

SecretServiceSession& SecretServiceSession::operator=(SecretServiceSession&& other) noexcept {
  if (this != &other) {
    OPENSSL_cleanse(key_.data(), key_.size());
    path_ = std::move(other.path_);
    key_ = std::move(other.key_);
    other.key_.clear();
  }
  return *this;
}

VariantHandle SecretServiceSession::encode(const Data& secret, const char* contentType) const {
  Data parameters;
  std::optional<Data> value;
  if (key_.empty()) {
    value = secret;
  } else {
    parameters.resize(kIvBytes);
    if (RAND_bytes(parameters.data(), static_cast<int>(parameters.size())) == 1) {
      value = crypt(true, key_, parameters, secret);
    }
    ERR_clear_error();
  }
  if (!value) return VariantHandle();
  VariantHandle encoded(g_variant_ref_sink(g_variant_new(
      "(o@ay@ays)", path_.c_str(), byteArray(parameters), byteArray(*value), contentType)));
  OPENSSL_cleanse(value->data(), value->size());
  return encoded;
}

std::optional<Data> SecretServiceSession::decode(GVariant* secret) const {
  if (!g_variant_is_of_type(secret, G_VARIANT_TYPE("(oayays)"))) return std::nullopt;
  VariantHandle parameters(g_variant_get_child_value(secret, 1));
  VariantHandle value(g_variant_get_child_value(secret, 2));
  if (key_.empty()) return bytesOfVariant(value.get());
  return crypt(false, key_, bytesOfVariant(parameters.get()), bytesOfVariant(value.get()));
}

}  // namespace velmor
