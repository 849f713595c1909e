// A public type name kept for applications that refer to it; it has no members.
#ifndef VELMOR_ENVIRONMENT_INFO_H_
#define VELMOR_ENVIRONMENT_INFO_H_

#include "velmor/Export.h"

namespace velmor {

class VELMOR_EXPORT EnvironmentInfo final {};

}  // namespace velmor

#endif  // VELMOR_ENVIRONMENT_INFO_H_
