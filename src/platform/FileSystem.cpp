#include "platform/FileSystem.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/FileDescriptor.h"

namespace velmor {

namespace {

constexpr mode_t kDirectoryMode = 0700;

// 0 when `path` is a directory (made now or already there), else errno.
int makeOneDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), kDirectoryMode) == 0) return 0;
  const int error = errno;
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
  return error;
}

int writeAll(int fd, const Data& contents) {
  std::size_t offset = 0;
  while (offset < contents.size()) {
    const ssize_t written = ::write(fd, contents.data() + offset, contents.size() - offset);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    offset += static_cast<std::size_t>(written);
  }
  return 0;
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Makes the rename itself durable; a failure here loses nothing already
// written, so it is not reported.
void syncDirectory(const std::string& directory) {
  FileDescriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.valid()) ::fsync(fd.get());
}

}  // namespace

int FileSystem::createDirectories(const std::string& path) {
  if (path.empty()) return ENOENT;
  // Every prefix ending before a slash, then the whole path.
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (path[slash - 1] == '/') continue;
    if (const int error = makeOneDirectory(path.substr(0, slash))) return error;
  }
  return path.back() == '/' ? 0 : makeOneDirectory(path);
}

std::optional<Data> FileSystem::readFile(const std::string& path, std::size_t maxLength) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return std::nullopt;
  Data contents;
  std::uint8_t chunk[16 * 1024];
  for (;;) {
    const ssize_t count = ::read(fd.get(), chunk, sizeof chunk);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return contents;
    if (contents.size() + static_cast<std::size_t>(count) > maxLength) return std::nullopt;
    contents.insert(contents.end(), chunk, chunk + count);
  }
}

int FileSystem::writeFileAtomically(const std::string& path, const Data& contents) {
  std::string temporaryPath = path + ".XXXXXX";
  FileDescriptor fd(::mkostemp(temporaryPath.data(), O_CLOEXEC));
  if (!fd.valid()) return errno;
  int error = writeAll(fd.get(), contents);
  if (error == 0 && ::fsync(fd.get()) != 0) error = errno;
  if (!fd.close() && error == 0) error = errno;
  if (error == 0 && ::rename(temporaryPath.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temporaryPath.c_str());
    return error;
  }
  syncDirectory(directoryOf(path));
  return 0;
}

}  // namespace velmor
