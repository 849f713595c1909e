#include "storage/CryptoUtility.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "storage/HexData.h"
#include "storage/PbkdfCalibration.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

using ::testing::MatchesRegex;

TEST(CryptoUtilityTest, HmacMatchesRfc4231) {
  struct Case {
    const char* name;
    Data key;
    Data data;
    const char* mac;
  };
  const Case cases[] = {
      {"case 1", Data(20, 0x0b), bytesOf("Hi There"),
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {"case 2: key shorter than the output", bytesOf("Jefe"),
       bytesOf("what do ya want for nothing?"),
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {"case 3", Data(20, 0xaa), Data(50, 0xdd),
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
      {"case 4", hexData("0102030405060708090a0b0c0d0e0f10111213141516171819"), Data(50, 0xcd),
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
      {"case 6: key longer than the block", Data(131, 0xaa),
       bytesOf("Test Using Larger Than Block-Size Key - Hash Key First"),
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
      {"case 7: key and data longer than the block", Data(131, 0xaa),
       bytesOf("This is a test using a larger than block-size key and a larger than block-size "
               "data. The key needs to be hashed before being used by the HMAC algorithm."),
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
      {"empty key and data", Data(), Data(),
       "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CryptoUtility::calculateHmacWithKey(c.key, c.data), hexData(c.mac));
  }
}

TEST(CryptoUtilityTest, KeyMatchesRfc7914Pbkdf2Vectors) {
  struct Case {
    const char* password;
    const char* salt;
    std::uint32_t rounds;
    const char* key;  // the first 32 bytes of the published 64
  };
  const Case cases[] = {
      {"passwd", "salt", 1, "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"},
      {"Password", "NaCl", 80000,
       "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.password);
    std::uint32_t used = 0;
    EXPECT_EQ(
        CryptoUtility::generateAesKeyForPassword(c.password, bytesOf(c.salt), c.rounds, &used),
        hexData(c.key));
    EXPECT_EQ(used, c.rounds);
  }
}

TEST(CryptoUtilityTest, KeyGenerationNeedsTheRoundCountLocation) {
  try {
    CryptoUtility::generateAesKeyForPassword("pw", CryptoUtility::randomSalt(), 1, nullptr);
    FAIL() << "no exception";
  } catch (const InvalidArgumentException& e) {
    EXPECT_EQ(e.name(), "NSInvalidArgumentException");
    EXPECT_EQ(e.reason(), "actualRoundCount must not be nil");
  }
}

// The one test that pays for a calibration.
TEST(CryptoUtilityTest, CalibratedRoundCountReproducesTheKey) {
  const Data salt = CryptoUtility::randomSalt();
  std::uint32_t calibrated = 0;
  const Data key = CryptoUtility::generateAesKeyForPassword("secret", salt, 0, &calibrated);
  ASSERT_GT(calibrated, 0u);
  EXPECT_EQ(key.size(), 32u);

  std::uint32_t used = 0;
  EXPECT_EQ(CryptoUtility::generateAesKeyForPassword("secret", salt, calibrated, &used), key);
  EXPECT_EQ(used, calibrated);
}

TEST(CryptoUtilityTest, CalibrationScalesTheTrialToTheTarget) {
  using std::chrono::milliseconds;
  using std::chrono::nanoseconds;
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1000, milliseconds(10), milliseconds(300)), 30000u);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1, milliseconds(1000), milliseconds(300)), 1u);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(kMost, milliseconds(1), milliseconds(300)), kMost);
  EXPECT_EQ(PbkdfCalibration::scaledRoundCount(1000, nanoseconds(0), milliseconds(300)), kMost);
}

class RecordingDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t) override {
    std::lock_guard<std::mutex> lock(mutex_);
    messages_.push_back(message);
  }
  std::vector<std::string> messages() {
    std::lock_guard<std::mutex> lock(mutex_);
    return messages_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> messages_;
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

  EXPECT_THAT(delegate.messages(),
              ::testing::ElementsAre(MatchesRegex("INFO\tKey generation duration: "
                                                  "[0-9]+\\.[0-9]{6} seconds")));
}

TEST(CryptoUtilityTest, EncryptionPadsToWholeBlocksAndRoundTrips) {
  for (const std::size_t keyLength : {16, 24, 32}) {
    for (const std::size_t length : {0, 1, 15, 16, 17, 1000}) {
      SCOPED_TRACE(testing::Message() << "key " << keyLength << ", plaintext " << length);
      const Data key = CryptoUtility::randomDataOfLength(keyLength);
      const Data plaintext = CryptoUtility::randomDataOfLength(length);
      std::optional<Data> iv;
      ErrorRef error;
      const std::optional<Data> ciphertext =
          CryptoUtility::encryptData(plaintext, key, &iv, &error);
      ASSERT_TRUE(ciphertext.has_value());
      EXPECT_EQ(error, nullptr);
      EXPECT_EQ(ciphertext->size(), (length / 16 + 1) * 16);
      ASSERT_TRUE(iv.has_value());
      EXPECT_EQ(iv->size(), 16u);
      EXPECT_EQ(CryptoUtility::decryptData(*ciphertext, key, *iv, &error), plaintext);
      EXPECT_EQ(error, nullptr);
    }
  }
}

TEST(CryptoUtilityTest, EachEncryptionDrawsAFreshIv) {
  const Data key(32, 7);
  const Data plaintext = bytesOf("same text");
  std::optional<Data> firstIv;
  std::optional<Data> secondIv;
  const auto first = CryptoUtility::encryptData(plaintext, key, &firstIv, nullptr);
  const auto second = CryptoUtility::encryptData(plaintext, key, &secondIv, nullptr);
  EXPECT_NE(firstIv, secondIv);
  EXPECT_NE(first, second);
}

TEST(CryptoUtilityTest, CipherFailuresCarryDomainAndStatus) {
  const Data key(32, 1);
  const Data iv(16, 2);
  const Data ciphertext =
      *CryptoUtility::encryptData(bytesOf("sixteen bytes!!!"), key, nullptr, nullptr);
  Data truncated = ciphertext;
  truncated.pop_back();
  Data extended = ciphertext;
  extended.push_back(0);

  struct Case {
    const char* name;
    Data ciphertext;
    Data key;
    Data iv;
    std::int64_t code;
  };
  const Case cases[] = {
      {"key of 31 bytes", ciphertext, Data(31, 1), iv, -4300},
      {"key of 33 bytes", ciphertext, Data(33, 1), iv, -4300},
      {"empty key", ciphertext, Data(), iv, -4300},
      {"IV of 15 bytes", ciphertext, key, Data(15, 2), -4300},
      {"IV of 17 bytes", ciphertext, key, Data(17, 2), -4300},
      {"ciphertext one byte short", truncated, key, iv, -4303},
      {"ciphertext one byte long", extended, key, iv, -4303},
      // NIST's CBC-AES128 ciphertext with its padding block, under the key
      // with its last bit flipped: the last block decrypts to ...ae, which
      // is no padding.
      {"wrong key",
       hexData("7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
               "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"
               "8cb82807230e1321d3fae00d18cc2012"),
       hexData("2b7e151628aed2a6abf7158809cf4f3d"), hexData("000102030405060708090a0b0c0d0e0f"),
       -4304},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ErrorRef error;
    EXPECT_EQ(CryptoUtility::decryptData(c.ciphertext, c.key, c.iv, &error), std::nullopt);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), "CCCrypt.kCCDecrypt");
    EXPECT_EQ(error->code(), c.code);
    EXPECT_EQ(error->userInfo(), std::nullopt);
    EXPECT_EQ(CryptoUtility::decryptData(c.ciphertext, c.key, c.iv, nullptr), std::nullopt);
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

TEST(CryptoUtilityTest, RandomBlocksHaveTheirLengthsAndDiffer) {
  EXPECT_EQ(CryptoUtility::randomSalt().size(), 8u);
  EXPECT_EQ(CryptoUtility::randomInitializationVector().size(), 16u);
  EXPECT_TRUE(CryptoUtility::randomDataOfLength(0).empty());
  EXPECT_NE(CryptoUtility::randomDataOfLength(32), CryptoUtility::randomDataOfLength(32));
}

}  // namespace
}  // namespace velmor
