#include "transport/TestSettings.h"

namespace velmor {

std::atomic<std::uint64_t> __simulatedNetworkDelayInterval{0};
std::atomic<std::uint64_t> __accessTokenExpirationOverride{0};
std::atomic<std::uint64_t> __refreshTokenExpirationOverride{0};
std::atomic<bool> __alwaysSendClientContext{false};

}  // namespace velmor
