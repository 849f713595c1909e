// A block of bytes, as the library passes keys, ciphertexts and bodies around.
#ifndef VELMOR_DATA_H_
#define VELMOR_DATA_H_

#include <cstdint>
#include <vector>

namespace velmor {

// Owned, contiguous bytes. Absent data is std::optional<Data>.
using Data = std::vector<std::uint8_t>;

}  // namespace velmor

#endif  // VELMOR_DATA_H_
