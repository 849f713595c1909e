// Splits buffered JSON bytes into tokens for the stream parser.
#ifndef VELMOR_JSON_XSBJSONTOKENISER_H_
#define VELMOR_JSON_XSBJSONTOKENISER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velmor {

// Input may arrive in pieces cut anywhere: a token that runs to the end of
// the buffered bytes is not reported until the bytes after it arrive. The
// tokeniser reads each piece in place and copies only the unfinished tail
// that must wait for the next piece. It checks the lexical rules of JSON
// (literals, numbers, string escapes and surrogate pairs) and names the
// first violation in `error()`. One parser owns one tokeniser; it is not
// thread-safe.
class xSBJsonTokeniser {
 public:
  // What `getToken` found. The numbering is part of the reader's contract.
  enum Token : int {
    kError = -1,
    kNeedMoreInput = 0,
    kArrayStart = 1,
    kArrayEnd = 2,
    kValueSeparator = 3,
    kObjectStart = 4,
    kObjectEnd = 5,
    kKeyValueSeparator = 6,
    kBool = 7,
    kNull = 8,
    kInteger = 9,
    kNumber = 10,  // with fraction or exponent
    kString = 11,  // its bytes are its UTF-8 text
    // A string that must go through decodeString: it has escapes, or bytes
    // that are not UTF-8.
    kEncodedString = 12,
  };

  xSBJsonTokeniser();

  xSBJsonTokeniser(const xSBJsonTokeniser&) = delete;
  xSBJsonTokeniser& operator=(const xSBJsonTokeniser&) = delete;

  // Adds `bytes` after those still buffered. The bytes are read in place, so
  // they must stay unchanged until keepPendingBytes is called.
  void appendData(const std::uint8_t* bytes, std::size_t length);
  // Copies the bytes not yet consumed, so that the caller may release the
  // ones it passed to appendData.
  void keepPendingBytes();

  // Reads the next token. On a token, `*start` and `*length` give its bytes
  // (for strings the bytes between the quotation marks); they stay valid
  // until the next call to appendData or keepPendingBytes. kNeedMoreInput
  // means the buffered bytes end before the next token does; kError means
  // they can never form JSON, and `error()` says why.
  Token getToken(const std::uint8_t** start, std::size_t* length) {
    // White space and the structural characters, about half of all tokens
    // in typical documents, are handled inline in the parser's loop.
    const std::uint8_t* p = data_ + offset_;
    const std::uint8_t* end = data_ + size_;
    while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')) ++p;
    offset_ = static_cast<std::size_t>(p - data_);
    if (p < end) {
      Token token = structuralToken(*p);
      if (token != kNeedMoreInput) return emit(token, p, p + 1, p + 1, start, length);
    }
    return scanToken(start, length);
  }

  // The reason for the last kError; empty before any.
  const std::string& error() const { return error_; }

  // Appends the text of a kEncodedString token to `out`: escapes are
  // resolved and every byte that does not belong to a well-formed UTF-8
  // sequence becomes U+FFFD, so the result is always UTF-8.
  static void decodeString(const std::uint8_t* bytes, std::size_t length, std::string& out);

 private:
  static Token structuralToken(std::uint8_t c) {
    switch (c) {
      case '[':
        return kArrayStart;
      case ']':
        return kArrayEnd;
      case ',':
        return kValueSeparator;
      case '{':
        return kObjectStart;
      case '}':
        return kObjectEnd;
      case ':':
        return kKeyValueSeparator;
      default:
        return kNeedMoreInput;  // not structural
    }
  }
  // Reads a token that is not a structural character, starting at offset_.
  Token scanToken(const std::uint8_t** start, std::size_t* length);
  Token scanLiteral(const std::uint8_t* p, const char* word, std::size_t wordLength, Token token,
                    const std::uint8_t** start, std::size_t* length);
  Token scanNumber(const std::uint8_t* p, const std::uint8_t** start, std::size_t* length);
  Token scanString(const std::uint8_t* p, const std::uint8_t** start, std::size_t* length);
  // Checks the escape at `p` (a reverse solidus); returns its length, 0 when
  // the buffer ends inside it, or -1 after setting the error.
  std::ptrdiff_t scanEscape(const std::uint8_t* p, const std::uint8_t* end);
  // Failures set error_ and answer kError; they are rare, and keeping them
  // out of line keeps the scanning functions small.
  [[gnu::cold]] Token fail(const char* reason);
  [[gnu::cold]] Token failIllegalStart(std::uint8_t c);
  [[gnu::cold]] Token failExpectedLiteral(const char* word, const std::uint8_t* initial);
  [[gnu::cold]] Token failUnescapedControl(std::uint8_t c);
  [[gnu::cold]] Token failIllegalEscape(std::uint8_t c);
  // Reports the token in [tokenStart, tokenEnd) and consumes up to `next`.
  Token emit(Token token, const std::uint8_t* tokenStart, const std::uint8_t* tokenEnd,
             const std::uint8_t* next, const std::uint8_t** start, std::size_t* length) {
    *start = tokenStart;
    *length = static_cast<std::size_t>(tokenEnd - tokenStart);
    offset_ = static_cast<std::size_t>(next - data_);
    return token;
  }

  const std::uint8_t* data_ = nullptr;  // the caller's bytes or pending_
  std::size_t size_ = 0;
  std::size_t offset_ = 0;  // first byte not yet consumed
  bool borrowed_ = false;   // whether data_ points at the caller's bytes
  std::vector<std::uint8_t> pending_;
  std::string error_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONTOKENISER_H_
