#include "velmor/Error.h"

#include <utility>

#include "support/Format.h"

namespace velmor {

Error::Error(std::string domain, std::int64_t code, std::optional<Dictionary> userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

Error::~Error() = default;

std::optional<std::string> Error::description() const {
  std::string text =
      stringWithFormat("Error Domain=%@ Code=%ld \"%@\"", domain_, code_, localizedDescription());
  if (userInfo_ && !userInfo_->empty()) text += stringWithFormat(" UserInfo=%@", *userInfo_);
  return text;
}

std::optional<std::string> Error::localizedDescription() const {
  if (userInfo_) {
    if (const std::string* text = userInfo_->findString("NSLocalizedDescription")) return *text;
  }
  return stringWithFormat("The operation couldn’t be completed. (%@ error %ld.)", domain_, code_);
}

}  // namespace velmor
