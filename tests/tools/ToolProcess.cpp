#include "tools/ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace velmor::test {

EnvironmentChanges isolatedToolEnvironment(const std::string& home) {
  return {
      {"HOME", home},
      {"XDG_CONFIG_HOME", home + "/config"},
      {"XDG_DATA_HOME", home + "/data"},
      {"VELMOR_SECRET_STORE", "file"},
      {"VELMOR_SECRET_STORE_DIR", home + "/keychain"},
      {"DBUS_SESSION_BUS_ADDRESS", std::nullopt},
      {"VELMOR_SERVER", std::nullopt},
      {"VELMOR_APP_TOKEN", std::nullopt},
      {"no_proxy", "*"},
  };
}

namespace {

std::vector<std::string> environmentWith(const EnvironmentChanges& changes) {
  std::map<std::string, std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != std::string::npos) merged[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& [name, value] : changes) {
    if (value) {
      merged[name] = *value;
    } else {
      merged.erase(name);
    }
  }
  std::vector<std::string> result;
  for (const auto& [name, value] : merged) result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& arguments,
                         const EnvironmentChanges& environment, const std::string& input,
                         bool keepInputOpen) {
  int inPipe[2], outPipe[2], errPipe[2];
  if (::pipe2(inPipe, O_CLOEXEC) != 0 || ::pipe2(outPipe, O_CLOEXEC) != 0 ||
      ::pipe2(errPipe, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);

  std::vector<std::string> argv = {VELMOR_AUTH_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<std::string> envp = environmentWith(environment);
  std::vector<char*> argPointers = pointersTo(argv);
  std::vector<char*> envPointers = pointersTo(envp);
  const int spawned = ::posix_spawn(&pid_, VELMOR_AUTH_PATH, &actions, &attributes,
                                    argPointers.data(), envPointers.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(inPipe[0]);
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  in_ = inPipe[1];
  out_ = outPipe[0];
  err_ = errPipe[0];
  if (spawned != 0) {
    closeFd(in_);
    closeFd(out_);
    closeFd(err_);
    throw std::runtime_error(std::string("cannot start velmor-auth: ") + std::strerror(spawned));
  }
  // A tool that exits early must not kill the test with SIGPIPE.
  ::signal(SIGPIPE, SIG_IGN);
  writeInput(input);
  if (!keepInputOpen) closeFd(in_);
}

void ToolProcess::writeInput(const std::string& text) {
  std::size_t written = 0;
  while (in_ >= 0 && written < text.size()) {
    const ssize_t n = ::write(in_, text.data() + written, text.size() - written);
    if (n <= 0) break;
    written += static_cast<std::size_t>(n);
  }
}

ToolProcess::~ToolProcess() {
  if (!reaped_ && pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  closeFd(in_);
  closeFd(out_);
  closeFd(err_);
}

ToolRun ToolProcess::run(const std::vector<std::string>& arguments,
                         const EnvironmentChanges& environment, const std::string& input) {
  ToolProcess process(arguments, environment, input);
  return process.finish();
}

bool ToolProcess::pump(std::chrono::milliseconds wait) {
  pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
  const int ready = ::poll(fds, 2, static_cast<int>(wait.count()));
  if (ready <= 0) return ready == 0 || errno == EINTR;
  const std::pair<int*, std::string*> streams[] = {{&out_, &outBuffer_}, {&err_, &errBuffer_}};
  for (int i = 0; i < 2; ++i) {
    if (fds[i].fd < 0 || fds[i].revents == 0) continue;
    char buffer[4096];
    const ssize_t n = ::read(fds[i].fd, buffer, sizeof(buffer));
    if (n > 0) {
      streams[i].second->append(buffer, static_cast<std::size_t>(n));
    } else {
      closeFd(*streams[i].first);
    }
  }
  return out_ >= 0 || err_ >= 0;
}

std::optional<std::string> ToolProcess::readLine(
    const std::function<bool(const std::string&)>& accept, std::chrono::seconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (true) {
    std::size_t newline = outBuffer_.find('\n', consumed_);
    while (newline != std::string::npos) {
      const std::string line = outBuffer_.substr(consumed_, newline - consumed_);
      consumed_ = newline + 1;
      if (accept(line)) return line;
      newline = outBuffer_.find('\n', consumed_);
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || out_ < 0) return std::nullopt;
    pump(left);
  }
}

ToolRun ToolProcess::finish(int signal) {
  closeFd(in_);
  if (signal != 0) ::kill(pid_, signal);
  while (out_ >= 0 || err_ >= 0) pump(std::chrono::milliseconds(1000));
  int status = 0;
  ::waitpid(pid_, &status, 0);
  reaped_ = true;
  ToolRun result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = outBuffer_;
  result.err = errBuffer_;
  return result;
}

}  // namespace velmor::test
