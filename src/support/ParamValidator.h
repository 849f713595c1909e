// Argument checks at the top of the client's public methods.
#ifndef VELMOR_SUPPORT_PARAM_VALIDATOR_H_
#define VELMOR_SUPPORT_PARAM_VALIDATOR_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velmor {

// Rejects programming errors by throwing: InvalidArgumentException for a
// missing or malformed argument, RangeException for a value out of range.
// Every reason names the argument by `variableName`. Stateless; callable
// from any thread.
class ParamValidator final {
 public:
  ParamValidator() = delete;

  // "<name> must not be nil".
  template <typename T>
  static void checkIsNotNil(const std::shared_ptr<T>& object, std::string_view variableName) {
    if (!object) throwNil(variableName);
  }
  template <typename T>
  static void checkIsNotNil(const std::optional<T>& object, std::string_view variableName) {
    if (!object) throwNil(variableName);
  }
  template <typename R, typename... A>
  static void checkIsNotNil(const std::function<R(A...)>& object, std::string_view variableName) {
    if (!object) throwNil(variableName);
  }
  static void checkIsNotNilPointer(const void* pointer, std::string_view variableName);

  // Absent → "<name> must not be nil". Otherwise scans for a unit that is
  // not whitespace; the scan deliberately reads one unit past the end, so an
  // empty or all-whitespace text ends in a RangeException from that read.
  static void checkIsNotNilOrWhitespaceOnlyString(const std::optional<std::string>& text,
                                                  std::string_view variableName);
  // Absent → "<name> must not be nil"; any whitespace unit → "<name> must not
  // contain any whitespace characters". An empty text passes.
  static void checkIsNotNilOrContainWhitespace(const std::optional<std::string>& text,
                                               std::string_view variableName);
  // value <= comparisonValue → RangeException "Value of <name>, <value>, is
  // not greater than <comparisonValue>".
  static void checkIsGreaterThan(std::int64_t value, std::int64_t comparisonValue,
                                 std::string_view variableName);

 private:
  [[noreturn]] static void throwNil(std::string_view variableName);
};

}  // namespace velmor

#endif  // VELMOR_SUPPORT_PARAM_VALIDATOR_H_
