#include "support/ParamValidator.h"

#include "support/Format.h"
#include "support/Text.h"
#include "velmor/Exception.h"

namespace velmor {

namespace {

// Character access as the platform does it: out of range is a RangeException.
char16_t unitAt(const std::u16string& units, std::size_t index) {
  if (index >= units.size()) {
    throw RangeException(
        stringWithFormat("Index %lu out of bounds; string length %lu", index, units.size()));
  }
  return units[index];
}

}  // namespace

void ParamValidator::throwNil(std::string_view variableName) {
  throw InvalidArgumentException(stringWithFormat("%@ must not be nil", variableName));
}

void ParamValidator::checkIsNotNilPointer(const void* pointer, std::string_view variableName) {
  if (pointer == nullptr) throwNil(variableName);
}

void ParamValidator::checkIsNotNilOrWhitespaceOnlyString(const std::optional<std::string>& text,
                                                         std::string_view variableName) {
  if (!text) throwNil(variableName);
  std::u16string units = text::toUtf16(*text);
  // The inclusive bound is kept on purpose: the read at index == length
  // raises before the reason below can.
  for (std::size_t i = 0; i <= units.size(); ++i) {
    if (!text::isWhitespace(unitAt(units, i))) return;
  }
  throw InvalidArgumentException(
      stringWithFormat("%@ must contain at least one non-whitespace character", variableName));
}

void ParamValidator::checkIsNotNilOrContainWhitespace(const std::optional<std::string>& text,
                                                      std::string_view variableName) {
  if (!text) throwNil(variableName);
  for (char16_t unit : text::toUtf16(*text)) {
    if (text::isWhitespace(unit)) {
      throw InvalidArgumentException(
          stringWithFormat("%@ must not contain any whitespace characters", variableName));
    }
  }
}

void ParamValidator::checkIsGreaterThan(std::int64_t value, std::int64_t comparisonValue,
                                        std::string_view variableName) {
  if (value <= comparisonValue) {
    throw RangeException(stringWithFormat("Value of %@, %ld, is not greater than %ld", variableName,
                                          value, comparisonValue));
  }
}

}  // namespace velmor
