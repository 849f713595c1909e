// The few file operations the library needs: its data directory and the
// small files it keeps there.
#ifndef VELMOR_PLATFORM_FILE_SYSTEM_H_
#define VELMOR_PLATFORM_FILE_SYSTEM_H_

#include <cstddef>
#include <optional>
#include <string>

#include "velmor/Data.h"

namespace velmor {

// Stateless and thread-safe. Failures are returned as errno values (0 is
// success); nothing throws except std::bad_alloc.
class FileSystem final {
 public:
  FileSystem() = delete;

  // Creates the directory `path` and any missing parents, each with
  // permissions 0700 (less the umask). An existing directory is no error;
  // something else in the way gives ENOTDIR.
  static int createDirectories(const std::string& path);

  // The whole file, or nothing when it cannot be read or holds more than
  // `maxLength` bytes.
  static std::optional<Data> readFile(const std::string& path, std::size_t maxLength);

  // Replaces `path` with `contents` so that a crash leaves the old or the
  // new file, never a torn one: the bytes go to a temporary file in the same
  // directory (permissions 0600), are flushed to disk and renamed over
  // `path`. On failure the temporary file is removed.
  static int writeFileAtomically(const std::string& path, const Data& contents);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_FILE_SYSTEM_H_
