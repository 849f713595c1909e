// `velmor-auth serve`: the development authorization server in the
// foreground.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_SERVE_COMMAND_H_
#define VELMOR_TOOLS_VELMOR_AUTH_SERVE_COMMAND_H_

#include "CommandContext.h"

namespace velmor::tool {

// Prints the base URL and CA file as soon as the server listens (the JSON
// object too, so a script can read it), logs one line per request on
// standard error, and returns kExitSuccess on SIGINT or SIGTERM.
int runServe(CommandContext& context);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_SERVE_COMMAND_H_
