// Who and where the library runs: the machine's name and model, the user's
// name and home, and the process environment, as the client context and
// the application's data directory need them.
#ifndef VELMOR_PLATFORM_SYSTEM_IDENTITY_H_
#define VELMOR_PLATFORM_SYSTEM_IDENTITY_H_

#include <optional>
#include <string>

namespace velmor {

// Each answer is asked afresh, so a renamed machine shows at the next call.
// Nothing means the system does not know. Implementations must be callable
// from any thread, several at once, and must not throw.
class SystemIdentity {
 public:
  virtual ~SystemIdentity() = default;

  // The user-visible name of the computer.
  virtual std::optional<std::string> deviceName() = 0;
  // The hardware model identifier.
  virtual std::optional<std::string> hardwareModel() = 0;
  // The current user's full name.
  virtual std::optional<std::string> userFullName() = 0;
  // The current user's home directory.
  virtual std::optional<std::string> homeDirectory() = 0;
  // The process environment's value for `name`, also when it is empty.
  virtual std::optional<std::string> environmentVariable(const std::string& name) = 0;

  // The real one (LinuxSystemIdentity). Never destroyed.
  static SystemIdentity& system();
  // The identity the library uses: the one installed last, else system().
  static SystemIdentity& defaultIdentity();
  // Installs `identity` (not owned; nullptr reinstalls system()) and returns
  // the one installed before, nullptr when that was system(). For tests: the
  // caller keeps it alive and restores the previous one before destroying
  // it, at a moment when no other thread asks for the identity.
  static SystemIdentity* setDefault(SystemIdentity* identity);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SYSTEM_IDENTITY_H_
