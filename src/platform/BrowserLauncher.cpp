#include "velmor/BrowserLauncher.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/PosixError.h"
#include "platform/UrlLoadingError.h"
#include "support/Text.h"

extern char** environ;

namespace velmor {
namespace {

constexpr char kOpener[] = "xdg-open";

// posix_spawn's attributes and file actions, released however the launch
// ends.
class SpawnSettings final {
 public:
  SpawnSettings() {
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawn_file_actions_init(&actions_);
  }
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  // 0 or the error number of the first step that failed.
  int detachFromTerminal() {
    if (const int failure = ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID)) {
      return failure;
    }
    if (const int failure =
            ::posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0)) {
      return failure;
    }
    return ::posix_spawn_file_actions_addopen(&actions_, 1, "/dev/null", O_WRONLY, 0);
  }

  int spawn(pid_t* child, std::vector<char*>& argv) {
    return ::posix_spawnp(child, argv[0], &actions_, &attributes_, argv.data(), environ);
  }

 private:
  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t actions_;
};

bool isWebPage(const Url& url) {
  return text::equalsIgnoringCase(url.scheme(), "http") ||
         text::equalsIgnoringCase(url.scheme(), "https");
}

bool reportFailure(int code, ErrorRef* error) {
  if (error != nullptr) *error = posixError(code, "Cannot start xdg-open");
  return false;
}

}  // namespace

bool BrowserLauncher::openUrl(const Url& url, ErrorRef* error) {
  if (!isWebPage(url)) {
    if (error != nullptr) *error = urlLoadingError(url_error::kUnsupportedURL, url, 0);
    return false;
  }
  std::string program = kOpener;
  std::string argument = url.absoluteString();
  std::vector<char*> argv = {program.data(), argument.data(), nullptr};
  SpawnSettings settings;
  if (const int failure = settings.detachFromTerminal()) return reportFailure(failure, error);
  pid_t child = 0;
  if (const int failure = settings.spawn(&child, argv)) return reportFailure(failure, error);
  try {
    std::thread([child] { ::waitpid(child, nullptr, 0); }).detach();
  } catch (const std::system_error&) {
    // Without a thread to spare, the finished child waits as a zombie for
    // the process to end: harmless, and the page is open.
  }
  return true;
}

}  // namespace velmor
