#include "json/xSBJsonStreamParserState.h"

namespace velmor {

namespace {

using Token = xSBJsonTokeniser::Token;

constexpr unsigned bit(Token token) { return 1u << static_cast<unsigned>(token); }

constexpr unsigned kNothing = 0;
constexpr unsigned kKeys = bit(Token::kString) | bit(Token::kEncodedString);
constexpr unsigned kValues = bit(Token::kArrayStart) | bit(Token::kObjectStart) |
                             bit(Token::kBool) | bit(Token::kNull) | bit(Token::kInteger) |
                             bit(Token::kNumber) | kKeys;

}  // namespace

void xSBJsonStreamParserState::shouldTransitionTo(xSBJsonStreamParser&, Token) const {}

xSBJsonStreamParser::Status xSBJsonStreamParserState::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kNeedMoreInput;
}

// Start

constexpr xSBJsonStreamParserStateStart::xSBJsonStreamParserStateStart()
    : xSBJsonStreamParserState("before outer-most array or object",
                               bit(Token::kArrayStart) | bit(Token::kObjectStart)) {}

constinit const xSBJsonStreamParserStateStart xSBJsonStreamParserStateStart::instance_;

void xSBJsonStreamParserStateStart::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                       Token token) const {
  switch (token) {
    case Token::kArrayStart:
      parser.setState(&xSBJsonStreamParserStateArrayStart::sharedInstance());
      break;
    case Token::kObjectStart:
      parser.setState(&xSBJsonStreamParserStateObjectStart::sharedInstance());
      break;
    default:
      // The outer-most container has closed.
      parser.setState(&xSBJsonStreamParserStateComplete::sharedInstance());
      break;
  }
}

// Complete

constexpr xSBJsonStreamParserStateComplete::xSBJsonStreamParserStateComplete()
    : xSBJsonStreamParserState("after outer-most array or object", kNothing) {}

constinit const xSBJsonStreamParserStateComplete xSBJsonStreamParserStateComplete::instance_;

xSBJsonStreamParser::Status xSBJsonStreamParserStateComplete::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kComplete;
}

// Error

constexpr xSBJsonStreamParserStateError::xSBJsonStreamParserStateError()
    : xSBJsonStreamParserState("in error", kNothing, false, true) {}

constinit const xSBJsonStreamParserStateError xSBJsonStreamParserStateError::instance_;

xSBJsonStreamParser::Status xSBJsonStreamParserStateError::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kError;
}

// ObjectStart

constexpr xSBJsonStreamParserStateObjectStart::xSBJsonStreamParserStateObjectStart()
    : xSBJsonStreamParserState("at beginning of object", kKeys | bit(Token::kObjectEnd), true) {}

constinit const xSBJsonStreamParserStateObjectStart xSBJsonStreamParserStateObjectStart::instance_;

void xSBJsonStreamParserStateObjectStart::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                             Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotKey::sharedInstance());
}

// ObjectGotKey

constexpr xSBJsonStreamParserStateObjectGotKey::xSBJsonStreamParserStateObjectGotKey()
    : xSBJsonStreamParserState("after object key", bit(Token::kKeyValueSeparator)) {}

constinit const xSBJsonStreamParserStateObjectGotKey
    xSBJsonStreamParserStateObjectGotKey::instance_;

void xSBJsonStreamParserStateObjectGotKey::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                              Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectSeparator::sharedInstance());
}

// ObjectSeparator

constexpr xSBJsonStreamParserStateObjectSeparator::xSBJsonStreamParserStateObjectSeparator()
    : xSBJsonStreamParserState("as object value", kValues) {}

constinit const xSBJsonStreamParserStateObjectSeparator
    xSBJsonStreamParserStateObjectSeparator::instance_;

void xSBJsonStreamParserStateObjectSeparator::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                 Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotValue::sharedInstance());
}

// ObjectGotValue

constexpr xSBJsonStreamParserStateObjectGotValue::xSBJsonStreamParserStateObjectGotValue()
    : xSBJsonStreamParserState("after object value",
                               bit(Token::kValueSeparator) | bit(Token::kObjectEnd)) {}

constinit const xSBJsonStreamParserStateObjectGotValue
    xSBJsonStreamParserStateObjectGotValue::instance_;

void xSBJsonStreamParserStateObjectGotValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectNeedKey::sharedInstance());
}

// ObjectNeedKey

constexpr xSBJsonStreamParserStateObjectNeedKey::xSBJsonStreamParserStateObjectNeedKey()
    : xSBJsonStreamParserState("in place of object key", kKeys, true) {}

constinit const xSBJsonStreamParserStateObjectNeedKey
    xSBJsonStreamParserStateObjectNeedKey::instance_;

void xSBJsonStreamParserStateObjectNeedKey::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                               Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotKey::sharedInstance());
}

// ArrayStart

constexpr xSBJsonStreamParserStateArrayStart::xSBJsonStreamParserStateArrayStart()
    : xSBJsonStreamParserState("at array start", kValues | bit(Token::kArrayEnd)) {}

constinit const xSBJsonStreamParserStateArrayStart xSBJsonStreamParserStateArrayStart::instance_;

void xSBJsonStreamParserStateArrayStart::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                            Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayGotValue::sharedInstance());
}

// ArrayGotValue

constexpr xSBJsonStreamParserStateArrayGotValue::xSBJsonStreamParserStateArrayGotValue()
    : xSBJsonStreamParserState("after array value",
                               bit(Token::kValueSeparator) | bit(Token::kArrayEnd)) {}

constinit const xSBJsonStreamParserStateArrayGotValue
    xSBJsonStreamParserStateArrayGotValue::instance_;

void xSBJsonStreamParserStateArrayGotValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                               Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayNeedValue::sharedInstance());
}

// ArrayNeedValue

constexpr xSBJsonStreamParserStateArrayNeedValue::xSBJsonStreamParserStateArrayNeedValue()
    : xSBJsonStreamParserState("as array value", kValues) {}

constinit const xSBJsonStreamParserStateArrayNeedValue
    xSBJsonStreamParserStateArrayNeedValue::instance_;

void xSBJsonStreamParserStateArrayNeedValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayGotValue::sharedInstance());
}

}  // namespace velmor
