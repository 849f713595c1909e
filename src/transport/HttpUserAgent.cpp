#include "transport/HttpUserAgent.h"

#include <sys/utsname.h>

#include <mutex>
#include <optional>
#include <utility>

#include "support/Format.h"
#include "velmor/ApplicationInfo.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace velmor {
namespace {

constexpr char kLibraryIdentifier[] = "com.velmor.Authorization";
constexpr char kUnitTestIdentifier[] = "UnitTest";
constexpr char kUnknownVersion[] = "?";

struct OperatingSystem {
  std::optional<std::string> name;
  std::optional<std::string> release;
};

// uname cannot fail with a valid buffer; should it, the parts print as
// absent rather than as garbage.
OperatingSystem currentOperatingSystem() {
  struct utsname names {};
  if (::uname(&names) != 0) return {};
  return {std::string(names.sysname), std::string(names.release)};
}

}  // namespace

const std::string& HttpUserAgent::text() { return sharedUserAgent().userAgentText(); }

std::string HttpUserAgent::generateUserAgentText() {
  std::optional<std::string> identifier = kUnitTestIdentifier;
  std::optional<std::string> version = kUnknownVersion;
  const std::optional<ApplicationInfo> application = ApplicationInfo::current();
  if (application && !application->identifier.empty()) {
    identifier = application->identifier;
    // A named application without a version shows as a missing value.
    version = application->version.empty() ? std::nullopt
                                           : std::optional<std::string>(application->version);
  }
  const OperatingSystem system = currentOperatingSystem();
  return stringWithFormat("%@/%@; %@/%@; %@/%@", kLibraryIdentifier,
                          VelmorAuthorizationLibraryVersion::version(), identifier, version,
                          system.name, system.release);
}

const HttpUserAgent& HttpUserAgent::sharedUserAgent() {
  static std::once_flag once;
  static std::optional<HttpUserAgent> shared;
  std::call_once(once, [] { shared.emplace(generateUserAgentText()); });
  return *shared;
}

}  // namespace velmor
