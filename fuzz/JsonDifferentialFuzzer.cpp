// Reads every input with the library's JSON reader and with nlohmann-json:
// what both accept must have equal values, a valid document within the
// nesting limit must be accepted by both, and we may accept nothing that
// nlohmann refuses but numbers beyond a double's range.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "testing/JsonDifferential.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (std::optional<std::string> fault = velmor::test::compareJsonReaders(input)) {
    std::fprintf(stderr, "%s\n", fault->c_str());
    velmor::fuzz::require(false);
  }
  return 0;
}
