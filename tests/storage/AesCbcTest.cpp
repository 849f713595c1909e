#include "storage/AesCbc.h"

#include <gtest/gtest.h>

#include "storage/CryptoUtility.h"
#include "testing/HexData.h"

namespace velmor {
namespace {

constexpr char kNistIv[] = "000102030405060708090a0b0c0d0e0f";
constexpr char kNistPlaintext[] =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";

// NIST SP 800-38A F.2.1, F.2.3 and F.2.5: the four published blocks, then
// the block that PKCS#7 padding appends to a whole-block plaintext.
TEST(AesCbcTest, MatchesNistVectorsFollowedByOnePaddingBlock) {
  const std::pair<const char*, const char*> vectors[] = {
      {"2b7e151628aed2a6abf7158809cf4f3c",
       "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
       "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"
       "8cb82807230e1321d3fae00d18cc2012"},
      {"8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
       "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
       "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"
       "612ccd79224b350935d45dd6a98f8176"},
      {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
       "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
       "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"
       "3f461796d6b0d6b2e0c2a72b4d80e644"},
  };
  for (const auto& [key, ciphertext] : vectors) {
    SCOPED_TRACE(key);
    Data encrypted;
    ASSERT_EQ(AesCbc::encrypt(hexData(kNistPlaintext), hexData(key), hexData(kNistIv), encrypted),
              CryptorStatus::kSuccess);
    EXPECT_EQ(encrypted, hexData(ciphertext));
    EXPECT_EQ(
        CryptoUtility::decryptData(hexData(ciphertext), hexData(key), hexData(kNistIv), nullptr),
        hexData(kNistPlaintext));
  }
}

}  // namespace
}  // namespace velmor
