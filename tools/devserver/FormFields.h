// The fields of a decoded form body or URL query, in the order they came.
#ifndef VELMOR_TOOLS_DEVSERVER_FORM_FIELDS_H_
#define VELMOR_TOOLS_DEVSERVER_FORM_FIELDS_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmor::devserver {

// OAuth forbids repeating a parameter, so callers check hasDuplicates()
// before trusting find().
class FormFields final {
 public:
  using Field = std::pair<std::string, std::string>;

  FormFields() = default;
  explicit FormFields(std::vector<Field> fields) : fields_(std::move(fields)) {}

  // The first value of `name`, or nullptr.
  const std::string* find(std::string_view name) const {
    for (const Field& field : fields_) {
      if (field.first == name) return &field.second;
    }
    return nullptr;
  }
  // The value of `name`, empty when it is missing.
  std::string valueOf(std::string_view name) const {
    const std::string* value = find(name);
    return value ? *value : std::string();
  }
  bool hasDuplicates() const {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      for (std::size_t j = i + 1; j < fields_.size(); ++j) {
        if (fields_[i].first == fields_[j].first) return true;
      }
    }
    return false;
  }
  const std::vector<Field>& fields() const { return fields_; }

 private:
  std::vector<Field> fields_;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_FORM_FIELDS_H_
