// A directory whose file system can be made full for one test.
#ifndef VELMOR_TESTING_FULL_DISK_DIRECTORY_H_
#define VELMOR_TESTING_FULL_DISK_DIRECTORY_H_

#include <sys/resource.h>

#include <string>

#include "testing/TemporaryDirectory.h"

namespace velmor::test {

// Prefers a real full file system: a small tmpfs mounted on a temporary
// directory (needs root and a working mount), filled to the last byte with
// a filler file, so writes fail with ENOSPC. Where mounting is not allowed,
// the directory is an ordinary one and fill() sets the process's file-size
// limit (RLIMIT_FSIZE) to zero with SIGXFSZ ignored, so every write that
// would grow a file fails with EFBIG, from any thread. Reading, creating
// empty files, renaming and removing keep working in both.
//
// Not thread-safe; one per process at a time (the limit is process-wide). The destructor releases
// the space or the limit and unmounts (lazily, so open files do not block it).
class FullDiskDirectory final {
 public:
  enum class Method { kFullTmpfs, kFileSizeLimit };

  // kFileSizeLimit asks for the limit even where a tmpfs could be mounted.
  explicit FullDiskDirectory(Method preferred = Method::kFullTmpfs);
  ~FullDiskDirectory();
  FullDiskDirectory(const FullDiskDirectory&) = delete;
  FullDiskDirectory& operator=(const FullDiskDirectory&) = delete;

  const std::string& path() const { return directory_.path(); }
  Method method() const { return method_; }
  // "full tmpfs" or "file-size limit", for the test's log.
  const char* methodName() const;

  // Makes every write that grows a file fail. Throws std::runtime_error when
  // the space cannot be used up.
  void fill();
  // Makes room again.
  void release();

 private:
  TemporaryDirectory directory_;
  Method method_ = Method::kFileSizeLimit;
  bool full_ = false;
  rlimit savedLimit_{};
  void (*savedHandler_)(int) = nullptr;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_FULL_DISK_DIRECTORY_H_
