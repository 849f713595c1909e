// Feeds arbitrary bytes to the WWW-Authenticate parser as a header, and
// checks that it answers with either challenges or one well-formed error.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "support/Text.h"
#include "transport/BearerChallenge.h"
#include "transport/WwwAuthenticateHeaderParser.h"
#include "velmor/VelmorAuthorizationError.h"

namespace {

using velmor::fuzz::require;

constexpr std::string_view kErrorStart = "Unexpected WWW-Authenticate header format. Expecting ";

void checkChallenges(const velmor::WwwAuthenticateHeaderData& data) {
  // Nothing after the first scheme starts another challenge.
  require(data.challenges().size() <= 1);
  for (const auto& challenge : data.challenges()) {
    require(challenge != nullptr);
    const bool bearer = dynamic_cast<const velmor::BearerChallenge*>(challenge.get()) != nullptr;
    require(bearer != challenge->scheme().has_value());
    if (!bearer) require(!velmor::text::equalsIgnoringCase(*challenge->scheme(), "Bearer"));
    for (const auto& [name, value] : challenge->attributeNameValuePairs()) {
      require(!name.empty());
      require(value.stringValue() != nullptr);
    }
  }
}

void checkError(const velmor::ErrorRef& error, bool empty) {
  const auto* failure = dynamic_cast<const velmor::VelmorAuthorizationError*>(error.get());
  require(failure != nullptr);
  require(failure->domain() == velmor::AuthorizationServerErrorDomain);
  require(!failure->userInfo().has_value());
  require(failure->code() == (empty ? 42 : 1));
  if (empty) return;
  const std::optional<std::string> description = failure->description();
  require(description.has_value() && description->starts_with(kErrorStart));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using velmor::WwwAuthenticateHeaderParser;

  const std::string header(reinterpret_cast<const char*>(data), size);
  velmor::ErrorRef error = std::make_shared<velmor::Error>("stale", 0);
  const auto parsed = WwwAuthenticateHeaderParser::parse(header, &error);
  require((parsed == nullptr) != (error == nullptr));
  if (parsed) checkChallenges(*parsed);
  if (error) checkError(error, header.empty());

  // Parsing without an error location must agree.
  require((WwwAuthenticateHeaderParser::parse(header, nullptr) == nullptr) == (parsed == nullptr));
  WwwAuthenticateHeaderParser::isHeaderLikelyToBeBearerTokenWwwAuthenticateFormatted(header);
  return 0;
}
