// Feeds arbitrary text to the percent-unescaping and the query parser of
// redirects. Whatever is read must be valid UTF-8 and survive being escaped
// and read again; whatever is escaped must read back unchanged.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "transport/HttpUtility.h"
#include "velmor/Value.h"

namespace {

using velmor::Dictionary;
using velmor::HttpUtility;
using velmor::fuzz::require;

bool isUnreservedOrEscape(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~' || c == '\'' || c == '%';
}

void checkUnescape(std::string_view text) {
  const std::optional<std::string> plain = HttpUtility::unescapeDataString(text);
  if (!plain) return;
  require(HttpUtility::isValidUtf8(*plain));
  // Every escape turns three characters into one byte; "+" stays one.
  require(plain->size() <= text.size());
  const std::string escaped = HttpUtility::escapeDataString(*plain);
  for (char c : escaped) require(isUnreservedOrEscape(c));
  require(HttpUtility::unescapeDataString(escaped) == plain);
}

void checkQuery(std::string_view query) {
  const Dictionary parameters = HttpUtility::parseQueryString(query);
  for (const auto& [key, value] : parameters) {
    const std::string* text = value.stringValue();
    require(text != nullptr);
    require(HttpUtility::isValidUtf8(key) && HttpUtility::isValidUtf8(*text));
    const Dictionary again = HttpUtility::parseQueryString(
        HttpUtility::escapeDataString(key) + "=" + HttpUtility::escapeDataString(*text));
    require(again == Dictionary{{key, *text}});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkUnescape(text);
  checkQuery(text);
  // Escaping any bytes, valid UTF-8 or not, must not lose one.
  const std::string escaped = HttpUtility::escapeDataString(text);
  if (HttpUtility::isValidUtf8(text)) require(HttpUtility::unescapeDataString(escaped) == text);
  return 0;
}
