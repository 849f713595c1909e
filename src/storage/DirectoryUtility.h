// Where the library keeps the application's own files.
#ifndef VELMOR_STORAGE_DIRECTORY_UTILITY_H_
#define VELMOR_STORAGE_DIRECTORY_UTILITY_H_

#include <string>

#include "velmor/Error.h"

namespace velmor {

// The per-application data directory: the user's data directory
// ($XDG_DATA_HOME when it is an absolute path, else ~/.local/share) plus
// the application's executable name (ApplicationInfo), or "UnitTestApp"
// when the application has not named itself. Machine and user come from
// SystemIdentity::defaultIdentity(). Stateless and thread-safe.
class DirectoryUtility final {
 public:
  static constexpr char kUnitTestApplicationName[] = "UnitTestApp";
  // File errors are the system's errno values in this domain, with the
  // path under "NSFilePath" and the system's text in the description.
  static constexpr char kPosixErrorDomain[] = "NSPOSIXErrorDomain";

  DirectoryUtility() = delete;

  // The user's data directory is always created when missing; the
  // application's directory only when `create` is set. Directories made
  // here are private to the user (0700). A failure sets `*error` (when
  // given) and the path is still returned; an existing directory is no
  // error. Without a known home directory the error is ENOENT and nothing
  // is created.
  static std::string applicationSupportDirectory(bool create, ErrorRef* error);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_DIRECTORY_UTILITY_H_
