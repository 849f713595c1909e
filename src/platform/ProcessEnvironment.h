// The operating-system services the error funnel needs: whether a debugger
// is attached, and the console a developer watches.
#ifndef VELMOR_PLATFORM_PROCESS_ENVIRONMENT_H_
#define VELMOR_PLATFORM_PROCESS_ENVIRONMENT_H_

#include <string_view>

namespace velmor {

// Implementations must be callable from any thread, several at once, and
// must not throw; callers nevertheless contain anything they throw.
class ProcessEnvironment {
 public:
  virtual ~ProcessEnvironment() = default;

  // True while a debugger traces this process.
  virtual bool isDebuggerAttached() = 0;
  // Writes `bytes` as they are (the caller supplies any line end) to the
  // console; failures are dropped.
  virtual void writeToConsole(std::string_view bytes) = 0;

  // The real one: /proc/self/status and standard error. Never destroyed.
  static ProcessEnvironment& system();
  // The environment the library uses: the one installed last, else system().
  static ProcessEnvironment& defaultEnvironment();
  // Installs `environment` (not owned; nullptr reinstalls system()) and
  // returns the one installed before, nullptr when that was system(). For
  // tests: the caller keeps it alive and restores the previous one before
  // destroying it, at a moment when no other thread is reporting an error.
  static ProcessEnvironment* setDefault(ProcessEnvironment* environment);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_PROCESS_ENVIRONMENT_H_
