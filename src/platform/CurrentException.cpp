#include "platform/CurrentException.h"

#include <exception>

#include "support/Format.h"
#include "velmor/Exception.h"

namespace velmor {

std::string currentExceptionDescription() {
  try {
    throw;
  } catch (const Exception& e) {
    return stringWithFormat("%@: %@", e.name(), e.reason());
  } catch (const std::exception& e) {
    return stringWithFormat("an exception: %s", e.what());
  } catch (...) {
    return "an exception of unknown type";
  }
}

}  // namespace velmor
