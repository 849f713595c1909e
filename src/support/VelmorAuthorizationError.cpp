#include "velmor/VelmorAuthorizationError.h"

#include <utility>

namespace velmor {

const char AuthorizationClientErrorDomain[] = "com.velmor.authorization.client.general";
const char NetworkCommunicationErrorDomain[] =
    "com.velmor.authorization.client.network_communication";
const char AuthorizationServerErrorDomain[] = "com.velmor.authorization.server";

std::shared_ptr<VelmorAuthorizationError> VelmorAuthorizationError::errorWithDomain(
    std::string domain, std::int64_t code, std::optional<Dictionary> userInfo) {
  return std::make_shared<VelmorAuthorizationError>(std::move(domain), code, std::move(userInfo));
}

VelmorAuthorizationError::VelmorAuthorizationError(std::string domain, std::int64_t code,
                                                   std::optional<Dictionary> userInfo)
    : Error(std::move(domain), code, std::move(userInfo)) {}

std::optional<std::string> VelmorAuthorizationError::description() const {
  return descriptionText_;
}

std::optional<std::string> VelmorAuthorizationError::localizedDescription() const {
  return description();
}

}  // namespace velmor
