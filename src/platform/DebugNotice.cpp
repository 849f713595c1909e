#include "velmor/DebugNotice.h"

#include <memory>
#include <mutex>
#include <utility>

namespace velmor {

namespace {

// The handler runs outside the lock, on a snapshot, so that it may replace
// itself and a slow handler does not hold up other threads.
std::mutex handlerMutex;
std::shared_ptr<const DebugNotice::Handler> currentHandler;

std::shared_ptr<const DebugNotice::Handler> snapshot() {
  std::lock_guard<std::mutex> lock(handlerMutex);
  return currentHandler;
}

}  // namespace

void DebugNotice::setHandler(Handler handler) {
  std::shared_ptr<const Handler> replacement;
  if (handler) replacement = std::make_shared<const Handler>(std::move(handler));
  std::lock_guard<std::mutex> lock(handlerMutex);
  currentHandler.swap(replacement);
}

void DebugNotice::show(const std::string& title, const std::string& message) noexcept {
  try {
    std::shared_ptr<const Handler> handler = snapshot();
    if (handler) (*handler)(title, message);
  } catch (...) {
    // A notice is a courtesy to the developer; a failing handler must not
    // turn the failure being reported into a new one.
  }
}

}  // namespace velmor
