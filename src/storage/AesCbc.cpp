#include "storage/AesCbc.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <optional>

#include "storage/CipherContext.h"

namespace velmor {
namespace {

// OpenSSL counts lengths in int; longer inputs go through in pieces of this
// size, a whole number of blocks.
constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

enum class Direction { kDecrypt = 0, kEncrypt = 1 };

const EVP_CIPHER* cipherForKeyLength(std::size_t keyLength) {
  switch (keyLength) {
    case 16:
      return EVP_aes_128_cbc();
    case 24:
      return EVP_aes_192_cbc();
    case 32:
      return EVP_aes_256_cbc();
    default:
      return nullptr;
  }
}

CryptorStatus runCipher(EVP_CIPHER_CTX* context, const Data& input, Data& output) {
  // Encryption adds up to one block of padding.
  output.resize(input.size() + AesCbc::kBlockLength);
  std::size_t produced = 0;
  for (std::size_t offset = 0; offset < input.size(); offset += kLargestPiece) {
    const int pieceLength = static_cast<int>(std::min(kLargestPiece, input.size() - offset));
    int written = 0;
    if (EVP_CipherUpdate(context, output.data() + produced, &written, input.data() + offset,
                         pieceLength) != 1) {
      return takeOpenSslFailure();
    }
    produced += static_cast<std::size_t>(written);
  }
  int written = 0;
  if (EVP_CipherFinal_ex(context, output.data() + produced, &written) != 1) {
    return takeOpenSslFailure();
  }
  output.resize(produced + static_cast<std::size_t>(written));
  return CryptorStatus::kSuccess;
}

CryptorStatus crypt(Direction direction, const Data& input, const Data& key, const Data& iv,
                    Data& output) {
  const EVP_CIPHER* cipher = cipherForKeyLength(key.size());
  if (cipher == nullptr || iv.size() != AesCbc::kBlockLength) return CryptorStatus::kParamError;
  std::optional<CipherContext> context = CipherContext::create();
  if (!context) return CryptorStatus::kMemoryFailure;
  if (EVP_CipherInit_ex(context->get(), cipher, nullptr, key.data(), iv.data(),
                        static_cast<int>(direction)) != 1) {
    return takeOpenSslFailure();
  }
  return runCipher(context->get(), input, output);
}

CryptorStatus cryptOrWipe(Direction direction, const Data& input, const Data& key, const Data& iv,
                          Data& output) {
  const CryptorStatus status = crypt(direction, input, key, iv, output);
  if (status != CryptorStatus::kSuccess) {
    OPENSSL_cleanse(output.data(), output.size());
    output.clear();
  }
  return status;
}

}  // namespace

CryptorStatus AesCbc::encrypt(const Data& plaintext, const Data& key, const Data& iv,
                              Data& ciphertext) {
  return cryptOrWipe(Direction::kEncrypt, plaintext, key, iv, ciphertext);
}

CryptorStatus AesCbc::decrypt(const Data& ciphertext, const Data& key, const Data& iv,
                              Data& plaintext) {
  return cryptOrWipe(Direction::kDecrypt, ciphertext, key, iv, plaintext);
}

}  // namespace velmor
