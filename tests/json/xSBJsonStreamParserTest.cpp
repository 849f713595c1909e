#include "json/xSBJsonStreamParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/xSBJsonParser.h"
#include "json/xSBJsonStreamParserAccumulator.h"
#include "json/xSBJsonStreamParserAdapter.h"
#include "json/xSBJsonStreamParserState.h"
#include "json/xSBJsonTokeniser.h"
#include "velmor/Exception.h"

namespace velmor {
namespace {

const std::uint8_t* bytesOf(const std::string& text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

TEST(xSBJsonTokeniserTest, TokensCarryTheirNumbers) {
  std::string input = R"([ ] , { } : true false null -12 1.5e3 "ab" "a\nb" )";
  xSBJsonTokeniser tokeniser;
  tokeniser.appendData(bytesOf(input), input.size());
  std::vector<int> kinds;
  std::vector<std::string> texts;
  const std::uint8_t* start = nullptr;
  std::size_t length = 0;
  for (int kind; (kind = tokeniser.getToken(&start, &length)) > 0;) {
    kinds.push_back(kind);
    texts.emplace_back(reinterpret_cast<const char*>(start), length);
  }
  EXPECT_EQ(kinds, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(texts, (std::vector<std::string>{"[", "]", ",", "{", "}", ":", "true", "false", "null",
                                             "-12", "1.5e3", "ab", "a\\nb"}));

  std::string more = "?";
  tokeniser.appendData(bytesOf(more), more.size());
  EXPECT_EQ(tokeniser.getToken(&start, &length), -1);
  EXPECT_EQ(tokeniser.error(), "Illegal start of token [?]");
}

// Feeds `input` in pieces of `pieceSize` bytes, expecting "more input"
// until the last piece.
std::optional<Value> parseInPieces(const std::string& input, std::size_t pieceSize) {
  xSBJsonStreamParserAccumulator accumulator;
  xSBJsonStreamParserAdapter adapter;
  adapter.setDelegate(&accumulator);
  xSBJsonStreamParser parser;
  parser.setDelegate(&adapter);
  for (std::size_t offset = 0; offset < input.size(); offset += pieceSize) {
    std::size_t length = std::min(pieceSize, input.size() - offset);
    auto status = parser.parse(bytesOf(input) + offset, length);
    bool last = offset + length == input.size();
    EXPECT_EQ(status, last ? xSBJsonStreamParser::kComplete : xSBJsonStreamParser::kNeedMoreInput)
        << "at byte " << offset << ": " << parser.error().value_or("");
    if (status == xSBJsonStreamParser::kError) return std::nullopt;
  }
  return accumulator.takeValue();
}

TEST(xSBJsonStreamParserTest, DocumentsMayArriveCutAnywhere) {
  const std::string documents[] = {
      R"({"access_token":"eyJhbGciOi","token_type":"bearer","expires_in":3600,)"
      R"("scope":["a","b"],"ratio":-1.25e-3,"ok":true,"none":null})",
      R"(["\u00e9\uD83D\uDE00\"\\", 18446744073709551615, -9223372036854775808, false])",
      "[\"caf\xC3\xA9\", {\"k\\t\":[[],{}]}]",
  };
  for (const auto& document : documents) {
    xSBJsonParser whole;
    std::optional<Value> expected = whole.objectWithString(document);
    ASSERT_TRUE(expected.has_value()) << whole.error().value_or("");
    for (std::size_t pieceSize : {1, 2, 3, 7}) {
      SCOPED_TRACE(document + " in pieces of " + std::to_string(pieceSize));
      EXPECT_EQ(parseInPieces(document, pieceSize), expected);
    }
  }
}

TEST(xSBJsonStreamParserTest, FailureIsFinal) {
  xSBJsonStreamParser parser;
  EXPECT_EQ(parser.parse(bytesOf("[1,"), 3), xSBJsonStreamParser::kNeedMoreInput);
  EXPECT_EQ(parser.parse(bytesOf("]"), 1), xSBJsonStreamParser::kError);
  EXPECT_TRUE(parser.state()->isError());
  EXPECT_EQ(parser.state()->name(), "in error");
  EXPECT_EQ(parser.parse(bytesOf("2]"), 2), xSBJsonStreamParser::kError);
  EXPECT_EQ(parser.error(), "Token 'end of array' not expected as array value");
}

TEST(xSBJsonStreamParserAdapterTest, EventsOutOfOrderRaise) {
  xSBJsonStreamParser parser;
  xSBJsonStreamParserAdapter adapter;
  try {
    adapter.parserFoundArrayEnd(parser);
    ADD_FAILURE() << "an end without a container was accepted";
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), "Invalid parameter not satisfying: obj");
  }

  adapter.parserFoundObjectStart(parser);
  try {
    adapter.foundNumber(parser, Value(1));
    ADD_FAILURE() << "a member without a key was accepted";
  } catch (const InternalInconsistencyException& e) {
    EXPECT_EQ(e.reason(), "Invalid parameter not satisfying: keyStack.count");
  }
}

}  // namespace
}  // namespace velmor
