// Checks the order and nesting of JSON tokens and reports them as events.
#ifndef VELMOR_JSON_XSBJSONSTREAMPARSER_H_
#define VELMOR_JSON_XSBJSONSTREAMPARSER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/xSBJsonTokeniser.h"
#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

class xSBJsonStreamParser;
class xSBJsonStreamParserState;

// Receives the parser's events in document order. Keys and strings arrive
// as UTF-8 text that is only valid during the call; numbers as signed or
// unsigned 64-bit integers or doubles.
class xSBJsonStreamParserDelegate {
 public:
  virtual ~xSBJsonStreamParserDelegate() = default;

  virtual void parserFoundObjectStart(xSBJsonStreamParser& parser) = 0;
  virtual void foundObjectKey(xSBJsonStreamParser& parser, std::string_view key) = 0;
  virtual void parserFoundObjectEnd(xSBJsonStreamParser& parser) = 0;
  virtual void parserFoundArrayStart(xSBJsonStreamParser& parser) = 0;
  virtual void parserFoundArrayEnd(xSBJsonStreamParser& parser) = 0;
  virtual void foundBoolean(xSBJsonStreamParser& parser, bool value) = 0;
  virtual void parserFoundNull(xSBJsonStreamParser& parser) = 0;
  virtual void foundNumber(xSBJsonStreamParser& parser, Value number) = 0;
  virtual void foundString(xSBJsonStreamParser& parser, std::string_view string) = 0;
};

// Reads one JSON document, given in one or more pieces, whose outer-most
// value is an array or an object. The current state object decides which
// token may come next; a stack of saved states, one per open container,
// bounds the nesting at `maxDepth`. The first violation stops the parse for
// good and leaves its reason in `error()`.
//
// The delegate is not owned and must outlive the parse. A parser reads one
// document on one thread at a time.
class xSBJsonStreamParser {
 public:
  // What `parse` answers.
  enum Status : int { kComplete = 0, kNeedMoreInput = 1, kError = 2 };

  static constexpr std::size_t kDefaultMaxDepth = 32;

  xSBJsonStreamParser();

  xSBJsonStreamParser(const xSBJsonStreamParser&) = delete;
  xSBJsonStreamParser& operator=(const xSBJsonStreamParser&) = delete;

  std::size_t maxDepth() const { return maxDepth_; }
  void setMaxDepth(std::size_t maxDepth) { maxDepth_ = maxDepth; }

  xSBJsonStreamParserDelegate* delegate() const { return delegate_; }
  void setDelegate(xSBJsonStreamParserDelegate* delegate) { delegate_ = delegate; }

  // One of the shared state instances; states move the parser on with
  // setState.
  const xSBJsonStreamParserState* state() const { return state_; }
  void setState(const xSBJsonStreamParserState* state) { state_ = state; }

  // The reason the parse failed; absent while it has not.
  const std::optional<std::string>& error() const { return error_; }

  // Feeds the next piece of the document and reports what it held, then
  // answers kComplete once the document has been read, kNeedMoreInput when
  // it is still open, and kError (now and for every later piece) when it
  // cannot be JSON.
  Status parse(const std::uint8_t* bytes, std::size_t length);
  Status parse(const Data& data) { return parse(data.data(), data.size()); }

 private:
  using Token = xSBJsonTokeniser::Token;

  Status parseBuffered();
  // Handles one accepted token.
  void handleToken(Token token, const std::uint8_t* bytes, std::size_t length);
  void openContainer(Token token);
  void closeContainer(Token token);
  void handleString(std::string_view string);
  // Failures are rare; keeping them out of line keeps the token loop small.
  [[gnu::cold]] void failUnexpected(Token token);
  [[gnu::cold]] void failTooDeep();
  [[gnu::cold]] void fail(std::string reason);

  std::size_t maxDepth_ = kDefaultMaxDepth;
  const xSBJsonStreamParserState* state_;
  std::vector<const xSBJsonStreamParserState*> stateStack_;
  xSBJsonTokeniser tokeniser_;
  xSBJsonStreamParserDelegate* delegate_ = nullptr;
  std::optional<std::string> error_;
  std::string decoded_;  // reused for strings with escapes
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONSTREAMPARSER_H_
