// Counts the method calls that pass over the session bus, as a D-Bus
// monitor sees them: what a Secret Service client really costs in round
// trips.
#ifndef VELMOR_TESTS_TESTING_BUS_MONITOR_H_
#define VELMOR_TESTS_TESTING_BUS_MONITOR_H_

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "platform/GLibHandle.h"

namespace velmor::test {

// Watches the bus DBUS_SESSION_BUS_ADDRESS names (a private one: see
// tests/platform/with-secret-service) for method calls to the Secret
// Service's interfaces, counted by member name ("SearchItems", "GetSecrets",
// "Get", ...). Whoever sends them counts; measure while only the code under
// test talks to the Secret Service. One thread at a time.
class BusMonitor final {
 public:
  BusMonitor() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address) return;
    monitor_ = connect(address);
    sender_ = connect(address);
    if (!monitor_ || !sender_) return;
    g_dbus_connection_add_filter(monitor_.get(), &BusMonitor::onMessage, this, nullptr);
    const char* rules[] = {
        "type='method_call',interface='org.freedesktop.Secret.Service'",
        "type='method_call',interface='org.freedesktop.Secret.Collection'",
        "type='method_call',interface='org.freedesktop.Secret.Item'",
        "type='method_call',interface='org.freedesktop.DBus.Properties'",
        "type='method_call',interface='org.freedesktop.DBus',member='GetId'",
        nullptr,
    };
    VariantHandle reply(g_dbus_connection_call_sync(
        monitor_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus.Monitoring", "BecomeMonitor", g_variant_new("(^asu)", rules, 0u),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    watching_ = static_cast<bool>(reply);
  }
  ~BusMonitor() {
    for (const auto& connection : {&monitor_, &sender_}) {
      if (*connection) g_dbus_connection_close_sync(connection->get(), nullptr, nullptr);
    }
  }
  BusMonitor(const BusMonitor&) = delete;
  BusMonitor& operator=(const BusMonitor&) = delete;

  bool watching() const { return watching_; }

  // The calls counted since the last reset, once every message sent before
  // this call has reached the monitor (a marker call sent now comes back
  // through it last: the bus keeps their order). Empty if the marker does not
  // come back within `deadline`.
  std::map<std::string, int> calls(std::chrono::seconds deadline = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(mutex_);
    const int marker = ++markersSent_;
    lock.unlock();
    VariantHandle id(g_dbus_connection_call_sync(
        sender_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    lock.lock();
    if (!id || !arrived_.wait_for(lock, deadline, [&] { return markersSeen_ >= marker; })) {
      return {};
    }
    return calls_;
  }

  void reset() {
    calls();
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
  }

 private:
  static ObjectHandle<GDBusConnection> connect(const char* address) {
    auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                   G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return ObjectHandle<GDBusConnection>(
        g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, nullptr));
  }

  // On GDBus's I/O thread. Watched calls are dropped once counted: a
  // monitor must never answer them.
  static GDBusMessage* onMessage(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                 gpointer self) {
    if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
      return message;
    }
    auto* monitor = static_cast<BusMonitor*>(self);
    if (const char* member = g_dbus_message_get_member(message)) {
      std::lock_guard<std::mutex> lock(monitor->mutex_);
      if (std::string(member) == "GetId") {
        ++monitor->markersSeen_;
        monitor->arrived_.notify_all();
      } else {
        ++monitor->calls_[member];
      }
    }
    g_object_unref(message);
    return nullptr;
  }

  ObjectHandle<GDBusConnection> monitor_;
  ObjectHandle<GDBusConnection> sender_;
  bool watching_ = false;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::map<std::string, int> calls_;
  int markersSent_ = 0;
  int markersSeen_ = 0;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_BUS_MONITOR_H_
