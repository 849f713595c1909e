#include "platform/KeyedArchiver.h"

#include <algorithm>
#include <utility>

namespace velmor {

void KeyedArchiver::encodeInt32(std::int32_t value, const std::string& key) { set(key, value); }

void KeyedArchiver::encodeBool(bool value, const std::string& key) { set(key, value); }

void KeyedArchiver::encodeBytes(const Data& bytes, const std::string& key) { set(key, bytes); }

void KeyedArchiver::encodeObject(const Value& value, const std::string& key) { set(key, value); }

Data KeyedArchiver::finishEncoding() const { return PropertyList::binaryFromEntries(entries_); }

void KeyedArchiver::set(const std::string& key, Value value) {
  auto same = std::find_if(entries_.begin(), entries_.end(),
                           [&](const auto& entry) { return entry.first == key; });
  if (same != entries_.end()) {
    same->second = std::move(value);
  } else {
    entries_.emplace_back(key, std::move(value));
  }
}

}  // namespace velmor
