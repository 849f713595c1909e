// The "demo" command: a one-minute tour of what the library does.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_
#define VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_

#include <cstdio>

namespace velmor::tool {

// Writes the tour to `out`; returns the process exit status.
int runDemo(std::FILE* out);

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_DEMO_H_
