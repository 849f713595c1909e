#include "platform/StoredSecretItem.h"

#include <openssl/evp.h>

#include "platform/PropertyList.h"
#include "support/Text.h"

namespace velmor {

namespace {

constexpr char kServiceKey[] = "Service";
constexpr char kAccountKey[] = "Account";
constexpr char kDataKey[] = "Data";

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
  std::optional<Value> root = PropertyList::parse(bytes);
  const Dictionary* entries = root ? root->dictionaryValue() : nullptr;
  if (!entries) return std::nullopt;
  const std::string* service = entries->findString(kServiceKey);
  const std::string* account = entries->findString(kAccountKey);
  const Value* data = entries->find(kDataKey);
  if (!service || !account || !data || !data->dataValue()) return std::nullopt;
  return StoredSecretItem{*service, *account, *data->dataValue()};
}

}  // namespace velmor
