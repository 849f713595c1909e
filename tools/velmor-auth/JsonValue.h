// Between the library's Value and JSON text, for the store commands.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_JSON_VALUE_H_
#define VELMOR_TOOLS_VELMOR_AUTH_JSON_VALUE_H_

#include <nlohmann/json.hpp>

#include "velmor/Value.h"

namespace velmor::tool {

class JsonValue final {
 public:
  JsonValue() = delete;

  // Objects become dictionaries, arrays arrays, integers signed or unsigned
  // 64-bit numbers as they fit, other numbers doubles.
  static Value toValue(const nlohmann::json& json);
  // Bytes, which JSON lacks, become Base64 text.
  static nlohmann::json toJson(const Value& value);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_JSON_VALUE_H_
