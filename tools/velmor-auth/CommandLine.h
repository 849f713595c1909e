// What the user typed: `velmor-auth [common options] COMMAND [options] [args]`,
// with common options also accepted after the command.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_COMMAND_LINE_H_
#define VELMOR_TOOLS_VELMOR_AUTH_COMMAND_LINE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmor::tool {

struct OptionSpec {
  std::string_view name;       // "--server"
  std::string_view valueName;  // "URL"; empty for a flag
  bool repeatable = false;
  std::string_view help;

  bool takesValue() const { return !valueName.empty(); }
};

// The options and arguments one command accepts.
struct CommandSyntax {
  std::vector<OptionSpec> options;
  // Names of the arguments, all required ("URL", "ACTION").
  std::vector<std::string_view> arguments;
};

// The parsed command line. Option values are kept in the order given.
class Invocation final {
 public:
  const std::string& command() const { return command_; }
  bool helpRequested() const { return helpRequested_; }
  bool has(std::string_view option) const { return options_.count(std::string(option)) != 0; }
  // The value of an option that takes one, when given.
  std::optional<std::string> value(std::string_view option) const;
  std::vector<std::string> values(std::string_view option) const;
  const std::vector<std::string>& arguments() const { return arguments_; }

 private:
  friend class CommandLine;

  std::string command_;
  bool helpRequested_ = false;
  std::map<std::string, std::vector<std::string>> options_;
  std::vector<std::string> arguments_;
};

// Parses against the common options and the syntax of the command named.
// Options take their value as "--name VALUE" or "--name=VALUE"; "--"
// ends the options. "--help" (or "-h") anywhere asks for help, and then
// nothing else is checked.
class CommandLine final {
 public:
  // The syntax of a command, or nullptr when there is no such command.
  using SyntaxLookup = const CommandSyntax* (*)(std::string_view command);

  struct Result {
    std::optional<Invocation> invocation;
    // Why the line is not usable, when `invocation` is absent.
    std::string usageError;
  };

  static Result parse(const std::vector<std::string>& words,
                      const std::vector<OptionSpec>& commonOptions, SyntaxLookup lookup);
};

// Decimal digits only, within 64 bits: "8443" gives 8443; "", "-1", "1e3"
// and " 1" give nothing.
std::optional<std::uint64_t> parseUnsigned(std::string_view text);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_COMMAND_LINE_H_
