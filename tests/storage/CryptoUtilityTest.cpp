#include "storage/CryptoUtility.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "storage/PbkdfCalibration.h"
#include "testing/HexData.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

TEST(CryptoUtilityTest, HmacMatchesRfc4231) {
  struct Case {
    Data key;
    Data data;
    const char* mac;
  };
  const Case cases[] = {
      {Data(20, 0x0b), bytesOf("Hi There"),
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {bytesOf("Jefe"), bytesOf("what do ya want for nothing?"),
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      // A key longer than SHA-256's block is hashed first.
      {Data(131, 0xaa), bytesOf("Test Using Larger Than Block-Size Key - Hash Key First"),
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
      {Data(), Data(), "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mac);
    EXPECT_EQ(CryptoUtility::calculateHmacWithKey(c.key, c.data), hexData(c.mac));
  }
}

// RFC 7914 section 11, the first 32 bytes of each derived key.
TEST(CryptoUtilityTest, KeyMatchesRfc7914Pbkdf2Vectors) {
  std::uint32_t used = 0;
  EXPECT_EQ(CryptoUtility::generateAesKeyForPassword("passwd", bytesOf("salt"), 1, &used),
            hexData("55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"));
  EXPECT_EQ(used, 1u);
  EXPECT_EQ(CryptoUtility::generateAesKeyForPassword("Password", bytesOf("NaCl"), 80000, &used),
            hexData("4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"));
  EXPECT_EQ(used, 80000u);
}

TEST(CryptoUtilityTest, KeyGenerationNeedsTheRoundCountLocation) {
  try {
    CryptoUtility::generateAesKeyForPassword("pw", bytesOf("salt"), 1, nullptr);
    FAIL() << "no exception";
  } catch (const InvalidArgumentException& e) {
    EXPECT_EQ(e.reason(), "actualRoundCount must not be nil");
  }
}

// The one test that pays for a calibration.
TEST(CryptoUtilityTest, CalibratedRoundCountReproducesTheKey) {
  const Data salt = CryptoUtility::randomSalt();
  std::uint32_t calibrated = 0;
  const Data key = CryptoUtility::generateAesKeyForPassword("secret", salt, 0, &calibrated);
  ASSERT_GT(calibrated, 0u);
  std::uint32_t used = 0;
  EXPECT_EQ(CryptoUtility::generateAesKeyForPassword("secret", salt, calibrated, &used), key);
  EXPECT_EQ(used, calibrated);
}

TEST(CryptoUtilityTest, CalibrationScalesTheTrialIntoTheRoundCountRange) {
  using std::chrono::milliseconds;
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1000, milliseconds(10), milliseconds(300)), 30000u);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1, milliseconds(1000), milliseconds(300)), 1u);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(kMost, milliseconds(1), milliseconds(300)), kMost);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1000, milliseconds(0), milliseconds(300)), kMost);
}

struct RecordingDelegate final : VelmorAuthorizationLoggerDelegate {
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t) override {
    messages.push_back(message);
  }
  std::vector<std::string> messages;
};

TEST(CryptoUtilityTest, KeyGenerationLogsItsDurationAtInfoLevel) {
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  RecordingDelegate delegate;
  logger.setDelegate(&delegate);
  logger.setLogLevel(VelmorAuthorizationLogger::kLevelInfo);
  std::uint32_t used = 0;
  CryptoUtility::generateAesKeyForPassword("pw", bytesOf("salt"), 1, &used);
  logger.setLogLevel(0);
  logger.setDelegate(nullptr);
  EXPECT_THAT(delegate.messages, ::testing::ElementsAre(::testing::MatchesRegex(
                                     "INFO\tKey generation duration: [0-9]+\\.[0-9]{6} seconds")));
}

TEST(CryptoUtilityTest, EncryptionPadsToWholeBlocksAndRoundTrips) {
  for (const std::size_t keyLength : {16, 24, 32}) {
    const Data key = CryptoUtility::randomDataOfLength(keyLength);
    for (const std::size_t length : {0, 15, 16, 17, 1000}) {
      SCOPED_TRACE(testing::Message() << "key " << keyLength << ", plaintext " << length);
      const Data plaintext = CryptoUtility::randomDataOfLength(length);
      std::optional<Data> iv;
      ErrorRef error;
      const auto ciphertext = CryptoUtility::encryptData(plaintext, key, &iv, &error);
      ASSERT_TRUE(ciphertext && iv);
      EXPECT_EQ(ciphertext->size(), (length / 16 + 1) * 16);
      EXPECT_EQ(iv->size(), 16u);
      EXPECT_EQ(CryptoUtility::decryptData(*ciphertext, key, *iv, &error), plaintext);
      EXPECT_EQ(error, nullptr);
      std::optional<Data> nextIv;
      EXPECT_NE(CryptoUtility::encryptData(plaintext, key, &nextIv, nullptr), ciphertext);
      EXPECT_NE(nextIv, iv);
    }
  }
}

TEST(CryptoUtilityTest, DecryptionFailuresCarryDomainAndStatus) {
  const Data key = hexData("2b7e151628aed2a6abf7158809cf4f3c");
  const Data iv = hexData("000102030405060708090a0b0c0d0e0f");
  // NIST's CBC-AES128 ciphertext with its padding block.
  const Data ciphertext = hexData(
      "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
      "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"
      "8cb82807230e1321d3fae00d18cc2012");
  const Data truncated(ciphertext.begin(), ciphertext.end() - 1);
  struct Case {
    const char* name;
    Data ciphertext;
    Data key;
    Data iv;
    std::int64_t code;
  };
  const Case cases[] = {
      {"key of 31 bytes", ciphertext, Data(31, 1), iv, -4300},
      {"empty key", ciphertext, Data(), iv, -4300},
      {"IV of 15 bytes", ciphertext, key, Data(15, 0), -4300},
      {"IV of 17 bytes", ciphertext, key, Data(17, 0), -4300},
      {"not whole blocks", truncated, key, iv, -4303},
      // The last bit of the key flipped: the last block ends in 0xae.
      {"wrong key", ciphertext, hexData("2b7e151628aed2a6abf7158809cf4f3d"), iv, -4304},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ErrorRef error;
    EXPECT_EQ(CryptoUtility::decryptData(c.ciphertext, c.key, c.iv, &error), std::nullopt);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), "CCCrypt.kCCDecrypt");
    EXPECT_EQ(error->code(), c.code);
    EXPECT_EQ(error->userInfo(), std::nullopt);
  }
}

TEST(CryptoUtilityTest, FailedEncryptionStillHandsOutTheIv) {
  std::optional<Data> iv;
  ErrorRef error;
  EXPECT_EQ(CryptoUtility::encryptData(bytesOf("text"), Data(20, 1), &iv, &error), std::nullopt);
  ASSERT_TRUE(iv.has_value());
  EXPECT_EQ(iv->size(), 16u);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), "CCCrypt.kCCEncrypt");
  EXPECT_EQ(error->code(), -4300);
}

TEST(CryptoUtilityTest, RandomBlocksHaveTheirLengths) {
  EXPECT_EQ(CryptoUtility::randomSalt().size(), 8u);
  EXPECT_EQ(CryptoUtility::randomInitializationVector().size(), 16u);
  EXPECT_TRUE(CryptoUtility::randomDataOfLength(0).empty());
  EXPECT_NE(CryptoUtility::randomDataOfLength(32), CryptoUtility::randomDataOfLength(32));
}

}  // namespace
}  // namespace velmor
