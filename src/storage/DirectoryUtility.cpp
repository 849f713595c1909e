#include "storage/DirectoryUtility.h"

#include <cerrno>
#include <optional>
#include <system_error>

#include "platform/FileSystem.h"
#include "platform/SystemIdentity.h"
#include "support/Format.h"
#include "velmor/ApplicationInfo.h"

namespace velmor {

namespace {

ErrorRef posixError(int code, const std::optional<std::string>& path) {
  Dictionary userInfo{
      {"NSLocalizedDescription", stringWithFormat("The operation couldn’t be completed. %@",
                                                  std::generic_category().message(code))}};
  if (path) userInfo.set("NSFilePath", *path);
  return std::make_shared<Error>(DirectoryUtility::kPosixErrorDomain, code, std::move(userInfo));
}

// Nothing when no home directory is known.
std::optional<std::string> userDataDirectory(SystemIdentity& identity) {
  std::optional<std::string> configured = identity.environmentVariable("XDG_DATA_HOME");
  // Relative values are ignored, as the XDG rules ask.
  if (configured && !configured->empty() && configured->front() == '/') return configured;
  std::optional<std::string> home = identity.homeDirectory();
  if (!home || home->empty()) return std::nullopt;
  return *home + "/.local/share";
}

std::string applicationName() {
  std::optional<ApplicationInfo> info = ApplicationInfo::current();
  if (info && !info->executableName.empty()) return info->executableName;
  return DirectoryUtility::kUnitTestApplicationName;
}

bool created(const std::string& path, ErrorRef* error) {
  const int code = FileSystem::createDirectories(path);
  if (code == 0) return true;
  if (error) *error = posixError(code, path);
  return false;
}

}  // namespace

std::string DirectoryUtility::applicationSupportDirectory(bool create, ErrorRef* error) {
  std::optional<std::string> base = userDataDirectory(SystemIdentity::defaultIdentity());
  std::string path = base.value_or("") + "/" + applicationName();
  if (!base) {
    if (error) *error = posixError(ENOENT, std::nullopt);
    return path;
  }
  if (created(*base, error) && create) created(path, error);
  return path;
}

}  // namespace velmor
