// Process-wide switches that let tests and demonstrations imitate slow
// networks, short-lived tokens and a changed client context.
#ifndef VELMOR_TRANSPORT_TEST_SETTINGS_H_
#define VELMOR_TRANSPORT_TEST_SETTINGS_H_

#include <atomic>
#include <cstdint>

namespace velmor {

// All start at zero and may be read and written from any thread at any time;
// each read sees one whole value.
//
// Seconds to wait before every request is sent; 0 sends at once.
extern std::atomic<std::uint64_t> __simulatedNetworkDelayInterval;
// When non-zero, the lifetime in seconds stored for every new access token,
// whatever the server granted.
extern std::atomic<std::uint64_t> __accessTokenExpirationOverride;
// The same for every new refresh token.
extern std::atomic<std::uint64_t> __refreshTokenExpirationOverride;
// When set, the client context is sent to the server before every refresh,
// changed or not.
extern std::atomic<bool> __alwaysSendClientContext;

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_TEST_SETTINGS_H_
