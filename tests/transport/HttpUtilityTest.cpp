#include "transport/HttpUtility.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace velmor {
namespace {

TEST(HttpUtilityTest, EscapesAllButUnreservedCharactersAndTheApostrophe) {
  struct Case {
    std::string text, escaped;
  } cases[] = {
      {"a b+c/d'e", "a%20b%2Bc%2Fd'e"},
      {"AZaz09-._~'", "AZaz09-._~'"},
      {":/?#[]@!$&()*+,;=", "%3A%2F%3F%23%5B%5D%40%21%24%26%28%29%2A%2B%2C%3B%3D"},
      {"100% \"x\"<>\\^`{|}", "100%25%20%22x%22%3C%3E%5C%5E%60%7B%7C%7D"},
      {"\xE2\x80\x99", "%E2%80%99"},  // the typographic apostrophe is escaped
      {"caf\xC3\xA9 \xF0\x9F\x98\x80", "caf%C3%A9%20%F0%9F%98%80"},
      {std::string("a\0b\n", 4), "a%00b%0A"},
      {"\xFF", "%FF"},  // bytes that are not UTF-8 are escaped as they are
      {"", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(HttpUtility::escapeDataString(c.text), c.escaped);
  }
}

TEST(HttpUtilityTest, UnescapesPlusesThenPercentEscapesIntoUtf8) {
  struct Case {
    std::string text;
    std::optional<std::string> unescaped;
  } cases[] = {
      {"x%20y", "x y"},
      {"s+t", "s t"},
      {"%2B+", "+ "},
      {"%c3%A9", "\xC3\xA9"},
      {"%F0%9F%98%80", "\xF0\x9F\x98\x80"},
      {"a%00b", std::string("a\0b", 3)},
      {"", ""},
      {"%", std::nullopt},
      {"ab%2", std::nullopt},
      {"%zz", std::nullopt},
      {"%+1", std::nullopt},
      {"%C3", std::nullopt},           // cut-off sequence
      {"%C0%AF", std::nullopt},        // overlong "/"
      {"%ED%A0%80", std::nullopt},     // surrogate
      {"%F4%90%80%80", std::nullopt},  // above U+10FFFF
      {"%80", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(HttpUtility::unescapeDataString(c.text), c.unescaped);
  }
}

TEST(HttpUtilityTest, ParsesQueriesPieceByPiece) {
  struct Case {
    std::string query;
    Dictionary parameters;
  } cases[] = {
      {"code=x%20y&state=s+t&flag", {{"code", "x y"}, {"state", "s t"}}},
      {"a=b=c", {{"a", "b"}}},
      {"a=1&a=2", {{"a", "2"}}},
      {"a=1&b=2&a=%zz", {{"b", "2"}}},
      {"a=%zz&a=3", {{"a", "3"}}},
      {"flag=", {{"flag", ""}}},
      {"=v", {{"", "v"}}},
      {"%zz=1&b=2", {{"b", "2"}}},
      {"&&a=1&", {{"a", "1"}}},
      {"e%3Dx=%26", {{"e=x", "&"}}},
      {"", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    EXPECT_EQ(HttpUtility::parseQueryString(c.query), c.parameters);
  }
}

TEST(HttpUtilityTest, ReadsOnlyWellFormedUtf8AsText) {
  EXPECT_EQ(HttpUtility::stringFromUtf8Data(Data{'o', 'k', 0xC3, 0xA9}), "ok\xC3\xA9");
  EXPECT_EQ(HttpUtility::stringFromUtf8Data(Data{}), "");
  EXPECT_EQ(HttpUtility::stringFromUtf8Data(std::nullopt), std::nullopt);
  for (const Data& bad : {Data{0xC3}, Data{0xF5, 0x80, 0x80, 0x80}, Data{'a', 0xFE}}) {
    EXPECT_EQ(HttpUtility::stringFromUtf8Data(bad), std::nullopt);
  }
}

}  // namespace
}  // namespace velmor
