#include "platform/ProcessEnvironment.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "platform/DebugUtility.h"

namespace velmor {

namespace {

class SystemProcessEnvironment final : public ProcessEnvironment {
 public:
  bool isDebuggerAttached() override { return DebugUtility::isDebuggerAttached(); }

  // One write() per chunk keeps lines from several threads from interleaving
  // mid-line in the common case of a short message.
  void writeToConsole(std::string_view bytes) override {
    while (!bytes.empty()) {
      ssize_t written = ::write(STDERR_FILENO, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
  }
};

// Keeps the system environment usable from other static destructors: its
// own destructor is never run.
union NeverDestroyed {
  NeverDestroyed() : environment() {}
  ~NeverDestroyed() {}
  SystemProcessEnvironment environment;
};

std::atomic<ProcessEnvironment*> installed{nullptr};

}  // namespace

ProcessEnvironment& ProcessEnvironment::system() {
  static NeverDestroyed holder;
  return holder.environment;
}

ProcessEnvironment& ProcessEnvironment::defaultEnvironment() {
  ProcessEnvironment* environment = installed.load(std::memory_order_acquire);
  return environment != nullptr ? *environment : system();
}

ProcessEnvironment* ProcessEnvironment::setDefault(ProcessEnvironment* environment) {
  return installed.exchange(environment, std::memory_order_acq_rel);
}

}  // namespace velmor
