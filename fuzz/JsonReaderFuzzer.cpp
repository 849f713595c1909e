// Feeds arbitrary bytes to the JSON reader. It must never crash, leak or
// read out of bounds; what it accepts must be a well-formed tree; and the
// same bytes fed in two pieces must give the same outcome.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "json/xSBJsonParser.h"
#include "json/xSBJsonStreamParser.h"
#include "json/xSBJsonStreamParserAccumulator.h"
#include "json/xSBJsonStreamParserAdapter.h"

namespace {

using velmor::fuzz::require;

bool isUtf8(const std::string& text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* end = p + text.size();
  while (p < end) {
    unsigned char lead = *p;
    std::size_t length = lead < 0x80   ? 1
                         : lead < 0xC2 ? 0
                         : lead < 0xE0 ? 2
                         : lead < 0xF0 ? 3
                         : lead < 0xF5 ? 4
                                       : 0;
    if (length == 0 || static_cast<std::size_t>(end - p) < length) return false;
    unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (length > 1 && (p[1] < low || p[1] > high)) return false;
    for (std::size_t i = 2; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
    }
    p += length;
  }
  return true;
}

void checkTree(const velmor::Value& value, std::size_t depth) {
  if (const std::string* text = value.stringValue()) require(isUtf8(*text));
  if (const velmor::Array* array = value.arrayValue()) {
    require(depth <= velmor::xSBJsonParser::kDefaultMaxDepth);
    for (const velmor::Value& element : *array) checkTree(element, depth + 1);
  }
  if (const velmor::Dictionary* dictionary = value.dictionaryValue()) {
    require(depth <= velmor::xSBJsonParser::kDefaultMaxDepth);
    const std::string* previous = nullptr;
    for (const auto& [key, element] : *dictionary) {
      require(isUtf8(key));
      require(previous == nullptr || *previous < key);
      previous = &key;
      checkTree(element, depth + 1);
    }
  }
}

struct Outcome {
  std::optional<velmor::Value> value;
  std::optional<std::string> error;
};

Outcome parseInTwoPieces(const std::uint8_t* data, std::size_t size) {
  velmor::xSBJsonStreamParserAccumulator accumulator;
  velmor::xSBJsonStreamParserAdapter adapter;
  adapter.setDelegate(&accumulator);
  velmor::xSBJsonStreamParser parser;
  parser.setDelegate(&adapter);
  std::size_t half = size / 2;
  // Each piece lives in its own heap block, and the first is released before
  // the second is read, so reading past a piece or keeping a pointer into
  // it is caught.
  std::vector<std::uint8_t> first(data, data + half);
  std::vector<std::uint8_t> second(data + half, data + size);
  parser.parse(first.data(), first.size());
  std::vector<std::uint8_t>().swap(first);
  auto status = parser.parse(second.data(), second.size());
  if (status == velmor::xSBJsonStreamParser::kComplete) return {accumulator.takeValue(), {}};
  if (status == velmor::xSBJsonStreamParser::kNeedMoreInput) return {{}, "Unexpected end of input"};
  return {{}, parser.error()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmor::xSBJsonParser parser;
  std::optional<velmor::Value> value = parser.objectWithData(data, size);
  if (value) {
    require(value->arrayValue() != nullptr || value->dictionaryValue() != nullptr);
    checkTree(*value, 1);
  } else {
    require(parser.error().has_value() && !parser.error()->empty());
  }

  Outcome pieces = parseInTwoPieces(data, size);
  require(pieces.value == value);
  if (!value) require(pieces.error == parser.error());
  return 0;
}
