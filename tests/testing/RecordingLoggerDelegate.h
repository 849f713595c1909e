// A logger delegate that keeps every message, and a guard that installs it on
// the shared logger for one test and restores the logger afterwards.
#ifndef VELMOR_TESTS_TESTING_RECORDING_LOGGER_DELEGATE_H_
#define VELMOR_TESTS_TESTING_RECORDING_LOGGER_DELEGATE_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor::test {

class RecordingLoggerDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  struct Entry {
    std::string message;
    std::int64_t logLevel;
  };

  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t logLevel) override {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back({message, logLevel});
  }

  std::vector<Entry> entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
  }

  std::vector<std::string> messages() const {
    std::vector<std::string> out;
    for (const Entry& entry : entries()) out.push_back(entry.message);
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

// Sets the shared logger's level and delegate for the guard's lifetime.
class ScopedLogger final {
 public:
  ScopedLogger(std::int64_t logLevel, VelmorAuthorizationLoggerDelegate* delegate)
      : logger_(VelmorAuthorizationLogger::sharedLogger()),
        savedLevel_(logger_.logLevel()),
        savedDelegate_(logger_.delegate()) {
    logger_.setLogLevel(logLevel);
    logger_.setDelegate(delegate);
  }
  ~ScopedLogger() {
    logger_.setLogLevel(savedLevel_);
    logger_.setDelegate(savedDelegate_);
  }
  ScopedLogger(const ScopedLogger&) = delete;
  ScopedLogger& operator=(const ScopedLogger&) = delete;

 private:
  VelmorAuthorizationLogger& logger_;
  std::int64_t savedLevel_;
  VelmorAuthorizationLoggerDelegate* savedDelegate_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TESTING_RECORDING_LOGGER_DELEGATE_H_
