#include "transport/ActivateClientResponse.h"

#include <utility>

namespace velmor {
namespace {

std::optional<std::string> textFor(const Dictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary.findString(key);
  if (text == nullptr) return std::nullopt;
  return *text;
}

}  // namespace

ActivateClientResponse::ActivateClientResponse(Dictionary responseDictionary)
    : responseDictionary_(std::move(responseDictionary)),
      clientId_(textFor(responseDictionary_, "client_id")),
      clientSecret_(textFor(responseDictionary_, "client_secret")) {}

}  // namespace velmor
