// The file secret store on a full disk, through the client: the exchange
// itself succeeds, every failed write of the record is reported at the
// error level, the record on disk stays the last one written whole, and
// the store works again once there is room.
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>

#include "faults/ClientHarness.h"
#include "testing/FullDiskDirectory.h"
#include "testing/RecordingLoggerDelegate.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/FileSecretStore.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

using test::StoredRecord;

class FullDiskTest : public ::testing::TestWithParam<test::FullDiskDirectory::Method> {
 protected:
  void SetUp() override {
    std::cout << "full disk made with: " << disk_.methodName() << std::endl;
    RecordProperty("full_disk_method", disk_.methodName());
    environment_.useHttpClient(server_.caFile());
    server_.answer("/oauth2/v1/clients", test::jsonAnswer(test::registrationJson("cid", "csec")));
    ErrorRef error;
    ASSERT_TRUE(client_->activate(&error)) << test::outcomeOf(error);
    server_.enqueue(test::jsonAnswer(test::tokenJson("access-1", "refresh-1")));
    ASSERT_TRUE(client_->signInWithUsername("anna", "password", &error)) << test::outcomeOf(error);
    signedIn_ = StoredRecord::read();
    ASSERT_EQ(signedIn_.accessToken, "access-1");
  }

  std::size_t storeErrors() const {
    std::size_t count = 0;
    for (const auto& entry : delegate_.entries()) {
      if (entry.logLevel == VelmorAuthorizationLogger::kLevelError &&
          entry.message.find("SecKeychain") != std::string::npos) {
        ++count;
      }
    }
    return count;
  }

  test::FullDiskDirectory disk_{GetParam()};
  test::TestAuthorizationServer server_;  // outlives the HTTP client's connections
  test::ClientEnvironment environment_{std::make_shared<FileSecretStore>(disk_.path())};
  std::unique_ptr<VelmorAuthorizationClient> client_ = test::clientFor(server_.url("/"));
  test::RecordingLoggerDelegate delegate_;
  test::ScopedLogger logger_{VelmorAuthorizationLogger::kLevelError, &delegate_};
  StoredRecord signedIn_;
};

TEST_P(FullDiskTest, RefreshKeepsTheOldRecordAndReportsEachFailedWrite) {
  server_.enqueue(test::jsonAnswer(test::tokenJson("access-2", "refresh-2")));
  disk_.fill();
  ErrorRef error;
  EXPECT_TRUE(client_->refreshAccessToken(&error)) << test::outcomeOf(error);
  EXPECT_EQ(StoredRecord::read(), signedIn_);
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateAuthorized);
  // The token, its two times, the refresh token and its two times: each
  // is written, and fails, on its own.
  EXPECT_EQ(storeErrors(), 6u);

  disk_.release();
  server_.enqueue(test::jsonAnswer(test::tokenJson("access-3", "refresh-3")));
  EXPECT_TRUE(client_->refreshAccessToken(&error)) << test::outcomeOf(error);
  const StoredRecord after = StoredRecord::read();
  EXPECT_EQ(after.accessToken, "access-3");
  EXPECT_EQ(after.refreshToken, "refresh-3");
}

// Sign-out removes the tokens before it revokes them; on a full disk the
// removal fails, the server is still asked, and the tokens stay stored.
TEST_P(FullDiskTest, SignOutCannotRemoveTheTokensAndSaysSoInTheLog) {
  server_.answer("/oauth2/v1/tokens/revoke", test::jsonAnswer("{}"));
  disk_.fill();
  ErrorRef error;
  EXPECT_TRUE(client_->signOut(&error)) << test::outcomeOf(error);
  EXPECT_EQ(StoredRecord::read(), signedIn_);
  EXPECT_GE(storeErrors(), 1u);

  disk_.release();
  EXPECT_TRUE(client_->signOut(&error)) << test::outcomeOf(error);
  EXPECT_EQ(StoredRecord::read(), signedIn_.signedOut());
}

TEST_P(FullDiskTest, ActivationOnAFullDiskLeavesNoHalfRegistration) {
  client_->deleteAllData();
  disk_.fill();
  ErrorRef error;
  EXPECT_TRUE(client_->activate(&error)) << test::outcomeOf(error);
  EXPECT_FALSE(StoredRecord::read().exists);
  EXPECT_EQ(client_->authorizationState(), AuthorizationStateActivationRequired);
}

// A real full file system where this process may mount one, and the
// file-size limit in every case.
INSTANTIATE_TEST_SUITE_P(EachWay, FullDiskTest,
                         ::testing::Values(test::FullDiskDirectory::Method::kFullTmpfs,
                                           test::FullDiskDirectory::Method::kFileSizeLimit));

}  // namespace
}  // namespace velmor
