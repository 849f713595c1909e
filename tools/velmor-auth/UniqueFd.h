// Owner of one file descriptor the tool opens itself (the key file, the
// terminal, a pipe).
#ifndef VELMOR_TOOLS_VELMOR_AUTH_UNIQUE_FD_H_
#define VELMOR_TOOLS_VELMOR_AUTH_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace velmor::tool {

// Closes what it holds when destroyed; -1 means nothing. Move-only.
class UniqueFd final {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      if (fd_ >= 0) ::close(fd_);
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() {
    if (fd_ >= 0) ::close(fd_);
  }

  bool valid() const { return fd_ >= 0; }
  int get() const { return fd_; }

  // Closes now; false when close() reported that written bytes may be lost.
  bool close() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_UNIQUE_FD_H_
