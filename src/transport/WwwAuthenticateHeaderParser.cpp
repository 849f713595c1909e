#include "transport/WwwAuthenticateHeaderParser.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Alphanumeric.h"
#include "support/Format.h"
#include "support/Text.h"
#include "transport/BearerChallenge.h"

namespace velmor {

namespace {

using State = WwwAuthenticateHeaderParser::State;

constexpr std::int64_t kMalformedHeaderCode = 1;
constexpr std::int64_t kMissingHeaderCode = 42;

// Indexed by the state's number.
constexpr const char* kStateNames[] = {
    "scheme start",
    "scheme end",
    "attribute name start",
    "attribute name end",
    "attribute value start",
    "attribute quoted value end",
    "attribute unquoted value end",
};

// clang-format off
constexpr char kParseErrorFormat[] = "Unexpected WWW-Authenticate header format. Expecting %@ but found character: '%C' at position %d. Header text: '%@'";
// clang-format on

constexpr std::u16string_view kAttributeNameSymbols = u"!#$%&'*+-.^_`|~";
// The separators of HTTP's token grammar (RFC 7230).
constexpr std::u16string_view kSeparators = u"()<>@,;:\\\"/[]?={}";

bool isOneOf(std::u16string_view set, char16_t character) {
  return set.find(character) != std::u16string_view::npos;
}

// One pass over a header. Each read() takes the next unit and answers
// false at a unit its state does not accept.
class HeaderReader final {
 public:
  HeaderReader() : data_(std::make_shared<WwwAuthenticateHeaderData>()) {}

  State state() const { return state_; }
  std::shared_ptr<WwwAuthenticateHeaderData> takeResult() {
    if (challenge_) {
      challenge_->setAttributeNameValuePairs(Dictionary::fromEntries(std::move(attributes_)));
    }
    return std::move(data_);
  }

  bool read(char16_t c) {
    switch (state_) {
      case State::kSchemeStart:
        return readSchemeStart(c);
      case State::kSchemeEnd:
        return readSchemeEnd(c);
      case State::kAttributeNameStart:
        return readAttributeNameStart(c);
      case State::kAttributeNameEnd:
        return readAttributeNameEnd(c);
      case State::kAttributeValueStart:
        return readAttributeValueStart(c);
      case State::kAttributeQuotedValueEnd:
        return readQuotedValue(c);
      case State::kAttributeUnquotedValueEnd:
        return readUnquotedValue(c);
    }
    return false;
  }

 private:
  static bool isSpace(char16_t c) { return text::isWhitespaceOrNewline(c); }

  bool readSchemeStart(char16_t c) {
    if (!WwwAuthenticateHeaderParser::isValidSchemeCharacter(c)) return false;
    append(c, State::kSchemeEnd);
    return true;
  }

  bool readSchemeEnd(char16_t c) {
    if (isSpace(c)) {
      startChallenge();
      state_ = State::kAttributeNameStart;
      return true;
    }
    if (!WwwAuthenticateHeaderParser::isValidSchemeCharacter(c)) return false;
    token_ += c;
    return true;
  }

  bool readAttributeNameStart(char16_t c) {
    if (isSpace(c) || c == u',') return true;
    if (!WwwAuthenticateHeaderParser::isValidAttributeNameCharacter(c)) return false;
    append(c, State::kAttributeNameEnd);
    return true;
  }

  bool readAttributeNameEnd(char16_t c) {
    if (c == u'=') {
      attributeName_ = takeToken();
      state_ = State::kAttributeValueStart;
      return true;
    }
    if (!WwwAuthenticateHeaderParser::isValidAttributeNameCharacter(c)) return false;
    token_ += c;
    return true;
  }

  // White space before a value is kept as part of it, and a quote still
  // opens a quoted value after it.
  bool readAttributeValueStart(char16_t c) {
    if (c == u'"') {
      state_ = State::kAttributeQuotedValueEnd;
    } else if (isSpace(c)) {
      token_ += c;
    } else {
      append(c, State::kAttributeUnquotedValueEnd);
    }
    return true;
  }

  // No escapes: a backslash is an ordinary character.
  bool readQuotedValue(char16_t c) {
    if (c == u'"') {
      storeAttribute();
    } else {
      token_ += c;
    }
    return true;
  }

  bool readUnquotedValue(char16_t c) {
    if (isSpace(c) || c == u',') {
      storeAttribute();
    } else {
      token_ += c;
    }
    return true;
  }

  void append(char16_t c, State next) {
    token_ += c;
    state_ = next;
  }

  std::string takeToken() {
    std::string utf8 = text::toUtf8(token_);
    token_.clear();
    return utf8;
  }

  void startChallenge() {
    std::string scheme = takeToken();
    if (text::equalsIgnoringCase(scheme, BearerChallenge::schemeName())) {
      challenge_ = std::make_shared<BearerChallenge>();
    } else {
      challenge_ = std::make_shared<WwwAuthenticateChallenge>(std::move(scheme));
    }
    data_->addChallenge(challenge_);
  }

  // Attributes are gathered and sorted once at the end: inserting them one
  // by one into the sorted dictionary would make a header of many
  // attributes cost quadratic time. Repeated names keep their last value.
  void storeAttribute() {
    attributes_.emplace_back(attributeName_, Value(takeToken()));
    state_ = State::kAttributeNameStart;
  }

  std::shared_ptr<WwwAuthenticateHeaderData> data_;
  std::shared_ptr<WwwAuthenticateChallenge> challenge_;
  State state_ = State::kSchemeStart;
  std::u16string token_;
  std::string attributeName_;
  std::vector<Dictionary::Entry> attributes_;
};

void setError(ErrorRef* error, ErrorRef value) {
  if (error) *error = std::move(value);
}

}  // namespace

std::shared_ptr<WwwAuthenticateHeaderData> WwwAuthenticateHeaderParser::parse(
    const std::optional<std::string>& header, ErrorRef* error) {
  setError(error, nullptr);
  if (!header || header->empty()) {
    setError(error, VelmorAuthorizationError::errorWithDomain(AuthorizationServerErrorDomain,
                                                              kMissingHeaderCode, std::nullopt));
    return nullptr;
  }
  // Positions are counted in UTF-16 units, as the platform's texts count.
  const std::u16string units = text::toUtf16(*header);
  HeaderReader reader;
  for (std::size_t i = 0; i < units.size(); ++i) {
    if (!reader.read(units[i])) {
      setError(error, generateParsingError(reader.state(), units[i], i, text::toUtf8(units)));
      return nullptr;
    }
  }
  return reader.takeResult();
}

bool WwwAuthenticateHeaderParser::isHeaderLikelyToBeBearerTokenWwwAuthenticateFormatted(
    const std::optional<std::string>& header) {
  if (!header) return false;
  constexpr std::string_view kPattern = "bearer realm=\"";
  // The pattern is lower-case ASCII, so folding ASCII letters is enough:
  // bytes of other characters never match it.
  auto sameIgnoringCase = [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + ('a' - 'A')) : a) == b;
  };
  return std::search(header->begin(), header->end(), kPattern.begin(), kPattern.end(),
                     sameIgnoringCase) != header->end();
}

bool WwwAuthenticateHeaderParser::isValidSchemeCharacter(char16_t character) {
  return !text::isWhitespaceOrNewline(character) && character != u'"';
}

bool WwwAuthenticateHeaderParser::isValidAttributeNameCharacter(char16_t character) {
  if (isOneOf(kAttributeNameSymbols, character)) return true;
  if (isOneOf(kSeparators, character)) return false;
  return text::isAlphanumeric(character);
}

std::shared_ptr<VelmorAuthorizationError> WwwAuthenticateHeaderParser::generateParsingError(
    State state, char16_t character, std::size_t characterIndex, const std::string& header) {
  const auto number = static_cast<std::size_t>(state);
  const char* stateName = number < std::size(kStateNames) ? kStateNames[number] : nullptr;
  std::string description = stringWithFormat(kParseErrorFormat, stateName, character,
                                             static_cast<std::int64_t>(characterIndex) + 1, header);
  return std::make_shared<VelmorAuthorizationError>(
      AuthorizationServerErrorDomain, kMalformedHeaderCode, std::move(description), std::nullopt);
}

}  // namespace velmor
