#include "storage/CredentialRecord.h"

#include "storage/UtcDateTimeFormatter.h"

namespace velmor {

std::optional<std::string> CredentialRecord::value(std::string_view key) const {
  if (!entries_) return std::nullopt;
  const std::string* text = entries_->findString(key);
  if (text == nullptr) return std::nullopt;
  return *text;
}

std::optional<CredentialRecord::Date> CredentialRecord::date(std::string_view key) const {
  const std::optional<std::string> text = value(key);
  if (!text) return std::nullopt;
  return UtcDateTimeFormatter().dateFromString(*text);
}

}  // namespace velmor
