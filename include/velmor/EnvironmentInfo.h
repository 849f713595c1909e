// A public type name kept for applications that refer to it; it has no members.
#ifndef VELMOR_ENVIRONMENT_INFO_H_
#define VELMOR_ENVIRONMENT_INFO_H_

namespace velmor {

class EnvironmentInfo final {};

}  // namespace velmor

#endif  // VELMOR_ENVIRONMENT_INFO_H_
