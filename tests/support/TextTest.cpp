#include "support/Text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace velmor {
namespace {

TEST(Text, CountsLengthInUtf16Units) {
  EXPECT_EQ(text::utf16Length(""), 0u);
  EXPECT_EQ(text::utf16Length("abc"), 3u);
  EXPECT_EQ(text::utf16Length("\xC3\xA9"), 1u);          // é
  EXPECT_EQ(text::utf16Length("\xF0\x9F\x98\x80"), 2u);  // an emoji is a surrogate pair
  EXPECT_EQ(text::utf16Length("\xFF\xFE"), 2u);          // each bad byte is one replacement
}

TEST(Text, RoundTripsUtf8ThroughUtf16) {
  const std::string samples[] = {"", "plain", "caf\xC3\xA9", "\xF0\x9F\x98\x80 x", "\xE2\x80\x99"};
  for (const std::string& sample : samples) {
    SCOPED_TRACE(sample);
    EXPECT_EQ(text::toUtf8(text::toUtf16(sample)), sample);
  }
  EXPECT_EQ(text::toUtf8(u"\xD800"), "\xEF\xBF\xBD");
  EXPECT_EQ(text::toUtf16("\xC0\x80"), u"\xFFFD\xFFFD");  // overlong NUL is refused
}

TEST(Text, SeparatesWhitespaceFromNewlines) {
  const char16_t spaces[] = {u' ', u'\t', u'\u00A0', u'\u2003', u'\u3000', u'\u202F'};
  for (char16_t unit : spaces) {
    EXPECT_TRUE(text::isWhitespace(unit)) << int(unit);
    EXPECT_TRUE(text::isWhitespaceOrNewline(unit)) << int(unit);
  }
  const char16_t newlines[] = {u'\n', u'\r', u'\v', u'\f', u'\u0085', u'\u2028', u'\u2029'};
  for (char16_t unit : newlines) {
    EXPECT_FALSE(text::isWhitespace(unit)) << int(unit);
    EXPECT_TRUE(text::isWhitespaceOrNewline(unit)) << int(unit);
  }
  EXPECT_FALSE(text::isWhitespaceOrNewline(u'a'));
  EXPECT_FALSE(text::isWhitespaceOrNewline(u'\u200B'));  // zero width space is not a separator
}

TEST(Text, TrimsEachSet) {
  EXPECT_EQ(text::trimWhitespace(" \t a b \t"), "a b");
  EXPECT_EQ(text::trimWhitespace("\n a \n"), "\n a \n");
  EXPECT_EQ(text::trimWhitespaceAndNewlines("\r\n\xC2\xA0"
                                            "a b\n"),
            "a b");
  EXPECT_EQ(text::trimWhitespaceAndNewlines(" \n "), "");
}

TEST(Text, ReadsIntegerValueLikeThePlatform) {
  struct Case {
    const char* text;
    std::int64_t expected;
  };
  const Case cases[] = {
      {"3600", 3600},
      {"12ab", 12},
      {"abc", 0},
      {"", 0},
      {"  \n-42", -42},
      {"+7", 7},
      {"- 7", 0},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"99999999999999999999", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"-99999999999999999999", std::numeric_limits<std::int64_t>::min()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(text::integerValue(c.text), c.expected);
  }
}

TEST(Text, ComparesAsciiIgnoringCase) {
  EXPECT_TRUE(text::equalsIgnoringCase("Content-Type", "content-type"));
  EXPECT_FALSE(text::equalsIgnoringCase("Content-Type", "content-typ"));
  EXPECT_EQ(text::toLowerAscii("HTTPS"), "https");
}

}  // namespace
}  // namespace velmor
