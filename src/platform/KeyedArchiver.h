// Writes a keyed archive: named values in one binary property list.
#ifndef VELMOR_PLATFORM_KEYED_ARCHIVER_H_
#define VELMOR_PLATFORM_KEYED_ARCHIVER_H_

#include <cstdint>
#include <string>

#include "platform/PropertyList.h"
#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Collects values under keys, in the order they are encoded, and produces a
// binary property list whose root dictionary holds them, so any
// property-list tool can read a stored record. Encoding a key again
// replaces its value. Not thread-safe; use one archiver per archive.
class KeyedArchiver final {
 public:
  KeyedArchiver() = default;

  void encodeInt32(std::int32_t value, const std::string& key);
  void encodeBool(bool value, const std::string& key);
  void encodeBytes(const Data& bytes, const std::string& key);
  // Any value: text, bytes, number, boolean, null, array or dictionary.
  void encodeObject(const Value& value, const std::string& key);

  // The archive's bytes. The archiver may be reused afterwards; it keeps
  // its values.
  Data finishEncoding() const;

 private:
  void set(const std::string& key, Value value);

  PropertyList::OrderedEntries entries_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_KEYED_ARCHIVER_H_
