// Secrets and values from the user: hidden prompts on the terminal, lines
// and the rest of standard input.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_TERMINAL_INPUT_H_
#define VELMOR_TOOLS_VELMOR_AUTH_TERMINAL_INPUT_H_

#include <cstdio>
#include <optional>
#include <string>

namespace velmor::tool {

class TerminalInput final {
 public:
  TerminalInput() = delete;

  // Writes `prompt` to the controlling terminal and reads one line there
  // with echo off; echo comes back afterwards, also when the user presses
  // Ctrl-C. Nothing when the process has no terminal or input ends.
  static std::optional<std::string> readHidden(const std::string& prompt);
  // One line without its line end ("\n" or "\r\n"); nothing at the end of
  // input.
  static std::optional<std::string> readLine(std::FILE* in);
  // Everything left.
  static std::string readAll(std::FILE* in);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_TERMINAL_INPUT_H_
