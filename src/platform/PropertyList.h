// Property lists: the on-disk form of archives, stored items and the
// remembered client context, readable by any property-list tool.
#ifndef VELMOR_PLATFORM_PROPERTY_LIST_H_
#define VELMOR_PLATFORM_PROPERTY_LIST_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Converts between values and property-list bytes. Texts, bytes, booleans,
// integers, doubles, arrays and dictionaries map to their property-list
// kinds; null maps to the keyed-archive null reference (UID 0). Integers are
// 64-bit two's complement as binary property lists store them: a value read
// back above INT64_MAX comes back negative. Stateless and thread-safe.
class PropertyList final {
 public:
  using OrderedEntries = std::vector<std::pair<std::string, Value>>;

  PropertyList() = delete;

  // A binary property list whose root dictionary keeps the entries' order.
  static Data binaryFromEntries(const OrderedEntries& entries);
  // An XML property list of a dictionary.
  static Data xmlFromDictionary(const Dictionary& dictionary);
  // Reads a binary or XML property list; nothing when the bytes are not one.
  static std::optional<Value> parse(const Data& bytes);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_PROPERTY_LIST_H_
