// Runs the velmor-auth binary as a user would: arguments, standard input,
// environment, and what comes back.
#ifndef VELMOR_TESTS_TOOLS_TOOL_PROCESS_H_
#define VELMOR_TESTS_TOOLS_TOOL_PROCESS_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmor::test {

// Variables to set (a value) or remove (nothing) on top of this process's
// environment.
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

// A home of the tool's own under `home`: key file, file store and client
// context land there; no desktop keyring, server or proxy setting of this
// process reaches the tool.
EnvironmentChanges isolatedToolEnvironment(const std::string& home);

struct ToolRun {
  int exitCode = -1;  // -1: killed by a signal
  std::string out;
  std::string err;
};

// The tool runs in a session of its own, without a controlling terminal,
// so that a password prompt fails at once instead of waiting for a person.
class ToolProcess final {
 public:
  // Starts the tool; `input` is written to its standard input, which is
  // then closed unless `keepInputOpen`. Throws std::runtime_error when it
  // cannot be started.
  ToolProcess(const std::vector<std::string>& arguments, const EnvironmentChanges& environment,
              const std::string& input = "", bool keepInputOpen = false);
  // Sends SIGKILL if it still runs, and reaps it.
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  // Runs to the end.
  static ToolRun run(const std::vector<std::string>& arguments,
                     const EnvironmentChanges& environment, const std::string& input = "");

  // Writes to standard input, when it was kept open.
  void writeInput(const std::string& text);

  // Reads standard output until a whole line satisfies `accept` and returns
  // it; nothing when the output ends or `deadline` passes first.
  std::optional<std::string> readLine(const std::function<bool(const std::string&)>& accept,
                                      std::chrono::seconds deadline);
  // Sends `signal` (0: none), then collects the rest of the output and the
  // exit status.
  ToolRun finish(int signal = 0);

 private:
  bool pump(std::chrono::milliseconds wait);

  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string outBuffer_;
  std::string errBuffer_;
  std::size_t consumed_ = 0;  // of outBuffer_, by readLine
  bool reaped_ = false;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_TOOLS_TOOL_PROCESS_H_
