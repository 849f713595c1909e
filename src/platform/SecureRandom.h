// The operating system's source of cryptographically secure random bytes.
#ifndef VELMOR_PLATFORM_SECURE_RANDOM_H_
#define VELMOR_PLATFORM_SECURE_RANDOM_H_

#include <cstddef>

#include "velmor/Data.h"

namespace velmor {

// Stateless; safe on any thread.
class SecureRandom final {
 public:
  SecureRandom() = delete;

  // `length` fresh bytes. A source that fails throws GenericException
  // ("SecRandomCopyBytes failed with error: <status>"): nothing that needs
  // secret randomness may go on without it.
  static Data bytes(std::size_t length);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_SECURE_RANDOM_H_
