// An in-memory SystemIdentity for tests: every answer is set by the test.
#ifndef VELMOR_TESTING_FAKE_SYSTEM_IDENTITY_H_
#define VELMOR_TESTING_FAKE_SYSTEM_IDENTITY_H_

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "platform/SystemIdentity.h"

namespace velmor::test {

// Starts knowing nothing: no names, no home, an empty environment.
// Thread-safe.
class FakeSystemIdentity final : public SystemIdentity {
 public:
  std::optional<std::string> deviceName() override { return get(deviceName_); }
  std::optional<std::string> hardwareModel() override { return get(hardwareModel_); }
  std::optional<std::string> userFullName() override { return get(userFullName_); }
  std::optional<std::string> homeDirectory() override { return get(homeDirectory_); }
  std::optional<std::string> environmentVariable(const std::string& name) override {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = environment_.find(name);
    if (found == environment_.end()) return std::nullopt;
    return found->second;
  }

  void setDeviceName(std::optional<std::string> value) { set(deviceName_, std::move(value)); }
  void setHardwareModel(std::optional<std::string> value) { set(hardwareModel_, std::move(value)); }
  void setUserFullName(std::optional<std::string> value) { set(userFullName_, std::move(value)); }
  void setHomeDirectory(std::optional<std::string> value) { set(homeDirectory_, std::move(value)); }
  // Nothing removes the variable.
  void setEnvironmentVariable(const std::string& name, std::optional<std::string> value) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (value) {
      environment_[name] = std::move(*value);
    } else {
      environment_.erase(name);
    }
  }

 private:
  std::optional<std::string> get(const std::optional<std::string>& field) {
    std::lock_guard<std::mutex> lock(mutex_);
    return field;
  }
  void set(std::optional<std::string>& field, std::optional<std::string> value) {
    std::lock_guard<std::mutex> lock(mutex_);
    field = std::move(value);
  }

  std::mutex mutex_;
  std::optional<std::string> deviceName_;
  std::optional<std::string> hardwareModel_;
  std::optional<std::string> userFullName_;
  std::optional<std::string> homeDirectory_;
  std::map<std::string, std::string> environment_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_FAKE_SYSTEM_IDENTITY_H_
