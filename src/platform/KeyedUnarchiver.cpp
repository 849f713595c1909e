#include "platform/KeyedUnarchiver.h"

#include <limits>

#include "platform/PropertyList.h"
#include "support/Format.h"
#include "velmor/Exception.h"

namespace velmor {

KeyedUnarchiver::KeyedUnarchiver(const Data& archive) {
  std::optional<Value> parsed = PropertyList::parse(archive);
  if (!parsed || !parsed->dictionaryValue()) {
    throw InvalidArgumentException(stringWithFormat(
        "*** -[NSKeyedUnarchiver initForReadingWithData:]: incomprehensible archive (%lu bytes)",
        archive.size()));
  }
  root_ = std::move(*parsed->dictionaryValue());
}

bool KeyedUnarchiver::containsValueForKey(const std::string& key) const {
  return root_.contains(key);
}

std::int32_t KeyedUnarchiver::decodeInt32ForKey(const std::string& key) const {
  const Value* value = root_.find(key);
  if (!value) return 0;
  if (const std::int64_t* n = value->intValue()) {
    if (*n >= std::numeric_limits<std::int32_t>::min() &&
        *n <= std::numeric_limits<std::int32_t>::max()) {
      return static_cast<std::int32_t>(*n);
    }
  }
  throwWrongKind(key, "a 32-bit integer");
}

bool KeyedUnarchiver::decodeBoolForKey(const std::string& key) const {
  const Value* value = root_.find(key);
  if (!value) return false;
  if (const bool* b = value->boolValue()) return *b;
  throwWrongKind(key, "a boolean");
}

std::optional<Data> KeyedUnarchiver::decodeBytesForKey(const std::string& key) const {
  const Value* value = root_.find(key);
  if (!value || value->isNull()) return std::nullopt;
  if (const Data* bytes = value->dataValue()) return *bytes;
  throwWrongKind(key, "bytes");
}

std::optional<Value> KeyedUnarchiver::decodeObjectForKey(const std::string& key) const {
  const Value* value = root_.find(key);
  if (!value || value->isNull()) return std::nullopt;
  return *value;
}

std::optional<Dictionary> KeyedUnarchiver::decodeStringDictionaryForKey(
    const std::string& key) const {
  const Value* value = root_.find(key);
  if (!value || value->isNull()) return std::nullopt;
  const Dictionary* dictionary = value->dictionaryValue();
  if (!dictionary) throwWrongKind(key, "a dictionary of texts");
  for (const auto& entry : *dictionary) {
    if (!entry.second.stringValue()) throwWrongKind(key, "a dictionary of texts");
  }
  return *dictionary;
}

void KeyedUnarchiver::throwWrongKind(const std::string& key, const char* expected) const {
  throw Exception("NSInvalidUnarchiveOperationException",
                  stringWithFormat("value for key '%@' is not %s", key, expected));
}

}  // namespace velmor
