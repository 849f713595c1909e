// A secret store in files, for machines without a Secret Service (servers,
// SSH sessions, CI).
#ifndef VELMOR_FILE_SECRET_STORE_H_
#define VELMOR_FILE_SECRET_STORE_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "velmor/Export.h"
#include "velmor/SecretStore.h"

namespace velmor {

// One file per item in a directory only the user can open (mode 0700), each
// file (mode 0600) named by the hex SHA-256 of service, NUL, account, and
// holding a binary property list {"Service", "Account", "Data"}. Writes go to
// a temporary file that is flushed and renamed into place, so a crash leaves
// the old or the new item, never a torn one; an advisory lock ("<directory>/.lock")
// serialises writers across processes, so that of two processes adding the
// same item exactly one succeeds. Readers take no lock. Thread-safe; any
// number of instances, in any number of processes, may share a directory.
//
// What a call answers depends on what lies under the item's file name:
//
//   file name holds            find     add        update   remove
//   nothing                    -25300   writes     -25300   -25300
//   the item                   0        -25299     writes   deletes
//   another item (other names) -25300   replaces   -25300   -25300
//   no such property list      -36      replaces   -36      deletes
//   something unreadable       -36      -36        -36      -36
//
// A damaged file answers -36 rather than "not found" so that callers can
// tell it from absence, yet it never blocks the names: add replaces it and
// remove deletes it. A foreign file is nobody's item under this name (its
// own names hash elsewhere), so it reads as absent and add may replace it.
// Failed writes (no space, read-only directory, ...) answer -36 and leave
// the previous item as it was. Names that could not be read back unchanged
// (holding a NUL or invalid UTF-8) and items whose file would exceed 16 MiB
// answer kSecretStoreParameterError (-50). A store whose directory is empty
// (no home directory found) answers kSecretStoreNotAvailable. Nothing
// throws.
//
// The store trusts only what the user alone controls. Every call answers
// kStatusUntrusted (-61) while the directory, or the file under the item's
// name, belongs to another user or can be written by group or others:
// someone else could have planted the record or could change it. A relative
// directory answers kSecretStoreParameterError (-50) to every call. Each such
// refusal is logged once per process at level 1, naming the path and why. A
// writer waits for the lock at most the lock timeout; then the call answers
// kSecretStoreNotAvailable, logged at level 1.
class VELMOR_EXPORT FileSecretStore final : public SecretStore {
 public:
  // "Write permissions error.": the directory or the item's file could be
  // changed by someone else.
  static constexpr std::int32_t kStatusUntrusted = -61;
  static constexpr std::chrono::milliseconds kDefaultLockTimeout{10000};

  // `directory`, an absolute path, (and missing parents, mode 0700) is
  // created on the first add. Writers also take away group and other read
  // permissions from an existing directory. `lockTimeout` bounds each
  // writer's wait for the other writers, in this process and others.
  explicit FileSecretStore(std::string directory,
                           std::chrono::milliseconds lockTimeout = kDefaultLockTimeout);

  // $XDG_DATA_HOME/velmor-authorization/keychain, XDG_DATA_HOME defaulting to
  // ~/.local/share when unset or relative; the home directory is $HOME, else
  // the user's password entry. Empty when neither gives an absolute path.
  static std::string defaultDirectory();

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override;
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override;
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override;
  std::int32_t remove(const std::string& service, const std::string& account) override;
  // The lock file "<hex SHA-256 of service, NUL, account>.lock" lies beside
  // the item's file, so that every process using the directory shares it.
  std::int32_t lockItem(const std::string& service, const std::string& account,
                        std::chrono::milliseconds timeout, SecretStoreLock* lock) override;

  // Usable when the directory, or the nearest of its parents that exists
  // (add creates the rest), is a directory the user may write to, and the
  // directory, if it exists, is trusted (see above): kSecretStoreIoError,
  // kStatusUntrusted or kSecretStoreParameterError (a relative path) when
  // not, kSecretStoreNotAvailable without a directory. The description is
  // "files in '<directory>'".
  SecretStoreCondition condition() override;
  std::string description() const override;

  const std::string& directory() const { return directory_; }

 private:
  enum class Write { kAdd, kUpdate, kRemove };

  std::int32_t write(Write kind, const std::string& service, const std::string& account,
                     const Data* data);
  std::int32_t lockTimedOut() const;

  std::string directory_;
  std::chrono::milliseconds lockTimeout_;
  bool leftoversRemoved_ = false;  // guarded by the writers' process-wide mutex
};

}  // namespace velmor

#endif  // VELMOR_FILE_SECRET_STORE_H_
