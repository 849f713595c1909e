#include "platform/IdentityLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "platform/FileDescriptor.h"
#include "platform/FileLock.h"
#include "platform/FileSystem.h"
#include "platform/Mutex.h"
#include "platform/StoredSecretItem.h"
#include "velmor/FileSecretStore.h"

namespace velmor {

namespace {

// When a wait gives up, on the clock of each kind of wait.
struct Deadline {
  std::chrono::system_clock::time_point threads;
  FileLock::Clock::time_point processes;
};

constexpr char kDirectoryName[] = "/velmor-authorization";
// A record write holds the lock for a millisecond or so, a refresh for one
// round trip: a process waiting for it tries often, so that it does not
// sleep on long after the lock came free. Only one thread per process polls.
constexpr std::chrono::milliseconds kLongestPause{2};

// Every name some thread of this process holds or waits for.
class LockTable final {
 public:
  static LockTable& shared() {
    // Never destroyed: holders may be released during static destruction.
    static LockTable* const table = std::make_unique<LockTable>().release();
    return *table;
  }

  // True when the calling thread now holds `name` one level deeper. `first`
  // tells whether it took it afresh (and so must take the file too).
  bool enter(const std::string& name, Deadline deadline, bool* first) EXCLUDES(mutex_) {
    const std::thread::id self = std::this_thread::get_id();
    MutexLock lock(mutex_);
    Entry& entry = entries_[name];
    ++entry.interested;
    if (entry.depth > 0 && entry.owner == self) {
      ++entry.depth;
      *first = false;
      return true;
    }
    while (entry.depth > 0) {
      if (!released_.waitUntil(mutex_, deadline.threads) && entry.depth > 0) {
        forget(name, entry);
        return false;
      }
    }
    entry.owner = self;
    entry.depth = 1;
    *first = true;
    return true;
  }

  // Keeps the lock file of a name the calling thread took afresh.
  void keepFile(const std::string& name, FileLock file) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    entries_.at(name).file = std::move(file);
  }

  void leave(const std::string& name) EXCLUDES(mutex_) {
    {
      MutexLock lock(mutex_);
      Entry& entry = entries_.at(name);
      // The file goes first, so that the thread woken next finds it free.
      if (--entry.depth == 0) {
        entry.file.reset();
        entry.owner = std::thread::id();
      }
      forget(name, entry);
    }
    released_.signalAll();
  }

 private:
  struct Entry {
    std::thread::id owner;
    int depth = 0;
    // Holders and waiters; the entry goes when none is left.
    int interested = 0;
    // While held, when the name has a file.
    std::optional<FileLock> file;
  };

  void forget(const std::string& name, Entry& entry) REQUIRES(mutex_) {
    if (--entry.interested == 0) entries_.erase(name);
  }

  Mutex mutex_;
  CondVar released_;
  std::map<std::string, Entry> entries_ GUARDED_BY(mutex_);
};

class Holder final : public SecretStoreLock::Holder {
 public:
  explicit Holder(std::string name) : name_(std::move(name)) {}
  ~Holder() override { LockTable::shared().leave(name_); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

 private:
  std::string name_;
};

Deadline deadlineAfter(std::chrono::milliseconds timeout) {
  timeout = std::max(timeout, std::chrono::milliseconds(0));
  return {std::chrono::system_clock::now() + timeout, FileLock::Clock::now() + timeout};
}

bool isUsersOwn(const struct stat& info) { return info.st_uid == geteuid(); }

// The directory, made if missing. Whoever else owns it or may write to it
// could swap the lock files, so it is refused as the file store refuses it
// (and it may be the file store's own); what others may only read or enter
// is taken away from them.
std::int32_t openDirectory(const std::string& path, FileDescriptor* directory) {
  if (path.empty() || path[0] != '/') return kSecretStoreIoError;
  FileSystem::createDirectories(path);
  *directory = FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  struct stat info {};
  if (!directory->valid() || fstat(directory->get(), &info) != 0) return kSecretStoreIoError;
  if (!isUsersOwn(info) || (info.st_mode & 022) != 0) return FileSecretStore::kStatusUntrusted;
  if ((info.st_mode & 077) != 0 && fchmod(directory->get(), info.st_mode & 0700) != 0) {
    return kSecretStoreIoError;
  }
  return kSecretStoreSuccess;
}

std::int32_t takeFile(const std::string& directory, const std::string& fileName, Deadline deadline,
                      std::optional<FileLock>* file) {
  if (fileName.empty()) return kSecretStoreIoError;
  FileDescriptor opened;
  if (std::int32_t status = openDirectory(directory, &opened)) return status;
  *file = FileLock::acquire(opened.get(), fileName.c_str(), deadline.processes, kLongestPause);
  if (*file) return kSecretStoreSuccess;
  return errno == EWOULDBLOCK ? kSecretStoreTimedOut : kSecretStoreIoError;
}

std::int32_t lock(const std::string& name, const std::optional<std::string>& directory,
                  const std::string& fileName, std::chrono::milliseconds timeout,
                  SecretStoreLock* lock) {
  const Deadline deadline = deadlineAfter(timeout);
  LockTable& table = LockTable::shared();
  bool first = false;
  if (!table.enter(name, deadline, &first)) return kSecretStoreTimedOut;
  auto holder = std::make_unique<Holder>(name);
  if (first && directory) {
    std::optional<FileLock> file;
    // On failure the holder's destructor gives the name back.
    if (std::int32_t status = takeFile(*directory, fileName, deadline, &file)) return status;
    table.keepFile(name, std::move(*file));
  }
  *lock = SecretStoreLock(std::move(holder));
  return kSecretStoreSuccess;
}

// Absolute, a directory (possibly through a symbolic link, as runtime
// directories sometimes are), the user's, and closed to everyone else.
bool isPrivateDirectory(const char* path) {
  struct stat info {};
  return path != nullptr && path[0] == '/' && stat(path, &info) == 0 && S_ISDIR(info.st_mode) &&
         isUsersOwn(info) && (info.st_mode & 077) == 0;
}

}  // namespace

std::int32_t IdentityLock::lockInProcess(const std::string& name, std::chrono::milliseconds timeout,
                                         SecretStoreLock* lock) {
  return velmor::lock("memory:" + name, std::nullopt, std::string(), timeout, lock);
}

std::int32_t IdentityLock::lockFile(const std::string& directory, const std::string& fileName,
                                    std::chrono::milliseconds timeout, SecretStoreLock* lock) {
  // Named by the file, so that two stores over one directory share the lock.
  return velmor::lock("file:" + directory + "/" + fileName, directory, fileName, timeout, lock);
}

std::string IdentityLock::fileNameFor(const std::string& service, const std::string& account) {
  const std::string hash = StoredSecretItem::fileNameFor(service, account);
  return hash.empty() ? hash : hash + ".lock";
}

std::string IdentityLock::runtimeDirectory() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (isPrivateDirectory(runtime)) return runtime + std::string(kDirectoryName);
  // Where the session's runtime directory usually is, for processes started
  // without the variable (cron, some service managers).
  const std::string perUser = "/run/user/" + std::to_string(geteuid());
  if (isPrivateDirectory(perUser.c_str())) return perUser + kDirectoryName;
  const std::string files = FileSecretStore::defaultDirectory();
  const std::size_t slash = files.find_last_of('/');
  if (slash == std::string::npos) return {};
  return files.substr(0, slash) + "/locks";
}

}  // namespace velmor
