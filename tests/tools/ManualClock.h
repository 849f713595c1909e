// A clock for the development server's tests: it stands still until moved.
#ifndef VELMOR_TESTS_TOOLS_MANUAL_CLOCK_H_
#define VELMOR_TESTS_TOOLS_MANUAL_CLOCK_H_

#include <atomic>
#include <chrono>
#include <cstdint>

#include "devserver/Clock.h"

namespace velmor::test {

class ManualClock final : public devserver::Clock {
 public:
  TimePoint now() const override { return TimePoint(std::chrono::seconds(seconds_.load())); }
  void advance(std::chrono::seconds seconds) { seconds_ += seconds.count(); }

 private:
  // Any fixed moment will do (seconds since 1970).
  std::atomic<std::int64_t> seconds_{1700000000};
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TOOLS_MANUAL_CLOCK_H_
