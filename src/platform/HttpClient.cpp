#include "velmor/HttpClient.h"

#include <mutex>
#include <utility>

#include "platform/CurlGlobal.h"
#include "velmor/CurlHttpClient.h"

namespace velmor {

namespace {

struct DefaultClientSlot {
  std::mutex mutex;
  std::shared_ptr<HttpClient> client;  // guarded by mutex
};

// The slot comes into being after libcurl, and with it OpenSSL, has been
// initialised. Objects are destroyed at exit in the reverse order, so the
// default client closes its TLS connections before OpenSSL's exit handler
// tears the TLS library down.
DefaultClientSlot& defaultClientSlot() {
  curlGlobalInit();
  static DefaultClientSlot slot;
  return slot;
}

}  // namespace

HttpClient::~HttpClient() = default;

std::shared_ptr<HttpClient> HttpClient::defaultClient() {
  DefaultClientSlot& slot = defaultClientSlot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  if (!slot.client) slot.client = std::make_shared<CurlHttpClient>();
  return slot.client;
}

void HttpClient::setDefault(std::shared_ptr<HttpClient> client) {
  DefaultClientSlot& slot = defaultClientSlot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  slot.client = std::move(client);
}

}  // namespace velmor
