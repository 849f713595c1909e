#include "ToolError.h"

#include <memory>
#include <utility>

#include "velmor/VelmorAuthorizationError.h"

namespace velmor::tool {

const char ToolErrorDomain[] = "com.velmor.authorization.tool";

ErrorRef toolError(ToolErrorCode code, std::string text) {
  return std::make_shared<VelmorAuthorizationError>(ToolErrorDomain, code, std::move(text),
                                                    std::nullopt);
}

}  // namespace velmor::tool
