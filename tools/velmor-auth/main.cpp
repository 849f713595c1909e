// velmor-auth: drives the authorization library from the command line and
// runs a development authorization server.
#include <cstdio>
#include <string>
#include <vector>

#include "CommandCatalog.h"
#include "CommandLine.h"
#include "OutputPrinter.h"
#include "ToolSettings.h"
#include "velmor/ApplicationInfo.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace {

using namespace velmor::tool;

int run(const std::vector<std::string>& words) {
  const CommandLine::Result parsed =
      CommandLine::parse(words, CommandCatalog::commonOptions(), &CommandCatalog::syntaxOf);
  if (!parsed.invocation) {
    OutputPrinter out(false, stdout, stderr);
    return out.usage(parsed.usageError);
  }
  const Invocation& invocation = *parsed.invocation;
  const CommandSpec* command = CommandCatalog::find(invocation.command());
  if (invocation.helpRequested()) {
    const std::string help =
        command ? CommandCatalog::commandHelp(*command) : CommandCatalog::generalHelp();
    std::fputs(help.c_str(), stdout);
    return kExitSuccess;
  }
  OutputPrinter out(invocation.has("--json"), stdout, stderr);
  const int applied = ToolSettings::apply(invocation, out);
  if (applied != kExitSuccess) return applied;
  CommandContext context{invocation, out, stdin};
  try {
    const int status = command->run(context);
    return status == kExitUsage ? status : out.finish(status);
  } catch (const velmor::Exception& exception) {
    // The library throws for arguments it refuses (a scope with a blank in
    // it, a slot out of range): a usage error, not a failed operation.
    return out.usage(exception.reason(), invocation.command());
  }
}

}  // namespace

int main(int argc, char** argv) {
  velmor::ApplicationInfo::setCurrent(
      velmor::ApplicationInfo{"com.velmor.authorization.tool",
                              velmor::VelmorAuthorizationLibraryVersion::version(), "velmor-auth"});
  return run(std::vector<std::string>(argv + 1, argv + argc));
}
