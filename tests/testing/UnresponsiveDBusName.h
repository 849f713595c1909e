// A D-Bus service that hangs: it owns a well-known name on the session bus
// and never answers a method call sent to it.
#ifndef VELMOR_TESTS_TESTING_UNRESPONSIVE_DBUS_NAME_H_
#define VELMOR_TESTS_TESTING_UNRESPONSIVE_DBUS_NAME_H_

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "platform/GLibHandle.h"

namespace velmor::test {

// Owns `name` on the bus DBUS_SESSION_BUS_ADDRESS names until destroyed.
// Method calls to it are dropped on GDBus's I/O thread, so it needs no main
// loop and stays silent whatever the caller's timeout.
class UnresponsiveDBusName final {
 public:
  explicit UnresponsiveDBusName(const char* name) {
    auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                   G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address) return;
    bus_.reset(g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, nullptr));
    if (!bus_) return;
    g_dbus_connection_add_filter(bus_.get(), &dropMethodCalls, this, nullptr);
    constexpr guint32 kDoNotQueue = 4;
    VariantHandle reply(g_dbus_connection_call_sync(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, kDoNotQueue), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    guint32 answer = 0;
    if (reply) g_variant_get(reply.get(), "(u)", &answer);
    owned_ = answer == 1;  // DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER
  }
  ~UnresponsiveDBusName() {
    if (bus_) g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
  }
  UnresponsiveDBusName(const UnresponsiveDBusName&) = delete;
  UnresponsiveDBusName& operator=(const UnresponsiveDBusName&) = delete;

  bool owned() const { return owned_; }

  // Waits until a method call has come in (and been dropped); false when
  // none came within `deadline`.
  bool waitForCall(std::chrono::milliseconds deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    return called_.wait_for(lock, deadline, [&] { return calls_ > 0; });
  }

 private:
  // On GDBus's I/O thread.
  static GDBusMessage* dropMethodCalls(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                       gpointer self) {
    if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
      return message;
    }
    g_object_unref(message);
    auto* name = static_cast<UnresponsiveDBusName*>(self);
    std::lock_guard<std::mutex> lock(name->mutex_);
    ++name->calls_;
    name->called_.notify_all();
    return nullptr;
  }

  ObjectHandle<GDBusConnection> bus_;
  bool owned_ = false;
  std::mutex mutex_;
  std::condition_variable called_;
  int calls_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_UNRESPONSIVE_DBUS_NAME_H_
