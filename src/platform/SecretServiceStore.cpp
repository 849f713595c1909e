#include "velmor/SecretServiceStore.h"

#if VELMOR_HAVE_SECRET_SERVICE

#include <openssl/crypto.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/DeadlineContext.h"
#include "platform/GLibHandle.h"
#include "platform/Mutex.h"
#include "platform/SecretServiceConnection.h"
#include "support/Format.h"
#include "velmor/Base64.h"

namespace velmor {

namespace {

using Attributes = SecretServiceConnection::Attributes;

constexpr char kServiceAttribute[] = "service";
constexpr char kAccountAttribute[] = "account";
constexpr char kEncodingAttribute[] = "encoding";
constexpr char kSchemaAttribute[] = "xdg:schema";
constexpr char kSchemaName[] = "com.velmor.authorization.Item";
constexpr char kBase64Encoding[] = "base64";
constexpr char kTextType[] = "text/plain";
constexpr char kBytesType[] = "application/octet-stream";

// How an item's bytes are kept in its secret.
enum class Encoding { kRaw, kBase64, kUnknown };

// D-Bus strings are UTF-8 without NULs; anything else would trip GVariant.
bool storable(const std::string& name) {
  return g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr);
}

Encoding encodingOf(const Attributes& attributes) {
  auto encoding = attributes.find(kEncodingAttribute);
  if (encoding == attributes.end()) return Encoding::kRaw;  // made by another tool
  return encoding->second == kBase64Encoding ? Encoding::kBase64 : Encoding::kUnknown;
}

// The item's bytes from its secret, which is wiped; nothing when they do
// not decode.
std::optional<Data> bytesFrom(Encoding encoding, Data secret) {
  std::optional<Data> bytes;
  if (encoding == Encoding::kRaw) return secret;
  const std::string_view text(reinterpret_cast<const char*>(secret.data()), secret.size());
  // The decoder stops at a NUL, which Base64 text never holds.
  if (encoding == Encoding::kBase64 && text.find('\0') == std::string_view::npos) {
    bytes = Base64::decodeBase64WithString(text);
  }
  OPENSSL_cleanse(secret.data(), secret.size());
  return bytes;
}

// The secret that keeps `data` in an item of `encoding` (raw or Base64).
Data secretFor(Encoding encoding, const Data& data) {
  if (encoding == Encoding::kRaw) return data;
  // An empty block has no Base64 text; it is stored as empty text.
  std::string text = Base64::encodeBase64WithData(data).value_or("");
  Data secret(text.begin(), text.end());
  OPENSSL_cleanse(text.data(), text.size());
  return secret;
}

const char* contentTypeFor(Encoding encoding) {
  return encoding == Encoding::kRaw ? kBytesType : kTextType;
}

// One unlocked item with the names, as read.
struct FoundItem {
  std::string path;
  Encoding encoding;
  std::optional<Data> bytes;  // nothing when it does not decode (or went away)
};

struct Lookup {
  std::vector<FoundItem> unlocked;
  bool anyLocked = false;

  const FoundItem* firstReadable() const {
    for (const FoundItem& item : unlocked) {
      if (item.bytes) return &item;
    }
    return nullptr;
  }
};

// Every item with the names, the unlocked ones read. Answers
// kSecretStoreItemNotFound when there is none, kSecretStoreInteractionNotAllowed
// when every one is locked.
std::int32_t lookUp(SecretServiceConnection& connection, DeadlineContext& call,
                    const std::string& service, const std::string& account, Lookup* lookup) {
  SecretServiceConnection::Search found;
  std::int32_t status = connection.searchItems(
      call, {{kServiceAttribute, service}, {kAccountAttribute, account}}, &found);
  if (status != kSecretStoreSuccess) return status;
  lookup->anyLocked = !found.locked.empty();
  if (found.unlocked.empty()) {
    return found.locked.empty() ? kSecretStoreItemNotFound : kSecretStoreInteractionNotAllowed;
  }
  std::vector<SecretServiceConnection::Contents> contents;
  status = connection.readItems(call, found.unlocked, &contents);
  if (status != kSecretStoreSuccess) return status;
  for (std::size_t i = 0; i < found.unlocked.size(); ++i) {
    const Encoding encoding = encodingOf(contents[i].attributes);
    std::optional<Data> bytes;
    if (contents[i].secret) bytes = bytesFrom(encoding, std::move(*contents[i].secret));
    lookup->unlocked.push_back({found.unlocked[i], encoding, std::move(bytes)});
  }
  return kSecretStoreSuccess;
}

void wipe(Lookup& lookup) {
  for (FoundItem& item : lookup.unlocked) {
    if (item.bytes) OPENSSL_cleanse(item.bytes->data(), item.bytes->size());
  }
}

// What findItem found: the unlocked items with the names, on one connection.
class SecretServiceItem final : public SecretStoreItem {
 public:
  struct Entry {
    std::string path;
    Encoding encoding;
    bool readable;
  };

  SecretServiceItem(std::string service, std::string account, std::uint64_t generation,
                    std::vector<Entry> entries)
      : SecretStoreItem(std::move(service), std::move(account)),
        generation_(generation),
        entries_(std::move(entries)) {}

  std::uint64_t generation() const { return generation_; }
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::uint64_t generation_;
  std::vector<Entry> entries_;
};

// The handle's items if they belong to the connection now open, else
// nothing (the caller then acts by name).
const SecretServiceItem* heldOn(const SecretServiceConnection& connection,
                                const SecretStoreItem& item) {
  const auto* held = dynamic_cast<const SecretServiceItem*>(&item);
  return held && held->generation() == connection.generation() ? held : nullptr;
}

std::int32_t findIn(SecretServiceConnection& connection, DeadlineContext& call,
                    const std::string& service, const std::string& account, Data* data,
                    std::unique_ptr<SecretStoreItem>* item) {
  Lookup lookup;
  std::int32_t status = lookUp(connection, call, service, account, &lookup);
  if (status != kSecretStoreSuccess) return status;
  const FoundItem* readable = lookup.firstReadable();
  if (readable && data) *data = *readable->bytes;
  if (readable && item) {
    std::vector<SecretServiceItem::Entry> entries;
    for (const FoundItem& found : lookup.unlocked) {
      entries.push_back({found.path, found.encoding, found.bytes.has_value()});
    }
    *item = std::make_unique<SecretServiceItem>(service, account, connection.generation(),
                                                std::move(entries));
  }
  wipe(lookup);
  return readable ? kSecretStoreSuccess : kSecretStoreIoError;
}

std::int32_t createIn(SecretServiceConnection& connection, DeadlineContext& call,
                      const std::string& service, const std::string& account, const Data& data) {
  const Attributes attributes = {{kServiceAttribute, service},
                                 {kAccountAttribute, account},
                                 {kEncodingAttribute, kBase64Encoding},
                                 {kSchemaAttribute, kSchemaName}};
  Data secret = secretFor(Encoding::kBase64, data);
  std::int32_t status = connection.createItem(call, stringWithFormat("%@ (%@)", service, account),
                                              attributes, secret, kTextType);
  OPENSSL_cleanse(secret.data(), secret.size());
  // No default collection to create it in: as unusable as a locked one.
  return status == kSecretStoreItemNotFound ? kSecretStoreInteractionNotAllowed : status;
}

std::int32_t addIn(SecretServiceConnection& connection, DeadlineContext& call,
                   const std::string& service, const std::string& account, const Data& data) {
  Lookup lookup;
  std::int32_t status = lookUp(connection, call, service, account, &lookup);
  wipe(lookup);
  if (status == kSecretStoreItemNotFound) return createIn(connection, call, service, account, data);
  if (status != kSecretStoreSuccess) return status;
  if (lookup.firstReadable()) return kSecretStoreDuplicateItem;
  // What a locked item holds cannot be told, so it cannot be replaced.
  if (lookup.anyLocked) return kSecretStoreInteractionNotAllowed;
  // Only items that do not decode: they would block the names for good.
  for (const FoundItem& damaged : lookup.unlocked) {
    status = connection.deleteItem(call, damaged.path);
    if (status != kSecretStoreSuccess && status != kSecretStoreItemNotFound) return status;
  }
  return createIn(connection, call, service, account, data);
}

// Writes `data` into each of `items` (each with a path and an encoding),
// counting in `*written` those still there; any other failure stops it.
template <typename Items>
std::int32_t writeEach(SecretServiceConnection& connection, DeadlineContext& call,
                       const Items& items, const Data& data, std::size_t* written) {
  *written = 0;
  for (const auto& item : items) {
    Data secret = secretFor(item.encoding, data);
    std::int32_t status =
        connection.setSecret(call, item.path, secret, contentTypeFor(item.encoding));
    OPENSSL_cleanse(secret.data(), secret.size());
    if (status == kSecretStoreItemNotFound) continue;  // removed meanwhile
    if (status != kSecretStoreSuccess) return status;
    ++*written;
  }
  return kSecretStoreSuccess;
}

std::int32_t updateIn(SecretServiceConnection& connection, DeadlineContext& call,
                      const std::string& service, const std::string& account, const Data& data) {
  Lookup lookup;
  std::int32_t status = lookUp(connection, call, service, account, &lookup);
  wipe(lookup);
  if (status != kSecretStoreSuccess) return status;
  // A locked duplicate would keep the old bytes: change none rather than some.
  if (lookup.anyLocked) return kSecretStoreInteractionNotAllowed;
  std::vector<FoundItem> readable;
  for (FoundItem& item : lookup.unlocked) {
    if (item.bytes) readable.push_back({item.path, item.encoding, std::nullopt});
  }
  if (readable.empty()) return kSecretStoreIoError;
  std::size_t written = 0;
  status = writeEach(connection, call, readable, data, &written);
  if (status != kSecretStoreSuccess) return status;
  return written > 0 ? kSecretStoreSuccess : kSecretStoreItemNotFound;
}

std::int32_t updateHeld(SecretServiceConnection& connection, DeadlineContext& call,
                        const SecretStoreItem& item, const Data& data) {
  if (const SecretServiceItem* held = heldOn(connection, item)) {
    std::vector<SecretServiceItem::Entry> readable;
    for (const SecretServiceItem::Entry& entry : held->entries()) {
      if (entry.readable) readable.push_back(entry);
    }
    std::size_t written = 0;
    std::int32_t status = writeEach(connection, call, readable, data, &written);
    if (status != kSecretStoreSuccess || written == readable.size()) return status;
    // Replaced meanwhile: the item now under the names is the one to change.
  }
  return updateIn(connection, call, item.service(), item.account(), data);
}

std::int32_t removePaths(SecretServiceConnection& connection, DeadlineContext& call,
                         const std::vector<std::string>& paths, bool* gone) {
  for (const std::string& path : paths) {
    std::int32_t status = connection.deleteItem(call, path);
    *gone |= status == kSecretStoreItemNotFound;
    if (status != kSecretStoreSuccess && status != kSecretStoreItemNotFound) return status;
  }
  return kSecretStoreSuccess;
}

std::int32_t removeIn(SecretServiceConnection& connection, DeadlineContext& call,
                      const std::string& service, const std::string& account) {
  SecretServiceConnection::Search found;
  std::int32_t status = connection.searchItems(
      call, {{kServiceAttribute, service}, {kAccountAttribute, account}}, &found);
  if (status != kSecretStoreSuccess) return status;
  if (found.unlocked.empty() && found.locked.empty()) return kSecretStoreItemNotFound;
  // An item that exists but cannot be removed is a failure, never "already gone".
  if (!found.locked.empty()) return kSecretStoreInteractionNotAllowed;
  bool gone = false;
  return removePaths(connection, call, found.unlocked, &gone);
}

std::int32_t removeHeld(SecretServiceConnection& connection, DeadlineContext& call,
                        const SecretStoreItem& item) {
  if (const SecretServiceItem* held = heldOn(connection, item)) {
    std::vector<std::string> paths;
    for (const SecretServiceItem::Entry& entry : held->entries()) paths.push_back(entry.path);
    bool gone = false;
    std::int32_t status = removePaths(connection, call, paths, &gone);
    if (status != kSecretStoreSuccess || !gone) return status;
    // Something went away meanwhile; whatever now lies under the names goes too.
  }
  return removeIn(connection, call, item.service(), item.account());
}

std::string quoted(const std::string& label) { return label.empty() ? "" : " \"" + label + "\""; }

SecretStoreCondition conditionOf(std::int32_t status,
                                 const SecretServiceConnection::Collection& collection) {
  if (status == kSecretStoreItemNotFound) {
    return {kSecretStoreInteractionNotAllowed,
            "The Secret Service has no default keyring, so nothing can be saved in it; create "
            "one (for example in the desktop's password manager, Seahorse) and try again."};
  }
  if (status != kSecretStoreSuccess) {
    return {status, stringWithFormat("The Secret Service did not say whether its default keyring "
                                     "is unlocked (status %d).",
                                     status)};
  }
  if (collection.locked) {
    return {kSecretStoreInteractionNotAllowed,
            stringWithFormat("The Secret Service's default keyring%@ is locked, so nothing can be "
                             "read from it or saved in it; unlock it (for example in the "
                             "desktop's password manager, Seahorse) and try again.",
                             quoted(collection.label))};
  }
  return {kSecretStoreSuccess, stringWithFormat("The Secret Service's default keyring%@ is "
                                                "unlocked.",
                                                quoted(collection.label))};
}

}  // namespace

// The kept connection and the main context its calls run on. Calls take the
// mutex for their whole length, so one store serves one call at a time.
class SecretServiceStore::Impl final {
 public:
  explicit Impl(std::chrono::milliseconds deadline)
      : deadline_(deadline), context_(g_main_context_new()) {}

  ~Impl() {
    MutexLock lock(mutex_);
    DeadlineContext call(context_.get(), deadline_);
    connection_.close(call);
  }

  // Runs `operation(connection, call)` on an open connection within one
  // deadline. When the daemon or the bus turns out to have gone away, it
  // connects anew and runs it once more. When no connection can be made,
  // `*problem` (if given) says why.
  template <typename Operation>
  std::int32_t run(const Operation& operation, std::string* problem = nullptr) {
    MutexLock lock(mutex_);
    DeadlineContext call(context_.get(), deadline_);
    for (int attempt = 0;; ++attempt) {
      std::int32_t status = connection_.open(call);
      if (status != kSecretStoreSuccess) {
        if (problem) *problem = connection_.problem();
        return status;
      }
      status = operation(connection_, call);
      if (!connection_.lost() || attempt > 0 || call.expired()) return status;
    }
  }

 private:
  const std::chrono::milliseconds deadline_;
  const MainContextHandle context_;
  Mutex mutex_;
  SecretServiceConnection connection_ GUARDED_BY(mutex_);
};

SecretServiceStore::SecretServiceStore(std::chrono::milliseconds deadline)
    : impl_(std::make_unique<Impl>(deadline)) {}

SecretServiceStore::~SecretServiceStore() = default;

bool SecretServiceStore::isAvailable(std::chrono::milliseconds deadline) {
  return SecretServiceConnection::probe(deadline) ==
         SecretServiceConnection::Availability::kAvailable;
}

std::int32_t SecretServiceStore::find(const std::string& service, const std::string& account,
                                      Data* data) {
  return findItem(service, account, data, nullptr);
}

std::int32_t SecretServiceStore::findItem(const std::string& service, const std::string& account,
                                          Data* data, std::unique_ptr<SecretStoreItem>* item) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return findIn(connection, call, service, account, data, item);
  });
}

std::int32_t SecretServiceStore::add(const std::string& service, const std::string& account,
                                     const Data& data) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return addIn(connection, call, service, account, data);
  });
}

std::int32_t SecretServiceStore::update(const std::string& service, const std::string& account,
                                        const Data& data) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return updateIn(connection, call, service, account, data);
  });
}

std::int32_t SecretServiceStore::updateItem(SecretStoreItem& item, const Data& data) {
  if (!storable(item.service()) || !storable(item.account())) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return updateHeld(connection, call, item, data);
  });
}

std::int32_t SecretServiceStore::remove(const std::string& service, const std::string& account) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return removeIn(connection, call, service, account);
  });
}

std::int32_t SecretServiceStore::removeItem(SecretStoreItem& item) {
  if (!storable(item.service()) || !storable(item.account())) return kSecretStoreParameterError;
  return impl_->run([&](SecretServiceConnection& connection, DeadlineContext& call) {
    return removeHeld(connection, call, item);
  });
}

SecretStoreCondition SecretServiceStore::condition() {
  SecretStoreCondition condition;
  std::string problem;
  const std::int32_t status = impl_->run(
      [&](SecretServiceConnection& connection, DeadlineContext& call) {
        SecretServiceConnection::Collection collection;
        condition = conditionOf(connection.defaultCollection(call, &collection), collection);
        return condition.status;
      },
      &problem);
  if (!problem.empty()) return {status, problem};
  return condition;
}

std::string SecretServiceStore::description() const {
  return "Secret Service (default collection)";
}

}  // namespace velmor

#else  // !VELMOR_HAVE_SECRET_SERVICE

namespace velmor {

// Built without Secret Service support: there is nothing to reach.
class SecretServiceStore::Impl final {};

SecretServiceStore::SecretServiceStore(std::chrono::milliseconds) {}
SecretServiceStore::~SecretServiceStore() = default;
bool SecretServiceStore::isAvailable(std::chrono::milliseconds) { return false; }

std::int32_t SecretServiceStore::find(const std::string&, const std::string&, Data*) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::add(const std::string&, const std::string&, const Data&) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::update(const std::string&, const std::string&, const Data&) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::remove(const std::string&, const std::string&) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::findItem(const std::string&, const std::string&, Data*,
                                          std::unique_ptr<SecretStoreItem>*) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::updateItem(SecretStoreItem&, const Data&) {
  return kSecretStoreNotAvailable;
}
std::int32_t SecretServiceStore::removeItem(SecretStoreItem&) { return kSecretStoreNotAvailable; }
SecretStoreCondition SecretServiceStore::condition() {
  return {kSecretStoreNotAvailable, "This build of the library has no Secret Service support."};
}
std::string SecretServiceStore::description() const {
  return "Secret Service (default collection)";
}

}  // namespace velmor

#endif  // VELMOR_HAVE_SECRET_SERVICE
