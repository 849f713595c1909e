#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Text.h"

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

// libplist writes texts as UTF-16 and silently stops at the first malformed
// UTF-8 sequence, losing the rest of the text; such sequences become U+FFFD,
// one per bad byte, as everywhere else in the library.
std::string storableText(const std::string& text) {
  const bool ascii = std::all_of(text.begin(), text.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  return ascii ? text : text::toUtf8(text::toUtf16(text));
}

plist_t newDictionary(const Dictionary& dictionary) {
  plist_t node = plist_new_dict();
  for (const auto& entry : dictionary)
    plist_dict_set_item(node, storableText(entry.first).c_str(), newNode(entry.second));
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
      return plist_new_string(storableText(*value.stringValue()).c_str());
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
constexpr int kMaxDepth = 256;

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

// libplist aborts the process on a text or key holding a NUL, so such input
// is refused before libplist sees it. In a binary property list that means
// walking the offset table to every ASCII (0x5n) and UTF-16 (0x6n) string.
class BinaryStringCheck {
 public:
  explicit BinaryStringCheck(const Data& bytes) : bytes_(bytes) {}

  bool passes() const {
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kTrailer = 32;
    if (bytes_.size() < kHeader + kTrailer) return false;
    const std::size_t trailer = bytes_.size() - kTrailer;
    const std::size_t offsetSize = bytes_[trailer + 6];
    std::uint64_t count = 0;
    std::uint64_t table = 0;
    if (offsetSize < 1 || offsetSize > 8 || !readNumber(trailer + 8, 8, count) ||
        !readNumber(trailer + 24, 8, table)) {
      return false;
    }
    if (table < kHeader || table > trailer || count > (trailer - table) / offsetSize) return false;
    std::vector<std::uint64_t> offsets(static_cast<std::size_t>(count));
    for (std::uint64_t i = 0; i < count; ++i) {
      std::uint64_t& offset = offsets[static_cast<std::size_t>(i)];
      if (!readNumber(static_cast<std::size_t>(table + i * offsetSize), offsetSize, offset) ||
          offset < kHeader || offset >= table || !stringHasNoNul(offset, table)) {
        return false;
      }
    }
    return nestingIsBounded(offsets, bytes_[trailer + 7], table);
  }

 private:
  bool readNumber(std::size_t at, std::size_t size, std::uint64_t& out) const {
    if (at > bytes_.size() || size > bytes_.size() - at) return false;
    out = 0;
    for (std::size_t i = 0; i < size; ++i) out = (out << 8) | bytes_[at + i];
    return true;
  }

  // The element count of the object at `offset` and where its contents start.
  bool readCount(std::uint64_t offset, std::uint64_t end, std::uint64_t& length,
                 std::uint64_t& start) const {
    length = bytes_[offset] & 0x0F;
    start = offset + 1;
    if (length != 0x0F) return true;
    if (start >= end || (bytes_[start] >> 4) != 0x1 || (bytes_[start] & 0x0F) > 3) return false;
    const std::size_t size = std::size_t{1} << (bytes_[start] & 0x0F);
    if (!readNumber(start + 1, size, length)) return false;
    start += 1 + size;
    return true;
  }

  bool stringHasNoNul(std::uint64_t offset, std::uint64_t end) const {
    const int kind = bytes_[offset] >> 4;
    if (kind != 0x5 && kind != 0x6) return true;
    std::uint64_t length = 0;
    std::uint64_t start = 0;
    if (!readCount(offset, end, length, start)) return false;
    const std::uint64_t unitSize = kind == 0x6 ? 2 : 1;
    if (start > end || length > (end - start) / unitSize) return false;
    for (std::uint64_t i = 0; i < length; ++i) {
      const std::size_t at = start + i * unitSize;
      if (bytes_[at] == 0 && (unitSize == 1 || bytes_[at + 1] == 0)) return false;
    }
    return true;
  }

  // libplist reads nested containers recursively; refuse cycles and
  // nesting deeper than the library's own values ever have, which would
  // otherwise exhaust the stack.
  bool nestingIsBounded(const std::vector<std::uint64_t>& offsets, std::size_t refSize,
                        std::uint64_t end) const {
    if (refSize < 1 || refSize > 8) return false;
    enum : std::uint8_t { kUnseen, kOpen, kDone };
    std::vector<std::uint8_t> state(offsets.size(), kUnseen);
    std::vector<std::uint16_t> depth(offsets.size(), 1);
    for (std::size_t root = 0; root < offsets.size(); ++root) {
      if (state[root] != kUnseen) continue;
      // (object, next child index) pairs of an explicit depth-first walk.
      std::vector<std::pair<std::size_t, std::uint64_t>> stack{{root, 0}};
      state[root] = kOpen;
      while (!stack.empty()) {
        auto& [object, nextChild] = stack.back();
        std::uint64_t children = 0;
        std::uint64_t refs = 0;
        if (!containerRefs(offsets[object], end, refSize, children, refs)) return false;
        if (nextChild == children) {
          state[object] = kDone;
          const std::size_t finished = object;
          stack.pop_back();
          if (!stack.empty()) {
            std::size_t parent = stack.back().first;
            depth[parent] = std::max<std::uint16_t>(depth[parent], depth[finished] + 1);
            if (depth[parent] > kMaxDepth) return false;
          }
          continue;
        }
        std::uint64_t child = 0;
        if (!readNumber(static_cast<std::size_t>(refs + nextChild * refSize), refSize, child) ||
            child >= offsets.size()) {
          return false;
        }
        ++nextChild;
        if (state[child] == kOpen) return false;
        if (state[child] == kDone) {
          depth[object] = std::max<std::uint16_t>(depth[object], depth[child] + 1);
          if (depth[object] > kMaxDepth) return false;
          continue;
        }
        if (stack.size() > kMaxDepth) return false;
        state[child] = kOpen;
        stack.emplace_back(static_cast<std::size_t>(child), 0);
      }
    }
    return true;
  }

  // How many references a container holds and where they start; 0 for
  // objects that are not containers.
  bool containerRefs(std::uint64_t offset, std::uint64_t end, std::size_t refSize,
                     std::uint64_t& children, std::uint64_t& refs) const {
    const int kind = bytes_[offset] >> 4;
    children = 0;
    if (kind != 0xA && kind != 0xB && kind != 0xC && kind != 0xD) return true;
    std::uint64_t count = 0;
    if (!readCount(offset, end, count, refs)) return false;
    children = kind == 0xD ? count * 2 : count;
    return count <= end && refs <= end && children <= (end - refs) / refSize;
  }

  const Data& bytes_;
};

// XML: a raw NUL or any numeric character reference could become a NUL
// inside libplist, and the library never writes either.
bool xmlLooksSafe(const Data& bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return text.find('\0') == std::string_view::npos && text.find("&#") == std::string_view::npos;
}

bool safeForLibplist(const Data& bytes) {
  static constexpr std::string_view kBinaryMagic = "bplist";
  const bool binary = bytes.size() >= kBinaryMagic.size() &&
                      std::equal(kBinaryMagic.begin(), kBinaryMagic.end(), bytes.begin());
  return binary ? BinaryStringCheck(bytes).passes() : xmlLooksSafe(bytes);
}

}  // namespace

Data PropertyList::binaryFromEntries(const OrderedEntries& entries) {
  PlistNode root(plist_new_dict());
  for (const auto& [key, value] : entries)
    plist_dict_set_item(root.get(), storableText(key).c_str(), newNode(value));
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
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max() ||
      !safeForLibplist(bytes)) {
    return std::nullopt;
  }
  plist_t raw = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::uint32_t>(bytes.size()), &raw);
  PlistNode root(raw);
  if (!root) return std::nullopt;
  return valueOf(root.get(), 0);
}

}  // namespace velmor
