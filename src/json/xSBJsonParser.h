// Reads a response body into a tree of values.
#ifndef VELMOR_JSON_XSBJSONPARSER_H_
#define VELMOR_JSON_XSBJSONPARSER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Turns one complete JSON document, UTF-8 encoded, whose outer-most value is
// an array or an object, into an Array or a Dictionary (integers keep their
// 64-bit signedness, other numbers are doubles, strings are UTF-8). On
// failure the calls answer nothing and `error()` says why.
//
// Each call parses on its own, so one parser may read many documents, but
// from one thread at a time.
class xSBJsonParser {
 public:
  static constexpr std::size_t kDefaultMaxDepth = 32;

  // The most arrays and objects that may be open at once. Values are
  // destroyed and compared recursively, so the limit also bounds the stack
  // those need for any input.
  std::size_t maxDepth() const { return maxDepth_; }
  void setMaxDepth(std::size_t maxDepth) { maxDepth_ = maxDepth; }

  // The reason of the last failure; a later success leaves it in place.
  const std::optional<std::string>& error() const { return error_; }

  std::optional<Value> objectWithData(const Data& data);
  // `bytes` == nullptr stands for absent input.
  std::optional<Value> objectWithData(const std::uint8_t* bytes, std::size_t length);
  std::optional<Value> objectWithString(std::string_view text);

 private:
  std::optional<Value> parseBytes(const std::uint8_t* bytes, std::size_t length);

  std::size_t maxDepth_ = kDefaultMaxDepth;
  std::optional<std::string> error_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONPARSER_H_
