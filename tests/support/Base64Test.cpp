#include "velmor/Base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "testing/HexData.h"

namespace velmor {
namespace {

TEST(Base64Test, RoundTripsRfc4648Vectors) {
  const std::pair<const char*, const char*> cases[] = {
      {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"M", "TQ=="},   {"Ma", "TWE="},
  };
  for (const auto& [text, encoded] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Base64::encodeBase64WithData(bytesOf(text)), encoded);
    EXPECT_EQ(Base64::encodeBase64WithString(text), encoded);
    EXPECT_EQ(Base64::decodeBase64WithString(encoded), bytesOf(text));
  }
}

TEST(Base64Test, EncodesNothingForEmptyInputAndNoLineBreaks) {
  EXPECT_EQ(Base64::encodeBase64WithData(Data()), std::nullopt);
  EXPECT_EQ(Base64::encodeBase64WithString(""), std::nullopt);
  EXPECT_EQ(Base64::encodeBase64WithString("h\xc3\xa9"), "aMOp");
  EXPECT_EQ(Base64::encodeBase64WithData(Data(300, 0xff)), std::string(400, '/'));
}

TEST(Base64Test, DecodesLeniently) {
  const std::pair<std::string_view, const char*> cases[] = {
      {"", ""},
      {"TQ", "M"},
      {"TWFuT", "Man"},  // leftover bits are dropped
      {"\tT W\rF\fu\n", "Man"},
      {"TW=Fu", "Man"},  // a "=" in the middle is passed over
      {"=TWFu=", "Man"},
      {"==", ""},
      {std::string_view("TW\0Fu", 5), "M"},  // the text ends at a NUL
      {std::string_view("TWFu\0-", 6), "Man"},
  };
  for (const auto& [text, decoded] : cases) {
    SCOPED_TRACE(std::string(text));
    EXPECT_EQ(Base64::decodeBase64WithString(text), bytesOf(decoded));
  }
}

TEST(Base64Test, RefusesALonePadAfterAGroupsFirstSymbol) {
  for (const std::string_view text : {"T=", "T==", "T=Q", "TWFuT=", "TWFu T =\n"}) {
    SCOPED_TRACE(std::string(text));
    EXPECT_EQ(Base64::decodeBase64WithString(text), std::nullopt);
  }
}

TEST(Base64Test, RefusesEveryByteOutsideAlphabetAndSpaces) {
  const std::string passed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/\t\n\f\r =" +
      std::string(1, '\0');
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (passed.find(c) != std::string::npos) continue;
    SCOPED_TRACE(byte);
    // Both inside a whole group and in a trailing one.
    EXPECT_EQ(Base64::decodeBase64WithString(std::string("TW") + c + "uTWFu"), std::nullopt);
    EXPECT_EQ(Base64::decodeBase64WithString(std::string("TWFuT") + c), std::nullopt);
  }
}

TEST(Base64Test, RoundTripsRandomBlocksWithALineBreakAnywhere) {
  std::mt19937 random(20240501);
  for (std::size_t length = 1; length <= 64; ++length) {
    Data bytes(length);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    const std::string encoded = *Base64::encodeBase64WithData(bytes);
    SCOPED_TRACE(encoded);
    EXPECT_EQ(Base64::decodeBase64WithString(encoded), bytes);
    for (std::size_t at = 0; at <= encoded.size(); ++at) {
      const std::string broken = encoded.substr(0, at) + "\r\n" + encoded.substr(at);
      EXPECT_EQ(Base64::decodeBase64WithString(broken), bytes) << "break at " << at;
    }
  }
}

}  // namespace
}  // namespace velmor
