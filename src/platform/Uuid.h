// Random identifiers for requests and sign-in states.
#ifndef VELMOR_PLATFORM_UUID_H_
#define VELMOR_PLATFORM_UUID_H_

#include <string>

namespace velmor {

class Uuid final {
 public:
  Uuid() = delete;

  // A version-4 UUID from the secure random source in its canonical
  // 36-character form, lower case: "3f2504e0-4f89-41d3-9a0c-0305e82c3301".
  static std::string randomLowercaseString();
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_UUID_H_
