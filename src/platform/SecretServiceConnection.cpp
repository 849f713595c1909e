#include "platform/SecretServiceConnection.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "velmor/SecretStore.h"

namespace velmor {

namespace {

constexpr char kServiceName[] = "org.freedesktop.secrets";
constexpr char kServicePath[] = "/org/freedesktop/secrets";
constexpr char kDefaultCollectionPath[] = "/org/freedesktop/secrets/aliases/default";
constexpr char kServiceInterface[] = "org.freedesktop.Secret.Service";
constexpr char kCollectionInterface[] = "org.freedesktop.Secret.Collection";
constexpr char kItemInterface[] = "org.freedesktop.Secret.Item";
constexpr char kPromptInterface[] = "org.freedesktop.Secret.Prompt";
constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr char kNoPrompt[] = "/";

constexpr char kNoBus[] =
    "No session bus is known to this process (DBUS_SESSION_BUS_ADDRESS is not set), so no Secret "
    "Service can be reached.";
constexpr char kBusSilent[] =
    "The session bus does not answer, so no Secret Service can be reached.";
constexpr char kNoService[] = "No Secret Service answers on the session bus.";
constexpr char kTooSlow[] = "The Secret Service did not answer in time.";
constexpr char kNoSessionKey[] = "No encrypted session could be agreed with the Secret Service.";

std::atomic<std::uint64_t> lastGeneration{0};

using GLibText = GLibHandle<gchar, glib_release::freeText>;

// What a failed call means for the connection and its caller.
enum class Failure { kUnreachable, kLost, kLocked, kMissing, kNotSupported, kOther };

struct RemoteError {
  const char* name;
  Failure failure;
};

constexpr RemoteError kRemoteErrors[] = {
    {"org.freedesktop.Secret.Error.IsLocked", Failure::kLocked},
    {"org.freedesktop.Secret.Error.NoSuchObject", Failure::kMissing},
    {"org.freedesktop.DBus.Error.UnknownObject", Failure::kMissing},
    // gnome-keyring's answer for an object path it does not have.
    {"org.freedesktop.DBus.Error.UnknownMethod", Failure::kMissing},
    // The service we had a session with is gone, or forgot the session.
    {"org.freedesktop.Secret.Error.NoSession", Failure::kLost},
    {"org.freedesktop.DBus.Error.ServiceUnknown", Failure::kLost},
    {"org.freedesktop.DBus.Error.NameHasNoOwner", Failure::kLost},
    {"org.freedesktop.DBus.Error.NoReply", Failure::kLost},
    {"org.freedesktop.DBus.Error.Disconnected", Failure::kLost},
    {"org.freedesktop.DBus.Error.NoServer", Failure::kUnreachable},
    {"org.freedesktop.DBus.Error.Timeout", Failure::kUnreachable},
    {"org.freedesktop.DBus.Error.TimedOut", Failure::kUnreachable},
    {"org.freedesktop.DBus.Error.NotSupported", Failure::kNotSupported},
};

Failure failureOf(const GError* error) {
  if (error->domain == G_IO_ERROR) {
    switch (error->code) {
      case G_IO_ERROR_CLOSED:
      case G_IO_ERROR_CONNECTION_CLOSED:  // also G_IO_ERROR_BROKEN_PIPE
        return Failure::kLost;
      case G_IO_ERROR_CANCELLED:
      case G_IO_ERROR_TIMED_OUT:
        return Failure::kUnreachable;
      default:
        break;
    }
  }
  GLibText remote(g_dbus_error_get_remote_error(error));
  if (!remote) return Failure::kOther;
  for (const RemoteError& known : kRemoteErrors) {
    if (std::strcmp(known.name, remote.get()) == 0) return known.failure;
  }
  // The bus could not start the service.
  return std::string_view(remote.get()).starts_with("org.freedesktop.DBus.Error.Spawn")
             ? Failure::kUnreachable
             : Failure::kOther;
}

bool usableAddress(const char* address) {
  return address && *address && !std::string_view(address).starts_with("autolaunch:");
}

GVariant* attributeDictionary(const SecretServiceConnection::Attributes& attributes) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  for (const auto& [name, value] : attributes) {
    g_variant_builder_add(&builder, "{ss}", name.c_str(), value.c_str());
  }
  return g_variant_builder_end(&builder);
}

std::vector<std::string> pathsIn(GVariant* array) {
  std::vector<std::string> paths;
  GVariantIter at;
  const char* path = nullptr;
  g_variant_iter_init(&at, array);
  while (g_variant_iter_next(&at, "&o", &path)) paths.emplace_back(path);
  return paths;
}

// The value inside a Properties.Get reply "(v)".
VariantHandle propertyValue(const VariantHandle& reply) {
  VariantHandle boxed(g_variant_get_child_value(reply.get(), 0));
  return VariantHandle(g_variant_get_variant(boxed.get()));
}

// Calls on the bus itself, for probe().
VariantHandle callBus(DeadlineContext& call, GDBusConnection* bus, const char* method,
                      GVariant* parameters, const char* replyType) {
  auto result = call.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_connection_call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", method, parameters, G_VARIANT_TYPE(replyType),
                           G_DBUS_CALL_FLAGS_NONE, -1, call.cancellable(), callback, userData);
  });
  return VariantHandle(g_dbus_connection_call_finish(bus, result.get(), nullptr));
}

ObjectHandle<GDBusConnection> privateBus(DeadlineContext& call, const char* address) {
  auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                 G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  auto result = call.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_connection_new_for_address(address, flags, nullptr, call.cancellable(), callback,
                                      userData);
  });
  ObjectHandle<GDBusConnection> bus(
      g_dbus_connection_new_for_address_finish(result.get(), nullptr));
  // A private connection is made with it off; said here because the whole
  // point of not sharing GIO's connection is that a stopped bus must never
  // end the process.
  if (bus) g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

void closeBus(DeadlineContext& call, ObjectHandle<GDBusConnection> bus) {
  if (!bus) return;
  auto result = call.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_connection_close(bus.get(), call.cancellable(), callback, userData);
  });
  g_dbus_connection_close_finish(bus.get(), result.get(), nullptr);
}

}  // namespace

SecretServiceConnection::Availability SecretServiceConnection::probe(
    std::chrono::milliseconds deadline) {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!usableAddress(address)) return Availability::kNoSessionBus;
  MainContextHandle context(g_main_context_new());
  DeadlineContext call(context.get(), deadline);
  ObjectHandle<GDBusConnection> bus = privateBus(call, address);
  if (!bus) return Availability::kNoSessionBus;

  Availability availability = Availability::kNoSecretService;
  VariantHandle owned =
      callBus(call, bus.get(), "NameHasOwner", g_variant_new("(s)", kServiceName), "(b)");
  gboolean hasOwner = FALSE;
  if (owned) g_variant_get(owned.get(), "(b)", &hasOwner);
  if (hasOwner) {
    availability = Availability::kAvailable;
  } else if (VariantHandle names =
                 callBus(call, bus.get(), "ListActivatableNames", nullptr, "(as)")) {
    VariantHandle list(g_variant_get_child_value(names.get(), 0));
    GVariantIter at;
    const char* name = nullptr;
    g_variant_iter_init(&at, list.get());
    while (g_variant_iter_next(&at, "&s", &name)) {
      if (std::strcmp(name, kServiceName) == 0) availability = Availability::kAvailable;
    }
  }
  closeBus(call, std::move(bus));
  return availability;
}

SecretServiceConnection::~SecretServiceConnection() = default;

std::int32_t SecretServiceConnection::open(DeadlineContext& call) {
  if (bus_ && session_ && !lost_ && !g_dbus_connection_is_closed(bus_.get())) {
    return kSecretStoreSuccess;
  }
  close(call);
  std::int32_t status = connectBus(call);
  if (status == kSecretStoreSuccess) status = openSession(call);
  if (status != kSecretStoreSuccess) {
    if (call.expired()) problem_ = kTooSlow;
    close(call);
  }
  return status;
}

void SecretServiceConnection::close(DeadlineContext& call) {
  session_.reset();
  owner_.clear();
  lost_ = false;
  closeBus(call, std::move(bus_));
}

std::int32_t SecretServiceConnection::connectBus(DeadlineContext& call) {
  // Checked here rather than left to GIO, which would autolaunch a bus (and
  // an X11 helper) when the variable is missing.
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!usableAddress(address)) {
    problem_ = kNoBus;
    return kSecretStoreNotAvailable;
  }
  bus_ = privateBus(call, address);
  if (!bus_) {
    problem_ = kBusSilent;
    return kSecretStoreNotAvailable;
  }
  generation_ = ++lastGeneration;
  return kSecretStoreSuccess;
}

std::int32_t SecretServiceConnection::openSession(DeadlineContext& call) {
  std::optional<SecretServiceSession::KeyAgreement> agreement =
      SecretServiceSession::KeyAgreement::start();
  if (!agreement) {
    problem_ = kNoSessionKey;
    return kSecretStoreIoError;
  }
  const Data& publicKey = agreement->publicKey();
  VariantHandle output;
  std::int32_t status = openSessionWith(
      call, SecretServiceSession::kEncryptedAlgorithm,
      g_variant_new_variant(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, publicKey.data(),
                                                      publicKey.size(), sizeof(std::uint8_t))),
      &output);
  if (status == kSecretStoreSuccess) {
    VariantHandle path(g_variant_get_child_value(output.get(), 1));
    VariantHandle boxed(g_variant_get_child_value(output.get(), 0));
    VariantHandle serviceKey(g_variant_get_variant(boxed.get()));
    session_ = SecretServiceSession::agree(*agreement, serviceKey.get(),
                                           g_variant_get_string(path.get(), nullptr));
    if (!session_) {
      problem_ = kNoSessionKey;
      return kSecretStoreIoError;
    }
    return kSecretStoreSuccess;
  }
  if (status != kSecretStoreParameterError) return status;
  // Only a service without encryption gets here; it is still the user's own.
  status = openSessionWith(call, SecretServiceSession::kPlainAlgorithm,
                           g_variant_new_variant(g_variant_new_string("")), &output);
  if (status != kSecretStoreSuccess) return status;
  VariantHandle path(g_variant_get_child_value(output.get(), 1));
  session_ = SecretServiceSession::plain(g_variant_get_string(path.get(), nullptr));
  return kSecretStoreSuccess;
}

// kSecretStoreParameterError when the service does not offer `algorithm`.
// Sent to the well-known name, which the bus may start; the answer's sender
// is the unique name every later call goes to.
std::int32_t SecretServiceConnection::openSessionWith(DeadlineContext& call, const char* algorithm,
                                                      GVariant* input, VariantHandle* output) {
  ObjectHandle<GDBusMessage> message(
      g_dbus_message_new_method_call(kServiceName, kServicePath, kServiceInterface, "OpenSession"));
  g_dbus_message_set_body(message.get(), g_variant_new("(s@v)", algorithm, input));
  auto result = call.await([&](GAsyncReadyCallback callback, gpointer userData) {
    g_dbus_connection_send_message_with_reply(bus_.get(), message.get(),
                                              G_DBUS_SEND_MESSAGE_FLAGS_NONE, -1, nullptr,
                                              call.cancellable(), callback, userData);
  });
  ErrorHandle error;
  ObjectHandle<GDBusMessage> reply(
      g_dbus_connection_send_message_with_reply_finish(bus_.get(), result.get(), error.out()));
  if (reply) g_dbus_message_to_gerror(reply.get(), error.out());
  if (error) {
    const Failure failure = failureOf(error.get());
    problem_ = failure == Failure::kOther ? kNoSessionKey : kNoService;
    if (failure == Failure::kNotSupported) return kSecretStoreParameterError;
    return failure == Failure::kOther && !call.expired() ? kSecretStoreIoError
                                                         : kSecretStoreNotAvailable;
  }
  GVariant* body = g_dbus_message_get_body(reply.get());
  const char* sender = g_dbus_message_get_sender(reply.get());
  if (!body || !sender || !g_variant_is_of_type(body, G_VARIANT_TYPE("(vo)"))) {
    problem_ = kNoService;
    return kSecretStoreIoError;
  }
  owner_ = sender;
  output->reset(g_variant_ref(body));
  return kSecretStoreSuccess;
}

DeadlineContext::Start SecretServiceConnection::startCall(DeadlineContext& call,
                                                          const std::string& path,
                                                          const char* interface, const char* method,
                                                          GVariant* parameters,
                                                          const char* replyType) {
  // `parameters` is floating: the call takes it over.
  return [this, &call, path, interface, method, parameters, replyType](GAsyncReadyCallback callback,
                                                                       gpointer userData) {
    g_dbus_connection_call(bus_.get(), owner_.c_str(), path.c_str(), interface, method, parameters,
                           replyType ? G_VARIANT_TYPE(replyType) : nullptr,
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, call.cancellable(), callback,
                           userData);
  };
}

VariantHandle SecretServiceConnection::finishCall(DeadlineContext& call, GAsyncResult* result,
                                                  std::int32_t* status) {
  ErrorHandle error;
  VariantHandle reply(g_dbus_connection_call_finish(bus_.get(), result, error.out()));
  *status = reply ? kSecretStoreSuccess : failed(call, error.get());
  return reply;
}

VariantHandle SecretServiceConnection::callService(DeadlineContext& call, const std::string& path,
                                                   const char* interface, const char* method,
                                                   GVariant* parameters, const char* replyType,
                                                   std::int32_t* status) {
  auto result = call.await(startCall(call, path, interface, method, parameters, replyType));
  return finishCall(call, result.get(), status);
}

std::int32_t SecretServiceConnection::failed(const DeadlineContext& call, const GError* error) {
  if (call.expired()) return kSecretStoreNotAvailable;
  if (g_dbus_connection_is_closed(bus_.get())) {
    lost_ = true;
    return kSecretStoreNotAvailable;
  }
  switch (failureOf(error)) {
    case Failure::kLost:
      lost_ = true;
      return kSecretStoreNotAvailable;
    case Failure::kUnreachable:
      return kSecretStoreNotAvailable;
    case Failure::kLocked:
      return kSecretStoreInteractionNotAllowed;
    case Failure::kMissing:
      return kSecretStoreItemNotFound;
    case Failure::kNotSupported:
    case Failure::kOther:
      return kSecretStoreIoError;
  }
  return kSecretStoreIoError;
}

std::int32_t SecretServiceConnection::searchItems(DeadlineContext& call,
                                                  const Attributes& attributes, Search* found) {
  std::int32_t status = kSecretStoreSuccess;
  VariantHandle reply =
      callService(call, kServicePath, kServiceInterface, "SearchItems",
                  g_variant_new("(@a{ss})", attributeDictionary(attributes)), "(aoao)", &status);
  if (!reply) return status;
  VariantHandle unlocked(g_variant_get_child_value(reply.get(), 0));
  VariantHandle locked(g_variant_get_child_value(reply.get(), 1));
  found->unlocked = pathsIn(unlocked.get());
  found->locked = pathsIn(locked.get());
  return kSecretStoreSuccess;
}

std::int32_t SecretServiceConnection::readItems(DeadlineContext& call,
                                                const std::vector<std::string>& paths,
                                                std::vector<Contents>* contents) {
  std::vector<const char*> pathList;
  for (const std::string& path : paths) pathList.push_back(path.c_str());
  pathList.push_back(nullptr);
  std::vector<DeadlineContext::Start> starts = {startCall(
      call, kServicePath, kServiceInterface, "GetSecrets",
      g_variant_new("(^aoo)", pathList.data(), session_->path().c_str()), "(a{o(oayays)})")};
  for (const std::string& path : paths) {
    starts.push_back(startCall(call, path, kPropertiesInterface, "Get",
                               g_variant_new("(ss)", kItemInterface, "Attributes"), "(v)"));
  }
  std::vector<ObjectHandle<GAsyncResult>> results = call.awaitAll(starts);

  std::int32_t status = kSecretStoreSuccess;
  VariantHandle secrets = finishCall(call, results[0].get(), &status);
  if (!secrets) return status;
  contents->assign(paths.size(), Contents());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    VariantHandle attributes = finishCall(call, results[i + 1].get(), &status);
    if (!attributes) {
      if (status == kSecretStoreItemNotFound) continue;  // gone meanwhile
      return status;
    }
    VariantHandle table = propertyValue(attributes);
    if (!g_variant_is_of_type(table.get(), G_VARIANT_TYPE("a{ss}"))) continue;
    GVariantIter at;
    const char *name = nullptr, *value = nullptr;
    g_variant_iter_init(&at, table.get());
    while (g_variant_iter_next(&at, "{&s&s}", &name, &value))
      (*contents)[i].attributes[name] = value;
  }
  VariantHandle entries(g_variant_get_child_value(secrets.get(), 0));
  GVariantIter at;
  const char* path = nullptr;
  GVariant* secret = nullptr;
  g_variant_iter_init(&at, entries.get());
  while (g_variant_iter_next(&at, "{&o@(oayays)}", &path, &secret)) {
    VariantHandle owned(secret);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (paths[i] == path) (*contents)[i].secret = session_->decode(owned.get());
    }
  }
  return kSecretStoreSuccess;
}

std::int32_t SecretServiceConnection::setSecret(DeadlineContext& call, const std::string& path,
                                                const Data& secret, const char* contentType) {
  VariantHandle encoded = session_->encode(secret, contentType);
  if (!encoded) return kSecretStoreIoError;
  std::int32_t status = kSecretStoreSuccess;
  callService(call, path, kItemInterface, "SetSecret", g_variant_new("(@(oayays))", encoded.get()),
              nullptr, &status);
  return status;
}

std::int32_t SecretServiceConnection::createItem(DeadlineContext& call, const std::string& label,
                                                 const Attributes& attributes, const Data& secret,
                                                 const char* contentType) {
  VariantHandle encoded = session_->encode(secret, contentType);
  if (!encoded) return kSecretStoreIoError;
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                        g_variant_new_string(label.c_str()));
  g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                        attributeDictionary(attributes));
  std::int32_t status = kSecretStoreSuccess;
  VariantHandle reply = callService(
      call, kDefaultCollectionPath, kCollectionInterface, "CreateItem",
      g_variant_new("(@a{sv}@(oayays)b)", g_variant_builder_end(&properties), encoded.get(), FALSE),
      "(oo)", &status);
  if (!reply) return status;
  const char* prompt = nullptr;
  g_variant_get(reply.get(), "(&o&o)", nullptr, &prompt);
  if (std::strcmp(prompt, kNoPrompt) == 0) return kSecretStoreSuccess;
  dismissPrompt(prompt);
  return kSecretStoreInteractionNotAllowed;
}

std::int32_t SecretServiceConnection::deleteItem(DeadlineContext& call, const std::string& path) {
  std::int32_t status = kSecretStoreSuccess;
  VariantHandle reply = callService(call, path, kItemInterface, "Delete", nullptr, "(o)", &status);
  if (!reply) return status;
  const char* prompt = nullptr;
  g_variant_get(reply.get(), "(&o)", &prompt);
  if (std::strcmp(prompt, kNoPrompt) == 0) return kSecretStoreSuccess;
  dismissPrompt(prompt);
  return kSecretStoreInteractionNotAllowed;
}

std::int32_t SecretServiceConnection::defaultCollection(DeadlineContext& call,
                                                        Collection* collection) {
  std::vector<ObjectHandle<GAsyncResult>> results = call.awaitAll({
      startCall(call, kDefaultCollectionPath, kPropertiesInterface, "Get",
                g_variant_new("(ss)", kCollectionInterface, "Locked"), "(v)"),
      startCall(call, kDefaultCollectionPath, kPropertiesInterface, "Get",
                g_variant_new("(ss)", kCollectionInterface, "Label"), "(v)"),
  });
  std::int32_t status = kSecretStoreSuccess;
  VariantHandle locked = finishCall(call, results[0].get(), &status);
  if (!locked) return status;
  VariantHandle label = finishCall(call, results[1].get(), &status);
  VariantHandle lockedValue = propertyValue(locked);
  collection->locked = !g_variant_is_of_type(lockedValue.get(), G_VARIANT_TYPE_BOOLEAN) ||
                       g_variant_get_boolean(lockedValue.get());
  collection->label.clear();
  if (label) {
    VariantHandle labelValue = propertyValue(label);
    if (g_variant_is_of_type(labelValue.get(), G_VARIANT_TYPE_STRING)) {
      collection->label = g_variant_get_string(labelValue.get(), nullptr);
    }
  }
  return kSecretStoreSuccess;
}

void SecretServiceConnection::dismissPrompt(const char* prompt) {
  // Nobody will answer it; without a reply wanted, nothing waits for it either.
  g_dbus_connection_call(bus_.get(), owner_.c_str(), prompt, kPromptInterface, "Dismiss", nullptr,
                         nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
}

}  // namespace velmor
