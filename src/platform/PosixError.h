// Failed system calls as the platform reports them.
#ifndef VELMOR_PLATFORM_POSIX_ERROR_H_
#define VELMOR_PLATFORM_POSIX_ERROR_H_

#include <string_view>

#include "velmor/Error.h"

namespace velmor {

inline constexpr const char* kPosixErrorDomain = "NSPOSIXErrorDomain";

// An Error in "NSPOSIXErrorDomain" with the errno value `code` and the
// user information "NSLocalizedDescription": "<what>: <the system's text
// for code>" ("Cannot listen on 127.0.0.1: Address already in use").
ErrorRef posixError(int code, std::string_view what);

}  // namespace velmor

#endif  // VELMOR_PLATFORM_POSIX_ERROR_H_
