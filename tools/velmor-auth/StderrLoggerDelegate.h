// Shows the library's log lines on standard error (--log-level).
#ifndef VELMOR_TOOLS_VELMOR_AUTH_STDERR_LOGGER_DELEGATE_H_
#define VELMOR_TOOLS_VELMOR_AUTH_STDERR_LOGGER_DELEGATE_H_

#include <cstdint>
#include <mutex>
#include <string>

#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor::tool {

// One line per message, "velmor-auth: log: <LABEL>\t<text>", whole lines
// even when the library logs from several threads.
class StderrLoggerDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger& logger, const std::string& message,
                                    std::int64_t logLevel) override;

 private:
  std::mutex mutex_;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_STDERR_LOGGER_DELEGATE_H_
