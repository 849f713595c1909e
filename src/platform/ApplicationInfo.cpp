#include "velmor/ApplicationInfo.h"

#include <mutex>
#include <utility>

namespace velmor {

namespace {

std::mutex infoMutex;
std::optional<ApplicationInfo> currentInfo;

}  // namespace

void ApplicationInfo::setCurrent(std::optional<ApplicationInfo> info) {
  std::lock_guard<std::mutex> lock(infoMutex);
  currentInfo = std::move(info);
}

std::optional<ApplicationInfo> ApplicationInfo::current() {
  std::lock_guard<std::mutex> lock(infoMutex);
  return currentInfo;
}

}  // namespace velmor
