// The Secret Service as one store call sees it: the session bus and
// libsecret's proxies on it, every call bounded by a deadline.
#ifndef VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_
#define VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_

#include <string>

#include "platform/DeadlineContext.h"
#include "platform/GLibHandle.h"

namespace velmor {

// Made for one store call and dropped after it, so that a restarted daemon
// costs nothing and no proxy outlives the context its signals are delivered
// to. The bus connection is GIO's shared one for the session bus: libsecret
// cannot put its service object on a private connection. GIO keeps it only
// while someone holds it, so between calls the library holds no connection.
//
// Every call runs on the calling thread under `context` (which must outlive
// this object) and fails once its deadline has passed. Nothing here unlocks
// an item or shows a prompt. Failures come back as GErrors; what they mean
// for the store is the caller's business.
class SecretServiceConnection final {
 public:
  explicit SecretServiceConnection(DeadlineContext& context) : context_(context) {}

  // Connects to the session bus. False, before any I/O, when
  // DBUS_SESSION_BUS_ADDRESS is unset, empty or asks for an autolaunched bus
  // (which would start an X11 helper); false when the bus does not let us in
  // by the deadline.
  bool connectBus();
  // Whether org.freedesktop.secrets has an owner on the bus or the bus can
  // start one. Needs connectBus().
  bool serviceNameKnown();
  // Makes the service proxy. Needs connectBus().
  bool openService(ErrorHandle* error);

  // Every item whose attributes include `attributes`, locked or not, without
  // unlocking any; with `loadSecrets` the unlocked ones carry their secrets.
  // Null with no error when there are none. Needs openService().
  ItemListHandle search(GHashTable* attributes, bool loadSecrets, ErrorHandle* error);
  // The collection the "default" alias names; null with no error when the
  // alias names none.
  ObjectHandle<SecretCollection> defaultCollection(ErrorHandle* error);
  bool createItem(SecretCollection* collection, const SecretSchema* schema, GHashTable* attributes,
                  const std::string& label, SecretValue* value, ErrorHandle* error);
  bool setSecret(SecretItem* item, SecretValue* value, ErrorHandle* error);
  // Deletes `item`. When the service wants a prompt first, the prompt is left
  // unanswered, nothing is deleted and `prompted` is set.
  bool deleteItem(SecretItem* item, bool* prompted, ErrorHandle* error);

 private:
  VariantHandle callBus(const char* method, GVariant* parameters, const char* replyType);

  DeadlineContext& context_;
  ObjectHandle<GDBusConnection> bus_;
  ObjectHandle<SecretService> service_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_
