// The stored form of a VelmorSimpleSecureStore.
#ifndef VELMOR_STORAGE_SECURE_STORE_RECORD_H_
#define VELMOR_STORAGE_SECURE_STORE_RECORD_H_

#include <cstdint>
#include <optional>
#include <string>

#include "velmor/Data.h"
#include "velmor/Value.h"

namespace velmor {

// The item's data is a keyed archive holding the store dictionary under
// "Object". The dictionary has "Version" (1, never checked), and with a
// passcode "PasscodeInputType", "Salt" (8 bytes), "RoundCount" and
// "PasscodeHMAC" (HMAC-SHA-256 of the passcode's UTF-8 bytes under the
// derived key); once a value was saved, "AppData" holds that value's own
// keyed archive (under "Object"), AES-CBC encrypted with its IV in
// "AppDataIV" when there is a passcode, plain otherwise. Stateless.
class SecureStoreRecord final {
 public:
  static constexpr char kObjectKey[] = "Object";
  static constexpr char kVersionKey[] = "Version";
  static constexpr char kPasscodeInputTypeKey[] = "PasscodeInputType";
  static constexpr char kSaltKey[] = "Salt";
  static constexpr char kRoundCountKey[] = "RoundCount";
  static constexpr char kPasscodeHmacKey[] = "PasscodeHMAC";
  static constexpr char kAppDataKey[] = "AppData";
  static constexpr char kAppDataIvKey[] = "AppDataIV";
  static constexpr std::int64_t kVersion = 1;

  SecureStoreRecord() = delete;

  // A binary keyed archive with `object` under "Object".
  static Data archiveSingleObject(const Value& object);
  // The value under "Object", nothing when absent or null. Throws
  // velmor::Exception when `archive` is not a keyed archive.
  static std::optional<Value> unarchiveSingleObject(const Data& archive);
  // Like unarchiveSingleObject, but the value must be a dictionary: any
  // other kind throws Exception "NSInvalidUnarchiveOperationException".
  static std::optional<Dictionary> unarchiveDictionary(const Data& archive);

  // 3 at the first character that is not one of "0123456789"; otherwise 1
  // for exactly four characters and 2 for any other length, empty included.
  static std::int64_t determinePasscodeInputType(const std::string& passcode);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_SECURE_STORE_RECORD_H_
