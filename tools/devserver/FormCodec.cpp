#include "devserver/FormCodec.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace velmor::devserver {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Rejects overlong forms, surrogates and truncated sequences.
bool isUtf8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    unsigned int codePoint = 0;
    if (lead < 0x80) {
      ++i;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      length = 2;
      codePoint = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3;
      codePoint = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4;
      codePoint = lead & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      codePoint = (codePoint << 6) | (next & 0x3F);
    }
    static constexpr unsigned int kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (codePoint < kSmallest[length] || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
      return false;
    }
    i += length;
  }
  return true;
}

std::optional<std::string> decodeComponent(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+') {
      decoded += ' ';
    } else if (c == '%') {
      if (i + 2 >= text.size()) return std::nullopt;
      const int high = hexDigit(text[i + 1]);
      const int low = hexDigit(text[i + 2]);
      if (high < 0 || low < 0) return std::nullopt;
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      decoded += c;
    }
  }
  if (!isUtf8(decoded)) return std::nullopt;
  return decoded;
}

}  // namespace

std::optional<FormFields> FormCodec::parse(std::string_view text) {
  std::vector<FormFields::Field> fields;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find('&', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view piece = text.substr(start, end - start);
    if (!piece.empty()) {
      const std::size_t equals = piece.find('=');
      std::optional<std::string> name = decodeComponent(piece.substr(0, equals));
      std::optional<std::string> value = equals == std::string_view::npos
                                             ? std::string()
                                             : decodeComponent(piece.substr(equals + 1));
      if (!name || !value) return std::nullopt;
      fields.emplace_back(std::move(*name), std::move(*value));
    }
    start = end + 1;
  }
  return FormFields(std::move(fields));
}

std::string FormCodec::encode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unreserved = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                            (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' ||
                            byte == '_' || byte == '~';
    if (unreserved) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kHex[byte >> 4];
      encoded += kHex[byte & 0x0F];
    }
  }
  return encoded;
}

std::string FormCodec::encodeFields(const FormFields& fields) {
  std::string text;
  for (const auto& [name, value] : fields.fields()) {
    if (!text.empty()) text += '&';
    text += encode(name);
    text += '=';
    text += encode(value);
  }
  return text;
}

}  // namespace velmor::devserver
