// Names the exception being handled, for the log line of a worker that
// catches what a piece of work threw and carries on.
#ifndef VELMOR_PLATFORM_CURRENT_EXCEPTION_H_
#define VELMOR_PLATFORM_CURRENT_EXCEPTION_H_

#include <string>

namespace velmor {

// Call only inside a catch block. Gives "<name>: <reason>" for the library's
// own exceptions, "an exception: <what()>" for other std::exceptions and
// "an exception of unknown type" for anything else.
std::string currentExceptionDescription();

}  // namespace velmor

#endif  // VELMOR_PLATFORM_CURRENT_EXCEPTION_H_
