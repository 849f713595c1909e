// Compares the library's JSON reader with nlohmann-json on one input; shared
// by the differential tests and the differential fuzz target.
#ifndef VELMOR_TESTS_TESTING_JSON_DIFFERENTIAL_H_
#define VELMOR_TESTS_TESTING_JSON_DIFFERENTIAL_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/xSBJsonParser.h"
#include "transport/HttpUtility.h"
#include "velmor/Value.h"

namespace velmor::test {

inline Value fromNlohmann(const nlohmann::json& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::boolean:
      return Value(json.get<bool>());
    case nlohmann::json::value_t::number_integer:
      return Value(json.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned:
      return Value(json.get<std::uint64_t>());
    case nlohmann::json::value_t::number_float:
      return Value(json.get<double>());
    case nlohmann::json::value_t::string:
      return Value(json.get<std::string>());
    case nlohmann::json::value_t::array: {
      Array array;
      for (const auto& element : json) array.push_back(fromNlohmann(element));
      return Value(std::move(array));
    }
    case nlohmann::json::value_t::object: {
      std::vector<Dictionary::Entry> entries;
      for (const auto& [key, element] : json.items())
        entries.emplace_back(key, fromNlohmann(element));
      return Value(Dictionary::fromEntries(std::move(entries)));
    }
    default:
      return Value();
  }
}

// Equality, except where the two readers differ by design: an integer of at
// most 20 characters beyond 64 bits saturates with us (as strtoll and
// strtoull do) but becomes a double with nlohmann.
inline bool agree(const Value& ours, const Value& theirs) {
  if (const double* d = theirs.doubleValue()) {
    if (ours.uintValue() && *ours.uintValue() == std::numeric_limits<std::uint64_t>::max()) {
      return *d >= 18446744073709551615.0;
    }
    if (ours.intValue() && *ours.intValue() == std::numeric_limits<std::int64_t>::min()) {
      return *d <= -9223372036854775808.0;
    }
  }
  if (ours.kind() != theirs.kind()) return false;
  if (const Array* array = ours.arrayValue()) {
    const Array& other = *theirs.arrayValue();
    if (array->size() != other.size()) return false;
    for (std::size_t i = 0; i < array->size(); ++i) {
      if (!agree((*array)[i], other[i])) return false;
    }
    return true;
  }
  if (const Dictionary* dictionary = ours.dictionaryValue()) {
    const Dictionary& other = *theirs.dictionaryValue();
    if (dictionary->size() != other.size()) return false;
    for (auto a = dictionary->begin(), b = other.begin(); a != dictionary->end(); ++a, ++b) {
      if (a->first != b->first || !agree(a->second, b->second)) return false;
    }
    return true;
  }
  return ours == theirs;
}

// Arrays and objects open at once at the deepest point; 0 for a scalar.
inline std::size_t nestingDepth(const nlohmann::json& json) {
  if (!json.is_structured()) return 0;
  std::size_t deepest = 0;
  for (const auto& element : json) {
    const std::size_t depth = nestingDepth(element);
    if (depth > deepest) deepest = depth;
  }
  return deepest + 1;
}

// nlohmann's exception id for a number beyond the range of a double, which
// it refuses and we read as an infinity.
constexpr int kNlohmannNumberOverflow = 406;

// Reads `input` with both and returns what went wrong, or nothing when they
// agree under these rules:
// - what both accept has equal values (see agree());
// - a document nlohmann accepts is accepted by us too when it is one we
//   read at all: an array or object at the top, nested at most
//   kDefaultMaxDepth deep, and a plain RFC 8259 text (nlohmann also stops
//   at a NUL byte and skips a leading byte-order mark, which RFC 8259 does
//   not allow);
// - what we accept, nlohmann accepts too, but for numbers too large for a
//   double, for text that is not UTF-8 (we read each stray byte as U+FFFD,
//   nlohmann refuses), and for text after the document that is only the
//   start of a token ("[1] 12", "{} \"ab"): our reader streams, and input
//   that ends in the middle of a token leaves a complete document complete.
//   There nlohmann's value of the first document must equal ours.
inline std::optional<std::string> compareJsonReaders(std::string_view input) {
  xSBJsonParser parser;
  const std::optional<Value> ours = parser.objectWithString(input);
  std::optional<nlohmann::json> theirs;
  int theirError = 0;
  try {
    theirs = nlohmann::json::parse(input.begin(), input.end());
  } catch (const nlohmann::json::exception& exception) {
    theirError = exception.id;
  }

  if (ours && theirs) {
    if (!agree(*ours, fromNlohmann(*theirs))) return "the readers disagree on the value";
    return std::nullopt;
  }
  if (theirs) {
    const bool plainText =
        input.find('\0') == std::string_view::npos && !input.starts_with("\xEF\xBB\xBF");
    if (plainText && theirs->is_structured() &&
        nestingDepth(*theirs) <= xSBJsonParser::kDefaultMaxDepth) {
      return "we refused a valid document: " + parser.error().value_or("(no error)");
    }
    return std::nullopt;
  }
  if (!ours || theirError == kNlohmannNumberOverflow || !HttpUtility::isValidUtf8(input)) {
    return std::nullopt;
  }
  try {
    std::istringstream stream{std::string(input)};
    nlohmann::json first;
    stream >> first;  // reads the first document only
    if (!agree(*ours, fromNlohmann(first))) return "the readers disagree on the first document";
    return std::nullopt;
  } catch (const nlohmann::json::exception& exception) {
    return "we accepted what nlohmann refused (nlohmann error " + std::to_string(exception.id) +
           ")";
  }
}

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_JSON_DIFFERENTIAL_H_
