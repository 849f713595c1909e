#include "velmor/Value.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace velmor {

namespace {

bool lessByKey(const Dictionary::Entry& entry, std::string_view key) { return entry.first < key; }

// What sorting a dictionary's entries works on: the position of an entry
// and its key's first eight bytes as a big-endian number (zero-padded), so
// that most comparisons are one integer comparison.
struct SortKey {
  std::uint64_t prefix;
  std::uint32_t position;
};

std::uint64_t keyPrefix(const std::string& key) {
  std::uint64_t prefix = 0;
  if (key.size() >= 8) {
    std::memcpy(&prefix, key.data(), 8);
    if constexpr (std::endian::native == std::endian::little) prefix = __builtin_bswap64(prefix);
    return prefix;
  }
  for (std::size_t i = 0; i < key.size(); ++i) {
    prefix |= std::uint64_t{static_cast<unsigned char>(key[i])} << (56 - 8 * i);
  }
  return prefix;
}

// Byte order, as std::string compares; positions break no ties, so sorting
// with it keeps equal keys in the order given.
bool keyLess(const Dictionary::Entry* entries, const SortKey& a, const SortKey& b) {
  if (a.prefix != b.prefix) return a.prefix < b.prefix;
  return entries[a.position].first < entries[b.position].first;
}

bool sameKey(const Dictionary::Entry* entries, const SortKey& a, const SortKey& b) {
  return a.prefix == b.prefix && entries[a.position].first == entries[b.position].first;
}

// Sorts the keys of the entries stably. Keys are sorted rather than
// entries because moving an entry costs far more.
void sortKeys(const Dictionary::Entry* entries, SortKey* keys, std::size_t count) {
  auto less = [entries](const SortKey& a, const SortKey& b) { return keyLess(entries, a, b); };
  // Insertion sort is the quickest for the small objects that are the rule.
  constexpr std::size_t kInsertionSortLimit = 24;
  if (count > kInsertionSortLimit) {
    std::stable_sort(keys, keys + count, less);
    return;
  }
  for (std::size_t i = 1; i < count; ++i) {
    SortKey moving = keys[i];
    std::size_t j = i;
    for (; j > 0 && less(moving, keys[j - 1]); --j) keys[j] = keys[j - 1];
    keys[j] = moving;
  }
}

// Plain alphanumeric texts print bare; everything else is quoted with the
// quote, backslash and line breaks escaped, as property-list text does.
void appendText(std::string& out, const std::string& text) {
  bool bare = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
  if (bare) {
    out += text;
    return;
  }
  out += '"';
  for (char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  out += '"';
}

void appendData(std::string& out, const Data& data) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '<';
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0 && i % 4 == 0) out += ' ';
    out += kHex[data[i] >> 4];
    out += kHex[data[i] & 0xF];
  }
  out += '>';
}

void appendDouble(std::string& out, double d) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.17g", d);
  // Prefer the shortest text that reads back as the same number.
  for (int precision = 1; precision < 17; ++precision) {
    char shorter[32];
    std::snprintf(shorter, sizeof shorter, "%.*g", precision, d);
    if (std::strtod(shorter, nullptr) == d) {
      out += shorter;
      return;
    }
  }
  out += buffer;
}

void appendIndent(std::string& out, int level) {
  out.append(static_cast<std::size_t>(level) * 4, ' ');
}

void appendValue(std::string& out, const Value& value, int level);

void appendDictionary(std::string& out, const Dictionary& dictionary, int level) {
  out += "{\n";
  for (const auto& [key, value] : dictionary) {
    appendIndent(out, level + 1);
    appendText(out, key);
    out += " = ";
    // Nested containers start on the same line, indented once more, as the
    // platform's collection descriptions do.
    if (value.arrayValue() || value.dictionaryValue()) appendIndent(out, level + 1);
    appendValue(out, value, level + 1);
    out += ";\n";
  }
  appendIndent(out, level);
  out += '}';
}

void appendArray(std::string& out, const Array& array, int level) {
  out += "(\n";
  for (std::size_t i = 0; i < array.size(); ++i) {
    appendIndent(out, level + 1);
    appendValue(out, array[i], level + 1);
    if (i + 1 < array.size()) out += ',';
    out += '\n';
  }
  appendIndent(out, level);
  out += ')';
}

void appendValue(std::string& out, const Value& value, int level) {
  switch (value.kind()) {
    case Value::Kind::kNull:
      out += "<null>";
      break;
    case Value::Kind::kBool:
      out += *value.boolValue() ? '1' : '0';
      break;
    case Value::Kind::kInt:
      out += std::to_string(*value.intValue());
      break;
    case Value::Kind::kUInt:
      out += std::to_string(*value.uintValue());
      break;
    case Value::Kind::kDouble:
      appendDouble(out, *value.doubleValue());
      break;
    case Value::Kind::kString:
      // A text on its own prints as it is; only inside a collection is it quoted.
      if (level == 0) {
        out += *value.stringValue();
      } else {
        appendText(out, *value.stringValue());
      }
      break;
    case Value::Kind::kData:
      appendData(out, *value.dataValue());
      break;
    case Value::Kind::kArray:
      appendArray(out, *value.arrayValue(), level);
      break;
    case Value::Kind::kDictionary:
      appendDictionary(out, *value.dictionaryValue(), level);
      break;
  }
}

}  // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries)
    : Dictionary(fromEntries(std::vector<Entry>(entries))) {}

Dictionary Dictionary::fromEntries(std::vector<Entry> entries) {
  for (std::size_t i = 1; i < entries.size(); ++i) {
    if (!(entries[i - 1].first < entries[i].first)) {
      return fromEntries(entries.data(), entries.data() + entries.size());
    }
  }
  Dictionary dictionary;
  dictionary.entries_ = std::move(entries);
  return dictionary;
}

Dictionary Dictionary::fromEntries(Entry* first, Entry* last) {
  const auto count = static_cast<std::size_t>(last - first);
  constexpr std::size_t kSmall = 32;
  SortKey smallKeys[kSmall];
  std::vector<SortKey> largeKeys(count > kSmall ? count : 0);
  SortKey* keys = count > kSmall ? largeKeys.data() : smallKeys;
  bool ordered = true;
  for (std::size_t i = 0; i < count; ++i) {
    keys[i] = SortKey{keyPrefix(first[i].first), static_cast<std::uint32_t>(i)};
    if (i > 0 && ordered) ordered = keyLess(first, keys[i - 1], keys[i]);
  }
  if (!ordered) sortKeys(first, keys, count);

  Dictionary dictionary;
  dictionary.entries_.reserve(count);
  for (std::size_t k = 0; k < count; ++k) {
    // Equal keys sit together in the order given; the last of each run
    // wins, as when setting keys one by one.
    if (!ordered && k + 1 < count && sameKey(first, keys[k], keys[k + 1])) continue;
    dictionary.entries_.push_back(std::move(first[keys[k].position]));
  }
  return dictionary;
}

std::vector<Dictionary::Entry>::iterator Dictionary::lowerBound(std::string_view key) {
  return std::lower_bound(entries_.begin(), entries_.end(), key, lessByKey);
}

std::vector<Dictionary::Entry>::const_iterator Dictionary::lowerBound(std::string_view key) const {
  return std::lower_bound(entries_.begin(), entries_.end(), key, lessByKey);
}

const Value* Dictionary::find(std::string_view key) const {
  auto it = lowerBound(key);
  return it != entries_.end() && it->first == key ? &it->second : nullptr;
}

Value* Dictionary::find(std::string_view key) {
  auto it = lowerBound(key);
  return it != entries_.end() && it->first == key ? &it->second : nullptr;
}

const std::string* Dictionary::findString(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->stringValue() : nullptr;
}

void Dictionary::set(std::string key, Value value) {
  auto it = lowerBound(key);
  if (it != entries_.end() && it->first == key) {
    it->second = std::move(value);
  } else {
    entries_.emplace(it, std::move(key), std::move(value));
  }
}

bool Dictionary::erase(std::string_view key) {
  auto it = lowerBound(key);
  if (it == entries_.end() || it->first != key) return false;
  entries_.erase(it);
  return true;
}

bool operator==(const Dictionary& a, const Dictionary& b) { return a.entries_ == b.entries_; }

bool Value::isNumber() const {
  Kind k = kind();
  return k == Kind::kBool || k == Kind::kInt || k == Kind::kUInt || k == Kind::kDouble;
}

std::string Value::description() const {
  std::string out;
  appendValue(out, *this, 0);
  return out;
}

}  // namespace velmor
