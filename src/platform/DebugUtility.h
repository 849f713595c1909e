// Tells whether a debugger is attached, so that internal failures can be
// made loud for a developer and stay quiet for users.
#ifndef VELMOR_PLATFORM_DEBUG_UTILITY_H_
#define VELMOR_PLATFORM_DEBUG_UTILITY_H_

#include <string>

namespace velmor {

// Stateless and thread-safe. Asks the kernel on every call, since a
// debugger may attach or detach at any time.
class DebugUtility final {
 public:
  DebugUtility() = delete;

  // True when /proc/self/status names a tracer (a nonzero "TracerPid").
  static bool isDebuggerAttached();
  // The same test on a status file in the /proc/<pid>/status format. False
  // when the file cannot be read or has no "TracerPid" line.
  static bool isDebuggerAttached(const std::string& statusFilePath);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_DEBUG_UTILITY_H_
