#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "velmor/Value.h"

namespace velmor {
namespace {

// Setting keys one by one is what fromEntries must match.
Dictionary setOneByOne(const std::vector<Dictionary::Entry>& entries) {
  Dictionary dictionary;
  for (const auto& [key, value] : entries) dictionary.set(key, value);
  return dictionary;
}

std::vector<std::string> keysOf(const Dictionary& dictionary) {
  std::vector<std::string> keys;
  for (const auto& entry : dictionary) keys.push_back(entry.first);
  return keys;
}

TEST(DictionaryTest, FromEntriesSortsByBytesAndKeepsTheLastDuplicate) {
  std::vector<Dictionary::Entry> entries = {
      {"scope", Value(1)},
      {"\xC3\xA9t\xC3\xA9", Value(2)},
      {"expires_in", Value(3)},
      {"refresh_token_b", Value(4)},
      {"refresh_token_a", Value(5)},
      {std::string("a\0b", 3), Value(6)},
      {"a", Value(7)},
      {"", Value(8)},
      {"scope", Value(9)},
      {"Z", Value(10)},
  };
  Dictionary fromVector = Dictionary::fromEntries(entries);
  std::vector<Dictionary::Entry> copy = entries;
  Dictionary fromRange = Dictionary::fromEntries(copy.data(), copy.data() + copy.size());

  std::vector<std::string> expected = {"",
                                       "Z",
                                       "a",
                                       std::string("a\0b", 3),
                                       "expires_in",
                                       "refresh_token_a",
                                       "refresh_token_b",
                                       "scope",
                                       "\xC3\xA9t\xC3\xA9"};
  EXPECT_EQ(keysOf(fromVector), expected);
  EXPECT_EQ(*fromVector.find("scope"), Value(9));
  EXPECT_EQ(fromRange, fromVector);
  EXPECT_EQ(fromVector, setOneByOne(entries));
}

TEST(DictionaryTest, FromEntriesAgreesWithSettingKeysOneByOne) {
  // Sizes around the switch to the general sort and to heap-held sort keys,
  // keys that often share their first eight bytes, and many duplicates.
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    std::size_t count = std::uniform_int_distribution<std::size_t>(0, 70)(random);
    std::vector<Dictionary::Entry> entries;
    for (std::size_t i = 0; i < count; ++i) {
      std::string key = random() % 2 ? "prefix__" : "";
      for (int n = static_cast<int>(random() % 3); n >= 0; --n)
        key += static_cast<char>('a' + random() % 4);
      entries.emplace_back(key, Value(static_cast<std::int64_t>(i)));
    }
    SCOPED_TRACE(count);
    Dictionary expected = setOneByOne(entries);
    std::vector<Dictionary::Entry> copy = entries;
    EXPECT_EQ(Dictionary::fromEntries(copy.data(), copy.data() + copy.size()), expected);
    EXPECT_EQ(Dictionary::fromEntries(std::move(entries)), expected);
  }
}

}  // namespace
}  // namespace velmor
