// Installs a SystemIdentity for the life of a scope and puts the previous
// one back afterwards, so a failing test cannot leak it.
#ifndef VELMOR_TESTING_SCOPED_SYSTEM_IDENTITY_H_
#define VELMOR_TESTING_SCOPED_SYSTEM_IDENTITY_H_

#include "platform/SystemIdentity.h"

namespace velmor::test {

// Does not own the identity, which must outlive the scope.
class ScopedSystemIdentity final {
 public:
  explicit ScopedSystemIdentity(SystemIdentity& identity)
      : previous_(SystemIdentity::setDefault(&identity)) {}
  ~ScopedSystemIdentity() { SystemIdentity::setDefault(previous_); }

  ScopedSystemIdentity(const ScopedSystemIdentity&) = delete;
  ScopedSystemIdentity& operator=(const ScopedSystemIdentity&) = delete;

 private:
  SystemIdentity* previous_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_SCOPED_SYSTEM_IDENTITY_H_
