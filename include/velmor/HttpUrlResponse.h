// The status line and header fields of an HTTP response.
#ifndef VELMOR_HTTP_URL_RESPONSE_H_
#define VELMOR_HTTP_URL_RESPONSE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "velmor/Export.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// What a server answered, without the body. Immutable; safe to share
// between threads.
class VELMOR_EXPORT HttpUrlResponse {
 public:
  using HeaderFields = std::vector<std::pair<std::string, std::string>>;

  // Header fields in the order received, their names in canonical form
  // ("content-type" becomes "Content-Type", "www-authenticate"
  // "WWW-Authenticate"). A field that appears more than once (in any letter
  // case) joins the values with ", ", as HTTP allows; each line received is
  // kept as well.
  HttpUrlResponse(Url url, std::int64_t statusCode, const HeaderFields& headerFields);

  const Url& url() const { return url_; }
  std::int64_t statusCode() const { return statusCode_; }
  // Every field as a dictionary of texts, as error user information shows them.
  Dictionary allHeaderFields() const;
  // The field's value; the name is matched ignoring letter case.
  std::optional<std::string> valueForHTTPHeaderField(std::string_view name) const;
  // The value of every line of the field, in the order received (empty when
  // there is none). Joining does not always keep a value's meaning: two
  // "WWW-Authenticate" challenges joined read as one malformed challenge.
  std::vector<std::string> valuesForHTTPHeaderField(std::string_view name) const;

  // A short lower-case English phrase for a status code ("not found",
  // "service unavailable"); unlisted codes get their class's phrase
  // ("client error", "server error"), anything else "server error".
  static std::string localizedStringForStatusCode(std::int64_t statusCode);

 private:
  Url url_;
  std::int64_t statusCode_;
  HeaderFields headerFields_;
  HeaderFields receivedFields_;  // every line, names as received
};

}  // namespace velmor

#endif  // VELMOR_HTTP_URL_RESPONSE_H_
