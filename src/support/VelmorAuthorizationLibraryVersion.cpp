#include "velmor/VelmorAuthorizationLibraryVersion.h"

#include "support/Format.h"

extern "C" const double VelmorAuthorizationVersionNumber = 13.0;
extern "C" const unsigned char VelmorAuthorizationVersionString[] =
    "@(#)PROGRAM:VelmorAuthorization  PROJECT:" VELMOR_PROJECT_NAME "-13\n";

namespace velmor {

namespace {
constexpr char kMarketingVersion[] = VELMOR_MARKETING_VERSION;
}  // namespace

std::string VelmorAuthorizationLibraryVersion::version() {
  return stringWithFormat("%@ (%d)", kMarketingVersion,
                          static_cast<int>(VelmorAuthorizationVersionNumber));
}

}  // namespace velmor
