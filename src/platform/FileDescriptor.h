// Owns one open file descriptor.
#ifndef VELMOR_PLATFORM_FILE_DESCRIPTOR_H_
#define VELMOR_PLATFORM_FILE_DESCRIPTOR_H_

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace velmor {

// Closes the descriptor when it goes away. Move-only; -1 holds nothing.
class FileDescriptor final {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  bool isValid() const { return fd_ >= 0; }
  int get() const { return fd_; }

  // Closes now and reports close's own failure (0 or errno), which matters
  // after writing: a full disk may show only here.
  int close() {
    if (fd_ < 0) return 0;
    const int result = ::close(std::exchange(fd_, -1));
    return result == 0 ? 0 : errno;
  }

 private:
  void reset() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

  int fd_ = -1;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_FILE_DESCRIPTOR_H_
