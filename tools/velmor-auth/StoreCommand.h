// `velmor-auth store`: one JSON value in a passcode-protected store.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_STORE_COMMAND_H_
#define VELMOR_TOOLS_VELMOR_AUTH_STORE_COMMAND_H_

#include "CommandContext.h"

namespace velmor::tool {

int runStore(CommandContext& context);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_STORE_COMMAND_H_
