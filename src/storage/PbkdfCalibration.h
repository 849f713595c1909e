// Finds how many PBKDF2 rounds take a given time on this machine.
#ifndef VELMOR_STORAGE_PBKDF_CALIBRATION_H_
#define VELMOR_STORAGE_PBKDF_CALIBRATION_H_

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "storage/CryptorStatus.h"
#include "storage/Pbkdf2Context.h"

namespace velmor {

// Calibrates PBKDF2-HMAC-SHA-256: times a short trial derivation with
// stand-in inputs of the real lengths (the cost depends on the lengths, not
// the bytes) and scales its round count to the target time. The trial itself
// takes a few tens of milliseconds. Stateless; safe on any thread.
class PbkdfCalibration final {
 public:
  static constexpr std::chrono::milliseconds kTargetDuration{300};
  // How many times a calibrated count a stored count may be.
  static constexpr std::uint32_t kStoredRoundCountFactor = 100;

  // Writes a round count > 0 that takes about `target` here. On failure of
  // the trial derivation returns its status and leaves `roundCount` alone.
  static CryptorStatus calibrate(Pbkdf2Context& context, std::size_t passwordLength,
                                 std::size_t saltLength, std::size_t keyLength,
                                 std::chrono::nanoseconds target, std::uint32_t* roundCount);

  // The most rounds a stored record may ask for: kStoredRoundCountFactor
  // times what takes kTargetDuration here (about 30 s of work), so that a
  // damaged or hostile record cannot keep a caller busy for hours. Measured
  // once per process, in a few tens of milliseconds; UINT32_MAX when
  // PBKDF2 cannot be run at all (a derivation then fails anyway).
  static std::uint32_t storedRoundCountCeiling();

  // `trialRounds` took `trialDuration`; the rounds that take `target`,
  // clamped to 1 ... UINT32_MAX. A trial too fast to measure gives the most.
  static std::uint32_t scaledRoundCount(std::uint64_t trialRounds,
                                        std::chrono::nanoseconds trialDuration,
                                        std::chrono::nanoseconds target);
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_PBKDF_CALIBRATION_H_
