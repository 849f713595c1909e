#include "json/xSBJsonParser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace velmor {
namespace {

// An input and the error text or string value it must give.
struct TextCase {
  std::string input;
  std::string expected;
};

std::string failureOf(const std::string& input) {
  xSBJsonParser parser;
  std::optional<Value> value = parser.objectWithString(input);
  EXPECT_FALSE(value.has_value()) << value->description();
  return parser.error().value_or("<no error>");
}

Value parsed(const std::string& input) {
  xSBJsonParser parser;
  std::optional<Value> value = parser.objectWithString(input);
  EXPECT_TRUE(value.has_value()) << parser.error().value_or("");
  return value.value_or(Value());
}

// The only element of a one-element array document.
Value element(const std::string& input) {
  Value array = parsed(input);
  if (array.arrayValue() == nullptr || array.arrayValue()->size() != 1) {
    ADD_FAILURE() << "not a one-element array: " << input;
    return Value();
  }
  return array.arrayValue()->front();
}

TEST(xSBJsonParserTest, LexicalErrorsAreNamed) {
  const TextCase cases[] = {
      {"[trux]", "Expected 'true' after initial 't'"},
      {"[fals]", "Expected 'false' after initial 'f'"},
      {"[nil]", "Expected 'null' after initial 'n'"},
      {"[+1]", "Leading + is illegal in number"},
      {"[x]", "Illegal start of token [x]"},
      {"\f[]", "Illegal start of token [\f]"},
      {"[01]", "Leading zero is illegal in number"},
      {"[-01]", "Leading zero is illegal in number"},
      {"[-]", "No digits after initial minus"},
      {"[-x]", "No digits after initial minus"},
      {"[1.]", "No digits after decimal point"},
      {"[1.e5]", "No digits after decimal point"},
      {"[1e]", "No digits in exponent"},
      {"[1E+]", "No digits in exponent"},
      {"[\"a\x01\"]", "Unescaped control character [0x01] in string"},
      {"[\"\x1f\"]", "Unescaped control character [0x1F] in string"},
      {std::string("[\"\0\"]", 5), "Unescaped control character [0x00] in string"},
      {"[\"\\q\"]", "Illegal escape character [71]"},
      {"[\"\\U0041\"]", "Illegal escape character [55]"},
      {"[\"\\u12G4\"]", "Invalid hex quad"},
      {"[\"\\uD800\\uZZZZ\"]", "Invalid hex quad"},
      {"[\"\\uD800x\"]", "Missing low character in surrogate pair"},
      {"[\"\\uD800\\n\"]", "Missing low character in surrogate pair"},
      {"[\"\\uD800\\u0041\"]", "Invalid low character in surrogate pair"},
      {"[\"\\uDC00\"]", "Invalid high character in surrogate pair"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(failureOf(c.input), c.expected);
  }
}

TEST(xSBJsonParserTest, TokensOutOfPlaceNameTokenAndState) {
  const TextCase cases[] = {
      {"\"a\"", "Token 'string' not expected before outer-most array or object"},
      {"12 ", "Token 'number' not expected before outer-most array or object"},
      {"true", "Token 'boolean' not expected before outer-most array or object"},
      {"null", "Token 'null' not expected before outer-most array or object"},
      {"]", "Token 'end of array' not expected before outer-most array or object"},
      {"{}{}", "Token 'start of object' not expected after outer-most array or object"},
      {"[],", "Token 'value separator' not expected after outer-most array or object"},
      {"{1:2}", "Token 'number' not expected at beginning of object"},
      {"{]", "Token 'end of array' not expected at beginning of object"},
      {"{\"a\" 1}", "Token 'number' not expected after object key"},
      {"{\"a\":}", "Token 'end of object' not expected as object value"},
      {"{\"a\"::", "Token 'key-value separator' not expected as object value"},
      {"{\"a\":1 \"b\"}", "Token 'string' not expected after object value"},
      {"{\"a\":1]", "Token 'end of array' not expected after object value"},
      {"{\"a\":1,}", "Token 'end of object' not expected in place of object key"},
      {"{\"a\":1,[", "Token 'start of array' not expected in place of object key"},
      {"[,]", "Token 'value separator' not expected at array start"},
      {"[}", "Token 'end of object' not expected at array start"},
      {"[1 2]", "Token 'number' not expected after array value"},
      {"[null:", "Token 'key-value separator' not expected after array value"},
      {"[1,]", "Token 'end of array' not expected as array value"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(failureOf(c.input), c.expected);
  }
}

TEST(xSBJsonParserTest, InputEndingInsideTheDocumentIsUnexpected) {
  const std::string cases[] = {
      "",      "  \n",  "{\"access_token\":", "[",          "[tru",     "[12", "[-",
      "[1.5e", "[\"ab", "[\"\\u00",           "[\"\\uD834", "{\"a\":1,"};
  for (const auto& input : cases) {
    SCOPED_TRACE(input);
    EXPECT_EQ(failureOf(input), "Unexpected end of input");
  }
  EXPECT_TRUE(parsed("{\"access_token\":\"x\"}").dictionaryValue());
}

TEST(xSBJsonParserTest, NestingIsLimitedToMaxDepth) {
  auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  xSBJsonParser parser;
  EXPECT_EQ(parser.maxDepth(), 32u);
  EXPECT_TRUE(parser.objectWithString(nested(32)).has_value());
  EXPECT_FALSE(parser.objectWithString(nested(33)).has_value());
  EXPECT_EQ(parser.error(), "Input depth exceeds max depth of 32");
  EXPECT_EQ(failureOf(std::string(100000, '[')), "Input depth exceeds max depth of 32");

  parser.setMaxDepth(2);
  EXPECT_TRUE(parser.objectWithString("[{\"a\":1}]").has_value());
  EXPECT_FALSE(parser.objectWithString("[{\"a\":[]}]").has_value());
  EXPECT_EQ(parser.error(), "Input depth exceeds max depth of 2");
}

TEST(xSBJsonParserTest, AbsentInputIsRefused) {
  xSBJsonParser parser;
  EXPECT_FALSE(parser.objectWithData(nullptr, 0).has_value());
  EXPECT_EQ(parser.error(), "Input was 'nil'");
  // Empty input is not absent input.
  EXPECT_FALSE(parser.objectWithData(Data()).has_value());
  EXPECT_EQ(parser.error(), "Unexpected end of input");
}

TEST(xSBJsonParserTest, ErrorOfLastFailureOutlivesLaterSuccess) {
  xSBJsonParser parser;
  EXPECT_FALSE(parser.error().has_value());
  EXPECT_FALSE(parser.objectWithString("[1,]").has_value());
  EXPECT_TRUE(parser.objectWithString("[1]").has_value());
  EXPECT_EQ(parser.error(), "Token 'end of array' not expected as array value");
}

TEST(xSBJsonParserTest, ContainersBecomeArraysAndDictionaries) {
  EXPECT_EQ(parsed("{}"), Value(Dictionary()));
  EXPECT_EQ(parsed(" \t\r\n[ ] \n"), Value(Array()));

  Value tree = parsed(R"({"b":[1,{"c":null},[]],"a":true,"d":{"e":false,"f":"g"}})");
  Value expected(Dictionary{
      {"a", Value(true)},
      {"b", Value(Array{Value(1u), Value(Dictionary{{"c", Value()}}), Value(Array())})},
      {"d", Value(Dictionary{{"e", Value(false)}, {"f", Value("g")}})},
  });
  EXPECT_EQ(tree, expected);
}

TEST(xSBJsonParserTest, LaterDuplicateKeyWins) {
  Value tree = parsed(R"({"a":1,"b":2,"a":{"x":3},"b":4,"a":5})");
  EXPECT_EQ(tree, Value(Dictionary{{"a", Value(5u)}, {"b", Value(4u)}}));
}

TEST(xSBJsonParserTest, IntegersKeepSignednessAndSaturate) {
  constexpr auto kInt64Min = std::numeric_limits<std::int64_t>::min();
  constexpr auto kUInt64Max = std::numeric_limits<std::uint64_t>::max();
  const struct {
    std::string input;
    Value value;
  } cases[] = {
      {"[0]", Value(std::uint64_t{0})},
      {"[-0]", Value(std::int64_t{0})},
      {"[3600]", Value(std::uint64_t{3600})},
      {"[-42]", Value(std::int64_t{-42})},
      {"[9223372036854775807]", Value(std::uint64_t{9223372036854775807u})},
      {"[-9223372036854775808]", Value(kInt64Min)},
      {"[-9223372036854775809]", Value(kInt64Min)},
      {"[-9999999999999999999]", Value(kInt64Min)},
      {"[18446744073709551615]", Value(kUInt64Max)},
      {"[18446744073709551616]", Value(kUInt64Max)},
      {"[99999999999999999999]", Value(kUInt64Max)},
      {"[123456789012345678901]", Value(123456789012345678901.0)},
      {"[-12345678901234567890]", Value(-12345678901234567890.0)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(element(c.input), c.value);
  }
}

TEST(xSBJsonParserTest, FractionsAndExponentsAreDoubles) {
  const struct {
    std::string input;
    double value;
  } cases[] = {
      {"[1.5]", 1.5},
      {"[-0.25]", -0.25},
      {"[2e3]", 2000.0},
      {"[1E-2]", 0.01},
      {"[1.0]", 1.0},
      {"[0.1]", 0.1},
      {"[4.9406564584124654e-324]", 4.9406564584124654e-324},
      {"[1.7976931348623157e308]", 1.7976931348623157e308},
      {"[1e400]", std::numeric_limits<double>::infinity()},
      {"[-1.5e99999999999999999999]", -std::numeric_limits<double>::infinity()},
      {"[0.0001e-400]", 0.0},
      {"[-1e-400]", -0.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    Value value = element(c.input);
    ASSERT_NE(value.doubleValue(), nullptr);
    EXPECT_EQ(*value.doubleValue(), c.value);
    EXPECT_EQ(std::signbit(*value.doubleValue()), std::signbit(c.value));
  }
}

TEST(xSBJsonParserTest, StringsDecodeToUtf8) {
  const TextCase cases[] = {
      {R"(["plain"])", "plain"},
      {R"([""])", ""},
      {R"(["\"\\\/\b\f\n\r\t"])", "\"\\/\b\f\n\r\t"},
      {R"(["\u0041\u00e9\u20AC"])", "A\xC3\xA9\xE2\x82\xAC"},
      {R"(["\uD83D\uDE00 \udbff\udfff"])", "\xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
      {R"(["a\u0000b"])", std::string("a\0b", 3)},
      {"[\"caf\xC3\xA9 \xF0\x9F\x98\x80\"]", "caf\xC3\xA9 \xF0\x9F\x98\x80"},
      {"[\"\xC3\xA9\\n\"]", "\xC3\xA9\n"},
      // Bytes that are not UTF-8 become U+FFFD, one per byte.
      {"[\"a\xFF"
       "b\"]",
       "a\xEF\xBF\xBD"
       "b"},
      {"[\"\xC3\"]", "\xEF\xBF\xBD"},
      {"[\"\xE2\x82\"]", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"[\"\xC0\xAF\\t\"]", "\xEF\xBF\xBD\xEF\xBF\xBD\t"},
      {"[\"\xED\xA0\x80\"]", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"[\"\xF4\x90\x80\x80\"]", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(element(c.input), Value(c.expected));
  }
  EXPECT_EQ(parsed(R"({"\u0061\n":1})"), Value(Dictionary{{"a\n", Value(1u)}}));
}

}  // namespace
}  // namespace velmor
