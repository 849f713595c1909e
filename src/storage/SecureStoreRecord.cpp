#include "storage/SecureStoreRecord.h"

#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "velmor/Exception.h"
#include "velmor/VelmorSimpleSecureStore.h"

namespace velmor {

Data SecureStoreRecord::archiveSingleObject(const Value& object) {
  KeyedArchiver archiver;
  archiver.encodeObject(object, kObjectKey);
  return archiver.finishEncoding();
}

std::optional<Value> SecureStoreRecord::unarchiveSingleObject(const Data& archive) {
  KeyedUnarchiver unarchiver(archive);
  std::optional<Value> object = unarchiver.decodeObjectForKey(kObjectKey);
  unarchiver.finishDecoding();
  return object;
}

std::optional<Dictionary> SecureStoreRecord::unarchiveDictionary(const Data& archive) {
  std::optional<Value> object = unarchiveSingleObject(archive);
  if (!object) return std::nullopt;
  if (Dictionary* dictionary = object->dictionaryValue()) return std::move(*dictionary);
  throw Exception("NSInvalidUnarchiveOperationException",
                  "value for key 'Object' is not a dictionary");
}

std::int64_t SecureStoreRecord::determinePasscodeInputType(const std::string& passcode) {
  // Digits are ASCII, so bytes and UTF-16 units agree wherever it matters.
  for (char c : passcode) {
    if (c < '0' || c > '9') return VelmorSimpleSecureStore::kPasscodeInputTypeText;
  }
  return passcode.size() == 4 ? VelmorSimpleSecureStore::kPasscodeInputTypeFourDigits
                              : VelmorSimpleSecureStore::kPasscodeInputTypeDigits;
}

}  // namespace velmor
