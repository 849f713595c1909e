#include "storage/CredentialValidity.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <optional>

#include "storage/SecureData.h"
#include "testing/ScopedSecretStore.h"
#include "velmor/MemorySecretStore.h"

namespace velmor {
namespace {

using std::chrono::seconds;

// Whole seconds, as the record stores them.
const SecureData::Date kNow{seconds(1700000000)};
constexpr int kNone = INT_MIN;  // a date the record does not hold

// A token's validity, in seconds from now.
struct Period {
  int start;
  int end;
};

struct RecordCase {
  const char* name;
  bool clientId, clientSecret;
  std::optional<Period> access, refresh;  // absent: no such token
  AuthorizationState expected;
};

class CredentialValidityTest : public ::testing::Test {
 protected:
  using Setter = void (SecureData::*)(std::optional<SecureData::Date>);

  void setDate(Setter setter, int offset) {
    if (offset != kNone) (record_.*setter)(kNow + seconds(offset));
  }

  void fill(const RecordCase& c) {
    if (c.clientId) record_.setClientId("cid");
    if (c.clientSecret) record_.setClientSecret("secret");
    if (c.access) {
      record_.setAccessToken("access");
      setDate(&SecureData::setAccessTokenValidStartDateTime, c.access->start);
      setDate(&SecureData::setAccessTokenValidEndDateTime, c.access->end);
    }
    if (c.refresh) {
      record_.setRefreshToken("refresh");
      setDate(&SecureData::setRefreshTokenValidStartDateTime, c.refresh->start);
      setDate(&SecureData::setRefreshTokenValidEndDateTime, c.refresh->end);
    }
  }

  test::ScopedSecretStore store_{std::make_shared<MemorySecretStore>()};
  SecureData record_{"auth.example", "app", Data(32, 1), 0};
};

TEST_F(CredentialValidityTest, StateFollowsTheRecordAndTheClock) {
  const Period day{-10, 86400};
  const std::nullopt_t none = std::nullopt;
  const RecordCase cases[] = {
      {"empty record", false, false, none, none, AuthorizationStateActivationRequired},
      {"client id without secret", true, false, day, day, AuthorizationStateActivationRequired},
      {"registered, no tokens", true, true, none, none, AuthorizationStateSignInRequired},
      {"access ends in 31 s", true, true, Period{-10, 31}, none, AuthorizationStateAuthorized},
      {"access ends in 30 s", true, true, Period{-10, 30}, none, AuthorizationStateAuthorized},
      {"access ends in 29 s", true, true, Period{-10, 29}, day, AuthorizationStateRefreshRequired},
      {"access ends in 20 s, no refresh", true, true, Period{-10, 20}, none,
       AuthorizationStateSignInRequired},
      {"access not yet valid", true, true, Period{1, 3600}, day, AuthorizationStateRefreshRequired},
      {"access without start", true, true, Period{kNone, 3600}, none,
       AuthorizationStateSignInRequired},
      {"access without end", true, true, Period{-10, kNone}, none,
       AuthorizationStateSignInRequired},
      {"refresh ends now: no margin", true, true, none, Period{-10, 0},
       AuthorizationStateRefreshRequired},
      {"refresh ended", true, true, none, Period{-10, -1}, AuthorizationStateSignInRequired},
      {"refresh not yet valid", true, true, none, Period{1, 3600},
       AuthorizationStateSignInRequired},
      {"refresh without dates", true, true, none, Period{kNone, kNone},
       AuthorizationStateRefreshRequired},
  };
  for (const RecordCase& c : cases) {
    SCOPED_TRACE(c.name);
    record_.deleteAll();
    fill(c);
    EXPECT_EQ(CredentialValidity::authorizationState(record_.snapshot(), kNow), c.expected);
  }
}

}  // namespace
}  // namespace velmor
