#include "velmor/FileSecretStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/FileLock.h"
#include "platform/IdentityLock.h"
#include "platform/Mutex.h"
#include "platform/StoredSecretItem.h"
#include "support/Format.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

constexpr char kLockFileName[] = ".lock";
// Item names are hex digits, so a leading dot keeps temporary files and the
// lock file apart from items.
constexpr char kTemporaryPrefix[] = ".tmp-";
// Far above any credential record; bounds what a foreign file can make us read.
constexpr std::size_t kMaxItemFileSize = std::size_t{16} << 20;

// Threads of one process take this as well as the lock file: where flock is
// emulated by per-process record locks (NFS), it would not keep them apart.
// Timed, so that the whole wait of a writer stays within its deadline.
std::timed_mutex& writerMutex() {
  static std::timed_mutex mutex;
  return mutex;
}

// A refusal is logged once per process and text, not at every call: a
// record read field by field would repeat it many times over.
struct LoggedRefusals {
  Mutex mutex;
  std::set<std::string> texts GUARDED_BY(mutex);
};

void logOnce(const std::string& message) {
  static LoggedRefusals logged;
  {
    MutexLock lock(logged.mutex);
    if (!logged.texts.insert(message).second) return;
  }
  VelmorAuthorizationLogger::sharedLogger().log(message, VelmorAuthorizationLogger::kLevelError);
}

// A relative directory would follow the process's working directory, so one
// identity could read different records from different places.
std::int32_t checkDirectoryName(const std::string& directory) {
  if (directory.empty()) return kSecretStoreNotAvailable;
  if (directory.front() == '/') return kSecretStoreSuccess;
  logOnce(stringWithFormat(
      "The file store does not use '%@': its directory must be an absolute path.", directory));
  return kSecretStoreParameterError;
}

// Another user could have planted what lies there, or change it: a
// directory or file of this store must be the user's own and writable by
// nobody else.
bool isTrusted(const struct stat& info, const std::string& path) {
  if (info.st_uid != geteuid()) {
    logOnce(stringWithFormat(
        "The file store does not use '%@': it belongs to user %u, not to this user (%u).", path,
        static_cast<unsigned>(info.st_uid), static_cast<unsigned>(geteuid())));
    return false;
  }
  if ((info.st_mode & 022) != 0) {
    logOnce(stringWithFormat(
        "The file store does not use '%@': group or others may write to it (mode %04o).", path,
        static_cast<unsigned>(info.st_mode & 07777)));
    return false;
  }
  return true;
}

// Secrets pass through these buffers; they are wiped before being freed.
class WipedOnExit final {
 public:
  explicit WipedOnExit(Data& data) : data_(data) {}
  WipedOnExit(const WipedOnExit&) = delete;
  WipedOnExit& operator=(const WipedOnExit&) = delete;
  ~WipedOnExit() { OPENSSL_cleanse(data_.data(), data_.size()); }

 private:
  Data& data_;
};

// What lies under an item's file name.
enum class Slot { kAbsent, kItem, kForeign, kDamaged, kUnreadable, kUntrusted };

struct Lookup {
  Slot slot;
  Data data;  // the item's bytes when slot is kItem
};

void makeDirectories(const std::string& path) {
  // Failures are left to the open that follows, which reports the one that matters.
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    mkdir(path.substr(0, slash).c_str(), 0700);
  mkdir(path.c_str(), 0700);
}

// Whoever can list the directory learns which (guessable) names hold
// secrets, and whoever can write to it can replace or delete items, so a
// directory made looser by hand or by another tool is tightened before
// every write. The owner's own bits are left alone.
bool tightenMode(int directoryFd) {
  struct stat info;
  if (fstat(directoryFd, &info) != 0) return false;
  if ((info.st_mode & 077) == 0) return true;
  return fchmod(directoryFd, info.st_mode & 0700) == 0;
}

// A missing directory holds no items; only add creates it.
std::int32_t openDirectory(const std::string& path, bool create, FileDescriptor* directory) {
  if (create) makeDirectories(path);
  *directory = FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory->valid())
    return errno == ENOENT && !create ? kSecretStoreItemNotFound : kSecretStoreIoError;
  struct stat info;
  if (fstat(directory->get(), &info) != 0) return kSecretStoreIoError;
  if (!isTrusted(info, path)) return FileSecretStore::kStatusUntrusted;
  return kSecretStoreSuccess;
}

// Reads a regular file of at most kMaxItemFileSize bytes; kItem means it was
// read whole (what it holds is not yet known).
Slot readItemFile(int fd, const std::string& path, Data* bytes) {
  struct stat info;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return Slot::kUnreadable;
  if (!isTrusted(info, path)) return Slot::kUntrusted;
  if (static_cast<std::uint64_t>(info.st_size) > kMaxItemFileSize) return Slot::kDamaged;
  bytes->resize(static_cast<std::size_t>(info.st_size) + 1);
  std::size_t filled = 0;
  for (;;) {
    ssize_t count = read(fd, bytes->data() + filled, bytes->size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Slot::kUnreadable;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled == bytes->size()) {
      // The file grew after fstat; a writer never does that, so it is not ours.
      if (bytes->size() > kMaxItemFileSize) return Slot::kDamaged;
      bytes->resize(std::min(2 * bytes->size(), kMaxItemFileSize + 1));
    }
  }
  bytes->resize(filled);
  return Slot::kItem;
}

Lookup lookUp(int directoryFd, const std::string& directory, const std::string& fileName,
              const std::string& service, const std::string& account) {
  // O_NONBLOCK so that a FIFO under the name cannot hang the open.
  FileDescriptor file(
      openat(directoryFd, fileName.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file.valid()) return {errno == ENOENT ? Slot::kAbsent : Slot::kUnreadable, {}};
  Data bytes;
  WipedOnExit wipeBytes(bytes);
  Slot slot = readItemFile(file.get(), directory + "/" + fileName, &bytes);
  if (slot != Slot::kItem) return {slot, {}};
  std::optional<StoredSecretItem> item = StoredSecretItem::decode(bytes);
  if (!item) return {Slot::kDamaged, {}};
  bool ours = item->service == service && item->account == account;
  if (!ours) {
    OPENSSL_cleanse(item->data.data(), item->data.size());
    return {Slot::kForeign, {}};
  }
  return {Slot::kItem, std::move(item->data)};
}

bool writeAll(int fd, const Data& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    written += static_cast<std::size_t>(count);
  }
  return true;
}

void syncDirectory(int directoryFd) {
  // Makes the rename or unlink durable. Readers already see the change, so a
  // failure here is not reported as a failed write.
  fsync(directoryFd);
}

// Writes the whole file under a temporary name, flushes it and renames it
// over the item, so that readers and a crash see the old or the new file.
// The caller holds the lock, so a temporary file of that name can only be a
// crashed writer's leftover.
std::int32_t replaceFile(int directoryFd, const std::string& fileName, const Data& contents) {
  std::string temporaryName = kTemporaryPrefix + fileName;
  unlinkat(directoryFd, temporaryName.c_str(), 0);
  FileDescriptor file(openat(directoryFd, temporaryName.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file.valid()) return kSecretStoreIoError;
  bool written = writeAll(file.get(), contents) && fsync(file.get()) == 0;
  written = file.close() && written;
  if (!written ||
      renameat(directoryFd, temporaryName.c_str(), directoryFd, fileName.c_str()) != 0) {
    unlinkat(directoryFd, temporaryName.c_str(), 0);
    return kSecretStoreIoError;
  }
  syncDirectory(directoryFd);
  return kSecretStoreSuccess;
}

std::int32_t deleteFile(int directoryFd, const std::string& fileName) {
  if (unlinkat(directoryFd, fileName.c_str(), 0) != 0) return kSecretStoreIoError;
  syncDirectory(directoryFd);
  return kSecretStoreSuccess;
}

struct DirectoryCloser {
  void operator()(DIR* listing) const { closedir(listing); }
};

// Temporary files of writers that were killed mid-write. Every writer holds
// the lock while its temporary file exists, so under the lock they are all
// leftovers, whatever their age.
void removeLeftovers(int directoryFd) {
  FileDescriptor listingFd(openat(directoryFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!listingFd.valid()) return;
  std::unique_ptr<DIR, DirectoryCloser> listing(fdopendir(listingFd.get()));
  if (!listing) return;
  listingFd.release();
  std::vector<std::string> leftovers;
  const std::string prefix = kTemporaryPrefix;
  while (const dirent* entry = readdir(listing.get())) {
    std::string name = entry->d_name;
    if (name.compare(0, prefix.size(), prefix) == 0) leftovers.push_back(std::move(name));
  }
  for (const std::string& name : leftovers) unlinkat(directoryFd, name.c_str(), 0);
}

enum class Action { kWrite, kDelete, kNotFound, kDuplicate, kIoError, kRefuse };

// The table in the class comment.
Action actionFor(bool adding, bool removing, Slot slot) {
  switch (slot) {
    case Slot::kAbsent:
      return adding ? Action::kWrite : Action::kNotFound;
    case Slot::kItem:
      return adding ? Action::kDuplicate : removing ? Action::kDelete : Action::kWrite;
    case Slot::kForeign:
      return adding ? Action::kWrite : Action::kNotFound;
    case Slot::kDamaged:
      return adding ? Action::kWrite : removing ? Action::kDelete : Action::kIoError;
    case Slot::kUnreadable:
      return Action::kIoError;
    case Slot::kUntrusted:
      return Action::kRefuse;
  }
  return Action::kIoError;
}

// The directory itself if it exists, else the nearest parent that does.
std::string nearestExisting(std::string path) {
  while (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    path.resize(slash == 0 ? 1 : slash);
  }
  return path;
}

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home && home[0] == '/') return home;
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
  passwd entry;
  passwd* found = nullptr;
  int error;
  while ((error = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
         buffer.size() < (std::size_t{1} << 20))
    buffer.resize(2 * buffer.size());
  if (error != 0 || !found || !found->pw_dir || found->pw_dir[0] != '/') return {};
  return found->pw_dir;
}

}  // namespace

FileSecretStore::FileSecretStore(std::string directory, std::chrono::milliseconds lockTimeout)
    : directory_(std::move(directory)), lockTimeout_(lockTimeout) {}

std::string FileSecretStore::defaultDirectory() {
  std::string base;
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  if (dataHome && dataHome[0] == '/') {
    base = dataHome;
  } else {
    std::string home = homeDirectory();
    if (home.empty()) return {};
    base = home + "/.local/share";
  }
  return base + "/velmor-authorization/keychain";
}

std::int32_t FileSecretStore::find(const std::string& service, const std::string& account,
                                   Data* data) {
  if (std::int32_t status = checkDirectoryName(directory_); status != kSecretStoreSuccess)
    return status;
  if (!StoredSecretItem::isStorableName(service) || !StoredSecretItem::isStorableName(account))
    return kSecretStoreParameterError;
  std::string fileName = StoredSecretItem::fileNameFor(service, account);
  if (fileName.empty()) return kSecretStoreIoError;
  FileDescriptor directory;
  std::int32_t status = openDirectory(directory_, false, &directory);
  if (status != kSecretStoreSuccess) return status;
  // No lock: renames are atomic, so a reader sees a whole old or new file.
  Lookup found = lookUp(directory.get(), directory_, fileName, service, account);
  switch (found.slot) {
    case Slot::kItem:
      if (data) {
        *data = std::move(found.data);
      } else {
        OPENSSL_cleanse(found.data.data(), found.data.size());
      }
      return kSecretStoreSuccess;
    case Slot::kAbsent:
    case Slot::kForeign:
      return kSecretStoreItemNotFound;
    case Slot::kDamaged:
    case Slot::kUnreadable:
      return kSecretStoreIoError;
    case Slot::kUntrusted:
      return kStatusUntrusted;
  }
  return kSecretStoreIoError;
}

std::int32_t FileSecretStore::add(const std::string& service, const std::string& account,
                                  const Data& data) {
  return write(Write::kAdd, service, account, &data);
}

std::int32_t FileSecretStore::update(const std::string& service, const std::string& account,
                                     const Data& data) {
  return write(Write::kUpdate, service, account, &data);
}

std::int32_t FileSecretStore::remove(const std::string& service, const std::string& account) {
  return write(Write::kRemove, service, account, nullptr);
}

std::int32_t FileSecretStore::lockItem(const std::string& service, const std::string& account,
                                       std::chrono::milliseconds timeout, SecretStoreLock* lock) {
  if (directory_.empty()) return kSecretStoreNotAvailable;
  return IdentityLock::lockFile(directory_, IdentityLock::fileNameFor(service, account), timeout,
                                lock);
}

std::int32_t FileSecretStore::write(Write kind, const std::string& service,
                                    const std::string& account, const Data* data) {
  if (std::int32_t status = checkDirectoryName(directory_); status != kSecretStoreSuccess)
    return status;
  if (!StoredSecretItem::isStorableName(service) || !StoredSecretItem::isStorableName(account))
    return kSecretStoreParameterError;
  Data contents;
  WipedOnExit wipeContents(contents);
  if (data) {
    contents = StoredSecretItem::encode(service, account, *data);
    if (contents.empty() || contents.size() > kMaxItemFileSize) return kSecretStoreParameterError;
  }
  std::string fileName = StoredSecretItem::fileNameFor(service, account);
  if (fileName.empty()) return kSecretStoreIoError;

  const FileLock::Clock::time_point deadline = FileLock::Clock::now() + lockTimeout_;
  // On the system clock the wait is pthread_mutex_timedlock, which
  // ThreadSanitizer sees; on the steady clock it would be clocklock, which
  // it does not, and every unlock would be reported as a misuse.
  std::unique_lock<std::timed_mutex> threads(writerMutex(),
                                             std::chrono::system_clock::now() + lockTimeout_);
  if (!threads.owns_lock()) return lockTimedOut();
  FileDescriptor directory;
  std::int32_t status = openDirectory(directory_, kind == Write::kAdd, &directory);
  if (status != kSecretStoreSuccess) return status;
  if (!tightenMode(directory.get())) return kSecretStoreIoError;
  std::optional<FileLock> processes = FileLock::acquire(directory.get(), kLockFileName, deadline);
  if (!processes) return errno == EWOULDBLOCK ? lockTimedOut() : kSecretStoreIoError;
  if (!leftoversRemoved_) {
    removeLeftovers(directory.get());
    leftoversRemoved_ = true;
  }

  Lookup found = lookUp(directory.get(), directory_, fileName, service, account);
  OPENSSL_cleanse(found.data.data(), found.data.size());
  switch (actionFor(kind == Write::kAdd, kind == Write::kRemove, found.slot)) {
    case Action::kWrite:
      return replaceFile(directory.get(), fileName, contents);
    case Action::kDelete:
      return deleteFile(directory.get(), fileName);
    case Action::kNotFound:
      return kSecretStoreItemNotFound;
    case Action::kDuplicate:
      return kSecretStoreDuplicateItem;
    case Action::kIoError:
      return kSecretStoreIoError;
    case Action::kRefuse:
      return kStatusUntrusted;
  }
  return kSecretStoreIoError;
}

// Every lock timeout is logged: each is a write that did not happen.
std::int32_t FileSecretStore::lockTimedOut() const {
  VelmorAuthorizationLogger::sharedLogger().log(
      stringWithFormat("The file store in '%@' gave up a write: another writer held its lock for "
                       "more than %ld ms.",
                       directory_, static_cast<std::int64_t>(lockTimeout_.count())),
      VelmorAuthorizationLogger::kLevelError);
  return kSecretStoreNotAvailable;
}

SecretStoreCondition FileSecretStore::condition() {
  if (directory_.empty()) {
    return {kSecretStoreNotAvailable,
            "No home directory was found, so the file store has nowhere to keep items."};
  }
  if (directory_.front() != '/') {
    return {
        kSecretStoreParameterError,
        stringWithFormat("The file store's directory '%@' is not an absolute path.", directory_)};
  }
  const std::string existing = nearestExisting(directory_);
  struct stat info;
  if (stat(existing.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
      access(existing.c_str(), W_OK | X_OK) != 0) {
    return {kSecretStoreIoError,
            stringWithFormat("The file store's directory '%@' cannot be written.", directory_)};
  }
  if (existing == directory_ && (info.st_uid != geteuid() || (info.st_mode & 022) != 0)) {
    return {kStatusUntrusted,
            stringWithFormat("The file store's directory '%@' belongs to another user or others "
                             "may write to it, so nothing in it can be trusted.",
                             directory_)};
  }
  return {kSecretStoreSuccess, stringWithFormat("Items are kept in files in '%@'.", directory_)};
}

std::string FileSecretStore::description() const {
  return stringWithFormat("files in '%@'", directory_);
}

}  // namespace velmor
