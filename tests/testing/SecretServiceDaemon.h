// The processes behind the private session bus and the Secret Service on
// it, for tests that take them away in the middle of a session.
#ifndef VELMOR_TESTS_TESTING_SECRET_SERVICE_DAEMON_H_
#define VELMOR_TESTS_TESTING_SECRET_SERVICE_DAEMON_H_

#include <gio/gio.h>
#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <thread>

#include "platform/GLibHandle.h"

namespace velmor::test {

// Talks to the bus DBUS_SESSION_BUS_ADDRESS names (a private one: see
// tests/platform/with-secret-service). Finds the owner of
// "org.freedesktop.secrets" (or the bus itself) by asking the bus for its
// process id, so only that one process is ever signalled. One thread at a
// time.
class SecretServiceDaemon final {
 public:
  SecretServiceDaemon() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address) return;
    auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                   G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus_.reset(g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, nullptr));
  }
  ~SecretServiceDaemon() {
    if (bus_) g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
  }
  SecretServiceDaemon(const SecretServiceDaemon&) = delete;
  SecretServiceDaemon& operator=(const SecretServiceDaemon&) = delete;

  bool hasOwner() const {
    VariantHandle reply = callBus("NameHasOwner", kServiceName, G_VARIANT_TYPE("(b)"));
    gboolean owned = FALSE;
    if (reply) g_variant_get(reply.get(), "(b)", &owned);
    return owned;
  }

  std::optional<pid_t> pid() const { return pidOf(kServiceName); }

  // Kills the daemon outright (SIGKILL: no chance to tidy up) and waits
  // until the bus has seen its connection go. False when there was no
  // daemon or it outlived `deadline`.
  bool kill(std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    const std::optional<pid_t> owner = pid();
    if (!owner || *owner <= 1 || ::kill(*owner, SIGKILL) != 0) return false;
    return waitFor(false, deadline);
  }

  // Starts a daemon that unlocks the harness's keyring with its password
  // (VELMOR_TEST_KEYRING_PASSWORD) and waits for it on the bus.
  bool start(std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    if (!std::getenv("VELMOR_TEST_KEYRING_PASSWORD")) return false;
    const int status = std::system(
        "printf '%s' \"$VELMOR_TEST_KEYRING_PASSWORD\" | "
        "gnome-keyring-daemon --unlock --components=secrets --daemonize >/dev/null");
    return status == 0 && waitFor(true, deadline);
  }

  // The bus itself, killed outright: every connection to it closes.
  bool killBus() {
    const std::optional<pid_t> bus = pidOf("org.freedesktop.DBus");
    return bus && *bus > 1 && ::kill(*bus, SIGKILL) == 0;
  }

 private:
  static constexpr char kServiceName[] = "org.freedesktop.secrets";

  bool waitFor(bool owned, std::chrono::milliseconds deadline) const {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (hasOwner() != owned) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  std::optional<pid_t> pidOf(const char* name) const {
    VariantHandle reply = callBus("GetConnectionUnixProcessID", name, G_VARIANT_TYPE("(u)"));
    if (!reply) return std::nullopt;
    guint32 pid = 0;
    g_variant_get(reply.get(), "(u)", &pid);
    return static_cast<pid_t>(pid);
  }

  VariantHandle callBus(const char* method, const char* name, const GVariantType* replyType) const {
    if (!bus_) return VariantHandle();
    return VariantHandle(g_dbus_connection_call_sync(
        bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        g_variant_new("(s)", name), replyType, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  }

  ObjectHandle<GDBusConnection> bus_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_SECRET_SERVICE_DAEMON_H_
