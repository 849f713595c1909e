#include "storage/AuthorizationClientContext.h"

#include <cstddef>
#include <string_view>

#include "platform/FileSystem.h"
#include "platform/PropertyList.h"
#include "platform/SystemIdentity.h"
#include "storage/DirectoryUtility.h"
#include "support/Format.h"
#include "support/Text.h"

namespace velmor {

namespace {

constexpr char kDeviceNameKey[] = "DeviceName";
constexpr char kModelKey[] = "Model";
constexpr char kUserKey[] = "User";

// The server keeps the line short and splits it on these.
constexpr std::size_t kLongestValue = 100;
// The remembered file holds one short line; a bigger one is not ours.
constexpr std::size_t kLargestContextFile = 64 * 1024;

// Lengths are UTF-16 units, as the server counts them; a cut through a
// surrogate pair leaves half a pair, which becomes U+FFFD on the way back.
std::u16string cut(std::u16string text) {
  if (text.size() > kLongestValue) text.resize(kLongestValue);
  return text;
}

std::u16string withoutSeparators(std::u16string text) {
  std::erase_if(text, [](char16_t unit) { return unit == u':' || unit == u'|'; });
  return text;
}

std::optional<std::string> stringFor(const Dictionary& properties, std::string_view key) {
  const std::string* value = properties.findString(key);
  if (!value) return std::nullopt;
  return *value;
}

std::optional<std::string> cutThenCleaned(const std::optional<std::string>& value) {
  if (!value) return std::nullopt;
  return text::toUtf8(withoutSeparators(cut(text::toUtf16(*value))));
}

std::optional<std::string> cleanedThenCut(const std::optional<std::string>& value) {
  if (!value) return std::nullopt;
  return text::toUtf8(cut(withoutSeparators(text::toUtf16(*value))));
}

bool rememberedContextEquals(const std::string& path, const std::string& line) {
  std::optional<Data> bytes = FileSystem::readFile(path, kLargestContextFile);
  if (!bytes) return false;
  std::optional<Value> parsed = PropertyList::parse(*bytes);
  if (!parsed || !parsed->dictionaryValue()) return false;
  const std::string* remembered =
      parsed->dictionaryValue()->findString(AuthorizationClientContext::kContextKey);
  return remembered != nullptr && *remembered == line;
}

}  // namespace

Dictionary AuthorizationClientContext::properties() const {
  SystemIdentity& identity = SystemIdentity::defaultIdentity();
  Dictionary properties;
  if (std::optional<std::string> name = identity.deviceName())
    properties.set(kDeviceNameKey, *name);
  if (std::optional<std::string> model = hardwareModel()) properties.set(kModelKey, *model);
  if (std::optional<std::string> user = identity.userFullName()) properties.set(kUserKey, *user);
  return properties;
}

std::string AuthorizationClientContext::description() const {
  const Dictionary values = properties();
  // The order of cutting and cleaning differs between the fields on
  // purpose: the server has always received names cut first.
  return stringWithFormat("Device Name: \"%@\" | Model: \"%@\" | User: \"%@\"",
                          cutThenCleaned(stringFor(values, kDeviceNameKey)),
                          cleanedThenCut(stringFor(values, kModelKey)),
                          cleanedThenCut(stringFor(values, kUserKey)));
}

std::optional<std::string> AuthorizationClientContext::hardwareModel() {
  return SystemIdentity::defaultIdentity().hardwareModel();
}

std::string AuthorizationClientContext::generateAndSaveIfNeeded(bool* changed, ErrorRef* error) {
  if (changed) *changed = false;
  std::string line = AuthorizationClientContext().description();

  ErrorRef local;
  ErrorRef* errorVariable = error ? error : &local;
  const std::string directory = DirectoryUtility::applicationSupportDirectory(true, errorVariable);
  // The test is on the variable, not on this call's outcome: an error the
  // caller left in it also keeps the file untouched.
  if (*errorVariable) return line;

  const std::string path = directory + "/" + kFileName;
  if (rememberedContextEquals(path, line)) return line;
  // A failed write only means the next call reports a change again.
  FileSystem::writeFileAtomically(path,
                                  PropertyList::xmlFromDictionary(Dictionary{{kContextKey, line}}));
  if (changed) *changed = true;
  return line;
}

}  // namespace velmor
