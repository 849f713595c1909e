// The main of every test binary: GoogleTest's, with OpenSSL's exit-time
// cleanup turned off.
//
// The library's queue threads are detached and end by themselves once idle,
// so one may still be on its way out when a test's main returns. OpenSSL's
// atexit handler would then free the global state that thread's own exit
// handler still needs: the thread's random generators are lost (and
// LeakSanitizer reports them in a few runs in a hundred) and its locks are
// freed under it. A test process leaves that state to the operating system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>

int main(int argc, char** argv) {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
