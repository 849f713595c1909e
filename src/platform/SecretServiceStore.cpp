#include "velmor/SecretServiceStore.h"

#if VELMOR_HAVE_LIBSECRET

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/DeadlineContext.h"
#include "platform/GLibHandle.h"
#include "platform/SecretServiceConnection.h"
#include "support/Format.h"
#include "velmor/Base64.h"

namespace velmor {

namespace {

constexpr char kServiceAttribute[] = "service";
constexpr char kAccountAttribute[] = "account";
constexpr char kEncodingAttribute[] = "encoding";
constexpr char kBase64Encoding[] = "base64";

const SecretSchema* itemSchema() {
  static const SecretSchema schema = [] {
    SecretSchema s{};
    s.name = "com.velmor.authorization.Item";
    s.flags = SECRET_SCHEMA_NONE;
    s.attributes[0] = {kServiceAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[1] = {kAccountAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[2] = {kEncodingAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
    return s;
  }();
  return &schema;
}

// D-Bus strings are UTF-8 without NULs; anything else would trip GVariant.
bool storable(const std::string& name) {
  return g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr);
}

HashTableHandle attributeTable(const std::string& service, const std::string& account,
                               const char* encoding) {
  HashTableHandle table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
  g_hash_table_insert(table.get(), g_strdup(kServiceAttribute), g_strdup(service.c_str()));
  g_hash_table_insert(table.get(), g_strdup(kAccountAttribute), g_strdup(account.c_str()));
  if (encoding) g_hash_table_insert(table.get(), g_strdup(kEncodingAttribute), g_strdup(encoding));
  return table;
}

// Whether the bus or the Secret Service went missing or stopped answering.
bool serviceUnreachable(const GError* error) {
  if (error->domain == G_IO_ERROR) {
    return error->code == G_IO_ERROR_CANCELLED || error->code == G_IO_ERROR_TIMED_OUT ||
           error->code == G_IO_ERROR_CLOSED || error->code == G_IO_ERROR_CONNECTION_CLOSED ||
           error->code == G_IO_ERROR_BROKEN_PIPE;
  }
  if (error->domain != G_DBUS_ERROR) return false;
  switch (error->code) {
    case G_DBUS_ERROR_SERVICE_UNKNOWN:
    case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
    case G_DBUS_ERROR_NO_REPLY:
    case G_DBUS_ERROR_NO_SERVER:
    case G_DBUS_ERROR_TIMEOUT:
    case G_DBUS_ERROR_TIMED_OUT:
    case G_DBUS_ERROR_DISCONNECTED:
      return true;
    default:  // the bus failed to start the service
      return error->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
             error->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
  }
}

std::int32_t statusFor(const ErrorHandle& error, const DeadlineContext& context) {
  if (context.expired() || serviceUnreachable(error.get())) return kSecretStoreNotAvailable;
  if (g_error_matches(error.get(), SECRET_ERROR, SECRET_ERROR_IS_LOCKED)) {
    return kSecretStoreInteractionNotAllowed;
  }
  if (g_error_matches(error.get(), SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT)) {
    return kSecretStoreItemNotFound;
  }
  return kSecretStoreIoError;
}

// The item's "encoding" attribute; nothing for items other tools made with
// raw bytes.
std::optional<std::string> itemEncoding(SecretItem* item) {
  HashTableHandle attributes(secret_item_get_attributes(item));
  if (!attributes) return std::nullopt;
  auto* encoding =
      static_cast<const char*>(g_hash_table_lookup(attributes.get(), kEncodingAttribute));
  if (!encoding) return std::nullopt;
  return std::string(encoding);
}

SecretValueHandle secretValue(const Data& data, bool base64) {
  // An empty block has no Base64 text; it is stored as empty text.
  std::string bytes = base64 ? Base64::encodeBase64WithData(data).value_or("")
                             : std::string(data.begin(), data.end());
  return SecretValueHandle(secret_value_new(bytes.c_str(), static_cast<gssize>(bytes.size()),
                                            base64 ? "text/plain" : "application/octet-stream"));
}

std::int32_t readSecret(SecretItem* item, Data* data) {
  SecretValueHandle value(secret_item_get_secret(item));
  if (!value) return kSecretStoreIoError;
  gsize length = 0;
  const gchar* bytes = secret_value_get(value.get(), &length);
  std::string_view secret(bytes ? bytes : "", bytes ? length : 0);
  std::optional<std::string> encoding = itemEncoding(item);
  std::optional<Data> decoded;
  if (!encoding) {
    decoded = Data(secret.begin(), secret.end());
  } else if (*encoding == kBase64Encoding && secret.find('\0') == std::string_view::npos) {
    // The decoder stops at a NUL, which Base64 text never holds.
    decoded = Base64::decodeBase64WithString(secret);
  }
  if (!decoded) return kSecretStoreIoError;
  if (data) *data = std::move(*decoded);
  return kSecretStoreSuccess;
}

template <typename Predicate>
SecretItem* firstItem(const ItemListHandle& items, Predicate predicate) {
  for (GList* node = items.get(); node; node = node->next) {
    auto* item = static_cast<SecretItem*>(node->data);
    if (predicate(item)) return item;
  }
  return nullptr;
}

SecretItem* firstUnlocked(const ItemListHandle& items) {
  return firstItem(items, [](SecretItem* item) { return !secret_item_get_locked(item); });
}

SecretItem* firstLocked(const ItemListHandle& items) {
  return firstItem(items, [](SecretItem* item) { return secret_item_get_locked(item); });
}

// One store call: the deadline, then the connection made under it (which
// must go first, so the order of the members matters).
class SecretServiceCall final {
 public:
  explicit SecretServiceCall(std::chrono::milliseconds deadline)
      : context_(deadline), connection_(context_) {}

  // Connects and finds the items with these names; a status when that fails.
  std::int32_t search(const std::string& service, const std::string& account, bool loadSecrets,
                      ItemListHandle* items) {
    if (!connection_.connectBus()) return kSecretStoreNotAvailable;
    ErrorHandle error;
    if (!connection_.openService(&error)) return kSecretStoreNotAvailable;
    HashTableHandle attributes = attributeTable(service, account, nullptr);
    *items = connection_.search(attributes.get(), loadSecrets, &error);
    return error ? status(error) : kSecretStoreSuccess;
  }

  // The items a write may change: none missing, none locked. A locked
  // duplicate would keep the old bytes, so change none rather than some.
  std::int32_t searchWritable(const std::string& service, const std::string& account,
                              ItemListHandle* items) {
    std::int32_t found = search(service, account, /*loadSecrets=*/false, items);
    if (found != kSecretStoreSuccess) return found;
    if (!*items) return kSecretStoreItemNotFound;
    if (firstLocked(*items)) return kSecretStoreInteractionNotAllowed;
    return kSecretStoreSuccess;
  }

  std::int32_t status(const ErrorHandle& error) const { return statusFor(error, context_); }
  SecretServiceConnection& connection() { return connection_; }

 private:
  DeadlineContext context_;
  SecretServiceConnection connection_;
};

}  // namespace

class SecretServiceStore::Impl final {
 public:
  explicit Impl(std::chrono::milliseconds deadline) : deadline_(deadline) {}

  std::chrono::milliseconds deadline() const { return deadline_; }

 private:
  const std::chrono::milliseconds deadline_;
};

SecretServiceStore::SecretServiceStore(std::chrono::milliseconds deadline)
    : impl_(std::make_unique<Impl>(deadline)) {}

SecretServiceStore::~SecretServiceStore() = default;

bool SecretServiceStore::isAvailable(std::chrono::milliseconds deadline) {
  DeadlineContext context(deadline);
  SecretServiceConnection connection(context);
  return connection.connectBus() && connection.serviceNameKnown();
}

std::int32_t SecretServiceStore::find(const std::string& service, const std::string& account,
                                      Data* data) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  SecretServiceCall call(impl_->deadline());
  ItemListHandle items;
  std::int32_t status = call.search(service, account, /*loadSecrets=*/true, &items);
  if (status != kSecretStoreSuccess) return status;
  if (!items) return kSecretStoreItemNotFound;
  SecretItem* item = firstUnlocked(items);
  return item ? readSecret(item, data) : kSecretStoreInteractionNotAllowed;
}

std::int32_t SecretServiceStore::add(const std::string& service, const std::string& account,
                                     const Data& data) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  SecretServiceCall call(impl_->deadline());
  ItemListHandle items;
  std::int32_t status = call.search(service, account, /*loadSecrets=*/false, &items);
  if (status != kSecretStoreSuccess) return status;
  if (items) return kSecretStoreDuplicateItem;

  // Creating an item in a locked collection (or the collection itself)
  // would prompt for the password.
  ErrorHandle error;
  auto collection = call.connection().defaultCollection(&error);
  if (error) return call.status(error);
  if (!collection || secret_collection_get_locked(collection.get())) {
    return kSecretStoreInteractionNotAllowed;
  }
  HashTableHandle attributes = attributeTable(service, account, kBase64Encoding);
  SecretValueHandle value = secretValue(data, /*base64=*/true);
  std::string label = stringWithFormat("%@ (%@)", service, account);
  if (!call.connection().createItem(collection.get(), itemSchema(), attributes.get(), label,
                                    value.get(), &error)) {
    return call.status(error);
  }
  return kSecretStoreSuccess;
}

std::int32_t SecretServiceStore::update(const std::string& service, const std::string& account,
                                        const Data& data) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  SecretServiceCall call(impl_->deadline());
  ItemListHandle items;
  std::int32_t status = call.searchWritable(service, account, &items);
  if (status != kSecretStoreSuccess) return status;

  for (GList* node = items.get(); node; node = node->next) {
    auto* item = static_cast<SecretItem*>(node->data);
    SecretValueHandle value = secretValue(data, itemEncoding(item).has_value());
    ErrorHandle error;
    if (!call.connection().setSecret(item, value.get(), &error)) return call.status(error);
  }
  return kSecretStoreSuccess;
}

std::int32_t SecretServiceStore::remove(const std::string& service, const std::string& account) {
  if (!storable(service) || !storable(account)) return kSecretStoreParameterError;
  SecretServiceCall call(impl_->deadline());
  ItemListHandle items;
  std::int32_t status = call.searchWritable(service, account, &items);
  if (status != kSecretStoreSuccess) return status;

  for (GList* node = items.get(); node; node = node->next) {
    bool prompted = false;
    ErrorHandle error;
    if (!call.connection().deleteItem(static_cast<SecretItem*>(node->data), &prompted, &error)) {
      // Gone meanwhile is what we wanted; any other failure leaves the item.
      if (g_error_matches(error.get(), SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT)) continue;
      return call.status(error);
    }
    if (prompted) return kSecretStoreInteractionNotAllowed;
  }
  return kSecretStoreSuccess;
}

}  // namespace velmor

#else  // !VELMOR_HAVE_LIBSECRET

namespace velmor {

// Built without libsecret: there is no Secret Service to reach.
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

}  // namespace velmor

#endif  // VELMOR_HAVE_LIBSECRET
