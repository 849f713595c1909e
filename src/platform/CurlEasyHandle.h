// Owner of one libcurl easy handle.
#ifndef VELMOR_PLATFORM_CURL_EASY_HANDLE_H_
#define VELMOR_PLATFORM_CURL_EASY_HANDLE_H_

#include <curl/curl.h>

#include <optional>

namespace velmor {

// Owns a CURL easy handle, which keeps its live connections and TLS session
// cache between transfers. Move-only; one thread at a time may use it.
class CurlEasyHandle final {
 public:
  // Empty when libcurl cannot make a handle (out of memory, or a failed
  // global initialisation).
  static std::optional<CurlEasyHandle> create();

  CurlEasyHandle(CurlEasyHandle&& other) noexcept;
  CurlEasyHandle& operator=(CurlEasyHandle&& other) noexcept;
  CurlEasyHandle(const CurlEasyHandle&) = delete;
  CurlEasyHandle& operator=(const CurlEasyHandle&) = delete;
  ~CurlEasyHandle();

  // Never null; still owned by this object.
  CURL* get() const { return handle_; }

 private:
  explicit CurlEasyHandle(CURL* handle) : handle_(handle) {}

  CURL* handle_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURL_EASY_HANDLE_H_
