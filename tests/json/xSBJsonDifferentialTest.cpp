// Reads random documents, random damage to them and the fuzzing seeds with
// our reader and with nlohmann-json, and checks that the two agree under the
// rules of compareJsonReaders().
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "json/xSBJsonParser.h"
#include "testing/JsonDifferential.h"

namespace velmor {
namespace {

constexpr int kMaxDepth = 32;

class DocumentGenerator {
 public:
  explicit DocumentGenerator(std::uint32_t seed) : random_(seed) {}

  // A document whose outer-most value is an array or an object.
  std::string document() {
    std::string out;
    // Now and then run a chain of first elements down to the nesting limit.
    container(out, 1, chance(10));
    return out;
  }

  std::string mutated(std::string document) {
    int mutations = 1 + below(3);
    for (int i = 0; i < mutations && !document.empty(); ++i) {
      std::size_t at = below(document.size());
      switch (below(5)) {
        case 0:
          document[at] = static_cast<char>(below(256));
          break;
        case 1:
          document.erase(at, 1 + below(8));
          break;
        case 2: {
          static constexpr char kInteresting[] = "[]{},:\"\\u0123456789eE.-+ tfnDC\x00\xff\xc3\x80";
          document.insert(at, 1, kInteresting[below(sizeof kInteresting - 1)]);
          break;
        }
        case 3: {
          std::size_t length = 1 + below(16);
          document.insert(at, document.substr(at, length));
          break;
        }
        default:
          document.resize(at);
          break;
      }
    }
    return document;
  }

 private:
  std::size_t below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }
  int below(int bound) { return static_cast<int>(below(static_cast<std::size_t>(bound))); }
  bool chance(int percent) { return below(100) < percent; }

  void whitespace(std::string& out) {
    static constexpr char kWhitespace[] = " \t\r\n";
    if (chance(20)) out += kWhitespace[below(4)];
  }

  void container(std::string& out, int depth, bool onChain = false) {
    bool isObject = chance(50);
    int count = (onChain ? 1 : 0) + below(depth == 1 ? 8 : 5);
    out += isObject ? '{' : '[';
    for (int i = 0; i < count; ++i) {
      if (i > 0) out += ',';
      whitespace(out);
      if (isObject) {
        string(out);
        whitespace(out);
        out += ':';
        whitespace(out);
      }
      if (i == 0 && onChain && depth < kMaxDepth) {
        container(out, depth + 1, true);
      } else {
        value(out, depth);
      }
      whitespace(out);
    }
    out += isObject ? '}' : ']';
  }

  void value(std::string& out, int depth) {
    if (depth < kMaxDepth && chance(25)) return container(out, depth + 1);
    switch (below(6)) {
      case 0:
        out += chance(50) ? "true" : "false";
        break;
      case 1:
        out += "null";
        break;
      case 2:
        integer(out);
        break;
      case 3:
        number(out);
        break;
      default:
        string(out);
        break;
    }
  }

  void integer(std::string& out) {
    switch (below(4)) {
      case 0:
        out += std::to_string(below(1000));
        break;
      case 1:
        out += std::to_string(std::uniform_int_distribution<std::int64_t>(
            std::numeric_limits<std::int64_t>::min(), -1)(random_));
        break;
      case 2:
        out += std::to_string(std::uniform_int_distribution<std::uint64_t>()(random_));
        break;
      default: {
        // Too long for 64 bits: read as a double by both.
        out += static_cast<char>('1' + below(9));
        for (int i = 0, n = 20 + below(10); i < n; ++i) out += static_cast<char>('0' + below(10));
        break;
      }
    }
  }

  void number(std::string& out) {
    char buffer[64];
    if (chance(50)) {
      double d;
      do {
        std::uint64_t bits = std::uniform_int_distribution<std::uint64_t>()(random_);
        std::memcpy(&d, &bits, sizeof d);
      } while (!std::isfinite(d));
      std::snprintf(buffer, sizeof buffer, "%.17g", d);
      out += buffer;
      return;
    }
    // Hand-written forms: fractions, exponents of both signs, near the edges.
    if (chance(30)) out += '-';
    out += chance(30) ? "0" : std::to_string(1 + below(999999));
    if (chance(70)) {
      out += '.';
      for (int i = 0, n = 1 + below(20); i < n; ++i) out += static_cast<char>('0' + below(10));
    }
    if (chance(50)) {
      out += chance(50) ? 'e' : 'E';
      // Large exponents only downwards: an infinity is not a JSON value to
      // nlohmann, whereas both readers take an underflow as zero.
      if (chance(50)) {
        out += '-';
        out += std::to_string(below(345));
      } else {
        if (chance(50)) out += '+';
        out += std::to_string(below(300));
      }
    }
  }

  void string(std::string& out) {
    out += '"';
    for (int i = 0, n = below(24); i < n; ++i) {
      switch (below(8)) {
        case 0: {
          static constexpr const char* kEscapes[] = {"\\\"", "\\\\", "\\/", "\\b",    "\\f",
                                                     "\\n",  "\\r",  "\\t", "\\u0000"};
          out += kEscapes[below(9)];
          break;
        }
        case 1:
          unicodeEscape(out);
          break;
        case 2:
          rawUtf8(out);
          break;
        default: {
          char c = static_cast<char>(' ' + below(95));
          if (c == '"' || c == '\\') c = 'x';
          out += c;
          break;
        }
      }
    }
    out += '"';
  }

  void unicodeEscape(std::string& out) {
    char buffer[16];
    if (chance(30)) {
      unsigned high = 0xD800 + static_cast<unsigned>(below(0x400));
      unsigned low = 0xDC00 + static_cast<unsigned>(below(0x400));
      std::snprintf(buffer, sizeof buffer, chance(50) ? "\\u%04X\\u%04x" : "\\u%04x\\u%04X", high,
                    low);
    } else {
      unsigned unit;
      do {
        unit = static_cast<unsigned>(below(0x10000));
      } while (unit >= 0xD800 && unit <= 0xDFFF);
      std::snprintf(buffer, sizeof buffer, "\\u%04x", unit);
    }
    out += buffer;
  }

  void rawUtf8(std::string& out) {
    std::uint32_t codePoint;
    do {
      codePoint = static_cast<std::uint32_t>(0x80 + below(0x110000 - 0x80));
    } while (codePoint >= 0xD800 && codePoint <= 0xDFFF);
    if (codePoint < 0x800) {
      out += static_cast<char>(0xC0 | (codePoint >> 6));
    } else if (codePoint < 0x10000) {
      out += static_cast<char>(0xE0 | (codePoint >> 12));
      out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (codePoint >> 18));
      out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    }
    out += static_cast<char>(0x80 | (codePoint & 0x3F));
  }

  std::mt19937 random_;
};

TEST(xSBJsonDifferentialTest, ValidDocumentsReadAlike) {
  DocumentGenerator generator(20240611);
  for (int i = 0; i < 3000; ++i) {
    std::string document = generator.document();
    xSBJsonParser parser;
    std::optional<Value> ours = parser.objectWithString(document);
    nlohmann::json theirs = nlohmann::json::parse(document, nullptr, false);
    ASSERT_TRUE(ours.has_value()) << parser.error().value_or("") << "\n" << document;
    ASSERT_FALSE(theirs.is_discarded()) << document;
    ASSERT_EQ(*ours, test::fromNlohmann(theirs)) << document;
    ASSERT_EQ(test::compareJsonReaders(document), std::nullopt) << document;
  }
}

TEST(xSBJsonDifferentialTest, DamagedDocumentsReadAlikeWhenBothAccept) {
  DocumentGenerator generator(7);
  int bothAccepted = 0;
  int weRefused = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string original = generator.document();
    for (int j = 0; j < 4; ++j) {
      std::string document = generator.mutated(original);
      xSBJsonParser parser;
      std::optional<Value> ours = parser.objectWithString(document);
      nlohmann::json theirs = nlohmann::json::parse(document, nullptr, false);
      if (!ours) {
        ++weRefused;
        ASSERT_FALSE(parser.error().value_or("").empty()) << document;
        continue;
      }
      if (theirs.is_discarded()) continue;
      ++bothAccepted;
      ASSERT_TRUE(test::agree(*ours, test::fromNlohmann(theirs))) << document;
      ASSERT_EQ(test::compareJsonReaders(document), std::nullopt) << document;
    }
  }
  // Both outcomes must be common, or the damage says nothing.
  EXPECT_GT(bothAccepted, 500);
  EXPECT_GT(weRefused, 3000);
}

// Every seed the fuzz targets start from, valid or not, under the same rules
// as the differential fuzz target.
TEST(xSBJsonDifferentialTest, FuzzingSeedsFollowTheRules) {
  std::size_t seeds = 0;
  for (const char* corpus : {"json_reader", "json_differential"}) {
    for (const auto& entry : std::filesystem::directory_iterator(
             std::filesystem::path(VELMOR_FUZZ_CORPUS_DIR) / corpus)) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(file), {}};
      EXPECT_EQ(test::compareJsonReaders(input), std::nullopt) << entry.path();
      ++seeds;
    }
  }
  EXPECT_GE(seeds, 30u);
}

// The rules excuse the designed differences and no others.
TEST(xSBJsonDifferentialTest, RulesAllowOnlyDesignedDifferences) {
  // A document nlohmann reads and we refuse only past our depth limit.
  const std::string deep = std::string(33, '[') + std::string(33, ']');
  EXPECT_EQ(test::compareJsonReaders(deep), std::nullopt);
  EXPECT_EQ(test::compareJsonReaders("\xEF\xBB\xBF[1]"), std::nullopt);
  EXPECT_EQ(test::compareJsonReaders(std::string("[1]\0x", 5)), std::nullopt);
  // Designed differences: saturating integers, infinities, stray bytes.
  EXPECT_EQ(test::compareJsonReaders("[18446744073709551616,-9223372036854775809]"), std::nullopt);
  EXPECT_EQ(test::compareJsonReaders("[1e400]"), std::nullopt);
  EXPECT_EQ(test::compareJsonReaders("[\"\xFF\"]"), std::nullopt);
  // Found by fuzzing: an unfinished token after the document is not read.
  EXPECT_EQ(test::compareJsonReaders("{\"null\":1}\":1}g"), std::nullopt);
  EXPECT_EQ(test::compareJsonReaders("[1] 12"), std::nullopt);
  // Values that differ are caught.
  EXPECT_FALSE(test::agree(Value(Array{Value(std::uint64_t{1})}), Value(Array{Value(1.0)})));
  EXPECT_FALSE(test::agree(Value(Dictionary{{"a", "x"}}), Value(Dictionary{{"b", "x"}})));
  EXPECT_FALSE(test::agree(Value(std::int64_t{-1}), Value(std::uint64_t{1})));
}

}  // namespace
}  // namespace velmor
