#include "transport/BearerChallenge.h"

namespace velmor {

std::string BearerChallenge::schemeName() { return "Bearer"; }

std::optional<std::string> BearerChallenge::error() const { return attribute("error"); }

std::optional<std::string> BearerChallenge::errorDescription() const {
  return attribute("error_description");
}

std::optional<std::string> BearerChallenge::errorUri() const { return attribute("error_uri"); }

std::optional<std::string> BearerChallenge::scope() const { return attribute("scope"); }

}  // namespace velmor
