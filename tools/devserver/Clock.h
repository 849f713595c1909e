// Where the development server reads the time, so that tests can move it.
#ifndef VELMOR_TOOLS_DEVSERVER_CLOCK_H_
#define VELMOR_TOOLS_DEVSERVER_CLOCK_H_

#include <chrono>

namespace velmor::devserver {

// Token lifetimes, authorization codes and lock-outs all ask one clock.
// Implementations must be safe to call from any thread.
class Clock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  virtual ~Clock() = default;
  virtual TimePoint now() const = 0;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_CLOCK_H_
