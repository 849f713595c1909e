// Installs a ProcessEnvironment for the life of a scope and puts the
// previous one back afterwards, so a failing test cannot leak it.
#ifndef VELMOR_TESTING_SCOPED_PROCESS_ENVIRONMENT_H_
#define VELMOR_TESTING_SCOPED_PROCESS_ENVIRONMENT_H_

#include "platform/ProcessEnvironment.h"

namespace velmor::test {

// Does not own the environment, which must outlive the scope.
class ScopedProcessEnvironment final {
 public:
  explicit ScopedProcessEnvironment(ProcessEnvironment& environment)
      : previous_(ProcessEnvironment::setDefault(&environment)) {}
  ~ScopedProcessEnvironment() { ProcessEnvironment::setDefault(previous_); }

  ScopedProcessEnvironment(const ScopedProcessEnvironment&) = delete;
  ScopedProcessEnvironment& operator=(const ScopedProcessEnvironment&) = delete;

 private:
  ProcessEnvironment* previous_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_SCOPED_PROCESS_ENVIRONMENT_H_
