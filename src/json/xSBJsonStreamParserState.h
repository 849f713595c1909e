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
// on any threads may point at.
class xSBJsonStreamParserState {
 public:
  using Token = xSBJsonTokeniser::Token;

  virtual ~xSBJsonStreamParserState() = default;

  // Whether `token` may come next. By default nothing may.
  virtual bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const;
  // Moves `parser` to the state after `token`, which this state accepted (or,
  // for a saved state, which closed the container opened in it).
  virtual void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const;
  // What parse answers when the input runs out in this state: by default
  // that more input is needed.
  virtual xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const;
  // Whether a string here is an object key rather than a value.
  virtual bool needKey() const { return false; }
  virtual bool isError() const { return false; }
  // How error texts name the place in the document.
  virtual std::string_view name() const = 0;

 protected:
  constexpr xSBJsonStreamParserState() = default;
};

// Before the outer-most array or object: only their start may come.
class xSBJsonStreamParserStateStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateStart& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateStart() = default;
  static const xSBJsonStreamParserStateStart instance_;
};

// The document is complete: nothing more may come but white space.
class xSBJsonStreamParserStateComplete final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateComplete& sharedInstance();
  xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateComplete() = default;
  static const xSBJsonStreamParserStateComplete instance_;
};

// The parse has failed and stays failed.
class xSBJsonStreamParserStateError final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateError& sharedInstance();
  xSBJsonStreamParser::Status parserShouldReturn(const xSBJsonStreamParser& parser) const override;
  bool isError() const override { return true; }
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateError() = default;
  static const xSBJsonStreamParserStateError instance_;
};

// Just after "{": a key or "}".
class xSBJsonStreamParserStateObjectStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectStart& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  bool needKey() const override { return true; }
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateObjectStart() = default;
  static const xSBJsonStreamParserStateObjectStart instance_;
};

// After a key: only ":".
class xSBJsonStreamParserStateObjectGotKey final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectGotKey& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateObjectGotKey() = default;
  static const xSBJsonStreamParserStateObjectGotKey instance_;
};

// After ":": any value.
class xSBJsonStreamParserStateObjectSeparator final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectSeparator& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateObjectSeparator() = default;
  static const xSBJsonStreamParserStateObjectSeparator instance_;
};

// After a member's value: "," or "}".
class xSBJsonStreamParserStateObjectGotValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectGotValue& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateObjectGotValue() = default;
  static const xSBJsonStreamParserStateObjectGotValue instance_;
};

// After "," in an object: only a key.
class xSBJsonStreamParserStateObjectNeedKey final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateObjectNeedKey& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  bool needKey() const override { return true; }
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateObjectNeedKey() = default;
  static const xSBJsonStreamParserStateObjectNeedKey instance_;
};

// Just after "[": any value or "]".
class xSBJsonStreamParserStateArrayStart final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayStart& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateArrayStart() = default;
  static const xSBJsonStreamParserStateArrayStart instance_;
};

// After an element: "," or "]".
class xSBJsonStreamParserStateArrayGotValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayGotValue& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateArrayGotValue() = default;
  static const xSBJsonStreamParserStateArrayGotValue instance_;
};

// After "," in an array: any value.
class xSBJsonStreamParserStateArrayNeedValue final : public xSBJsonStreamParserState {
 public:
  static const xSBJsonStreamParserStateArrayNeedValue& sharedInstance();
  bool shouldAcceptToken(const xSBJsonStreamParser& parser, Token token) const override;
  void shouldTransitionTo(xSBJsonStreamParser& parser, Token token) const override;
  std::string_view name() const override;

 private:
  constexpr xSBJsonStreamParserStateArrayNeedValue() = default;
  static const xSBJsonStreamParserStateArrayNeedValue instance_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONSTREAMPARSERSTATE_H_
