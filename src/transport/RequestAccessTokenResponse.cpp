#include "transport/RequestAccessTokenResponse.h"

#include <cmath>
#include <limits>
#include <utility>

#include "support/Text.h"

namespace velmor {
namespace {

using Limits = std::numeric_limits<std::int64_t>;

std::optional<std::string> textFor(const Dictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary.findString(key);
  if (text == nullptr) return std::nullopt;
  return *text;
}

std::int64_t clampedToInt64(double number) {
  if (std::isnan(number)) return 0;
  // 2^63 is exactly representable; anything at or above it is too large.
  if (number >= 9223372036854775808.0) return Limits::max();
  if (number <= static_cast<double>(Limits::min())) return Limits::min();
  return static_cast<std::int64_t>(number);
}

std::int64_t integerFor(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  if (value == nullptr) return 0;
  if (const auto* number = value->intValue()) return *number;
  if (const auto* number = value->uintValue()) {
    return *number > static_cast<std::uint64_t>(Limits::max()) ? Limits::max()
                                                               : static_cast<std::int64_t>(*number);
  }
  if (const auto* number = value->doubleValue()) return clampedToInt64(*number);
  if (const auto* flag = value->boolValue()) return *flag ? 1 : 0;
  if (const auto* text = value->stringValue()) return text::integerValue(*text);
  return 0;
}

}  // namespace

RequestAccessTokenResponse::RequestAccessTokenResponse(Dictionary responseDictionary)
    : responseDictionary_(std::move(responseDictionary)),
      accessToken_(textFor(responseDictionary_, "access_token")),
      tokenType_(textFor(responseDictionary_, "token_type")),
      expiresIn_(integerFor(responseDictionary_, "expires_in")),
      refreshToken_(textFor(responseDictionary_, "refresh_token")),
      refreshTokenExpiresIn_(integerFor(responseDictionary_, "x_refresh_token_expires_in")),
      scope_(textFor(responseDictionary_, "scope")) {}

}  // namespace velmor
