#include "json/xSBJsonTokeniser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>

#include "support/Format.h"

namespace velmor {

namespace {

// How the string scanner treats each byte; everything but kPlain needs a
// closer look, so the common run of plain bytes costs one table load each.
enum StringByteClass : std::uint8_t { kPlain, kQuote, kBackslash, kControl, kHighByte };

constexpr std::array<std::uint8_t, 256> makeStringByteClasses() {
  std::array<std::uint8_t, 256> classes{};
  for (int c = 0; c < 0x20; ++c) classes[static_cast<std::size_t>(c)] = kControl;
  for (int c = 0x80; c < 0x100; ++c) classes[static_cast<std::size_t>(c)] = kHighByte;
  classes['"'] = kQuote;
  classes['\\'] = kBackslash;
  return classes;
}

constexpr std::array<std::uint8_t, 256> kStringByteClasses = makeStringByteClasses();

constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";

// Skips the bytes of a string that need no closer look, eight at a time
// while eight remain: a byte needs a look when it is a quotation mark, a
// reverse solidus, a control character or above 0x7F.
const std::uint8_t* skipPlainStringBytes(const std::uint8_t* p, const std::uint8_t* end) {
  constexpr std::uint64_t kOnes = 0x0101010101010101u;
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  while (end - p >= 8) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    // Each test sets the high bit of every byte that needs a look. It may
    // also mark bytes after such a byte (through borrows towards the more
    // significant end), but never one before it.
    std::uint64_t quote = word ^ (kOnes * '"');
    std::uint64_t backslash = word ^ (kOnes * '\\');
    std::uint64_t marks = (((quote - kOnes) & ~quote) | ((backslash - kOnes) & ~backslash) |
                           (word - kOnes * 0x20) | word) &
                          kHighBits;
    if (marks != 0) {
      if constexpr (std::endian::native == std::endian::little) {
        return p + std::countr_zero(marks) / 8;
      }
      break;
    }
    p += 8;
  }
  while (p < end && kStringByteClasses[*p] == kPlain) ++p;
  return p;
}

bool isDigit(std::uint8_t c) { return static_cast<unsigned>(c - '0') < 10; }

int hexDigitValue(std::uint8_t c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The UTF-16 unit spelt by four hexadecimal digits at `p`, or -1.
long hexQuad(const std::uint8_t* p) {
  long unit = 0;
  for (int i = 0; i < 4; ++i) {
    int digit = hexDigitValue(p[i]);
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

bool isHighSurrogate(long unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(long unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The length of the well-formed UTF-8 sequence starting at `p` (a byte of
// 0x80 or above), or 0 when the bytes up to `end` do not form one. Overlong
// forms, surrogates and values above U+10FFFF are not well-formed.
std::size_t utf8SequenceLength(const std::uint8_t* p, const std::uint8_t* end) {
  std::uint8_t lead = p[0];
  std::size_t length;
  std::uint8_t low = 0x80;
  std::uint8_t high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (static_cast<std::size_t>(end - p) < length) return 0;
  if (p[1] < low || p[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
  }
  return length;
}

void appendCodePoint(std::string& out, std::uint32_t codePoint) {
  if (codePoint < 0x80) {
    out += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    out += static_cast<char>(0xC0 | (codePoint >> 6));
    out += static_cast<char>(0x80 | (codePoint & 0x3F));
  } else if (codePoint < 0x10000) {
    out += static_cast<char>(0xE0 | (codePoint >> 12));
    out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (codePoint & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (codePoint >> 18));
    out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (codePoint & 0x3F));
  }
}

char simpleEscapeValue(std::uint8_t c) {
  switch (c) {
    case '"':
      return '"';
    case '\\':
      return '\\';
    case '/':
      return '/';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return 0;
  }
}

// Decodes the "\u" escape at `p` (and its low half, for a surrogate pair);
// returns the bytes used. Anything malformed becomes U+FFFD, although the
// tokeniser lets only well-formed escapes through.
std::size_t decodeUnicodeEscape(const std::uint8_t* p, const std::uint8_t* end, std::string& out) {
  long unit = end - p >= 6 ? hexQuad(p + 2) : -1;
  if (unit < 0) {
    out += kReplacementCharacter;
    return 2;
  }
  if (!isHighSurrogate(unit)) {
    if (isLowSurrogate(unit)) {
      out += kReplacementCharacter;
    } else {
      appendCodePoint(out, static_cast<std::uint32_t>(unit));
    }
    return 6;
  }
  long low = end - p >= 12 && p[6] == '\\' && p[7] == 'u' ? hexQuad(p + 8) : -1;
  if (!isLowSurrogate(low)) {
    out += kReplacementCharacter;
    return 6;
  }
  appendCodePoint(out,
                  static_cast<std::uint32_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
  return 12;
}

}  // namespace

xSBJsonTokeniser::xSBJsonTokeniser() = default;

void xSBJsonTokeniser::appendData(const std::uint8_t* bytes, std::size_t length) {
  keepPendingBytes();
  if (offset_ == size_) {
    // Nothing is pending: read the new bytes where they are.
    pending_.clear();
    data_ = bytes;
    size_ = length;
    offset_ = 0;
    borrowed_ = true;
    return;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(offset_));
  pending_.insert(pending_.end(), bytes, bytes + length);
  data_ = pending_.data();
  size_ = pending_.size();
  offset_ = 0;
}

void xSBJsonTokeniser::keepPendingBytes() {
  if (!borrowed_) return;
  pending_.assign(data_ + offset_, data_ + size_);
  data_ = pending_.data();
  size_ = pending_.size();
  offset_ = 0;
  borrowed_ = false;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::scanToken(const std::uint8_t** start,
                                                    std::size_t* length) {
  const std::uint8_t* p = data_ + offset_;
  if (offset_ == size_) return kNeedMoreInput;
  switch (*p) {
    case '"':
      return scanString(p, start, length);
    case 't':
      return scanLiteral(p, "true", 4, kBool, start, length);
    case 'f':
      return scanLiteral(p, "false", 5, kBool, start, length);
    case 'n':
      return scanLiteral(p, "null", 4, kNull, start, length);
    case '+':
      return fail("Leading + is illegal in number");
    default:
      if (*p == '-' || isDigit(*p)) return scanNumber(p, start, length);
      return failIllegalStart(*p);
  }
}

xSBJsonTokeniser::Token xSBJsonTokeniser::scanLiteral(const std::uint8_t* p, const char* word,
                                                      std::size_t wordLength, Token token,
                                                      const std::uint8_t** start,
                                                      std::size_t* length) {
  const std::uint8_t* end = data_ + size_;
  std::size_t available = std::min(static_cast<std::size_t>(end - p), wordLength);
  if (std::memcmp(p, word, available) != 0) {
    return failExpectedLiteral(word, p);
  }
  if (available < wordLength) return kNeedMoreInput;
  return emit(token, p, p + wordLength, p + wordLength, start, length);
}

xSBJsonTokeniser::Token xSBJsonTokeniser::scanNumber(const std::uint8_t* p,
                                                     const std::uint8_t** start,
                                                     std::size_t* length) {
  // A number only ends at a byte that cannot continue it, so running into
  // the end of the buffer always means more input is needed.
  const std::uint8_t* end = data_ + size_;
  const std::uint8_t* q = p;
  if (*q == '-') {
    if (++q == end) return kNeedMoreInput;
    if (!isDigit(*q)) return fail("No digits after initial minus");
  }
  if (*q == '0') {
    if (++q == end) return kNeedMoreInput;
    if (isDigit(*q)) return fail("Leading zero is illegal in number");
  } else {
    while (q < end && isDigit(*q)) ++q;
    if (q == end) return kNeedMoreInput;
  }

  Token token = kInteger;
  if (*q == '.') {
    if (++q == end) return kNeedMoreInput;
    if (!isDigit(*q)) return fail("No digits after decimal point");
    while (q < end && isDigit(*q)) ++q;
    if (q == end) return kNeedMoreInput;
    token = kNumber;
  }
  if (*q == 'e' || *q == 'E') {
    if (++q == end) return kNeedMoreInput;
    if (*q == '+' || *q == '-') {
      if (++q == end) return kNeedMoreInput;
    }
    if (!isDigit(*q)) return fail("No digits in exponent");
    while (q < end && isDigit(*q)) ++q;
    if (q == end) return kNeedMoreInput;
    token = kNumber;
  }
  return emit(token, p, q, q, start, length);
}

xSBJsonTokeniser::Token xSBJsonTokeniser::scanString(const std::uint8_t* p,
                                                     const std::uint8_t** start,
                                                     std::size_t* length) {
  const std::uint8_t* end = data_ + size_;
  const std::uint8_t* q = p + 1;
  bool encoded = false;
  for (;;) {
    q = skipPlainStringBytes(q, end);
    if (q == end) return kNeedMoreInput;
    switch (kStringByteClasses[*q]) {
      case kQuote:
        return emit(encoded ? kEncodedString : kString, p + 1, q, q + 1, start, length);
      case kBackslash: {
        std::ptrdiff_t escapeLength = scanEscape(q, end);
        if (escapeLength < 0) return kError;
        if (escapeLength == 0) return kNeedMoreInput;
        encoded = true;
        q += escapeLength;
        break;
      }
      case kControl:
        return failUnescapedControl(*q);
      default: {
        // A sequence cut off by the end of the buffer counts as malformed
        // here; the scan then runs out of bytes and starts over with more.
        std::size_t sequenceLength = utf8SequenceLength(q, end);
        if (sequenceLength == 0) {
          encoded = true;
          sequenceLength = 1;
        }
        q += sequenceLength;
        break;
      }
    }
  }
}

std::ptrdiff_t xSBJsonTokeniser::scanEscape(const std::uint8_t* p, const std::uint8_t* end) {
  std::ptrdiff_t available = end - p;
  if (available < 2) return 0;
  if (p[1] != 'u') {
    if (simpleEscapeValue(p[1]) != 0) return 2;
    failIllegalEscape(p[1]);
    return -1;
  }
  if (available < 6) return 0;
  long unit = hexQuad(p + 2);
  if (unit < 0) {
    fail("Invalid hex quad");
    return -1;
  }
  if (isLowSurrogate(unit)) {
    fail("Invalid high character in surrogate pair");
    return -1;
  }
  if (!isHighSurrogate(unit)) return 6;

  if (available < 7) return 0;
  if (p[6] != '\\') {
    fail("Missing low character in surrogate pair");
    return -1;
  }
  if (available < 8) return 0;
  if (p[7] != 'u') {
    fail("Missing low character in surrogate pair");
    return -1;
  }
  if (available < 12) return 0;
  long low = hexQuad(p + 8);
  if (low < 0) {
    fail("Invalid hex quad");
    return -1;
  }
  if (!isLowSurrogate(low)) {
    fail("Invalid low character in surrogate pair");
    return -1;
  }
  return 12;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::fail(const char* reason) {
  error_ = reason;
  return kError;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::failIllegalStart(std::uint8_t c) {
  error_ = stringWithFormat("Illegal start of token [%c]", static_cast<unsigned>(c));
  return kError;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::failExpectedLiteral(const char* word,
                                                              const std::uint8_t* initial) {
  std::string_view initialText(reinterpret_cast<const char*>(initial), 1);
  error_ = stringWithFormat("Expected '%s' after initial '%.1s'", word, initialText);
  return kError;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::failUnescapedControl(std::uint8_t c) {
  error_ =
      stringWithFormat("Unescaped control character [0x%0.2X] in string", static_cast<unsigned>(c));
  return kError;
}

xSBJsonTokeniser::Token xSBJsonTokeniser::failIllegalEscape(std::uint8_t c) {
  error_ = stringWithFormat("Illegal escape character [%x]", static_cast<unsigned>(c));
  return kError;
}

void xSBJsonTokeniser::decodeString(const std::uint8_t* bytes, std::size_t length,
                                    std::string& out) {
  out.reserve(out.size() + length);
  const std::uint8_t* p = bytes;
  const std::uint8_t* end = bytes + length;
  while (p < end) {
    const std::uint8_t* run = p;
    while (p < end && *p != '\\' && *p < 0x80) ++p;
    out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p - run));
    if (p == end) break;

    if (*p >= 0x80) {
      std::size_t sequenceLength = utf8SequenceLength(p, end);
      if (sequenceLength == 0) {
        out += kReplacementCharacter;
        ++p;
      } else {
        out.append(reinterpret_cast<const char*>(p), sequenceLength);
        p += sequenceLength;
      }
    } else if (end - p < 2) {
      out += kReplacementCharacter;
      ++p;
    } else if (p[1] == 'u') {
      p += decodeUnicodeEscape(p, end, out);
    } else {
      char value = simpleEscapeValue(p[1]);
      if (value != 0) {
        out += value;
      } else {
        out += kReplacementCharacter;
      }
      p += 2;
    }
  }
}

}  // namespace velmor
