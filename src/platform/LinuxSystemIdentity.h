// The machine and user identity as a Linux desktop or server tells it.
#ifndef VELMOR_PLATFORM_LINUX_SYSTEM_IDENTITY_H_
#define VELMOR_PLATFORM_LINUX_SYSTEM_IDENTITY_H_

#include <optional>
#include <string>
#include <string_view>

#include "platform/SystemIdentity.h"

namespace velmor {

// - device name: PRETTY_HOSTNAME from the machine-info file (the name the
//   desktop shows, set by hostnamectl), else the host name;
// - hardware model: the firmware's product name, else the machine type of
//   uname (x86_64, aarch64);
// - user's full name: the password entry's GECOS field up to its first
//   comma (the rest holds office and telephone numbers);
// - home directory: $HOME, else the password entry's directory.
// Empty answers count as unknown. Stateless apart from the two file paths;
// thread-safe.
class LinuxSystemIdentity final : public SystemIdentity {
 public:
  static constexpr char kMachineInfoPath[] = "/etc/machine-info";
  static constexpr char kProductNamePath[] = "/sys/class/dmi/id/product_name";

  // The paths can be moved for tests.
  explicit LinuxSystemIdentity(std::string machineInfoPath = kMachineInfoPath,
                               std::string productNamePath = kProductNamePath);

  std::optional<std::string> deviceName() override;
  std::optional<std::string> hardwareModel() override;
  std::optional<std::string> userFullName() override;
  std::optional<std::string> homeDirectory() override;
  std::optional<std::string> environmentVariable(const std::string& name) override;

  // The unquoted PRETTY_HOSTNAME of a machine-info file (shell-style
  // assignments; the last one wins), nothing when absent or empty.
  static std::optional<std::string> prettyHostnameFromMachineInfo(std::string_view contents);
  // The name part of a GECOS field, nothing when empty.
  static std::optional<std::string> fullNameFromGecos(std::string_view gecos);

 private:
  std::string machineInfoPath_;
  std::string productNamePath_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_LINUX_SYSTEM_IDENTITY_H_
