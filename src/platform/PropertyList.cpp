#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

namespace velmor {

namespace {

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
// Owns a node tree; children handed to a container are owned by it.
using PlistNode = std::unique_ptr<void, PlistDeleter>;

struct PlistBufferDeleter {
  void operator()(char* buffer) const { std::free(buffer); }
};

plist_t newNode(const Value& value);

plist_t newDictionary(const Dictionary& dictionary) {
  plist_t node = plist_new_dict();
  for (const auto& entry : dictionary)
    plist_dict_set_item(node, entry.first.c_str(), newNode(entry.second));
  return node;
}

plist_t newNode(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::kNull:
      return plist_new_uid(0);
    case Value::Kind::kBool:
      return plist_new_bool(*value.boolValue() ? 1 : 0);
    case Value::Kind::kInt:
      return plist_new_uint(static_cast<std::uint64_t>(*value.intValue()));
    case Value::Kind::kUInt:
      return plist_new_uint(*value.uintValue());
    case Value::Kind::kDouble:
      return plist_new_real(*value.doubleValue());
    case Value::Kind::kString:
      return plist_new_string(value.stringValue()->c_str());
    case Value::Kind::kData: {
      const Data& data = *value.dataValue();
      return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
    }
    case Value::Kind::kArray: {
      plist_t node = plist_new_array();
      for (const Value& item : *value.arrayValue()) plist_array_append_item(node, newNode(item));
      return node;
    }
    case Value::Kind::kDictionary:
      return newDictionary(*value.dictionaryValue());
  }
  return plist_new_uid(0);
}

Data bytesOf(char* buffer, std::uint32_t length) {
  std::unique_ptr<char, PlistBufferDeleter> owned(buffer);
  if (!buffer) return {};
  return Data(buffer, buffer + length);
}

std::optional<Value> valueOf(plist_t node, int depth);

std::optional<Value> dictionaryOf(plist_t node, int depth) {
  std::vector<Dictionary::Entry> entries;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  std::unique_ptr<void, decltype(&std::free)> ownedIterator(iterator, &std::free);
  for (;;) {
    char* key = nullptr;
    plist_t child = nullptr;
    plist_dict_next_item(node, iterator, &key, &child);
    if (!child) {
      std::free(key);
      break;
    }
    std::unique_ptr<char, PlistBufferDeleter> ownedKey(key);
    std::optional<Value> childValue = valueOf(child, depth + 1);
    if (!childValue || !key) return std::nullopt;
    entries.emplace_back(key, std::move(*childValue));
  }
  return Value(Dictionary::fromEntries(std::move(entries)));
}

// Deep structures are refused rather than risking the stack.
constexpr int kMaxDepth = 512;

std::optional<Value> valueOf(plist_t node, int depth) {
  if (depth > kMaxDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      std::uint64_t bits = 0;
      plist_get_uint_val(node, &bits);
      return Value(static_cast<std::int64_t>(bits));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
      char* text = nullptr;
      if (plist_get_node_type(node) == PLIST_STRING) {
        plist_get_string_val(node, &text);
      } else {
        plist_get_key_val(node, &text);
      }
      std::unique_ptr<char, PlistBufferDeleter> owned(text);
      return Value(std::string(text ? text : ""));
    }
    case PLIST_DATA: {
      char* bytes = nullptr;
      std::uint64_t length = 0;
      plist_get_data_val(node, &bytes, &length);
      std::unique_ptr<char, PlistBufferDeleter> owned(bytes);
      return Value(bytes ? Data(bytes, bytes + length) : Data());
    }
    case PLIST_UID: {
      std::uint64_t uid = 0;
      plist_get_uid_val(node, &uid);
      if (uid == 0) return Value();
      return std::nullopt;
    }
    case PLIST_ARRAY: {
      Array items;
      std::uint32_t count = plist_array_get_size(node);
      items.reserve(count);
      for (std::uint32_t i = 0; i < count; ++i) {
        std::optional<Value> item = valueOf(plist_array_get_item(node, i), depth + 1);
        if (!item) return std::nullopt;
        items.push_back(std::move(*item));
      }
      return Value(std::move(items));
    }
    case PLIST_DICT:
      return dictionaryOf(node, depth);
    default:
      // Dates and anything else have no place in the library's values.
      return std::nullopt;
  }
}

}  // namespace

Data PropertyList::binaryFromEntries(const OrderedEntries& entries) {
  PlistNode root(plist_new_dict());
  for (const auto& [key, value] : entries)
    plist_dict_set_item(root.get(), key.c_str(), newNode(value));
  char* buffer = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root.get(), &buffer, &length);
  return bytesOf(buffer, length);
}

Data PropertyList::xmlFromDictionary(const Dictionary& dictionary) {
  PlistNode root(newDictionary(dictionary));
  char* buffer = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &buffer, &length);
  return bytesOf(buffer, length);
}

std::optional<Value> PropertyList::parse(const Data& bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  plist_t raw = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::uint32_t>(bytes.size()), &raw);
  PlistNode root(raw);
  if (!root) return std::nullopt;
  return valueOf(root.get(), 0);
}

}  // namespace velmor
