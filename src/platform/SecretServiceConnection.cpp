#include "platform/SecretServiceConnection.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace velmor {

namespace {

constexpr char kServiceName[] = "org.freedesktop.secrets";
constexpr char kNoPrompt[] = "/";

}  // namespace

bool SecretServiceConnection::connectBus() {
  // Checked here rather than left to GIO, which would autolaunch a bus (and
  // an X11 helper) when the variable is missing.
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!address || !*address || std::string_view(address).starts_with("autolaunch:")) return false;
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_bus_get(G_BUS_TYPE_SESSION, context_.cancellable(), callback, userData);
  });
  bus_.reset(g_bus_get_finish(result.get(), nullptr));
  return static_cast<bool>(bus_);
}

bool SecretServiceConnection::serviceNameKnown() {
  auto owned = callBus("NameHasOwner", g_variant_new("(s)", kServiceName), "(b)");
  if (!owned) return false;
  gboolean hasOwner = FALSE;
  g_variant_get(owned.get(), "(b)", &hasOwner);
  if (hasOwner) return true;

  auto activatable = callBus("ListActivatableNames", nullptr, "(as)");
  if (!activatable) return false;
  VariantHandle names(g_variant_get_child_value(activatable.get(), 0));
  for (gsize i = 0, count = g_variant_n_children(names.get()); i < count; ++i) {
    const char* name = nullptr;
    g_variant_get_child(names.get(), i, "&s", &name);
    if (std::strcmp(name, kServiceName) == 0) return true;
  }
  return false;
}

bool SecretServiceConnection::openService(ErrorHandle* error) {
  // A service object of our own (secret_service_get would share one across
  // the process), on the session-bus connection connectBus() checked.
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    secret_service_open(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE, context_.cancellable(),
                        callback, userData);
  });
  service_.reset(secret_service_open_finish(result.get(), error->out()));
  return static_cast<bool>(service_);
}

ItemListHandle SecretServiceConnection::search(GHashTable* attributes, bool loadSecrets,
                                               ErrorHandle* error) {
  // SECRET_SEARCH_ALL includes locked items and, unlike
  // SECRET_SEARCH_UNLOCK, never asks the user for anything.
  auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL |
                                              (loadSecrets ? SECRET_SEARCH_LOAD_SECRETS : 0));
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    secret_service_search(service_.get(), nullptr, attributes, flags, context_.cancellable(),
                          callback, userData);
  });
  return ItemListHandle(secret_service_search_finish(service_.get(), result.get(), error->out()));
}

ObjectHandle<SecretCollection> SecretServiceConnection::defaultCollection(ErrorHandle* error) {
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    secret_collection_for_alias(service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
                                context_.cancellable(), callback, userData);
  });
  return ObjectHandle<SecretCollection>(
      secret_collection_for_alias_finish(result.get(), error->out()));
}

bool SecretServiceConnection::createItem(SecretCollection* collection, const SecretSchema* schema,
                                         GHashTable* attributes, const std::string& label,
                                         SecretValue* value, ErrorHandle* error) {
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    secret_item_create(collection, schema, attributes, label.c_str(), value,
                       SECRET_ITEM_CREATE_NONE, context_.cancellable(), callback, userData);
  });
  ObjectHandle<SecretItem> item(secret_item_create_finish(result.get(), error->out()));
  return static_cast<bool>(item);
}

bool SecretServiceConnection::setSecret(SecretItem* item, SecretValue* value, ErrorHandle* error) {
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    secret_item_set_secret(item, value, context_.cancellable(), callback, userData);
  });
  return secret_item_set_secret_finish(item, result.get(), error->out());
}

bool SecretServiceConnection::deleteItem(SecretItem* item, bool* prompted, ErrorHandle* error) {
  // The item's Delete method directly: libsecret's delete would go on to
  // show any prompt the service asks for.
  GDBusProxy* proxy = G_DBUS_PROXY(item);
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_proxy_call(proxy, "Delete", nullptr, G_DBUS_CALL_FLAGS_NONE, -1, context_.cancellable(),
                      callback, userData);
  });
  VariantHandle reply(g_dbus_proxy_call_finish(proxy, result.get(), error->out()));
  if (!reply) return false;
  const char* prompt = nullptr;
  g_variant_get(reply.get(), "(&o)", &prompt);
  *prompted = std::strcmp(prompt, kNoPrompt) != 0;
  return true;
}

VariantHandle SecretServiceConnection::callBus(const char* method, GVariant* parameters,
                                               const char* replyType) {
  auto result = context_.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_connection_call(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", method, parameters, G_VARIANT_TYPE(replyType),
                           G_DBUS_CALL_FLAGS_NONE, -1, context_.cancellable(), callback, userData);
  });
  return VariantHandle(g_dbus_connection_call_finish(bus_.get(), result.get(), nullptr));
}

}  // namespace velmor
