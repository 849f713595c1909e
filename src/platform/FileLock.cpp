#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

namespace velmor {

namespace {

// flock cannot wait with a time limit, so the wait polls: quickly at first,
// since writers hold the lock for a few milliseconds, then less often.
constexpr std::chrono::milliseconds kFirstPause{1};

int tryLock(int fd) {
  int result;
  do {
    result = flock(fd, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace

std::optional<FileLock> FileLock::acquire(int directoryFd, const char* name,
                                          Clock::time_point deadline,
                                          std::chrono::milliseconds longestPause) {
  FileDescriptor file(
      openat(directoryFd, name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!file.valid()) return std::nullopt;
  std::chrono::milliseconds pause = kFirstPause;
  while (tryLock(file.get()) != 0) {
    if (errno != EWOULDBLOCK) return std::nullopt;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
      errno = EWOULDBLOCK;
      return std::nullopt;
    }
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
    pause = std::min(2 * pause, longestPause);
  }
  return FileLock(std::move(file));
}

}  // namespace velmor
