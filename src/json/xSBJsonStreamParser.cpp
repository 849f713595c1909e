#include "json/xSBJsonStreamParser.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "json/xSBJsonStreamParserState.h"
#include "support/Format.h"

namespace velmor {

namespace {

using Token = xSBJsonTokeniser::Token;

// Integer tokens this long or longer may not fit 64 bits and are read as
// doubles.
constexpr std::size_t kMaxIntegerTokenLength = 21;

std::string_view tokenName(Token token) {
  switch (token) {
    case Token::kArrayStart:
      return "start of array";
    case Token::kArrayEnd:
      return "end of array";
    case Token::kValueSeparator:
      return "value separator";
    case Token::kObjectStart:
      return "start of object";
    case Token::kObjectEnd:
      return "end of object";
    case Token::kKeyValueSeparator:
      return "key-value separator";
    case Token::kBool:
      return "boolean";
    case Token::kNull:
      return "null";
    case Token::kInteger:
    case Token::kNumber:
      return "number";
    case Token::kString:
    case Token::kEncodedString:
      return "string";
    default:
      // Only a fault in the parser itself can name another token.
      return "<aaiiie!>";
  }
}

bool isDigit(std::uint8_t c) { return static_cast<unsigned>(c - '0') < 10; }

// What the C library's strtod answers for a number beyond the range of a
// double: infinity when it is too large, zero when it is too small. Tells
// the two apart by the decimal exponent of its first significant digit.
double outOfRangeDouble(const std::uint8_t* p, const std::uint8_t* end) {
  bool negative = *p == '-';
  if (negative) ++p;
  long long firstDigitExponent = -1;
  long long integerDigits = 0;
  while (p < end && isDigit(*p)) {
    ++integerDigits;
    ++p;
  }
  bool integerPartIsZero = integerDigits == 1 && p[-1] == '0';
  if (!integerPartIsZero) firstDigitExponent = integerDigits - 1;
  if (p < end && *p == '.') {
    ++p;
    long long leadingZeros = 0;
    while (p < end && *p == '0') {
      ++leadingZeros;
      ++p;
    }
    if (integerPartIsZero) firstDigitExponent = -(leadingZeros + 1);
    while (p < end && isDigit(*p)) ++p;
  }
  long long exponent = 0;
  if (p < end && (*p == 'e' || *p == 'E')) {
    ++p;
    bool negativeExponent = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) ++p;
    // Saturating: a billion is already far past either end of the range.
    for (; p < end && isDigit(*p); ++p) {
      if (exponent < 1'000'000'000) exponent = exponent * 10 + (*p - '0');
    }
    if (negativeExponent) exponent = -exponent;
  }
  double magnitude =
      firstDigitExponent + exponent >= 0 ? std::numeric_limits<double>::infinity() : 0.0;
  return negative ? -magnitude : magnitude;
}

Value doubleValue(const std::uint8_t* bytes, std::size_t length) {
  // from_chars rounds correctly and, unlike strtod, ignores the process's
  // locale, which an application may have set to use decimal commas.
  const char* first = reinterpret_cast<const char*>(bytes);
  double value = 0;
  auto result = std::from_chars(first, first + length, value);
  if (result.ec == std::errc::result_out_of_range) value = outOfRangeDouble(bytes, bytes + length);
  return Value(value);
}

// Reads an integer token as strtoll or strtoull would: signed when it has a
// minus sign, unsigned otherwise, saturating at the ends of the range.
Value integerValue(const std::uint8_t* bytes, std::size_t length) {
  if (length >= kMaxIntegerTokenLength) return doubleValue(bytes, length);
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  bool negative = bytes[0] == '-';
  std::size_t i = negative ? 1 : 0;
  // Nineteen digits always fit; only a twentieth can overflow.
  constexpr std::size_t kSafeDigits = 19;
  std::uint64_t magnitude = 0;
  for (std::size_t safeEnd = std::min(length, i + kSafeDigits); i < safeEnd; ++i) {
    magnitude = magnitude * 10 + static_cast<unsigned>(bytes[i] - '0');
  }
  bool overflow = false;
  if (i < length) {
    unsigned digit = static_cast<unsigned>(bytes[i] - '0');
    overflow = magnitude > (kMax - digit) / 10;
    if (!overflow) magnitude = magnitude * 10 + digit;
  }
  if (!negative) return Value(overflow ? kMax : magnitude);
  constexpr std::uint64_t kMinMagnitude = std::uint64_t{1} << 63;
  if (overflow || magnitude >= kMinMagnitude) {
    return Value(std::numeric_limits<std::int64_t>::min());
  }
  return Value(-static_cast<std::int64_t>(magnitude));
}

}  // namespace

xSBJsonStreamParser::xSBJsonStreamParser()
    : state_(&xSBJsonStreamParserStateStart::sharedInstance()) {
  stateStack_.reserve(kDefaultMaxDepth);
}

xSBJsonStreamParser::Status xSBJsonStreamParser::parse(const std::uint8_t* bytes,
                                                       std::size_t length) {
  if (state_->isError()) return kError;
  tokeniser_.appendData(bytes, length);
  Status status = parseBuffered();
  tokeniser_.keepPendingBytes();
  return status;
}

xSBJsonStreamParser::Status xSBJsonStreamParser::parseBuffered() {
  for (;;) {
    const std::uint8_t* tokenBytes = nullptr;
    std::size_t tokenLength = 0;
    Token token = tokeniser_.getToken(&tokenBytes, &tokenLength);
    if (token == Token::kError) {
      state_ = &xSBJsonStreamParserStateError::sharedInstance();
      error_ = tokeniser_.error();
      return kError;
    }
    if (token == Token::kNeedMoreInput) return state_->parserShouldReturn(*this);
    if (!state_->shouldAcceptToken(*this, token)) {
      failUnexpected(token);
      return kError;
    }
    handleToken(token, tokenBytes, tokenLength);
    if (state_ == &xSBJsonStreamParserStateError::sharedInstance()) return kError;
  }
}

void xSBJsonStreamParser::handleToken(Token token, const std::uint8_t* bytes, std::size_t length) {
  switch (token) {
    case Token::kArrayStart:
    case Token::kObjectStart:
      openContainer(token);
      return;
    case Token::kArrayEnd:
    case Token::kObjectEnd:
      closeContainer(token);
      return;
    case Token::kBool:
      if (delegate_) delegate_->foundBoolean(*this, bytes[0] == 't');
      break;
    case Token::kNull:
      if (delegate_) delegate_->parserFoundNull(*this);
      break;
    case Token::kInteger:
      if (delegate_) delegate_->foundNumber(*this, integerValue(bytes, length));
      break;
    case Token::kNumber:
      if (delegate_) delegate_->foundNumber(*this, doubleValue(bytes, length));
      break;
    case Token::kString:
      handleString(std::string_view(reinterpret_cast<const char*>(bytes), length));
      return;
    case Token::kEncodedString:
      decoded_.clear();
      xSBJsonTokeniser::decodeString(bytes, length, decoded_);
      handleString(decoded_);
      return;
    default:
      // The separators only move the state on.
      break;
  }
  state_->shouldTransitionTo(*this, token);
}

void xSBJsonStreamParser::openContainer(Token token) {
  if (stateStack_.size() >= maxDepth_) {
    failTooDeep();
    return;
  }
  bool isArray = token == Token::kArrayStart;
  if (delegate_) {
    if (isArray) {
      delegate_->parserFoundArrayStart(*this);
    } else {
      delegate_->parserFoundObjectStart(*this);
    }
  }
  stateStack_.push_back(state_);
  if (isArray) {
    state_ = &xSBJsonStreamParserStateArrayStart::sharedInstance();
  } else {
    state_ = &xSBJsonStreamParserStateObjectStart::sharedInstance();
  }
}

void xSBJsonStreamParser::closeContainer(Token token) {
  // The states only accept an end inside a container, so a saved state is
  // always there; the check keeps a fault in a state from reading past the
  // stack.
  if (stateStack_.empty()) {
    failUnexpected(token);
    return;
  }
  const xSBJsonStreamParserState* saved = stateStack_.back();
  stateStack_.pop_back();
  saved->shouldTransitionTo(*this, token);
  if (!delegate_) return;
  if (token == Token::kArrayEnd) {
    delegate_->parserFoundArrayEnd(*this);
  } else {
    delegate_->parserFoundObjectEnd(*this);
  }
}

void xSBJsonStreamParser::handleString(std::string_view string) {
  if (delegate_) {
    if (state_->needKey()) {
      delegate_->foundObjectKey(*this, string);
    } else {
      delegate_->foundString(*this, string);
    }
  }
  state_->shouldTransitionTo(*this, Token::kString);
}

void xSBJsonStreamParser::failUnexpected(Token token) {
  fail(stringWithFormat("Token '%@' not expected %@", tokenName(token), state_->name()));
}

void xSBJsonStreamParser::failTooDeep() {
  fail(stringWithFormat("Input depth exceeds max depth of %lu", maxDepth_));
}

void xSBJsonStreamParser::fail(std::string reason) {
  error_ = std::move(reason);
  state_ = &xSBJsonStreamParserStateError::sharedInstance();
}

}  // namespace velmor
