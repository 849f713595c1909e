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
      {"AZaz09-._~", "AZaz09-._~"},
      {":?#[]@!$&()*,;=%", "%3A%3F%23%5B%5D%40%21%24%26%28%29%2A%2C%3B%3D%25"},
      {"\xE2\x80\x99 caf\xC3\xA9", "%E2%80%99%20caf%C3%A9"},  // typographic apostrophe
      {std::string("\0\xFF", 2), "%00%FF"},
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
      {"x%20y+z", "x y z"},        {"%2B", "+"},
      {"%c3%A9", "\xC3\xA9"},      {"", ""},
      {"%", std::nullopt},         {"ab%2", std::nullopt},
      {"%zz", std::nullopt},       {"%C3", std::nullopt},  // cut-off sequence
      {"%C0%AF", std::nullopt},                            // overlong
      {"%ED%A0%80", std::nullopt},                         // surrogate
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
      {"a=b=c&&e%3Dx=%26", {{"a", "b"}, {"e=x", "&"}}},
      {"a=1&a=2&b=", {{"a", "2"}, {"b", ""}}},
      {"a=1&b=2&a=%zz", {{"b", "2"}}},  // an unreadable value removes its key
      {"%zz=1&=v", {{"", "v"}}},
      {"", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query);
    EXPECT_EQ(HttpUtility::parseQueryString(c.query), c.parameters);
  }
}

}  // namespace
}  // namespace velmor
