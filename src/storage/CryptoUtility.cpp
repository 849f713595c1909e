#include "storage/CryptoUtility.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "platform/SecureRandom.h"
#include "storage/AesCbc.h"
#include "storage/CryptorStatus.h"
#include "storage/Pbkdf2Context.h"
#include "storage/PbkdfCalibration.h"
#include "support/Format.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

std::optional<Data> reportCipherResult(CryptorStatus status, Data output, const char* errorDomain,
                                       ErrorRef* error) {
  if (status == CryptorStatus::kSuccess) return output;
  if (error != nullptr) {
    *error = VelmorAuthorizationError::errorWithDomain(
        errorDomain, static_cast<std::int64_t>(status), std::nullopt);
  }
  return std::nullopt;
}

[[noreturn]] void throwKeyGenerationFailure(CryptorStatus status) {
  throw GenericException(stringWithFormat("Unable to create AES key for password. Error: %d",
                                          static_cast<std::int32_t>(status)));
}

}  // namespace

void cleanseData(Data& data) { OPENSSL_cleanse(data.data(), data.size()); }

Data CryptoUtility::calculateHmacWithKey(const Data& key, const Data& data) {
  // OpenSSL refuses an HMAC whose key and data are both null pointers, as
  // empty blocks may give; an address of nothing is fine.
  static constexpr std::uint8_t kNothing[1] = {0};
  const std::uint8_t* keyBytes = key.empty() ? kNothing : key.data();
  const std::uint8_t* dataBytes = data.empty() ? kNothing : data.data();
  Data mac(kHmacLength);
  std::size_t macLength = 0;
  if (EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA256", nullptr, keyBytes, key.size(), dataBytes,
                data.size(), mac.data(), mac.size(), &macLength) == nullptr) {
    ERR_clear_error();
    // SHA-256 is built into libcrypto: only a lack of memory stops an HMAC.
    throw std::bad_alloc();
  }
  return mac;
}

Data CryptoUtility::generateAesKeyForPassword(const std::string& password, const Data& salt,
                                              std::uint32_t roundCount,
                                              std::uint32_t* actualRoundCount) {
  if (actualRoundCount == nullptr) {
    throw InvalidArgumentException("actualRoundCount must not be nil");
  }
  const auto start = std::chrono::steady_clock::now();
  std::optional<Pbkdf2Context> context = Pbkdf2Context::create();
  if (!context) throwKeyGenerationFailure(takeOpenSslFailure());

  std::uint32_t rounds = roundCount;
  if (rounds == 0) {
    const CryptorStatus status =
        PbkdfCalibration::calibrate(*context, password.size(), salt.size(), kAesKeyLength,
                                    PbkdfCalibration::kTargetDuration, &rounds);
    if (status != CryptorStatus::kSuccess) throwKeyGenerationFailure(status);
  }
  *actualRoundCount = rounds;

  Data key(kAesKeyLength);
  const CryptorStatus status = context->derive(password, salt, rounds, key);
  if (status != CryptorStatus::kSuccess) throwKeyGenerationFailure(status);

  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  VelmorAuthorizationLogger::sharedLogger().log(
      stringWithFormat("Key generation duration: %f seconds", elapsed.count()),
      VelmorAuthorizationLogger::kLevelInfo);
  return key;
}

std::optional<Data> CryptoUtility::encryptData(const Data& plaintext, const Data& key,
                                               std::optional<Data>* iv, ErrorRef* error) {
  // The caller gets the IV before the cipher runs, whatever it then says.
  const Data freshIv = randomDataOfLength(kInitializationVectorLength);
  if (iv != nullptr) *iv = freshIv;
  Data ciphertext;
  const CryptorStatus status = AesCbc::encrypt(plaintext, key, freshIv, ciphertext);
  return reportCipherResult(status, std::move(ciphertext), "CCCrypt.kCCEncrypt", error);
}

std::optional<Data> CryptoUtility::decryptData(const Data& ciphertext, const Data& key,
                                               const Data& iv, ErrorRef* error) {
  Data plaintext;
  const CryptorStatus status = AesCbc::decrypt(ciphertext, key, iv, plaintext);
  return reportCipherResult(status, std::move(plaintext), "CCCrypt.kCCDecrypt", error);
}

Data CryptoUtility::randomSalt() { return randomDataOfLength(kSaltLength); }

Data CryptoUtility::randomInitializationVector() {
  return randomDataOfLength(kInitializationVectorLength);
}

Data CryptoUtility::randomDataOfLength(std::size_t length) { return SecureRandom::bytes(length); }

}  // namespace velmor
