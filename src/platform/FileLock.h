// An exclusive advisory lock on a lock file, held for one scope.
#ifndef VELMOR_PLATFORM_FILE_LOCK_H_
#define VELMOR_PLATFORM_FILE_LOCK_H_

#include <chrono>
#include <optional>
#include <utility>

#include "platform/FileDescriptor.h"

namespace velmor {

// Holds flock(LOCK_EX) on a file until destroyed, serialising the processes
// (and the separately opened descriptors within one process) that agree to
// take it. Advisory: code that does not ask for the lock is not stopped.
// Move-only.
class FileLock final {
 public:
  using Clock = std::chrono::steady_clock;

  // How long a wait sleeps at most between two tries by default.
  static constexpr std::chrono::milliseconds kLongestPause{50};

  // Opens (creating with mode 0600 if needed) `name` in the directory open
  // as `directoryFd` and waits for the lock until `deadline`, so that a
  // holder that hangs (or was stopped) cannot hang its waiters. The tries
  // come quickly at first, then at most `longestPause` apart. Empty on
  // failure, with errno set by the call that failed, or EWOULDBLOCK when the
  // lock was still held at the deadline.
  static std::optional<FileLock> acquire(int directoryFd, const char* name,
                                         Clock::time_point deadline,
                                         std::chrono::milliseconds longestPause = kLongestPause);

 private:
  explicit FileLock(FileDescriptor file) : file_(std::move(file)) {}

  // Closing the only descriptor of the lock file releases the lock.
  FileDescriptor file_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_FILE_LOCK_H_
