// Owner of one libcurl share handle.
#ifndef VELMOR_PLATFORM_CURL_SHARE_HANDLE_H_
#define VELMOR_PLATFORM_CURL_SHARE_HANDLE_H_

#include <curl/curl.h>

#include <memory>
#include <optional>

namespace velmor {

// Owns a CURLSH through which the easy handles of one client share DNS
// answers, so that a handle opening a new connection to a known server skips
// the lookup. TLS sessions are not shared: with this system's libcurl and
// OpenSSL, a handle resuming a shared session copies its certificate chain
// outside the share's lock while another thread frees it (ThreadSanitizer
// shows it about once in fifteen concurrent runs); each handle keeps its own
// session. Connections are not shared either: libcurl does not support
// sharing them between threads. The share locks each kind of data with its
// own mutex, so easy handles on several threads may use it at once. Every
// easy handle must be cleaned up (or detached) before this owner goes away.
// Move-only.
class CurlShareHandle final {
 public:
  // Empty when libcurl cannot make or set up the share.
  static std::optional<CurlShareHandle> create();

  CurlShareHandle(CurlShareHandle&& other) noexcept;
  CurlShareHandle& operator=(CurlShareHandle&& other) noexcept;
  CurlShareHandle(const CurlShareHandle&) = delete;
  CurlShareHandle& operator=(const CurlShareHandle&) = delete;
  ~CurlShareHandle();

  // Never null; still owned by this object.
  CURLSH* get() const { return handle_; }

 private:
  struct Locks;

  CurlShareHandle(CURLSH* handle, std::unique_ptr<Locks> locks);
  void reset();

  // On the heap so that the address libcurl was given survives moves.
  std::unique_ptr<Locks> locks_;
  CURLSH* handle_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURL_SHARE_HANDLE_H_
