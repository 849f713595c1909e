// One item of the file secret store as it lies on disk.
#ifndef VELMOR_PLATFORM_STORED_SECRET_ITEM_H_
#define VELMOR_PLATFORM_STORED_SECRET_ITEM_H_

#include <optional>
#include <string>

#include "velmor/Data.h"

namespace velmor {

// The names and bytes of one item, with the rules that map it to its file:
// the name is the lowercase hex SHA-256 of service, NUL, account (the NUL
// keeps ("ab", "c") and ("a", "bc") apart), and the contents are a binary
// property list {"Service": text, "Account": text, "Data": bytes}. The names
// are stored so that a reader can tell the item from a foreign file that
// happens to sit under its name. Stateless functions, thread-safe.
struct StoredSecretItem {
  std::string service;
  std::string account;
  Data data;

  // 64 lowercase hex digits; empty only if the digest itself fails.
  static std::string fileNameFor(const std::string& service, const std::string& account);
  // Whether a name survives the property list unchanged: valid UTF-8 with
  // no NUL (property-list texts end at a NUL, and invalid bytes come back
  // altered, so such an item could never be found again).
  static bool isStorableName(const std::string& name);
  static Data encode(const std::string& service, const std::string& account, const Data& data);
  // Nothing unless `bytes` are a property list whose root dictionary holds
  // the three entries with the right kinds; other entries are ignored.
  static std::optional<StoredSecretItem> decode(const Data& bytes);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_STORED_SECRET_ITEM_H_
