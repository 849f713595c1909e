#include "support/Format.h"

#include <cstdio>

#include "support/Text.h"

namespace velmor {

namespace {

constexpr std::string_view kNullText = "(null)";
// A null pointer as the platform prints it: "0x%p" of nothing reads "0x0x0".
constexpr std::string_view kNullPointerText = "0x0";

// One parsed conversion: everything between "%" and the conversion letter.
struct Conversion {
  std::string flags;
  std::string width;
  std::string precision;  // including the "."
  char letter = 0;
};

bool isKnownConversion(char c) {
  static constexpr std::string_view kLetters = "@sdiuxXocCpfFeEgGaA";
  return kLetters.find(c) != std::string_view::npos;
}

bool isFlag(char c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLengthModifier(char c) {
  return c == 'h' || c == 'l' || c == 'q' || c == 'z' || c == 't' || c == 'j' || c == 'L';
}

// Reads a conversion starting after "%"; returns the index after it, or
// npos when the text ends inside it.
std::size_t parseConversion(std::string_view format, std::size_t i, Conversion& conversion) {
  while (i < format.size() && isFlag(format[i])) conversion.flags += format[i++];
  while (i < format.size() && isDigit(format[i])) conversion.width += format[i++];
  if (i < format.size() && format[i] == '.') {
    conversion.precision += format[i++];
    while (i < format.size() && isDigit(format[i])) conversion.precision += format[i++];
  }
  while (i < format.size() && isLengthModifier(format[i])) ++i;
  if (i >= format.size()) return std::string_view::npos;
  conversion.letter = format[i];
  return i + 1;
}

template <typename T>
void appendPrintf(std::string& out, const Conversion& conversion, const char* length, T value) {
  std::string printfFormat =
      "%" + conversion.flags + conversion.width + conversion.precision + length + conversion.letter;
  int size = std::snprintf(nullptr, 0, printfFormat.c_str(), value);
  if (size <= 0) return;
  std::string buffer(static_cast<std::size_t>(size) + 1, '\0');
  std::snprintf(buffer.data(), buffer.size(), printfFormat.c_str(), value);
  buffer.resize(static_cast<std::size_t>(size));
  out += buffer;
}

void appendConversion(std::string& out, const Conversion& conversion, const FormatArg& arg) {
  switch (conversion.letter) {
    case '@':
      out += arg.text();
      break;
    case 's': {
      std::string text = arg.text();
      appendPrintf(out, conversion, "", text.c_str());
      break;
    }
    case 'd':
    case 'i':
      appendPrintf(out, conversion, "ll", static_cast<long long>(arg.asSigned()));
      break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      appendPrintf(out, conversion, "ll", static_cast<unsigned long long>(arg.asUnsigned()));
      break;
    case 'c':
      appendPrintf(out, conversion, "", static_cast<int>(arg.asSigned()));
      break;
    case 'C':
      out += text::toUtf8(std::u16string(1, static_cast<char16_t>(arg.asUnsigned())));
      break;
    case 'p':
      if (arg.asPointer() == nullptr) {
        out += kNullPointerText;
      } else {
        appendPrintf(out, conversion, "", arg.asPointer());
      }
      break;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      appendPrintf(out, conversion, "", arg.asDouble());
      break;
  }
}

}  // namespace

FormatArg::FormatArg(const std::optional<std::string>& text)
    : kind_(text ? Kind::kText : Kind::kNull), text_(text ? *text : std::string()) {}

FormatArg::FormatArg(const Value& value) : kind_(Kind::kText), text_(value.description()) {}

FormatArg::FormatArg(const Dictionary& dictionary) : FormatArg(Value(dictionary)) {}

FormatArg::FormatArg(const Array& array) : FormatArg(Value(array)) {}

FormatArg::FormatArg(const Url& url) : kind_(Kind::kText), text_(url.absoluteString()) {}

FormatArg::FormatArg(const std::optional<Url>& url)
    : FormatArg(url ? FormatArg(*url) : FormatArg(nullptr)) {}

FormatArg::FormatArg(const Error& error) : FormatArg(error.description()) {}

std::string FormatArg::text() const {
  switch (kind_) {
    case Kind::kNull:
      return std::string(kNullText);
    case Kind::kText:
      return text_;
    case Kind::kSigned:
      return std::to_string(signed_);
    case Kind::kUnsigned:
      return std::to_string(unsigned_);
    case Kind::kDouble:
      return Value(double_).description();
    case Kind::kUnichar:
      return text::toUtf8(std::u16string(1, static_cast<char16_t>(unsigned_)));
    case Kind::kPointer: {
      if (pointer_ == nullptr) return std::string(kNullPointerText);
      char buffer[32];
      std::snprintf(buffer, sizeof buffer, "%p", pointer_);
      return buffer;
    }
  }
  return {};
}

std::int64_t FormatArg::asSigned() const {
  switch (kind_) {
    case Kind::kSigned:
      return signed_;
    case Kind::kUnsigned:
    case Kind::kUnichar:
      return static_cast<std::int64_t>(unsigned_);
    case Kind::kDouble:
      return static_cast<std::int64_t>(double_);
    case Kind::kPointer:
      return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(pointer_));
    default:
      return 0;
  }
}

std::uint64_t FormatArg::asUnsigned() const { return static_cast<std::uint64_t>(asSigned()); }

double FormatArg::asDouble() const {
  switch (kind_) {
    case Kind::kDouble:
      return double_;
    case Kind::kSigned:
      return static_cast<double>(signed_);
    case Kind::kUnsigned:
    case Kind::kUnichar:
      return static_cast<double>(unsigned_);
    default:
      return 0;
  }
}

std::string formatWithArgs(std::string_view format, const FormatArg* args, std::size_t count) {
  static const FormatArg kMissing(nullptr);
  std::string out;
  out.reserve(format.size() + 16 * count);
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size();) {
    char c = format[i];
    if (c != '%') {
      out += c;
      ++i;
      continue;
    }
    if (i + 1 < format.size() && format[i + 1] == '%') {
      out += '%';
      i += 2;
      continue;
    }
    Conversion conversion;
    std::size_t end = parseConversion(format, i + 1, conversion);
    if (end == std::string_view::npos || !isKnownConversion(conversion.letter)) {
      std::size_t stop = end == std::string_view::npos ? format.size() : end;
      out.append(format.substr(i, stop - i));
      i = stop;
      continue;
    }
    const FormatArg& arg = next < count ? args[next] : kMissing;
    ++next;
    appendConversion(out, conversion, arg);
    i = end;
  }
  return out;
}

}  // namespace velmor
