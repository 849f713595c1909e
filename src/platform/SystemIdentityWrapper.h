// A SystemIdentity that forwards every call to another one, so that a test
// can replace one answer and keep the rest.
#ifndef VELMOR_PLATFORM_SYSTEM_IDENTITY_WRAPPER_H_
#define VELMOR_PLATFORM_SYSTEM_IDENTITY_WRAPPER_H_

#include <optional>
#include <string>

#include "platform/SystemIdentity.h"

namespace velmor {

// Does not own the target, which must outlive the wrapper.
class SystemIdentityWrapper : public SystemIdentity {
 public:
  explicit SystemIdentityWrapper(SystemIdentity& target) : target_(target) {}

  SystemIdentity& target() const { return target_; }

  std::optional<std::string> deviceName() override { return target_.deviceName(); }
  std::optional<std::string> hardwareModel() override { return target_.hardwareModel(); }
  std::optional<std::string> userFullName() override { return target_.userFullName(); }
  std::optional<std::string> homeDirectory() override { return target_.homeDirectory(); }
  std::optional<std::string> environmentVariable(const std::string& name) override {
    return target_.environmentVariable(name);
  }

 private:
  SystemIdentity& target_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SYSTEM_IDENTITY_WRAPPER_H_
