#include "platform/CurlHeaderList.h"

#include <utility>

namespace velmor {

CurlHeaderList::CurlHeaderList(CurlHeaderList&& other) noexcept
    : list_(std::exchange(other.list_, nullptr)) {}

CurlHeaderList& CurlHeaderList::operator=(CurlHeaderList&& other) noexcept {
  if (this != &other) {
    curl_slist_free_all(list_);
    list_ = std::exchange(other.list_, nullptr);
  }
  return *this;
}

CurlHeaderList::~CurlHeaderList() { curl_slist_free_all(list_); }

bool CurlHeaderList::append(const std::string& line) {
  // On failure curl_slist_append answers null and leaves the list alone.
  curl_slist* longer = curl_slist_append(list_, line.c_str());
  if (longer == nullptr) return false;
  list_ = longer;
  return true;
}

}  // namespace velmor
