#include "StoreCommand.h"

#include <optional>
#include <string>

#include "JsonValue.h"
#include "OptionNames.h"
#include "SecretStoreReport.h"
#include "TerminalInput.h"
#include "ToolError.h"
#include "velmor/VelmorSimpleSecureStore.h"

namespace velmor::tool {

namespace {

constexpr char kCommand[] = "store";

// Where passcodes come from: the next line of standard input, or a prompt.
class PasscodeSource final {
 public:
  explicit PasscodeSource(CommandContext& context)
      : context_(context), fromStdin_(context.invocation.has(option::kPasscodeStdin)) {}

  std::optional<std::string> read(const std::string& prompt) {
    if (fromStdin_) return TerminalInput::readLine(context_.in);
    return TerminalInput::readHidden(prompt);
  }

  // The usage error for a passcode that could not be read.
  int missing() {
    return context_.out.usage(fromStdin_ ? "no passcode on standard input"
                                         : "no terminal to ask for the passcode; use "
                                           "--passcode-stdin",
                              kCommand);
  }

 private:
  CommandContext& context_;
  bool fromStdin_;
};

std::string inputTypeName(std::int64_t type) {
  switch (type) {
    case VelmorSimpleSecureStore::kPasscodeInputTypeFourDigits:
      return "four digits";
    case VelmorSimpleSecureStore::kPasscodeInputTypeDigits:
      return "digits";
    case VelmorSimpleSecureStore::kPasscodeInputTypeText:
      return "text";
    default:
      return "none";
  }
}

// Unlocks a protected store; kExitSuccess when the store is usable.
int unlock(VelmorSimpleSecureStore& store, PasscodeSource& passcodes, OutputPrinter& out) {
  if (!store.isPasscodeProtected()) return kExitSuccess;
  const std::optional<std::string> passcode = passcodes.read("Passcode: ");
  if (!passcode) return passcodes.missing();
  if (!store.unlock(*passcode)) {
    return out.fail(toolError(kToolErrorWrongPasscode, "The passcode is wrong"));
  }
  return kExitSuccess;
}

int status(VelmorSimpleSecureStore& store, OutputPrinter& out) {
  const bool exists = store.storeExists();
  const std::int64_t type = store.passcodeInputType();
  out.set("exists", exists);
  out.set("passcodeProtected", store.isPasscodeProtected());
  out.set("passcodeInputType", type);
  out.line(std::string("Exists: ") + (exists ? "yes" : "no"));
  out.line("Passcode: " + inputTypeName(type));
  return kExitSuccess;
}

int save(VelmorSimpleSecureStore& store, CommandContext& context, PasscodeSource& passcodes) {
  const int unlocked = unlock(store, passcodes, context.out);
  if (unlocked != kExitSuccess) return unlocked;
  const std::string text = TerminalInput::readAll(context.in);
  const nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
  if (value.is_discarded()) {
    return context.out.usage("standard input holds no JSON value", kCommand);
  }
  if (!store.saveObject(JsonValue::toValue(value))) {
    return context.out.fail(toolError(kToolErrorNotSaved, "The store did not take the value"));
  }
  context.out.set("saved", true);
  context.out.line("Saved.");
  return kExitSuccess;
}

int load(VelmorSimpleSecureStore& store, CommandContext& context, PasscodeSource& passcodes) {
  const int unlocked = unlock(store, passcodes, context.out);
  if (unlocked != kExitSuccess) return unlocked;
  const std::optional<Value> value = store.loadObject();
  if (!value) {
    return context.out.fail(toolError(kToolErrorNothingSaved, "The store holds no value"));
  }
  const nlohmann::json json = JsonValue::toJson(*value);
  context.out.set("value", json);
  context.out.line(json.dump(2));
  return kExitSuccess;
}

int changePasscode(VelmorSimpleSecureStore& store, CommandContext& context,
                   PasscodeSource& passcodes) {
  const int unlocked = unlock(store, passcodes, context.out);
  if (unlocked != kExitSuccess) return unlocked;
  std::optional<std::string> passcode;
  if (!context.invocation.has(option::kNoPasscode)) {
    passcode = passcodes.read("New passcode: ");
    if (!passcode) return passcodes.missing();
    if (!context.invocation.has(option::kPasscodeStdin)) {
      const std::optional<std::string> again = passcodes.read("Repeat the new passcode: ");
      if (again != passcode) return context.out.usage("the passcodes differ", kCommand);
    }
  }
  store.changePasscode(passcode);
  context.out.line(passcode ? "The passcode is set." : "The passcode is removed.");
  return status(store, context.out);
}

}  // namespace

int runStore(CommandContext& context) {
  const Invocation& invocation = context.invocation;
  const std::optional<std::string> service = invocation.value(option::kService);
  const std::optional<std::string> account = invocation.value(option::kAccount);
  if (!service || !account)
    return context.out.usage("--service and --account are required", kCommand);
  const std::string& action = invocation.arguments().front();
  if (invocation.has(option::kNoPasscode) && action != "change-passcode") {
    return context.out.usage("--no-passcode goes with change-passcode only", kCommand);
  }
  VelmorSimpleSecureStore store(*service, *account);
  PasscodeSource passcodes(context);
  if (action == "status") return status(store, context.out);
  // The store itself answers success for a save into a locked keyring.
  if (action == "save" || action == "load" || action == "change-passcode") {
    const int usable = SecretStoreReport::requireUsable(context.out);
    if (usable != kExitSuccess) return usable;
  }
  if (action == "save") return save(store, context, passcodes);
  if (action == "load") return load(store, context, passcodes);
  if (action == "change-passcode") return changePasscode(store, context, passcodes);
  return context.out.usage(
      "the action is save, load, status or change-passcode, not '" + action + "'", kCommand);
}

}  // namespace velmor::tool
