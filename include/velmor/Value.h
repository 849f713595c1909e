// A property-list value: what parsed JSON, error user information and
// archived records are made of.
#ifndef VELMOR_VALUE_H_
#define VELMOR_VALUE_H_

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "velmor/Data.h"
#include "velmor/Export.h"

namespace velmor {

class Value;

using Array = std::vector<Value>;

// A map from text keys to values, kept sorted by key (byte order) in one
// contiguous block: lookups are binary searches and iteration is in key
// order, which is also the order a description prints.
class VELMOR_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary() = default;
  Dictionary(std::initializer_list<Entry> entries);

  // Builds a dictionary from entries in any order; for a key given more
  // than once the last entry wins, as when setting keys one by one.
  static Dictionary fromEntries(std::vector<Entry> entries);
  // The same for the entries in [first, last), which are moved out and left
  // valid but unspecified.
  static Dictionary fromEntries(Entry* first, Entry* last);

  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);
  bool contains(std::string_view key) const;
  // The text under `key`, or nullptr when the key is missing or not a text.
  const std::string* findString(std::string_view key) const;

  // Inserts or replaces.
  void set(std::string key, Value value);
  // Returns whether the key was present.
  bool erase(std::string_view key);

  std::size_t size() const;
  bool empty() const;
  const_iterator begin() const;
  const_iterator end() const;

  friend VELMOR_EXPORT bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  std::vector<Entry>::iterator lowerBound(std::string_view key);
  std::vector<Entry>::const_iterator lowerBound(std::string_view key) const;

  std::vector<Entry> entries_;
};

// One of: null, boolean, signed or unsigned 64-bit integer, double, UTF-8
// text, bytes, array or dictionary. Integers keep their signedness so that
// values above INT64_MAX survive a round trip.
class VELMOR_EXPORT Value {
 public:
  enum class Kind { kNull, kBool, kInt, kUInt, kDouble, kString, kData, kArray, kDictionary };

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool b) : storage_(b) {}
  template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                             !std::is_same_v<T, char>,
                                         int> = 0>
  Value(T n) {
    if constexpr (std::is_signed_v<T>) {
      storage_ = static_cast<std::int64_t>(n);
    } else {
      storage_ = static_cast<std::uint64_t>(n);
    }
  }
  Value(double d) : storage_(d) {}
  Value(std::string s) : storage_(std::move(s)) {}
  Value(std::string_view s) : storage_(std::string(s)) {}
  Value(const char* s) : storage_(std::string(s)) {}
  Value(Data d) : storage_(std::move(d)) {}
  Value(Array a) : storage_(std::move(a)) {}
  Value(Dictionary d) : storage_(std::move(d)) {}

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNull() const { return kind() == Kind::kNull; }
  bool isNumber() const;

  // Typed access; nullptr when the value is of another kind.
  const bool* boolValue() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* intValue() const { return std::get_if<std::int64_t>(&storage_); }
  const std::uint64_t* uintValue() const { return std::get_if<std::uint64_t>(&storage_); }
  const double* doubleValue() const { return std::get_if<double>(&storage_); }
  const std::string* stringValue() const { return std::get_if<std::string>(&storage_); }
  const Data* dataValue() const { return std::get_if<Data>(&storage_); }
  const Array* arrayValue() const { return std::get_if<Array>(&storage_); }
  Array* arrayValue() { return std::get_if<Array>(&storage_); }
  const Dictionary* dictionaryValue() const { return std::get_if<Dictionary>(&storage_); }
  Dictionary* dictionaryValue() { return std::get_if<Dictionary>(&storage_); }

  // The property-list style text that "%@" shows for this value:
  // dictionaries as "{\n    key = value;\n}", arrays as "(\n    a,\n    b\n)",
  // bytes as "<01020304 05>", null as "<null>", booleans as 1 or 0; texts are
  // quoted unless they are plain alphanumerics.
  std::string description() const;

  friend bool operator==(const Value& a, const Value& b) { return a.storage_ == b.storage_; }

 private:
  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Data, Array,
               Dictionary>
      storage_;
};

// Defined here because they need Value to be complete.
inline bool Dictionary::contains(std::string_view key) const { return find(key) != nullptr; }
inline std::size_t Dictionary::size() const { return entries_.size(); }
inline bool Dictionary::empty() const { return entries_.empty(); }
inline Dictionary::const_iterator Dictionary::begin() const { return entries_.begin(); }
inline Dictionary::const_iterator Dictionary::end() const { return entries_.end(); }

}  // namespace velmor

#endif  // VELMOR_VALUE_H_
