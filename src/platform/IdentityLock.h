// The locks behind SecretStore::lockItem: one per name among the threads of
// this process and, for items other processes share, an advisory lock file.
#ifndef VELMOR_PLATFORM_IDENTITY_LOCK_H_
#define VELMOR_PLATFORM_IDENTITY_LOCK_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "velmor/SecretStore.h"

namespace velmor {

// A thread takes a name's lock first among the threads of this process (a
// timed wait on a condition variable), and only then, when the lock has a
// file, the file's flock among processes (polled without blocking, so the
// wait stays bounded). A thread that holds a name may take it again; the
// holders nest and the last one lets go, on whichever thread it is
// released. All members are thread-safe.
class IdentityLock final {
 public:
  IdentityLock() = delete;

  // The lock `name`, honoured by the threads of this process only.
  static std::int32_t lockInProcess(const std::string& name, std::chrono::milliseconds timeout,
                                    SecretStoreLock* lock);

  // The lock of the file `fileName` in `directory`, honoured by threads and
  // processes alike (FileLock). The directory is made (mode 0700) when
  // missing; one that belongs to someone else or that group or others may
  // write to answers FileSecretStore::kStatusUntrusted (-61), and what they
  // may read is taken away. Neither it nor the lock file (mode 0600) may be
  // a symbolic link. -36 for other failures, kSecretStoreTimedOut when the
  // wait runs out.
  static std::int32_t lockFile(const std::string& directory, const std::string& fileName,
                               std::chrono::milliseconds timeout, SecretStoreLock* lock);

  // "<hex SHA-256 of service, NUL, account>.lock"; empty if hashing fails.
  static std::string fileNameFor(const std::string& service, const std::string& account);

  // Where the default secret store keeps its lock files: "velmor-authorization"
  // in $XDG_RUNTIME_DIR, else in /run/user/<uid>, each only when it is a
  // directory of the user's that nobody else may enter; else "locks" beside
  // the file store's default directory. Empty when no home can be found.
  static std::string runtimeDirectory();
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_IDENTITY_LOCK_H_
