#include "platform/SystemIdentity.h"

#include <atomic>

#include "platform/LinuxSystemIdentity.h"

namespace velmor {

namespace {

// Keeps the system identity usable from other static destructors: its own
// destructor is never run.
union NeverDestroyed {
  NeverDestroyed() : identity() {}
  ~NeverDestroyed() {}
  LinuxSystemIdentity identity;
};

std::atomic<SystemIdentity*> installed{nullptr};

}  // namespace

SystemIdentity& SystemIdentity::system() {
  static NeverDestroyed holder;
  return holder.identity;
}

SystemIdentity& SystemIdentity::defaultIdentity() {
  SystemIdentity* identity = installed.load(std::memory_order_acquire);
  return identity != nullptr ? *identity : system();
}

SystemIdentity* SystemIdentity::setDefault(SystemIdentity* identity) {
  return installed.exchange(identity, std::memory_order_acq_rel);
}

}  // namespace velmor
