// Feeds arbitrary bytes to the Base64 decoder as text, and checks that any
// block survives an encode and decode unchanged.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "velmor/Base64.h"

namespace {

using velmor::fuzz::require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using velmor::Base64;
  using velmor::Data;

  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::optional<Data> decoded = Base64::decodeBase64WithString(text);
  // Every four symbols give at most three bytes.
  if (decoded) require(decoded->size() * 4 <= size * 3);

  const Data bytes(data, data + size);
  const std::optional<std::string> encoded = Base64::encodeBase64WithData(bytes);
  require(encoded.has_value() == !bytes.empty());
  if (encoded) require(Base64::decodeBase64WithString(*encoded) == bytes);
  return 0;
}
