#include "transport/HttpUtility.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmor {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isAsciiAlphanumeric(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool passesUnescaped(unsigned char c) {
  return isAsciiAlphanumeric(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '\'';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    if (end == std::string_view::npos) {
      parts.push_back(text.substr(start));
      return parts;
    }
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
}

struct SequenceForm {
  std::size_t length;
  std::uint32_t lowest;   // smaller code points would be overlong
  std::uint32_t payload;  // the lead byte's bits that carry the code point
};

std::optional<SequenceForm> formOf(unsigned char lead) {
  if (lead < 0x80) return SequenceForm{1, 0, 0x7F};
  if (lead >= 0xC2 && lead <= 0xDF) return SequenceForm{2, 0x80, 0x1F};
  if (lead >= 0xE0 && lead <= 0xEF) return SequenceForm{3, 0x800, 0x0F};
  if (lead >= 0xF0 && lead <= 0xF4) return SequenceForm{4, 0x10000, 0x07};
  return std::nullopt;
}

// The length of the UTF-8 sequence that starts at `at`, or 0 when it is not
// a well-formed one.
std::size_t sequenceLength(std::string_view bytes, std::size_t at) {
  const auto lead = static_cast<unsigned char>(bytes[at]);
  const std::optional<SequenceForm> form = formOf(lead);
  if (!form || bytes.size() - at < form->length) return 0;
  std::uint32_t codePoint = lead & form->payload;
  for (std::size_t i = 1; i < form->length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (next & 0x3Fu);
  }
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (codePoint < form->lowest || surrogate || codePoint > 0x10FFFF) return 0;
  return form->length;
}

}  // namespace

std::string HttpUtility::escapeDataString(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (passesUnescaped(byte)) {
      escaped += c;
    } else {
      escaped += '%';
      escaped += kHexDigits[byte >> 4];
      escaped += kHexDigits[byte & 0x0F];
    }
  }
  return escaped;
}

std::optional<std::string> HttpUtility::unescapeDataString(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '+') {
      decoded += ' ';
    } else if (c != '%') {
      decoded += c;
    } else {
      if (text.size() - at < 3) return std::nullopt;
      const int high = hexValue(text[at + 1]);
      const int low = hexValue(text[at + 2]);
      if (high < 0 || low < 0) return std::nullopt;
      decoded += static_cast<char>(high * 16 + low);
      at += 2;
    }
  }
  if (!isValidUtf8(decoded)) return std::nullopt;
  return decoded;
}

Dictionary HttpUtility::parseQueryString(std::string_view query) {
  Dictionary parameters;
  for (std::string_view piece : split(query, '&')) {
    const std::vector<std::string_view> parts = split(piece, '=');
    if (parts.size() < 2) continue;
    std::optional<std::string> key = unescapeDataString(parts[0]);
    if (!key) continue;
    std::optional<std::string> value = unescapeDataString(parts[1]);
    if (value) {
      parameters.set(std::move(*key), std::move(*value));
    } else {
      parameters.erase(*key);
    }
  }
  return parameters;
}

std::optional<std::string> HttpUtility::stringFromUtf8Data(const std::optional<Data>& data) {
  if (!data) return std::nullopt;
  std::string text(data->begin(), data->end());
  if (!isValidUtf8(text)) return std::nullopt;
  return text;
}

bool HttpUtility::isValidUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t length = sequenceLength(bytes, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

}  // namespace velmor
