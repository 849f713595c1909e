// The platform's alphanumeric character set: Unicode letters, marks and
// numbers, tested one UTF-16 unit at a time.
#ifndef VELMOR_SUPPORT_ALPHANUMERIC_H_
#define VELMOR_SUPPORT_ALPHANUMERIC_H_

namespace velmor::text {

// True for a unit whose general category is L*, M* or N* ("a", "é", "٣",
// "ж", a combining accent); false for punctuation, symbols, white space,
// controls and either half of a surrogate pair. Thread-safe.
bool isAlphanumeric(char16_t unit);

}  // namespace velmor::text

#endif  // VELMOR_SUPPORT_ALPHANUMERIC_H_
