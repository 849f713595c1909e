// The HttpClient base's out-of-line members, for this test binary only,
// while the library does not define them yet. Remove this file when the
// library's HTTP client is linked in: its definitions replace these.
#include <memory>
#include <mutex>
#include <utility>

#include "velmor/HttpClient.h"

namespace velmor {
namespace {

std::mutex defaultMutex;
std::shared_ptr<HttpClient> installedDefault;

}  // namespace

HttpClient::~HttpClient() = default;

std::shared_ptr<HttpClient> HttpClient::defaultClient() {
  std::lock_guard<std::mutex> lock(defaultMutex);
  return installedDefault;
}

void HttpClient::setDefault(std::shared_ptr<HttpClient> client) {
  std::lock_guard<std::mutex> lock(defaultMutex);
  installedDefault = std::move(client);
}

}  // namespace velmor
