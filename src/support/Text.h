// Text helpers that follow the platform's rules: lengths and indices in
// UTF-16 units, its whitespace sets, and the "integer value" of a text.
#ifndef VELMOR_SUPPORT_TEXT_H_
#define VELMOR_SUPPORT_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velmor::text {

// Malformed UTF-8 sequences become U+FFFD, one per bad byte.
std::u16string toUtf16(std::string_view utf8);
// Unpaired surrogates become U+FFFD.
std::string toUtf8(std::u16string_view utf16);
// The length a text has on the platform: UTF-16 units.
std::size_t utf16Length(std::string_view utf8);

// Space, tab and the other Unicode space separators; not line breaks.
bool isWhitespace(char16_t unit);
// The above plus line feed, vertical tab, form feed, carriage return, U+0085,
// and the line and paragraph separators.
bool isWhitespaceOrNewline(char16_t unit);

std::string trimWhitespace(std::string_view text);
std::string trimWhitespaceAndNewlines(std::string_view text);

// Skips leading whitespace, reads an optional sign and decimal digits up to
// the first other character, clamped to 64 bits; no digits gives 0.
std::int64_t integerValue(std::string_view text);

// ASCII case-insensitive equality, as header names and scheme tests need.
bool equalsIgnoringCase(std::string_view a, std::string_view b);
std::string toLowerAscii(std::string_view text);

}  // namespace velmor::text

#endif  // VELMOR_SUPPORT_TEXT_H_
