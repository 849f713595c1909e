#include "platform/CurlEasyHandle.h"

#include <utility>

#include "platform/CurlGlobal.h"

namespace velmor {

std::optional<CurlEasyHandle> CurlEasyHandle::create() {
  // curl_easy_init would initialise libcurl itself, but without telling us
  // whether that worked.
  if (curlGlobalInit() != CURLE_OK) return std::nullopt;
  CURL* handle = curl_easy_init();
  if (handle == nullptr) return std::nullopt;
  return CurlEasyHandle(handle);
}

CurlEasyHandle::CurlEasyHandle(CurlEasyHandle&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)) {}

CurlEasyHandle& CurlEasyHandle::operator=(CurlEasyHandle&& other) noexcept {
  if (this != &other) {
    curl_easy_cleanup(handle_);
    handle_ = std::exchange(other.handle_, nullptr);
  }
  return *this;
}

CurlEasyHandle::~CurlEasyHandle() { curl_easy_cleanup(handle_); }

}  // namespace velmor
