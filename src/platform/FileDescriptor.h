// Owner of one POSIX file descriptor.
#ifndef VELMOR_PLATFORM_FILE_DESCRIPTOR_H_
#define VELMOR_PLATFORM_FILE_DESCRIPTOR_H_

namespace velmor {

// Closes the descriptor it holds when destroyed; -1 means none. Move-only;
// use it from one thread at a time.
class FileDescriptor final {
 public:
  FileDescriptor() = default;
  // Takes ownership of `fd` (which may be -1, as a failed open returns).
  explicit FileDescriptor(int fd) : fd_(fd) {}

  FileDescriptor(FileDescriptor&& other) noexcept;
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  bool valid() const { return fd_ >= 0; }
  // Still owned by this object.
  int get() const { return fd_; }

  // Gives up ownership, for calls that take the descriptor over (fdopendir).
  int release();

  // Closes now and reports close()'s own failure, which on some file systems
  // is the first sign that written bytes did not reach the disk. Returns
  // whether the close succeeded; the descriptor is gone either way.
  bool close();

 private:
  int fd_ = -1;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_FILE_DESCRIPTOR_H_
