#include "json/xSBJsonStreamParserState.h"

namespace velmor {

namespace {

using Token = xSBJsonTokeniser::Token;

constexpr unsigned bit(Token token) { return 1u << static_cast<unsigned>(token); }

constexpr unsigned kStringTokens = bit(Token::kString) | bit(Token::kEncodedString);
constexpr unsigned kValueTokens = bit(Token::kArrayStart) | bit(Token::kObjectStart) |
                                  bit(Token::kBool) | bit(Token::kNull) | bit(Token::kInteger) |
                                  bit(Token::kNumber) | kStringTokens;

bool isOneOf(Token token, unsigned tokens) {
  return token > 0 && token < 32 && (tokens & bit(token)) != 0;
}

}  // namespace

// Base state: accepts nothing, goes nowhere, waits for input.

bool xSBJsonStreamParserState::shouldAcceptToken(const xSBJsonStreamParser&, Token) const {
  return false;
}

void xSBJsonStreamParserState::shouldTransitionTo(xSBJsonStreamParser&, Token) const {}

xSBJsonStreamParser::Status xSBJsonStreamParserState::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kNeedMoreInput;
}

// Start

constinit const xSBJsonStreamParserStateStart xSBJsonStreamParserStateStart::instance_;

const xSBJsonStreamParserStateStart& xSBJsonStreamParserStateStart::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateStart::shouldAcceptToken(const xSBJsonStreamParser&,
                                                      Token token) const {
  return isOneOf(token, bit(Token::kArrayStart) | bit(Token::kObjectStart));
}

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

std::string_view xSBJsonStreamParserStateStart::name() const {
  return "before outer-most array or object";
}

// Complete

constinit const xSBJsonStreamParserStateComplete xSBJsonStreamParserStateComplete::instance_;

const xSBJsonStreamParserStateComplete& xSBJsonStreamParserStateComplete::sharedInstance() {
  return instance_;
}

xSBJsonStreamParser::Status xSBJsonStreamParserStateComplete::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kComplete;
}

std::string_view xSBJsonStreamParserStateComplete::name() const {
  return "after outer-most array or object";
}

// Error

constinit const xSBJsonStreamParserStateError xSBJsonStreamParserStateError::instance_;

const xSBJsonStreamParserStateError& xSBJsonStreamParserStateError::sharedInstance() {
  return instance_;
}

xSBJsonStreamParser::Status xSBJsonStreamParserStateError::parserShouldReturn(
    const xSBJsonStreamParser&) const {
  return xSBJsonStreamParser::kError;
}

std::string_view xSBJsonStreamParserStateError::name() const { return "in error"; }

// ObjectStart

constinit const xSBJsonStreamParserStateObjectStart xSBJsonStreamParserStateObjectStart::instance_;

const xSBJsonStreamParserStateObjectStart& xSBJsonStreamParserStateObjectStart::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateObjectStart::shouldAcceptToken(const xSBJsonStreamParser&,
                                                            Token token) const {
  return isOneOf(token, kStringTokens | bit(Token::kObjectEnd));
}

void xSBJsonStreamParserStateObjectStart::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                             Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotKey::sharedInstance());
}

std::string_view xSBJsonStreamParserStateObjectStart::name() const {
  return "at beginning of object";
}

// ObjectGotKey

constinit const xSBJsonStreamParserStateObjectGotKey
    xSBJsonStreamParserStateObjectGotKey::instance_;

const xSBJsonStreamParserStateObjectGotKey& xSBJsonStreamParserStateObjectGotKey::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateObjectGotKey::shouldAcceptToken(const xSBJsonStreamParser&,
                                                             Token token) const {
  return token == Token::kKeyValueSeparator;
}

void xSBJsonStreamParserStateObjectGotKey::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                              Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectSeparator::sharedInstance());
}

std::string_view xSBJsonStreamParserStateObjectGotKey::name() const { return "after object key"; }

// ObjectSeparator

constinit const xSBJsonStreamParserStateObjectSeparator
    xSBJsonStreamParserStateObjectSeparator::instance_;

const xSBJsonStreamParserStateObjectSeparator&
xSBJsonStreamParserStateObjectSeparator::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateObjectSeparator::shouldAcceptToken(const xSBJsonStreamParser&,
                                                                Token token) const {
  return isOneOf(token, kValueTokens);
}

void xSBJsonStreamParserStateObjectSeparator::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                 Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotValue::sharedInstance());
}

std::string_view xSBJsonStreamParserStateObjectSeparator::name() const { return "as object value"; }

// ObjectGotValue

constinit const xSBJsonStreamParserStateObjectGotValue
    xSBJsonStreamParserStateObjectGotValue::instance_;

const xSBJsonStreamParserStateObjectGotValue&
xSBJsonStreamParserStateObjectGotValue::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateObjectGotValue::shouldAcceptToken(const xSBJsonStreamParser&,
                                                               Token token) const {
  return isOneOf(token, bit(Token::kValueSeparator) | bit(Token::kObjectEnd));
}

void xSBJsonStreamParserStateObjectGotValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectNeedKey::sharedInstance());
}

std::string_view xSBJsonStreamParserStateObjectGotValue::name() const {
  return "after object value";
}

// ObjectNeedKey

constinit const xSBJsonStreamParserStateObjectNeedKey
    xSBJsonStreamParserStateObjectNeedKey::instance_;

const xSBJsonStreamParserStateObjectNeedKey&
xSBJsonStreamParserStateObjectNeedKey::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateObjectNeedKey::shouldAcceptToken(const xSBJsonStreamParser&,
                                                              Token token) const {
  return isOneOf(token, kStringTokens);
}

void xSBJsonStreamParserStateObjectNeedKey::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                               Token) const {
  parser.setState(&xSBJsonStreamParserStateObjectGotKey::sharedInstance());
}

std::string_view xSBJsonStreamParserStateObjectNeedKey::name() const {
  return "in place of object key";
}

// ArrayStart

constinit const xSBJsonStreamParserStateArrayStart xSBJsonStreamParserStateArrayStart::instance_;

const xSBJsonStreamParserStateArrayStart& xSBJsonStreamParserStateArrayStart::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateArrayStart::shouldAcceptToken(const xSBJsonStreamParser&,
                                                           Token token) const {
  return isOneOf(token, kValueTokens | bit(Token::kArrayEnd));
}

void xSBJsonStreamParserStateArrayStart::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                            Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayGotValue::sharedInstance());
}

std::string_view xSBJsonStreamParserStateArrayStart::name() const { return "at array start"; }

// ArrayGotValue

constinit const xSBJsonStreamParserStateArrayGotValue
    xSBJsonStreamParserStateArrayGotValue::instance_;

const xSBJsonStreamParserStateArrayGotValue&
xSBJsonStreamParserStateArrayGotValue::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateArrayGotValue::shouldAcceptToken(const xSBJsonStreamParser&,
                                                              Token token) const {
  return isOneOf(token, bit(Token::kValueSeparator) | bit(Token::kArrayEnd));
}

void xSBJsonStreamParserStateArrayGotValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                               Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayNeedValue::sharedInstance());
}

std::string_view xSBJsonStreamParserStateArrayGotValue::name() const { return "after array value"; }

// ArrayNeedValue

constinit const xSBJsonStreamParserStateArrayNeedValue
    xSBJsonStreamParserStateArrayNeedValue::instance_;

const xSBJsonStreamParserStateArrayNeedValue&
xSBJsonStreamParserStateArrayNeedValue::sharedInstance() {
  return instance_;
}

bool xSBJsonStreamParserStateArrayNeedValue::shouldAcceptToken(const xSBJsonStreamParser&,
                                                               Token token) const {
  return isOneOf(token, kValueTokens);
}

void xSBJsonStreamParserStateArrayNeedValue::shouldTransitionTo(xSBJsonStreamParser& parser,
                                                                Token) const {
  parser.setState(&xSBJsonStreamParserStateArrayGotValue::sharedInstance());
}

std::string_view xSBJsonStreamParserStateArrayNeedValue::name() const { return "as array value"; }

}  // namespace velmor
