#include "StderrLoggerDelegate.h"

#include <cstdio>

namespace velmor::tool {

void StderrLoggerDelegate::velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&,
                                                        const std::string& message, std::int64_t) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::fprintf(stderr, "velmor-auth: log: %s\n", message.c_str());
  std::fflush(stderr);
}

}  // namespace velmor::tool
