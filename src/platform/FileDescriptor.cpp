#include "platform/FileDescriptor.h"

#include <unistd.h>

#include <utility>

namespace velmor {

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

FileDescriptor::~FileDescriptor() { close(); }

int FileDescriptor::release() { return std::exchange(fd_, -1); }

bool FileDescriptor::close() {
  if (fd_ < 0) return true;
  // Not retried on EINTR: Linux releases the descriptor before reporting it,
  // so a retry could close a descriptor another thread has just opened.
  return ::close(std::exchange(fd_, -1)) == 0;
}

}  // namespace velmor
