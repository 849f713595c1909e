#include "devserver/UserDirectory.h"

#include <gtest/gtest.h>

#include "tools/ManualClock.h"

namespace velmor::devserver {
namespace {

using Verdict = UserDirectory::Verdict;
using std::chrono::seconds;

class UserDirectoryTest : public ::testing::Test {
 protected:
  test::ManualClock clock_;
  UserDirectory users_{{{"alice", "wonderland"}, {"bob", "builder"}}, 3, seconds(900), clock_};
};

TEST_F(UserDirectoryTest, LocksAfterTheThirdWrongPasswordInARow) {
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kRejected);
  EXPECT_EQ(users_.verify("alice", "y").verdict, Verdict::kRejected);
  const UserDirectory::Check third = users_.verify("alice", "z");
  EXPECT_EQ(third.verdict, Verdict::kLockedOut);
  EXPECT_EQ(third.lockedFor, seconds(900));

  // The right password does not help while the lock lasts, and the time left
  // counts down, rounded up.
  clock_.advance(seconds(899));
  const UserDirectory::Check locked = users_.verify("alice", "wonderland");
  EXPECT_EQ(locked.verdict, Verdict::kLockedOut);
  EXPECT_EQ(locked.lockedFor, seconds(1));
  // Other accounts are not affected.
  EXPECT_EQ(users_.verify("bob", "builder").verdict, Verdict::kAccepted);

  clock_.advance(seconds(1));
  EXPECT_EQ(users_.verify("alice", "wonderland").verdict, Verdict::kAccepted);
}

TEST_F(UserDirectoryTest, CountStartsAfreshAfterASuccessAndAfterALock) {
  users_.verify("alice", "x");
  users_.verify("alice", "x");
  EXPECT_EQ(users_.verify("alice", "wonderland").verdict, Verdict::kAccepted);
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kRejected);
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kRejected);
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kLockedOut);

  clock_.advance(seconds(900));
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kRejected);
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kRejected);
  EXPECT_EQ(users_.verify("alice", "x").verdict, Verdict::kLockedOut);
}

TEST(UserDirectoryWithoutLockoutTest, NeverLocks) {
  test::ManualClock clock;
  UserDirectory users({{"alice", "wonderland"}}, 0, seconds(900), clock);
  for (int attempt = 0; attempt < 10; ++attempt) users.verify("alice", "x");
  EXPECT_EQ(users.verify("alice", "wonderland").verdict, Verdict::kAccepted);
}

}  // namespace
}  // namespace velmor::devserver
