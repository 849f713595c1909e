// The library's version, as data and as the text its requests carry.
#ifndef VELMOR_VELMOR_AUTHORIZATION_LIBRARY_VERSION_H_
#define VELMOR_VELMOR_AUTHORIZATION_LIBRARY_VERSION_H_

#include <string>

#include "velmor/Export.h"

// The build number, 13.0.
extern "C" VELMOR_EXPORT const double VelmorAuthorizationVersionNumber;
// A what(1) banner: "@(#)PROGRAM:VelmorAuthorization  PROJECT:<project>-13\n".
extern "C" VELMOR_EXPORT const unsigned char VelmorAuthorizationVersionString[];

namespace velmor {

class VELMOR_EXPORT VelmorAuthorizationLibraryVersion final {
 public:
  VelmorAuthorizationLibraryVersion() = delete;

  // "<marketing version> (<build number>)", that is "1.1.4 (13)".
  static std::string version();
};

}  // namespace velmor

#endif  // VELMOR_VELMOR_AUTHORIZATION_LIBRARY_VERSION_H_
