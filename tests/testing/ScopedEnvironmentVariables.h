// Sets process environment variables for one test and puts the previous
// values back afterwards.
#ifndef VELMOR_TESTING_SCOPED_ENVIRONMENT_VARIABLES_H_
#define VELMOR_TESTING_SCOPED_ENVIRONMENT_VARIABLES_H_

#include <stdlib.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velmor::test {

// A null value unsets the variable. The environment is process-wide: use it
// only while no other thread of the test reads it. Loopback tests use
// {"no_proxy", "*"} so that no proxy the machine names sees their requests.
class ScopedEnvironmentVariables final {
 public:
  ScopedEnvironmentVariables(std::initializer_list<std::pair<const char*, const char*>> variables) {
    for (const auto& [name, value] : variables) {
      const char* previous = ::getenv(name);
      saved_.emplace_back(name, previous ? std::optional<std::string>(previous) : std::nullopt);
      set(name, value);
    }
  }
  ~ScopedEnvironmentVariables() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
      set(it->first.c_str(), it->second ? it->second->c_str() : nullptr);
    }
  }
  ScopedEnvironmentVariables(const ScopedEnvironmentVariables&) = delete;
  ScopedEnvironmentVariables& operator=(const ScopedEnvironmentVariables&) = delete;

 private:
  static void set(const char* name, const char* value) {
    if (value) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }

  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_SCOPED_ENVIRONMENT_VARIABLES_H_
