#include "testing/FullDiskDirectory.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <vector>

#include "platform/FileDescriptor.h"

namespace velmor::test {

namespace {

// Room for a few records, so a test sees the store work before it fills.
constexpr char kMountOptions[] = "size=256k,mode=0700";
constexpr char kFiller[] = "/filler";

}  // namespace

FullDiskDirectory::FullDiskDirectory(Method preferred) {
  if (preferred == Method::kFullTmpfs && ::geteuid() == 0 &&
      ::mount("tmpfs", path().c_str(), "tmpfs", MS_NOSUID | MS_NODEV, kMountOptions) == 0) {
    method_ = Method::kFullTmpfs;
  }
}

FullDiskDirectory::~FullDiskDirectory() {
  release();
  if (method_ == Method::kFullTmpfs) ::umount2(path().c_str(), MNT_DETACH);
}

const char* FullDiskDirectory::methodName() const {
  return method_ == Method::kFullTmpfs ? "full tmpfs" : "file-size limit";
}

void FullDiskDirectory::fill() {
  if (full_) return;
  if (method_ == Method::kFileSizeLimit) {
    ::getrlimit(RLIMIT_FSIZE, &savedLimit_);
    savedHandler_ = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit none = savedLimit_;
    none.rlim_cur = 0;
    if (::setrlimit(RLIMIT_FSIZE, &none) != 0) throw std::runtime_error("cannot limit file size");
    full_ = true;
    return;
  }
  FileDescriptor filler(::open((path() + kFiller).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  if (!filler.valid()) throw std::runtime_error("cannot create the filler file");
  const std::vector<char> block(4096, 'f');
  // Whole blocks first, then single bytes, until not one more fits.
  for (std::size_t size = block.size(); size > 0; size = size > 1 ? 1 : 0) {
    while (::write(filler.get(), block.data(), size) > 0) {
    }
    if (errno != ENOSPC) throw std::runtime_error("filling the file system failed");
  }
  full_ = true;
}

void FullDiskDirectory::release() {
  if (!full_) return;
  if (method_ == Method::kFileSizeLimit) {
    ::setrlimit(RLIMIT_FSIZE, &savedLimit_);
    std::signal(SIGXFSZ, savedHandler_);
  } else {
    ::unlink((path() + kFiller).c_str());
  }
  full_ = false;
}

}  // namespace velmor::test
