// Every command of velmor-auth: its syntax, its help and what runs it.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CATALOG_H_
#define VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CATALOG_H_

#include <string>
#include <string_view>
#include <vector>

#include "CommandContext.h"
#include "CommandLine.h"

namespace velmor::tool {

struct CommandSpec {
  std::string_view name;
  std::string_view synopsis;  // what follows the name in the usage line
  std::string_view summary;   // one line
  std::string_view details;   // more lines for --help, may be empty
  CommandSyntax syntax;
  CommandFunction run;
};

class CommandCatalog final {
 public:
  CommandCatalog() = delete;

  static const std::vector<OptionSpec>& commonOptions();
  static const std::vector<CommandSpec>& commands();
  static const CommandSpec* find(std::string_view name);
  // For CommandLine::parse.
  static const CommandSyntax* syntaxOf(std::string_view name);

  // "usage: velmor-auth [common options] COMMAND ..." with every command
  // and the common options.
  static std::string generalHelp();
  static std::string commandHelp(const CommandSpec& command);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CATALOG_H_
