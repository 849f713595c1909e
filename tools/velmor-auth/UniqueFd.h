// Owner of one file descriptor the tool opens itself (the key file, the
// terminal).
#ifndef VELMOR_TOOLS_VELMOR_AUTH_UNIQUE_FD_H_
#define VELMOR_TOOLS_VELMOR_AUTH_UNIQUE_FD_H_

#include <unistd.h>

namespace velmor::tool {

// Closes what it holds when destroyed; -1 means nothing. Not copyable.
class UniqueFd final {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
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
