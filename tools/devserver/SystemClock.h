// The wall clock, for the server as it runs.
#ifndef VELMOR_TOOLS_DEVSERVER_SYSTEM_CLOCK_H_
#define VELMOR_TOOLS_DEVSERVER_SYSTEM_CLOCK_H_

#include "devserver/Clock.h"

namespace velmor::devserver {

class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_SYSTEM_CLOCK_H_
