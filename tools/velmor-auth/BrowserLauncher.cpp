#include "BrowserLauncher.h"

#include <spawn.h>
#include <sys/wait.h>

#include <thread>
#include <vector>

extern char** environ;

namespace velmor::tool {

bool BrowserLauncher::open(const std::string& url) {
  std::string program = "xdg-open";
  std::string argument = url;
  std::vector<char*> argv = {program.data(), argument.data(), nullptr};
  pid_t child = 0;
  if (::posix_spawnp(&child, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
    return false;
  }
  // Reaped in the background so that no zombie is left while the tool waits.
  std::thread([child] { ::waitpid(child, nullptr, 0); }).detach();
  return true;
}

}  // namespace velmor::tool
