#include "platform/StoredSecretItem.h"

#include <openssl/evp.h>
#include <plist/plist.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include "platform/PropertyList.h"
#include "support/Text.h"

namespace velmor {

namespace {

constexpr char kServiceKey[] = "Service";
constexpr char kAccountKey[] = "Account";
constexpr char kDataKey[] = "Data";

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistNode = std::unique_ptr<void, PlistDeleter>;

// Read by length, not as C strings: libplist aborts the process when asked
// for a C string that holds a NUL, which a damaged file may contain.
std::optional<std::string> textOf(plist_t node) {
  if (!node || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (!text) return std::string();
  return std::string(text, length);
}

std::optional<Data> bytesOf(plist_t node) {
  if (!node || plist_get_node_type(node) != PLIST_DATA) return std::nullopt;
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  if (!bytes) return Data();
  return Data(bytes, bytes + length);
}

}  // namespace

std::string StoredSecretItem::fileNameFor(const std::string& service, const std::string& account) {
  std::string input = service;
  input.push_back('\0');
  input += account;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(input.data(), input.size(), digest, &length, EVP_sha256(), nullptr) != 1)
    return {};
  static constexpr char kHex[] = "0123456789abcdef";
  std::string name;
  name.reserve(2 * length);
  for (unsigned int i = 0; i < length; ++i) {
    name.push_back(kHex[digest[i] >> 4]);
    name.push_back(kHex[digest[i] & 0x0F]);
  }
  return name;
}

bool StoredSecretItem::isStorableName(const std::string& name) {
  // Malformed sequences turn into U+FFFD on the way through UTF-16, so only
  // valid UTF-8 comes back byte for byte.
  return name.find('\0') == std::string::npos && text::toUtf8(text::toUtf16(name)) == name;
}

Data StoredSecretItem::encode(const std::string& service, const std::string& account,
                              const Data& data) {
  return PropertyList::binaryFromEntries(
      {{kServiceKey, Value(service)}, {kAccountKey, Value(account)}, {kDataKey, Value(data)}});
}

std::optional<StoredSecretItem> StoredSecretItem::decode(const Data& bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  plist_t raw = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::uint32_t>(bytes.size()), &raw);
  PlistNode root(raw);
  // Looked up by key rather than by walking the dictionary, because libplist
  // aborts when asked for a key that holds a NUL.
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  std::optional<std::string> service = textOf(plist_dict_get_item(root.get(), kServiceKey));
  std::optional<std::string> account = textOf(plist_dict_get_item(root.get(), kAccountKey));
  std::optional<Data> data = bytesOf(plist_dict_get_item(root.get(), kDataKey));
  if (!service || !account || !data) return std::nullopt;
  return StoredSecretItem{std::move(*service), std::move(*account), std::move(*data)};
}

}  // namespace velmor
