// The client on a real gnome-keyring when things go wrong: the daemon killed
// in the middle of a session (the client keeps answering, reads count as no
// record, writes fail into the error log, nothing crashes), and an item under
// the record's names that does not decode. Runs under
// tests/platform/with-secret-service (see tests/faults/CMakeLists.txt) and
// skips elsewhere, so that it never touches the user's own keyring.
#include <gtest/gtest.h>
#include <libsecret/secret.h>

#include <algorithm>
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

bool inHarness() { return std::getenv("VELMOR_SECRET_SERVICE_SCENARIO") != nullptr; }

TEST(SecretServiceFaultTest, DaemonKilledMidSessionReadsAsNoRecord) {
  if (!inHarness()) GTEST_SKIP() << "runs under ctest, which sets up its Secret Service";
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

// Edited in a keyring manager, written by another tool or by a later version
// with another encoding: such an item used to wedge the identity (activation
// "succeeded" while every write answered "duplicate", and deleting it logged
// success while it stayed).
TEST(SecretServiceFaultTest, AnItemThatDoesNotDecodeIsReplacedThenRemoved) {
  if (!inHarness()) GTEST_SKIP() << "runs under ctest, which sets up its Secret Service";
  const std::string service = "Velmor ID (" + std::string(test::kAppToken) + "-0)";
  const std::string account = std::string(test::kHost) + "-" + test::kAppToken + "-0";
  SecretSchema schema{};
  schema.name = "com.velmor.authorization.Item";
  schema.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
  schema.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
  schema.attributes[2] = {"encoding", SECRET_SCHEMA_ATTRIBUTE_STRING};
  ASSERT_TRUE(secret_password_store_sync(
      &schema, SECRET_COLLECTION_DEFAULT, "edited by hand", "not Base64!", nullptr, nullptr,
      "service", service.c_str(), "account", account.c_str(), "encoding", "base64", nullptr));

  test::TestAuthorizationServer server;
  auto store = std::make_shared<SecretServiceStore>();
  test::ClientEnvironment environment(store);
  environment.useHttpClient(server.caFile());
  server.answer("/oauth2/v1/clients", test::jsonAnswer(test::registrationJson("cid", "csec")));
  auto client = test::clientFor(server.url("/"));
  test::RecordingLoggerDelegate delegate;
  test::ScopedLogger logger(VelmorAuthorizationLogger::kLevelInfo, &delegate);
  ErrorRef error;
  ASSERT_TRUE(client->activate(&error)) << test::outcomeOf(error);
  EXPECT_EQ(client->authorizationState(), AuthorizationStateSignInRequired);
  EXPECT_EQ(StoredRecord::read().clientSecret, "csec");

  client->deleteAllData();
  EXPECT_EQ(store->find(service, account, nullptr), kSecretStoreItemNotFound);
  EXPECT_EQ(client->authorizationState(), AuthorizationStateActivationRequired);
  const auto messages = delegate.messages();
  EXPECT_NE(std::find(messages.begin(), messages.end(), "INFO\tDeleted keychain item."),
            messages.end());
}

}  // namespace
}  // namespace velmor
