// Translation of the library's fixed English texts.
#ifndef VELMOR_LOCALIZATION_H_
#define VELMOR_LOCALIZATION_H_

#include <map>
#include <string>
#include <string_view>

#include "velmor/Export.h"

namespace velmor {

// The library's error descriptions are English texts used as keys. Without a
// table they pass through unchanged; an application that ships translations
// sets a table from English text to its own. Thread-safe.
class VELMOR_EXPORT Localization final {
 public:
  Localization() = delete;

  static void setTable(std::map<std::string, std::string, std::less<>> table);
  // The translation of `english`, or `english` itself when there is none.
  static std::string localizedString(std::string_view english);
};

}  // namespace velmor

#endif  // VELMOR_LOCALIZATION_H_
