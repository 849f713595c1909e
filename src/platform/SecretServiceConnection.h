// The Secret Service as one SecretServiceStore keeps it between calls.
#ifndef VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_
#define VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/DeadlineContext.h"
#include "platform/GLibHandle.h"
#include "platform/SecretServiceSession.h"
#include "velmor/Data.h"

namespace velmor {

// A private connection to the session bus (never GIO's shared one, which
// would end the process when the bus goes away), the unique bus name of the
// Secret Service that answered, and a session with it. Calls go to that
// unique name, so a daemon that went away (or was replaced) fails them at
// once instead of being confused with its successor; lost() then says that
// a new connection is needed.
//
// Every call runs under a DeadlineContext (on the GMainContext the owner
// keeps for this connection) and answers a secret-store status: success,
// kSecretStoreItemNotFound for an object that does not exist,
// kSecretStoreInteractionNotAllowed for a locked one or one that would need
// a prompt (prompts are dismissed, never shown), kSecretStoreNotAvailable
// when the bus or the service did not answer in time or went away, and
// kSecretStoreIoError for anything else the service refuses. Nothing here
// unlocks anything.
//
// Not thread-safe: the owner serialises the calls.
class SecretServiceConnection final {
 public:
  using Attributes = std::map<std::string, std::string>;

  // What a search found under some attributes.
  struct Search {
    std::vector<std::string> unlocked;  // object paths
    std::vector<std::string> locked;
  };
  // One unlocked item as read: its secret (nothing when the service sent
  // none, because the item went away or locked meanwhile, or when the
  // secret did not decrypt) and its attributes.
  struct Contents {
    std::optional<Data> secret;
    Attributes attributes;
  };
  // The collection the "default" alias names.
  struct Collection {
    bool locked = false;
    std::string label;
  };

  // Whether a session bus and, on it, a Secret Service (running or
  // activatable) answer within `deadline`. Does not ask the service itself.
  enum class Availability { kNoSessionBus, kNoSecretService, kAvailable };
  static Availability probe(std::chrono::milliseconds deadline);

  SecretServiceConnection() = default;
  // Closes the connection.
  ~SecretServiceConnection();
  SecretServiceConnection(const SecretServiceConnection&) = delete;
  SecretServiceConnection& operator=(const SecretServiceConnection&) = delete;

  // Opens the connection unless it is open and not lost: the bus named by
  // DBUS_SESSION_BUS_ADDRESS (never an autolaunched one, which would start
  // an X11 helper), then an encrypted session (a plain one if the service
  // offers no encryption). On failure, problem() says why in a sentence.
  std::int32_t open(DeadlineContext& call);
  // Drops the connection; the next open() makes a new one.
  void close(DeadlineContext& call);
  bool lost() const { return lost_; }
  // Distinct for every connection made in the process, so that what one
  // connection found is never taken for another's.
  std::uint64_t generation() const { return generation_; }
  const std::string& problem() const { return problem_; }

  std::int32_t searchItems(DeadlineContext& call, const Attributes& attributes, Search* found);
  // The secrets and attributes of `paths`, asked for together.
  std::int32_t readItems(DeadlineContext& call, const std::vector<std::string>& paths,
                         std::vector<Contents>* contents);
  std::int32_t setSecret(DeadlineContext& call, const std::string& path, const Data& secret,
                         const char* contentType);
  // A new item in the default collection; kSecretStoreItemNotFound when
  // there is none.
  std::int32_t createItem(DeadlineContext& call, const std::string& label,
                          const Attributes& attributes, const Data& secret,
                          const char* contentType);
  std::int32_t deleteItem(DeadlineContext& call, const std::string& path);
  // kSecretStoreItemNotFound when the "default" alias names no collection.
  std::int32_t defaultCollection(DeadlineContext& call, Collection* collection);

 private:
  std::int32_t connectBus(DeadlineContext& call);
  std::int32_t openSession(DeadlineContext& call);
  std::int32_t openSessionWith(DeadlineContext& call, const char* algorithm, GVariant* input,
                               VariantHandle* output);
  DeadlineContext::Start startCall(DeadlineContext& call, const std::string& path,
                                   const char* interface, const char* method, GVariant* parameters,
                                   const char* replyType);
  VariantHandle finishCall(DeadlineContext& call, GAsyncResult* result, std::int32_t* status);
  VariantHandle callService(DeadlineContext& call, const std::string& path, const char* interface,
                            const char* method, GVariant* parameters, const char* replyType,
                            std::int32_t* status);
  void dismissPrompt(const char* prompt);
  // The one place where GIO and D-Bus errors become statuses.
  std::int32_t failed(const DeadlineContext& call, const GError* error);

  ObjectHandle<GDBusConnection> bus_;
  std::string owner_;  // the service's unique name
  std::optional<SecretServiceSession> session_;
  std::uint64_t generation_ = 0;
  bool lost_ = false;
  std::string problem_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SECRET_SERVICE_CONNECTION_H_
