// The states of the stream parser: each says which token may come next and
// where the parser goes after it.
#ifndef VELMOR_JSON_XSBJSONSTREAMPARSERSTATE_H_
#define VELMOR_JSON_XSBJSONSTREAMPARSERSTATE_H_

#include <string_view>

#include "json/xSBJsonStreamParser.h"
#include "json/xSBJsonTokeniser.h"

namespace velmor {

// A state holds nothing of a particular parse, so each concrete state is one
// shared, immutable instance (`sharedInstance()`) that any number of parsers
// on any threads may point at. What a state accepts, its name and its flags
// are data of the base class, so the parser asks them without a virtual
// call for every token; the moves between states are the states' own code.
class xSBJsonStreamParserState {
 public:
  using Token = xSBJsonTokeniser::Token;

  virtual ~xSBJsonStreamParserState() = default;

  // Whether `token` may come next.
  bool shouldAcceptToken(const xSBJsonStreamParser&, Token token) const {
    return token > 0 && token < 32 && (acceptedTokens_ & (1u << token)) != 0;
  }
  // Moves `parser` to the state after `token`, which this state accepted (or,
  // for a saved state, which closed the container opened in it). By default
  // the parser stays.
  virtual void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const;
  // What parse answers when the input runs out in this state: by default
  // that more input is needed.
  virtual xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const;
  // Whether a string here is an object key rather than a value.
  bool needKey() const { return needKey_; }
  bool isError() const { return isError_; }
  // How error texts name the place in the document.
  std::string_view name() const { return name_; }

 protected:
  // `acceptedTokens` has bit 1 << token set for each token it accepts.
  constexpr xSBJsonStreamParserState(std::string_view name, unsigned acceptedTokens,
                                     bool needKey = false, bool isError = false)
      : name_(name), acceptedTokens_(acceptedTokens), needKey_(needKey), isError_(isError) {}

 private:
  std::string_view name_;
  unsigned acceptedTokens_;
  bool needKey_;
  bool isError_;
};

// Before the outer-most array or object: only their start may come.
class xSBJsonStreamParserStateStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateStart& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateStart();
  static const xSBJsonStreamParserStateStart instance_;
};

// The document is complete: nothing more may come but white space.
class xSBJsonStreamParserStateComplete final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateComplete& sharedInstance() { return instance_; }
  xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const override;

 private:
  constexpr xSBJsonStreamParserStateComplete();
  static const xSBJsonStreamParserStateComplete instance_;
};

// The parse has failed and stays failed.
class xSBJsonStreamParserStateError final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateError& sharedInstance() { return instance_; }
  xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const override;

 private:
  constexpr xSBJsonStreamParserStateError();
  static const xSBJsonStreamParserStateError instance_;
};

// Just after "{": a key or "}".
class xSBJsonStreamParserStateObjectStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectStart& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateObjectStart();
  static const xSBJsonStreamParserStateObjectStart instance_;
};

// After a key: only ":".
class xSBJsonStreamParserStateObjectGotKey final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectGotKey& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateObjectGotKey();
  static const xSBJsonStreamParserStateObjectGotKey instance_;
};

// After ":": any value.
class xSBJsonStreamParserStateObjectSeparator final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectSeparator& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateObjectSeparator();
  static const xSBJsonStreamParserStateObjectSeparator instance_;
};

// After a member's value: "," or "}".
class xSBJsonStreamParserStateObjectGotValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectGotValue& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateObjectGotValue();
  static const xSBJsonStreamParserStateObjectGotValue instance_;
};

// After "," in an object: only a key.
class xSBJsonStreamParserStateObjectNeedKey final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectNeedKey& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateObjectNeedKey();
  static const xSBJsonStreamParserStateObjectNeedKey instance_;
};

// Just after "[": any value or "]".
class xSBJsonStreamParserStateArrayStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayStart& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateArrayStart();
  static const xSBJsonStreamParserStateArrayStart instance_;
};

// After an element: "," or "]".
class xSBJsonStreamParserStateArrayGotValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayGotValue& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateArrayGotValue();
  static const xSBJsonStreamParserStateArrayGotValue instance_;
};

// After "," in an array: any value.
class xSBJsonStreamParserStateArrayNeedValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayNeedValue& sharedInstance() { return instance_; }
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;

 private:
  constexpr xSBJsonStreamParserStateArrayNeedValue();
  static const xSBJsonStreamParserStateArrayNeedValue instance_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONSTREAMPARSERSTATE_H_
