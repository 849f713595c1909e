// Base64 text for the HTTP Basic credentials header and wherever else text
// must carry bytes.
#ifndef VELMOR_BASE64_H_
#define VELMOR_BASE64_H_

#include <optional>
#include <string>
#include <string_view>

#include "velmor/Data.h"
#include "velmor/Export.h"

namespace velmor {

// The standard alphabet (A-Z, a-z, 0-9, "+", "/") with "=" padding.
// Stateless; safe on any thread.
class VELMOR_EXPORT Base64 final {
 public:
  // The Base64 of the string's UTF-8 bytes; nothing for an empty string.
  static std::optional<std::string> encodeBase64WithString(std::string_view text);
  // Padded text on one line however long; nothing (not "") for an empty
  // block, which callers must cope with.
  static std::optional<std::string> encodeBase64WithData(const Data& data);

  // Reads `text` up to its end or its first NUL. Tab, line feed, form feed,
  // carriage return and space are skipped; padding is optional and a "=" in
  // the middle is passed over; bits of an incomplete last group are dropped.
  // Nothing when the text holds any other non-alphabet byte (every byte above
  // 127 included) or a "=" right after the first symbol of a group that is
  // not followed by another "=". Empty text gives an empty block.
  static std::optional<Data> decodeBase64WithString(std::string_view text);
};

}  // namespace velmor

#endif  // VELMOR_BASE64_H_
