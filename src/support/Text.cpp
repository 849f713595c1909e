#include "support/Text.h"

#include <limits>

namespace velmor::text {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one code point at `i`, advancing `i`; malformed input yields the
// replacement character and consumes one byte.
char32_t decodeUtf8(std::string_view s, std::size_t& i) {
  auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned char lead = byte(i);
  if (lead < 0x80) {
    ++i;
    return lead;
  }
  int extra = lead >= 0xF0 && lead <= 0xF4 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : -1;
  if (lead > 0xF4) extra = -1;
  if (extra < 0 || i + static_cast<std::size_t>(extra) >= s.size()) {
    ++i;
    return kReplacement;
  }
  char32_t cp = lead & (0x3F >> extra);
  for (int k = 1; k <= extra; ++k) {
    unsigned char next = byte(i + static_cast<std::size_t>(k));
    if ((next & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    cp = (cp << 6) | (next & 0x3F);
  }
  // Reject overlong forms, surrogates and values past U+10FFFF.
  static constexpr char32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
  if (cp < kMinimum[extra] || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
    ++i;
    return kReplacement;
  }
  i += static_cast<std::size_t>(extra) + 1;
  return cp;
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

template <bool (*IsSpace)(char16_t)>
std::string trim(std::string_view text) {
  std::u16string units = toUtf16(text);
  std::size_t begin = 0;
  std::size_t end = units.size();
  while (begin < end && IsSpace(units[begin])) ++begin;
  while (end > begin && IsSpace(units[end - 1])) --end;
  return toUtf8(std::u16string_view(units).substr(begin, end - begin));
}

}  // namespace

std::u16string toUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) {
    char32_t cp = decodeUtf8(utf8, i);
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (cp >> 10));
      out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
  }
  return out;
}

std::string toUtf8(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    char32_t unit = utf16[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 &&
        utf16[i + 1] <= 0xDFFF) {
      appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (utf16[i + 1] - 0xDC00));
      ++i;
    } else if (unit >= 0xD800 && unit <= 0xDFFF) {
      appendUtf8(out, kReplacement);
    } else {
      appendUtf8(out, unit);
    }
  }
  return out;
}

std::size_t utf16Length(std::string_view utf8) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < utf8.size();) length += decodeUtf8(utf8, i) >= 0x10000 ? 2 : 1;
  return length;
}

bool isWhitespace(char16_t unit) {
  switch (unit) {
    case 0x0009:
    case 0x0020:
    case 0x00A0:
    case 0x1680:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return unit >= 0x2000 && unit <= 0x200A;
  }
}

bool isWhitespaceOrNewline(char16_t unit) {
  return isWhitespace(unit) || (unit >= 0x000A && unit <= 0x000D) || unit == 0x0085 ||
         unit == 0x2028 || unit == 0x2029;
}

std::string trimWhitespace(std::string_view text) { return trim<isWhitespace>(text); }

std::string trimWhitespaceAndNewlines(std::string_view text) {
  return trim<isWhitespaceOrNewline>(text);
}

std::int64_t integerValue(std::string_view text) {
  std::u16string units = toUtf16(text);
  std::size_t i = 0;
  while (i < units.size() && isWhitespaceOrNewline(units[i])) ++i;
  bool negative = false;
  if (i < units.size() && (units[i] == u'+' || units[i] == u'-')) negative = units[i++] == u'-';
  // Accumulate as a negative number so that INT64_MIN is reachable.
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  std::int64_t value = 0;
  bool clamped = false;
  for (; i < units.size() && units[i] >= u'0' && units[i] <= u'9'; ++i) {
    int digit = units[i] - u'0';
    if (value < (kMin + digit) / 10) {
      clamped = true;
      break;
    }
    value = value * 10 - digit;
  }
  if (clamped) return negative ? kMin : std::numeric_limits<std::int64_t>::max();
  if (negative) return value;
  return value == kMin ? std::numeric_limits<std::int64_t>::max() : -value;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] + 32) : a[i];
    char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] + 32) : b[i];
    if (x != y) return false;
  }
  return true;
}

std::string toLowerAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

}  // namespace velmor::text
