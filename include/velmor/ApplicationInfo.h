// Who the host application is: its identifier, version and executable name.
#ifndef VELMOR_APPLICATION_INFO_H_
#define VELMOR_APPLICATION_INFO_H_

#include <optional>
#include <string>

#include "velmor/Export.h"

namespace velmor {

// Set once by the application, before it makes its first client. The
// library uses it in the "User-Agent" header and to name the application's
// data directory. Left unset, the library behaves as in a unit-test host
// ("UnitTest" agent, "UnitTestApp" directory). Thread-safe.
struct VELMOR_EXPORT ApplicationInfo {
  std::string identifier;      // "com.example.notes"
  std::string version;         // "2.4"
  std::string executableName;  // "notes"

  static void setCurrent(std::optional<ApplicationInfo> info);
  static std::optional<ApplicationInfo> current();
};

}  // namespace velmor

#endif  // VELMOR_APPLICATION_INFO_H_
