// The cryptographic operations the library's stores are built on.
#ifndef VELMOR_STORAGE_CRYPTO_UTILITY_H_
#define VELMOR_STORAGE_CRYPTO_UTILITY_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Error.h"

namespace velmor {

// Key derivation, AES encryption, HMAC and secure random bytes on OpenSSL's
// libcrypto. Stateless: every operation may run on any thread at any time.
// Results belong to the caller. Cipher failures are returned as errors
// carrying the platform cipher library's status numbers (CryptorStatus.h);
// failures of key derivation and of the random source are thrown as
// GenericException.
class CryptoUtility final {
 public:
  static constexpr std::size_t kAesKeyLength = 32;
  static constexpr std::size_t kHmacLength = 32;
  static constexpr std::size_t kSaltLength = 8;
  static constexpr std::size_t kInitializationVectorLength = 16;

  // HMAC-SHA-256 of all of `data`, keyed with all of `key`: always 32 bytes.
  // Throws std::bad_alloc when OpenSSL runs out of memory, its only failure.
  static Data calculateHmacWithKey(const Data& key, const Data& data);

  // A 32-byte PBKDF2-HMAC-SHA-256 key. A round count of 0 first measures
  // how many rounds take 300 ms on this machine; the count used is written
  // to *actualRoundCount (which must be given), and only that count
  // reproduces the key later. Logs the time taken at info level.
  static Data generateAesKeyForPassword(const std::string& password, const Data& salt,
                                        std::uint32_t roundCount, std::uint32_t* actualRoundCount);

  // AES-CBC with PKCS#7 padding; the key's length (16, 24 or 32) selects
  // AES-128, -192 or -256. A fresh random IV is written to *iv (when given)
  // before encrypting, so it is set even when encryption fails. On failure
  // returns nothing and sets *error (when given) to domain
  // "CCCrypt.kCCEncrypt" with the cipher status as code.
  static std::optional<Data> encryptData(const Data& plaintext, const Data& key,
                                         std::optional<Data>* iv, ErrorRef* error);
  // The inverse, failing with domain "CCCrypt.kCCDecrypt": a wrong key almost
  // always shows as bad padding (-4304).
  static std::optional<Data> decryptData(const Data& ciphertext, const Data& key, const Data& iv,
                                         ErrorRef* error);

  static Data randomSalt();                  // 8 bytes
  static Data randomInitializationVector();  // 16 bytes
  static Data randomDataOfLength(std::size_t length);
};

// Overwrites `data` in a way the compiler cannot drop, for key material and
// plaintext that is about to be discarded.
void cleanseData(Data& data);

}  // namespace velmor

#endif  // VELMOR_STORAGE_CRYPTO_UTILITY_H_
