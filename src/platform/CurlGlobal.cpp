#include "platform/CurlGlobal.h"

#include <mutex>

namespace velmor {

CURLcode curlGlobalInit() {
  static std::once_flag once;
  static CURLcode result = CURLE_FAILED_INIT;
  std::call_once(once, [] { result = curl_global_init(CURL_GLOBAL_DEFAULT); });
  return result;
}

}  // namespace velmor
