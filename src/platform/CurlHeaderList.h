// Owner of one libcurl header list.
#ifndef VELMOR_PLATFORM_CURL_HEADER_LIST_H_
#define VELMOR_PLATFORM_CURL_HEADER_LIST_H_

#include <curl/curl.h>

#include <string>

namespace velmor {

// Owns a curl_slist of request header lines. libcurl reads the list during
// the transfer without copying it, so the list must outlive the transfer.
// Move-only; not thread-safe.
class CurlHeaderList final {
 public:
  CurlHeaderList() = default;
  CurlHeaderList(CurlHeaderList&& other) noexcept;
  CurlHeaderList& operator=(CurlHeaderList&& other) noexcept;
  CurlHeaderList(const CurlHeaderList&) = delete;
  CurlHeaderList& operator=(const CurlHeaderList&) = delete;
  ~CurlHeaderList();

  // Adds one line ("Name: value", "Name;" for an empty value, "Name:" to
  // suppress a header libcurl would add). False when libcurl cannot allocate
  // it; the list then stays as it was.
  bool append(const std::string& line);

  // Null while the list is empty; still owned by this object.
  curl_slist* get() const { return list_; }

 private:
  curl_slist* list_ = nullptr;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURL_HEADER_LIST_H_
