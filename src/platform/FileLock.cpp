#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <utility>

namespace velmor {

std::optional<FileLock> FileLock::acquire(int directoryFd, const char* name) {
  FileDescriptor file(
      openat(directoryFd, name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!file.valid()) return std::nullopt;
  int result;
  do {
    result = flock(file.get(), LOCK_EX);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return std::nullopt;
  return FileLock(std::move(file));
}

}  // namespace velmor
