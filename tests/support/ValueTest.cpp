#include "velmor/Value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace velmor {
namespace {

TEST(Value, KeepsIntegerSignedness) {
  Value big(std::numeric_limits<std::uint64_t>::max());
  Value negative(std::int64_t{-1});
  ASSERT_NE(big.uintValue(), nullptr);
  EXPECT_EQ(*big.uintValue(), std::numeric_limits<std::uint64_t>::max());
  ASSERT_NE(negative.intValue(), nullptr);
  EXPECT_EQ(big.intValue(), nullptr);
  EXPECT_FALSE(big == negative);
  EXPECT_EQ(Value(true).kind(), Value::Kind::kBool);
  EXPECT_EQ(Value("text").kind(), Value::Kind::kString);
}

TEST(Dictionary, LastOfRepeatedKeysWins) {
  Dictionary built = Dictionary::fromEntries({{"b", 1}, {"a", 2}, {"b", 3}, {"a", 4}, {"c", 5}});
  ASSERT_EQ(built.size(), 3u);
  EXPECT_EQ(*built.find("a"), Value(4));
  EXPECT_EQ(*built.find("b"), Value(3));
  std::string order;
  for (const auto& entry : built) order += entry.first;
  EXPECT_EQ(order, "abc");
}

TEST(Dictionary, SetsFindsAndErases) {
  Dictionary dictionary;
  dictionary.set("token", "x");
  dictionary.set("token", "y");
  dictionary.set("alpha", 1);
  EXPECT_EQ(dictionary.size(), 2u);
  ASSERT_NE(dictionary.findString("token"), nullptr);
  EXPECT_EQ(*dictionary.findString("token"), "y");
  EXPECT_EQ(dictionary.findString("alpha"), nullptr);
  EXPECT_TRUE(dictionary.erase("token"));
  EXPECT_FALSE(dictionary.erase("token"));
  EXPECT_FALSE(dictionary.contains("token"));
}

TEST(Value, DescribesInPropertyListStyle) {
  struct Case {
    Value value;
    const char* expected;
  };
  const Case cases[] = {
      {Value(), "<null>"},
      {Value(true), "1"},
      {Value(-12), "-12"},
      {Value(2.5), "2.5"},
      {Value(0.1), "0.1"},
      {Value("free text stays bare at the top"), "free text stays bare at the top"},
      {Value(Data{0x01, 0x02, 0x03, 0x04, 0xAB}), "<01020304 ab>"},
      {Value(Array{}), "(\n)"},
      {Value(Dictionary{}), "{\n}"},
      {Value(Array{"abc", "a b", ""}), "(\n    abc,\n    \"a b\",\n    \"\"\n)"},
      {Value(Dictionary{{"access_token", "a\"b"}, {"n", 1}}),
       "{\n    \"access_token\" = \"a\\\"b\";\n    n = 1;\n}"},
      {Value(Dictionary{{"outer", Dictionary{{"inner", Array{1}}}}}),
       "{\n    outer =     {\n        inner =         (\n            1\n        );\n    };\n}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(c.value.description(), c.expected);
  }
}

}  // namespace
}  // namespace velmor
