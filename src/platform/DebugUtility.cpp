#include "platform/DebugUtility.h"

#include <fstream>
#include <string_view>

#include "support/Text.h"

namespace velmor {

namespace {

constexpr std::string_view kTracerPidField = "TracerPid:";

}  // namespace

bool DebugUtility::isDebuggerAttached() { return isDebuggerAttached("/proc/self/status"); }

bool DebugUtility::isDebuggerAttached(const std::string& statusFilePath) {
  // An unreadable status file means we cannot tell; being quiet is the safe
  // answer, since the attached path shows notices to whoever runs the app.
  std::ifstream status(statusFilePath);
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(kTracerPidField)) {
      return text::integerValue(std::string_view(line).substr(kTracerPidField.size())) != 0;
    }
  }
  return false;
}

}  // namespace velmor
