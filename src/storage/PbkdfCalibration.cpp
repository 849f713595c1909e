#include "storage/PbkdfCalibration.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>

#include "velmor/Data.h"

namespace velmor {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kMaxRounds = std::numeric_limits<std::uint32_t>::max();
// Long enough that clock resolution and scheduling noise stay small against
// it, short enough that calibrating stays cheap next to the 300 ms it buys.
constexpr std::chrono::nanoseconds kShortestTrial = std::chrono::milliseconds(10);
constexpr std::uint64_t kFirstTrialRounds = 1000;

// The next trial's rounds: aim a little past the shortest trial in one step
// when the last one was measurable, otherwise grow quickly.
std::uint64_t nextTrialRounds(std::uint64_t rounds, std::chrono::nanoseconds elapsed) {
  double factor = 16;
  if (elapsed.count() > 0) {
    factor = std::clamp(
        1.25 * static_cast<double>(kShortestTrial.count()) / static_cast<double>(elapsed.count()),
        2.0, 16.0);
  }
  const double next = static_cast<double>(rounds) * factor;
  return std::min(kMaxRounds, static_cast<std::uint64_t>(next));
}

}  // namespace

CryptorStatus PbkdfCalibration::calibrate(Pbkdf2Context& context, std::size_t passwordLength,
                                          std::size_t saltLength, std::size_t keyLength,
                                          std::chrono::nanoseconds target,
                                          std::uint32_t* roundCount) {
  const std::string password(passwordLength, 'p');
  const Data salt(saltLength, 0x5a);
  Data key(keyLength);
  std::uint64_t rounds = kFirstTrialRounds;
  for (;;) {
    const auto start = Clock::now();
    const CryptorStatus status = context.derive(password, salt, rounds, key);
    const auto elapsed = Clock::now() - start;
    if (status != CryptorStatus::kSuccess) return status;
    if (elapsed >= kShortestTrial || rounds == kMaxRounds) {
      *roundCount = scaledRoundCount(rounds, elapsed, target);
      return CryptorStatus::kSuccess;
    }
    rounds = nextTrialRounds(rounds, elapsed);
  }
}

std::uint32_t PbkdfCalibration::storedRoundCountCeiling() {
  // The lengths of a passcode store's derivation; the cost hardly depends
  // on them.
  constexpr std::size_t kPasswordLength = 16, kSaltLength = 8, kKeyLength = 32;
  static const std::uint32_t ceiling = [] {
    std::optional<Pbkdf2Context> context = Pbkdf2Context::create();
    std::uint32_t calibrated = 0;
    if (!context || calibrate(*context, kPasswordLength, kSaltLength, kKeyLength, kTargetDuration,
                              &calibrated) != CryptorStatus::kSuccess) {
      return static_cast<std::uint32_t>(kMaxRounds);
    }
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(kMaxRounds, std::uint64_t{kStoredRoundCountFactor} * calibrated));
  }();
  return ceiling;
}

std::uint32_t PbkdfCalibration::scaledRoundCount(std::uint64_t trialRounds,
                                                 std::chrono::nanoseconds trialDuration,
                                                 std::chrono::nanoseconds target) {
  if (trialDuration.count() <= 0) return static_cast<std::uint32_t>(kMaxRounds);
  const double scaled = static_cast<double>(trialRounds) * static_cast<double>(target.count()) /
                        static_cast<double>(trialDuration.count());
  return static_cast<std::uint32_t>(std::clamp(scaled, 1.0, static_cast<double>(kMaxRounds)));
}

}  // namespace velmor
