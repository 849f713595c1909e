// A ProcessEnvironment that forwards every call to another one, so that a
// test can replace one service and keep the rest.
#ifndef VELMOR_PLATFORM_PROCESS_ENVIRONMENT_WRAPPER_H_
#define VELMOR_PLATFORM_PROCESS_ENVIRONMENT_WRAPPER_H_

#include <string_view>

#include "platform/ProcessEnvironment.h"

namespace velmor {

// Does not own the target, which must outlive the wrapper.
class ProcessEnvironmentWrapper : public ProcessEnvironment {
 public:
  explicit ProcessEnvironmentWrapper(ProcessEnvironment& target) : target_(target) {}

  ProcessEnvironment& target() const { return target_; }

  bool isDebuggerAttached() override { return target_.isDebuggerAttached(); }
  void writeToConsole(std::string_view bytes) override { target_.writeToConsole(bytes); }

 private:
  ProcessEnvironment& target_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_PROCESS_ENVIRONMENT_WRAPPER_H_
