// The common options that change the library's process-wide settings:
// where secrets are kept, which CA is trusted, what is logged.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_TOOL_SETTINGS_H_
#define VELMOR_TOOLS_VELMOR_AUTH_TOOL_SETTINGS_H_

#include "CommandLine.h"
#include "OutputPrinter.h"

namespace velmor::tool {

class ToolSettings final {
 public:
  ToolSettings() = delete;

  // --store and --store-dir become SecretStore::setDefault, --ca-file (or
  // VELMOR_CA_FILE) a default CurlHttpClient that trusts it as well, --log-level the shared
  // logger's level with its lines on standard error. Returns kExitSuccess,
  // or kExitUsage after reporting a bad value.
  static int apply(const Invocation& invocation, OutputPrinter& out);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_TOOL_SETTINGS_H_
