// Reads a keyed archive written by KeyedArchiver (or any binary or XML
// property list whose root is a dictionary).
#ifndef VELMOR_PLATFORM_KEYED_UNARCHIVER_H_
#define VELMOR_PLATFORM_KEYED_UNARCHIVER_H_

#include <cstdint>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Decodes named values. Malformed input raises velmor::Exception, which
// readers of stored records catch to discard a damaged record:
// - the constructor throws InvalidArgumentException ("incomprehensible
//   archive") when the bytes are not a property list with a dictionary root;
// - a decode throws Exception named "NSInvalidUnarchiveOperationException"
//   when the key holds a value of another kind.
// An absent key decodes as 0, NO or nothing. Not thread-safe.
class KeyedUnarchiver final {
 public:
  explicit KeyedUnarchiver(const Data& archive);

  bool containsValueForKey(const std::string& key) const;
  std::int32_t decodeInt32ForKey(const std::string& key) const;
  bool decodeBoolForKey(const std::string& key) const;
  std::optional<Data> decodeBytesForKey(const std::string& key) const;
  std::optional<Value> decodeObjectForKey(const std::string& key) const;
  // A dictionary whose values are all texts, or nothing when absent.
  std::optional<Dictionary> decodeStringDictionaryForKey(const std::string& key) const;

  // Marks the end of reading; kept so that callers read as they write.
  void finishDecoding() {}

 private:
  [[noreturn]] void throwWrongKind(const std::string& key, const char* expected) const;

  Dictionary root_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_KEYED_UNARCHIVER_H_
