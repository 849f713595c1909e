// `velmor-auth demo`: the whole life of a client against a development
// server started in-process, in under a minute.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_
#define VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_

#include "CommandContext.h"

namespace velmor::tool {

// Starts the development server on a free port with its certificate in a
// temporary directory, uses an in-memory secret store and a fresh key, and
// runs the steps: activate, password sign-in, status, headers, a call to
// the protected resource, access-token expiry and the refresh through the
// authorization check, a wrong password and the lock-out, a web sign-in
// with a proof key completed by posting the sign-in form, sign-out, status. Each step is
// printed with its outcome and duration ("steps" in JSON), then a summary.
// kExitFailure when any step did not behave as it should.
int runDemo(CommandContext& context);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_
