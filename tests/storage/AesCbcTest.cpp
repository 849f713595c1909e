#include "storage/AesCbc.h"

#include <gtest/gtest.h>

#include "storage/CryptoUtility.h"
#include "storage/HexData.h"

namespace velmor {
namespace {

// NIST SP 800-38A F.2.1, F.2.3 and F.2.5: four blocks, then the block that
// PKCS#7 padding appends to a whole-block plaintext.
struct NistVector {
  const char* name;
  const char* key;
  const char* ciphertext;
  const char* paddingBlock;
};

constexpr char kIv[] = "000102030405060708090a0b0c0d0e0f";
constexpr char kPlaintext[] =
    "6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710";

constexpr NistVector kNistVectors[] = {
    {"CBC-AES128", "2b7e151628aed2a6abf7158809cf4f3c",
     "7649abac8119b246cee98e9b12e9197d 5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e22229516 3ff1caa1681fac09120eca307586e1a7",
     "8cb82807230e1321d3fae00d18cc2012"},
    {"CBC-AES192", "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
     "4f021db243bc633d7178183a9fa071e8 b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e0 08b0e27988598881d920a9e64f5615cd",
     "612ccd79224b350935d45dd6a98f8176"},
    {"CBC-AES256", "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "f58c4c04d6e5f1ba779eabfb5f7bfbd6 9cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461 b2eb05e2c39be9fcda6c19078c6a9d1b",
     "3f461796d6b0d6b2e0c2a72b4d80e644"},
};

TEST(AesCbcTest, MatchesNistVectorsFollowedByOnePaddingBlock) {
  for (const NistVector& vector : kNistVectors) {
    SCOPED_TRACE(vector.name);
    const Data key = hexData(vector.key);
    Data expected = hexData(vector.ciphertext);
    const Data paddingBlock = hexData(vector.paddingBlock);
    expected.insert(expected.end(), paddingBlock.begin(), paddingBlock.end());

    Data ciphertext;
    ASSERT_EQ(AesCbc::encrypt(hexData(kPlaintext), key, hexData(kIv), ciphertext),
              CryptorStatus::kSuccess);
    EXPECT_EQ(ciphertext, expected);

    ErrorRef error;
    EXPECT_EQ(CryptoUtility::decryptData(expected, key, hexData(kIv), &error), hexData(kPlaintext));
    EXPECT_EQ(error, nullptr);
  }
}

TEST(AesCbcTest, FailureLeavesNoOutput) {
  const NistVector& vector = kNistVectors[0];
  // Without its padding block the last plaintext block ends in 0x10 but is
  // not sixteen 0x10s: the padding check must refuse it.
  Data plaintext = {1, 2, 3};
  EXPECT_EQ(
      AesCbc::decrypt(hexData(vector.ciphertext), hexData(vector.key), hexData(kIv), plaintext),
      CryptorStatus::kDecodeError);
  EXPECT_TRUE(plaintext.empty());
}

}  // namespace
}  // namespace velmor
