// The status numbers that cipher failures carry in their errors, and their
// one translation from OpenSSL's failure reasons.
#ifndef VELMOR_STORAGE_CRYPTOR_STATUS_H_
#define VELMOR_STORAGE_CRYPTOR_STATUS_H_

#include <cstdint>

namespace velmor {

// Stored records and applications already know the platform cipher
// library's numbers, so errors keep them whatever library does the work.
enum class CryptorStatus : std::int32_t {
  kSuccess = 0,
  kParamError = -4300,
  kBufferTooSmall = -4301,
  kMemoryFailure = -4302,
  kAlignmentError = -4303,
  kDecodeError = -4304,
  kUnimplemented = -4305,
};

// The status for the oldest failure OpenSSL recorded on this thread; an
// empty record reads as a parameter error. Clears the thread's OpenSSL error
// queue so that the failure does not show up in unrelated code later.
CryptorStatus takeOpenSslFailure();

}  // namespace velmor

#endif  // VELMOR_STORAGE_CRYPTOR_STATUS_H_
