#include "platform/PosixError.h"

#include <memory>
#include <string>
#include <system_error>

namespace velmor {

ErrorRef posixError(int code, std::string_view what) {
  std::string description(what);
  description += ": ";
  description += std::generic_category().message(code);
  return std::make_shared<Error>(kPosixErrorDomain, code,
                                 Dictionary{{"NSLocalizedDescription", std::move(description)}});
}

}  // namespace velmor
