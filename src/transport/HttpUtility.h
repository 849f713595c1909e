// Form and query encoding for the requests the library sends and the
// redirects it reads.
#ifndef VELMOR_TRANSPORT_HTTP_UTILITY_H_
#define VELMOR_TRANSPORT_HTTP_UTILITY_H_

#include <optional>
#include <string>
#include <string_view>

#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// Stateless; safe on any thread. Nothing here throws except std::bad_alloc.
class HttpUtility final {
 public:
  HttpUtility() = delete;

  // Percent-escapes every UTF-8 byte except ASCII letters, digits, "-", ".",
  // "_", "~" and the apostrophe, as "%" and two upper-case hex digits; a
  // space becomes "%20". The apostrophe is left alone because the servers
  // this library talks to have always received it that way.
  static std::string escapeDataString(std::string_view text);

  // Turns "+" into a space, then decodes percent escapes. Nothing when an
  // escape is not "%" and two hex digits, or when the result is not valid
  // UTF-8.
  static std::optional<std::string> unescapeDataString(std::string_view text);

  // "a=b&c=d" as a dictionary of texts. Pieces without "=" are skipped,
  // parts after a second "=" dropped ("a=b=c" gives a → b), a later key
  // replaces an earlier one, and a value that cannot be unescaped removes
  // its key. A piece whose key cannot be unescaped is skipped.
  static Dictionary parseQueryString(std::string_view query);

  // The bytes as UTF-8 text; nothing when they are absent or not UTF-8.
  static std::optional<std::string> stringFromUtf8Data(const std::optional<Data>& data);

  // Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
  static bool isValidUtf8(std::string_view bytes);
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_HTTP_UTILITY_H_
