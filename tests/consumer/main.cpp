// Uses only installed public headers.
#include <velmor/VelmorAuthorizationError.h>
#include <velmor/VelmorAuthorizationLibraryVersion.h>
#include <velmor/VelmorAuthorizationLogger.h>

#include <cstdio>

int main() {
  velmor::VelmorAuthorizationError error(velmor::NetworkCommunicationErrorDomain, 2, std::nullopt);
  std::printf("velmor %s: %s\n", velmor::VelmorAuthorizationLibraryVersion::version().c_str(),
              error.description().value_or("(no description)").c_str());
  return velmor::VelmorAuthorizationLogger::sharedLogger().logLevel() == 0 ? 0 : 1;
}
