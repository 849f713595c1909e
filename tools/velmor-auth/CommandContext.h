// What every command is given to run with.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CONTEXT_H_
#define VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CONTEXT_H_

#include <cstdio>

#include "CommandLine.h"
#include "OutputPrinter.h"

namespace velmor::tool {

struct CommandContext {
  const Invocation& invocation;
  OutputPrinter& out;
  // Standard input, for passwords, passcodes and values.
  std::FILE* in;
};

// A command's body: returns the exit status (kExitSuccess, kExitFailure or
// kExitUsage) after reporting through `context.out`.
using CommandFunction = int (*)(CommandContext& context);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_COMMAND_CONTEXT_H_
