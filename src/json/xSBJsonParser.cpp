#include "json/xSBJsonParser.h"

#include "json/xSBJsonStreamParser.h"
#include "json/xSBJsonStreamParserAccumulator.h"
#include "json/xSBJsonStreamParserAdapter.h"

namespace velmor {

std::optional<Value> xSBJsonParser::objectWithData(const Data& data) {
  return parseBytes(data.data(), data.size());
}

std::optional<Value> xSBJsonParser::objectWithData(const std::uint8_t* bytes, std::size_t length) {
  if (bytes == nullptr) {
    error_ = "Input was 'nil'";
    return std::nullopt;
  }
  return parseBytes(bytes, length);
}

std::optional<Value> xSBJsonParser::objectWithString(std::string_view text) {
  // Empty text is empty input, not absent input, even when it has no bytes.
  return parseBytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::optional<Value> xSBJsonParser::parseBytes(const std::uint8_t* bytes, std::size_t length) {
  xSBJsonStreamParserAccumulator accumulator;
  xSBJsonStreamParserAdapter adapter;
  adapter.setDelegate(&accumulator);
  xSBJsonStreamParser parser;
  parser.setMaxDepth(maxDepth_);
  parser.setDelegate(&adapter);

  switch (parser.parse(bytes, length)) {
    case xSBJsonStreamParser::kComplete:
      return accumulator.takeValue();
    case xSBJsonStreamParser::kNeedMoreInput:
      error_ = "Unexpected end of input";
      return std::nullopt;
    case xSBJsonStreamParser::kError:
      break;
  }
  error_ = parser.error();
  return std::nullopt;
}

}  // namespace velmor
