// Fills the library's printf-style texts ("Bearer %@", "Keychain error: %ld,
// '%@' in %@") so they stay verbatim in the code.
#ifndef VELMOR_SUPPORT_FORMAT_H_
#define VELMOR_SUPPORT_FORMAT_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "velmor/Error.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// One argument of a format. It remembers what it was given, so that any
// conversion can read it: "%@" shows objects by their description (absent
// objects as "(null)"), numbers convert as C's printf would.
class FormatArg {
 public:
  enum class Kind { kNull, kText, kSigned, kUnsigned, kDouble, kPointer, kUnichar };

  FormatArg(std::nullptr_t) {}
  FormatArg(const char* text) : kind_(text ? Kind::kText : Kind::kNull), text_(text ? text : "") {}
  FormatArg(std::string_view text) : kind_(Kind::kText), text_(text) {}
  FormatArg(const std::string& text) : kind_(Kind::kText), text_(text) {}
  FormatArg(const std::optional<std::string>& text);
  FormatArg(const Value& value);
  FormatArg(const Dictionary& dictionary);
  FormatArg(const Array& array);
  FormatArg(const Url& url);
  FormatArg(const std::optional<Url>& url);
  FormatArg(const Error& error);
  template <typename E, std::enable_if_t<std::is_base_of_v<Error, E>, int> = 0>
  FormatArg(const std::shared_ptr<E>& error)
      : FormatArg(error ? FormatArg(static_cast<const Error&>(*error)) : FormatArg(nullptr)) {}
  FormatArg(bool b) : kind_(Kind::kSigned), signed_(b ? 1 : 0) {}
  FormatArg(char16_t unit) : kind_(Kind::kUnichar), unsigned_(unit) {}
  FormatArg(double d) : kind_(Kind::kDouble), double_(d) {}
  FormatArg(const void* pointer) : kind_(Kind::kPointer), pointer_(pointer) {}
  template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                             !std::is_same_v<T, char16_t>,
                                         int> = 0>
  FormatArg(T n) {
    if constexpr (std::is_signed_v<T>) {
      kind_ = Kind::kSigned;
      signed_ = n;
    } else {
      kind_ = Kind::kUnsigned;
      unsigned_ = n;
    }
  }

  Kind kind() const { return kind_; }
  // What "%@" and "%s" show.
  std::string text() const;
  std::int64_t asSigned() const;
  std::uint64_t asUnsigned() const;
  double asDouble() const;
  const void* asPointer() const { return kind_ == Kind::kPointer ? pointer_ : nullptr; }

 private:
  Kind kind_ = Kind::kNull;
  std::string text_;
  std::int64_t signed_ = 0;
  std::uint64_t unsigned_ = 0;
  double double_ = 0;
  const void* pointer_ = nullptr;
};

// Formats `format` with the conversions %@, %d, %i, %ld, %lu, %u, %x, %X,
// %c, %s, %p, %C, %f (and the other floating conversions), with flags, width
// and precision as printf takes them, and "%%". A missing argument prints as
// an absent object; extra arguments are ignored; an unknown conversion is
// copied as it stands. Never reads past its arguments.
std::string formatWithArgs(std::string_view format, const FormatArg* args, std::size_t count);

template <typename... Args>
std::string stringWithFormat(std::string_view format, const Args&... args) {
  if constexpr (sizeof...(Args) == 0) {
    return formatWithArgs(format, nullptr, 0);
  } else {
    const FormatArg converted[] = {FormatArg(args)...};
    return formatWithArgs(format, converted, sizeof...(Args));
  }
}

}  // namespace velmor

#endif  // VELMOR_SUPPORT_FORMAT_H_
