// Reads the "WWW-Authenticate" header of a resource server's refusal into
// challenges, with a small state machine that is deliberately simpler than
// the full HTTP grammar: it is meant for one Bearer challenge per header.
#ifndef VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_PARSER_H_
#define VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_PARSER_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "transport/WwwAuthenticateHeaderData.h"
#include "velmor/Error.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {

// Stateless and thread-safe; every call returns new objects owned by the
// caller. Failures are returned, never thrown.
//
// The grammar, one UTF-16 unit at a time: a scheme ends at white space;
// every later word is an attribute name, followed by "=" and a value that
// is either quoted (no escapes: the next double quote ends it) or runs to
// the next white space or comma. White space right after "=" belongs to
// the value. A second scheme is therefore read as an attribute name and
// fails at the space after it. Whatever is unfinished at the end of the
// text (a scheme with no white space after it, a name without "=", an
// unterminated value) is dropped without an error.
class WwwAuthenticateHeaderParser final {
 public:
  // The states, numbered and named as the parse errors report them.
  enum class State {
    kSchemeStart = 0,
    kSchemeEnd = 1,
    kAttributeNameStart = 2,
    kAttributeNameEnd = 3,
    kAttributeValueStart = 4,
    kAttributeQuotedValueEnd = 5,
    kAttributeUnquotedValueEnd = 6,
  };

  WwwAuthenticateHeaderParser() = delete;

  // The challenges of `header`, a "Bearer" scheme (any case) becoming a
  // BearerChallenge. Clears `*error` first. An absent or empty header fails
  // with AuthorizationServerErrorDomain code 42 and no user information; a
  // character a state does not accept fails with code 1 and the text of
  // generateParsingError. On failure returns nullptr, keeping nothing of
  // what was read.
  static std::shared_ptr<WwwAuthenticateHeaderData> parse(const std::optional<std::string>& header,
                                                          ErrorRef* error);

  // True when `header` contains "Bearer realm=" directly followed by a
  // double quote, ignoring case; false for an absent header. Decides
  // whether a refusal is worth parsing at all.
  static bool isHeaderLikelyToBeBearerTokenWwwAuthenticateFormatted(
      const std::optional<std::string>& header);

  // Anything but white space, a line break or a double quote.
  static bool isValidSchemeCharacter(char16_t character);
  // One of "!#$%&'*+-.^_`|~", or a Unicode letter, mark or digit that is not
  // an HTTP separator.
  static bool isValidAttributeNameCharacter(char16_t character);

  // AuthorizationServerErrorDomain code 1, no user information, described
  // as "Unexpected WWW-Authenticate header format. Expecting <state name>
  // but found character: '<character>' at position <index + 1>. Header
  // text: '<header>'". `characterIndex` counts UTF-16 units from 0.
  static std::shared_ptr<VelmorAuthorizationError> generateParsingError(State state,
                                                                        char16_t character,
                                                                        std::size_t characterIndex,
                                                                        const std::string& header);
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_PARSER_H_
