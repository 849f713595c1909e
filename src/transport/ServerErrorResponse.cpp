#include "velmor/ServerErrorResponse.h"

#include <string_view>

namespace velmor {

namespace {

// Servers are not consistent about quoting numbers (a lockout detail may
// come as 60 or "60"), so numbers are read as their text; anything else is
// not a usable field.
std::optional<std::string> textFor(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  if (value == nullptr) return std::nullopt;
  if (const std::string* text = value->stringValue()) return *text;
  if (value->isNumber()) return value->description();
  return std::nullopt;
}

}  // namespace

ServerErrorResponse::ServerErrorResponse(const Dictionary& dictionary)
    : error_(textFor(dictionary, "error")),
      errorDescription_(textFor(dictionary, "error_description")),
      errorUri_(textFor(dictionary, "error_uri")),
      errorReason_(textFor(dictionary, "x_error_reason")),
      errorReasonDetail_(textFor(dictionary, "x_error_reason_detail")) {}

}  // namespace velmor
