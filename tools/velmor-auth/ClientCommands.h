// The commands that drive VelmorAuthorizationClient.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_CLIENT_COMMANDS_H_
#define VELMOR_TOOLS_VELMOR_AUTH_CLIENT_COMMANDS_H_

#include "CommandContext.h"

namespace velmor::tool {

int runActivate(CommandContext& context);
int runSignIn(CommandContext& context);
int runRefresh(CommandContext& context);
int runStatus(CommandContext& context);
int runHeaders(CommandContext& context);
int runCall(CommandContext& context);
int runSignOut(CommandContext& context);
int runDelete(CommandContext& context);
int runWebSignIn(CommandContext& context);
int runCodeExchange(CommandContext& context);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_CLIENT_COMMANDS_H_
