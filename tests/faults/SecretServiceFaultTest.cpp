// The Secret Service daemon killed in the middle of a session: the client
// keeps answering, reads count as no record, writes fail into the error
// log, nothing crashes. Runs under tests/platform/with-secret-service (see
// tests/faults/CMakeLists.txt) and skips elsewhere, so that it never touches
// the user's own keyring.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "faults/ClientHarness.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/SecretServiceDaemon.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

using test::StoredRecord;

TEST(SecretServiceFaultTest, DaemonKilledMidSessionReadsAsNoRecord) {
  if (!std::getenv("VELMOR_SECRET_SERVICE_SCENARIO")) {
    GTEST_SKIP() << "runs under ctest, which sets up its Secret Service";
  }
  test::TestAuthorizationServer server;  // outlives the HTTP client's connections
  test::ClientEnvironment environment(std::make_shared<SecretServiceStore>());
  environment.useHttpClient(server.caFile());
  server.answer("/oauth2/v1/clients", test::jsonAnswer(test::registrationJson("cid", "csec")));
  server.answer("/oauth2/v1/tokens/bearer",
                test::jsonAnswer(test::tokenJson("access-1", "refresh-1")));
  server.answer("/oauth2/v1/tokens/revoke", test::jsonAnswer("{}"));
  auto client = test::clientFor(server.url("/"));
  ErrorRef error;
  ASSERT_TRUE(client->activate(&error)) << test::outcomeOf(error);
  ASSERT_TRUE(client->signInWithUsername("anna", "password", &error)) << test::outcomeOf(error);
  ASSERT_EQ(StoredRecord::read().accessToken, "access-1");

  test::SecretServiceDaemon daemon;
  ASSERT_TRUE(daemon.kill());
  test::RecordingLoggerDelegate delegate;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelError, &delegate);

  // Whether the bus starts a new daemon (whose keyring stays locked) or
  // none answers, the record cannot be read.
  EXPECT_EQ(client->authorizationState(), AuthorizationStateActivationRequired);
  EXPECT_FALSE(client->hasUsername());
  std::optional<Dictionary> headers;
  EXPECT_EQ(client->checkAuthorization(&headers, &error), AuthorizationStateActivationRequired);
  EXPECT_FALSE(headers.has_value());
  EXPECT_EQ(client->webRequestAuthorizationHeaders(),
            (Dictionary{{"Authorization", "Bearer (null)"}}));

  // The server still answers; what it grants cannot be kept.
  client->signInWithUsername("anna", "password", &error);
  client->refreshAccessToken(&error);
  client->signOut(&error);
  EXPECT_EQ(client->authorizationState(), AuthorizationStateActivationRequired);
  EXPECT_FALSE(StoredRecord::read().exists);

  bool storeFailureLogged = false;
  for (const auto& entry : delegate.entries()) {
    storeFailureLogged |= entry.message.find("SecKeychain") != std::string::npos;
  }
  EXPECT_TRUE(storeFailureLogged);
}

}  // namespace
}  // namespace velmor
