// Collects what the process writes to standard error while the guard lives.
#ifndef VELMOR_TESTING_CAPTURED_STANDARD_ERROR_H_
#define VELMOR_TESTING_CAPTURED_STANDARD_ERROR_H_

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace velmor::test {

// File descriptor 2 points at an unnamed temporary file until destruction,
// so writes from every thread and from C libraries are caught, not only
// std::cerr. Not nestable; one at a time per process.
class CapturedStandardError final {
 public:
  CapturedStandardError() {
    std::fflush(stderr);
    const std::string directory = std::filesystem::temp_directory_path().string();
    capture_ = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    saved_ = ::dup(STDERR_FILENO);
    if (capture_ < 0 || saved_ < 0 || ::dup2(capture_, STDERR_FILENO) < 0) {
      closeAll();
      throw std::runtime_error("cannot capture standard error");
    }
  }
  ~CapturedStandardError() {
    std::fflush(stderr);
    ::dup2(saved_, STDERR_FILENO);
    closeAll();
  }
  CapturedStandardError(const CapturedStandardError&) = delete;
  CapturedStandardError& operator=(const CapturedStandardError&) = delete;

  // Everything written so far.
  std::string text() const {
    std::fflush(stderr);
    std::string all;
    char chunk[4096];
    for (off_t at = 0;;) {
      const ssize_t count = ::pread(capture_, chunk, sizeof chunk, at);
      if (count <= 0) return all;
      all.append(chunk, static_cast<std::size_t>(count));
      at += count;
    }
  }

 private:
  void closeAll() {
    if (capture_ >= 0) ::close(capture_);
    if (saved_ >= 0) ::close(saved_);
  }

  int capture_ = -1;
  int saved_ = -1;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_CAPTURED_STANDARD_ERROR_H_
