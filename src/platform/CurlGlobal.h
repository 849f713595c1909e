// libcurl's process-wide set-up.
#ifndef VELMOR_PLATFORM_CURL_GLOBAL_H_
#define VELMOR_PLATFORM_CURL_GLOBAL_H_

#include <curl/curl.h>

namespace velmor {

// Initialises libcurl, and through it OpenSSL, the first time it is called
// from any thread, and answers that outcome on every call. A failure is kept,
// not retried: every curl transfer of the process then fails with it. Global
// clean-up is left to process exit, since other parts of the process may
// still hold handles.
CURLcode curlGlobalInit();

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURL_GLOBAL_H_
