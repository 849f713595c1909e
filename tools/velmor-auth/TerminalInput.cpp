#include "TerminalInput.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include "UniqueFd.h"

namespace velmor::tool {

namespace {

// What the Ctrl-C handler needs to give the echo back.
int gTerminal = -1;
struct termios gSavedMode;

void restoreAndReraise(int signal) {
  ::tcsetattr(gTerminal, TCSAFLUSH, &gSavedMode);
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

// Echo off for its lifetime.
class EchoOff final {
 public:
  explicit EchoOff(int terminal) : terminal_(terminal) {
    if (::tcgetattr(terminal, &gSavedMode) != 0) return;
    gTerminal = terminal;
    struct sigaction action {};
    action.sa_handler = restoreAndReraise;
    ::sigaction(SIGINT, &action, &previousInt_);
    ::sigaction(SIGTERM, &action, &previousTerm_);
    struct termios quiet = gSavedMode;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    active_ = ::tcsetattr(terminal, TCSAFLUSH, &quiet) == 0;
  }
  ~EchoOff() {
    if (gTerminal != terminal_) return;
    ::tcsetattr(terminal_, TCSAFLUSH, &gSavedMode);
    ::sigaction(SIGINT, &previousInt_, nullptr);
    ::sigaction(SIGTERM, &previousTerm_, nullptr);
    gTerminal = -1;
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

  bool active() const { return active_; }

 private:
  int terminal_;
  bool active_ = false;
  struct sigaction previousInt_ {};
  struct sigaction previousTerm_ {};
};

}  // namespace

std::optional<std::string> TerminalInput::readHidden(const std::string& prompt) {
  UniqueFd terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal.valid()) return std::nullopt;
  EchoOff echoOff(terminal.get());
  if (!echoOff.active()) return std::nullopt;
  if (::write(terminal.get(), prompt.data(), prompt.size()) < 0) return std::nullopt;
  std::string line;
  char c = 0;
  while (true) {
    const ssize_t read = ::read(terminal.get(), &c, 1);
    if (read <= 0) return std::nullopt;
    if (c == '\n') break;
    line += c;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::optional<std::string> TerminalInput::readLine(std::FILE* in) {
  std::string line;
  int c = 0;
  bool any = false;
  while ((c = std::fgetc(in)) != EOF) {
    any = true;
    if (c == '\n') break;
    line += static_cast<char>(c);
  }
  if (!any) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::string TerminalInput::readAll(std::FILE* in) {
  std::string text;
  char buffer[4096];
  std::size_t read = 0;
  while ((read = std::fread(buffer, 1, sizeof(buffer), in)) > 0) text.append(buffer, read);
  return text;
}

}  // namespace velmor::tool
