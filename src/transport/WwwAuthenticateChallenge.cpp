#include "transport/WwwAuthenticateChallenge.h"

#include <utility>

namespace velmor {

WwwAuthenticateChallenge::WwwAuthenticateChallenge() = default;

WwwAuthenticateChallenge::WwwAuthenticateChallenge(std::string scheme)
    : scheme_(std::move(scheme)) {}

WwwAuthenticateChallenge::~WwwAuthenticateChallenge() = default;

std::optional<std::string> WwwAuthenticateChallenge::realm() const { return attribute("realm"); }

std::optional<std::string> WwwAuthenticateChallenge::attribute(std::string_view name) const {
  const std::string* value = attributeNameValuePairs_.findString(name);
  if (!value) return std::nullopt;
  return *value;
}

}  // namespace velmor
