// How secrets travel between this process and the Secret Service.
#ifndef VELMOR_PLATFORM_SECRET_SERVICE_SESSION_H_
#define VELMOR_PLATFORM_SECRET_SERVICE_SESSION_H_

#include <gio/gio.h>
#include <openssl/bn.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/GLibHandle.h"
#include "velmor/Data.h"

namespace velmor {

// One session opened with the service's OpenSession: secrets sent and
// received as "(oayays)" structures (session, parameters, value, content
// type), either encrypted under a key agreed for the session
// ("dh-ietf1024-sha256-aes128-cbc-pkcs7": Diffie-Hellman in the 1024-bit
// group of RFC 2409, the shared value padded to the group's 128 bytes, HKDF
// with SHA-256, no salt and no info, to a 128-bit key, then AES-128-CBC with
// PKCS#7 padding and a fresh IV as the parameters), or as they are ("plain")
// with a service that offers no encryption. The key is wiped when the
// session goes. Move-only; const calls are thread-safe.
class SecretServiceSession final {
 public:
  static constexpr char kEncryptedAlgorithm[] = "dh-ietf1024-sha256-aes128-cbc-pkcs7";
  static constexpr char kPlainAlgorithm[] = "plain";

  // This side of the key agreement, kept until the service answers.
  class KeyAgreement final {
   public:
    // A fresh private value; nothing when OpenSSL fails.
    static std::optional<KeyAgreement> start();
    // The public value to offer OpenSession, big-endian.
    const Data& publicKey() const { return publicKey_; }

   private:
    friend class SecretServiceSession;
    struct BignumFree {
      void operator()(BIGNUM* number) const { BN_clear_free(number); }
    };
    std::unique_ptr<BIGNUM, BignumFree> privateKey_;
    Data publicKey_;
  };

  // The session at `path` whose key follows from the service's public value
  // (the byte array OpenSession answered); nothing when that is no byte
  // array, is out of range, or OpenSSL fails.
  static std::optional<SecretServiceSession> agree(const KeyAgreement& agreement,
                                                   GVariant* servicePublicKey, std::string path);
  static SecretServiceSession plain(std::string path);

  ~SecretServiceSession();
  SecretServiceSession(SecretServiceSession&& other) noexcept;
  SecretServiceSession& operator=(SecretServiceSession&& other) noexcept;
  SecretServiceSession(const SecretServiceSession&) = delete;
  SecretServiceSession& operator=(const SecretServiceSession&) = delete;

  const std::string& path() const { return path_; }

  // `secret` as this session sends it; null when encryption fails.
  VariantHandle encode(const Data& secret, const char* contentType) const;
  // The bytes of a "(oayays)" secret the service sent in this session;
  // nothing when it does not decrypt.
  std::optional<Data> decode(GVariant* secret) const;

 private:
  SecretServiceSession(std::string path, Data key);

  std::string path_;
  Data key_;  // empty for a plain session
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SECRET_SERVICE_SESSION_H_
