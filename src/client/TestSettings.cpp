// The process-wide settings declared with the client. They live here, beside
// the accessors every client offers for them, because the client is what
// copies them into each exchange it starts.
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor {

std::atomic<std::uint64_t> __simulatedNetworkDelayInterval{0};
std::atomic<std::uint64_t> __accessTokenExpirationOverride{0};
std::atomic<std::uint64_t> __refreshTokenExpirationOverride{0};
std::atomic<bool> __alwaysSendClientContext{false};

}  // namespace velmor
