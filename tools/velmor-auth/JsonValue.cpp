#include "JsonValue.h"

#include <string>
#include <utility>

#include "velmor/Base64.h"

namespace velmor::tool {

Value JsonValue::toValue(const nlohmann::json& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::object: {
      Dictionary dictionary;
      for (const auto& [key, member] : json.items()) dictionary.set(key, toValue(member));
      return dictionary;
    }
    case nlohmann::json::value_t::array: {
      Array array;
      for (const nlohmann::json& element : json) array.push_back(toValue(element));
      return array;
    }
    case nlohmann::json::value_t::string:
      return json.get<std::string>();
    case nlohmann::json::value_t::boolean:
      return json.get<bool>();
    case nlohmann::json::value_t::number_integer:
      return json.get<std::int64_t>();
    case nlohmann::json::value_t::number_unsigned:
      return json.get<std::uint64_t>();
    case nlohmann::json::value_t::number_float:
      return json.get<double>();
    default:
      return Value();
  }
}

nlohmann::json JsonValue::toJson(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::kBool:
      return *value.boolValue();
    case Value::Kind::kInt:
      return *value.intValue();
    case Value::Kind::kUInt:
      return *value.uintValue();
    case Value::Kind::kDouble:
      return *value.doubleValue();
    case Value::Kind::kString:
      return *value.stringValue();
    case Value::Kind::kData:
      return Base64::encodeBase64WithData(*value.dataValue()).value_or("");
    case Value::Kind::kArray: {
      nlohmann::json array = nlohmann::json::array();
      for (const Value& element : *value.arrayValue()) array.push_back(toJson(element));
      return array;
    }
    case Value::Kind::kDictionary: {
      nlohmann::json object = nlohmann::json::object();
      for (const auto& [key, member] : *value.dictionaryValue()) object[key] = toJson(member);
      return object;
    }
    case Value::Kind::kNull:
      break;
  }
  return nullptr;
}

}  // namespace velmor::tool
