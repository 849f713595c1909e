#include "client/CredentialValidity.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "testing/ScopedSecretStore.h"
#include "velmor/MemorySecretStore.h"

namespace velmor {
namespace {

using Date = SecureData::Date;
using std::chrono::seconds;

// Whole seconds, as the record stores them.
const Date kNow{seconds(1700000000)};

struct TokenPeriod {
  std::optional<seconds> start;
  std::optional<seconds> end;
};

struct RecordCase {
  const char* name;
  bool clientId;
  bool clientSecret;
  std::optional<TokenPeriod> access;   // absent: no access token
  std::optional<TokenPeriod> refresh;  // absent: no refresh token
  AuthorizationState expected;
};

class CredentialValidityTest : public ::testing::Test {
 protected:
  void fill(const RecordCase& c) {
    if (c.clientId) record_.setClientId("cid");
    if (c.clientSecret) record_.setClientSecret("secret");
    if (c.access) {
      record_.setAccessToken("access");
      if (c.access->start) record_.setAccessTokenValidStartDateTime(kNow + *c.access->start);
      if (c.access->end) record_.setAccessTokenValidEndDateTime(kNow + *c.access->end);
    }
    if (c.refresh) {
      record_.setRefreshToken("refresh");
      if (c.refresh->start) record_.setRefreshTokenValidStartDateTime(kNow + *c.refresh->start);
      if (c.refresh->end) record_.setRefreshTokenValidEndDateTime(kNow + *c.refresh->end);
    }
  }

  test::ScopedSecretStore store_{std::make_shared<MemorySecretStore>()};
  SecureData record_{"auth.example", "app", Data(32, 1), 0};
};

TEST_F(CredentialValidityTest, StateFollowsTheRecordAndTheClock) {
  const TokenPeriod day{seconds(-10), seconds(86400)};
  const RecordCase cases[] = {
      {"empty record", false, false, std::nullopt, std::nullopt,
       AuthorizationStateActivationRequired},
      {"client id without secret, valid tokens", true, false, day, day,
       AuthorizationStateActivationRequired},
      {"secret without client id", false, true, day, day, AuthorizationStateActivationRequired},
      {"registered, no tokens", true, true, std::nullopt, std::nullopt,
       AuthorizationStateSignInRequired},
      {"access token ends in 31 s", true, true, TokenPeriod{seconds(-10), seconds(31)},
       std::nullopt, AuthorizationStateAuthorized},
      {"access token ends in exactly 30 s", true, true, TokenPeriod{seconds(-10), seconds(30)},
       std::nullopt, AuthorizationStateAuthorized},
      {"access token ends in 29 s, refresh valid", true, true,
       TokenPeriod{seconds(-10), seconds(29)}, day, AuthorizationStateRefreshRequired},
      {"access token ends in 20 s, no refresh token", true, true,
       TokenPeriod{seconds(-10), seconds(20)}, std::nullopt, AuthorizationStateSignInRequired},
      {"access token not yet valid", true, true, TokenPeriod{seconds(1), seconds(3600)}, day,
       AuthorizationStateRefreshRequired},
      {"access token starting now", true, true, TokenPeriod{seconds(0), seconds(3600)},
       std::nullopt, AuthorizationStateAuthorized},
      {"access token without start", true, true, TokenPeriod{std::nullopt, seconds(3600)},
       std::nullopt, AuthorizationStateSignInRequired},
      {"access token without end", true, true, TokenPeriod{seconds(-10), std::nullopt},
       std::nullopt, AuthorizationStateSignInRequired},
      {"refresh token ending now: no margin", true, true, std::nullopt,
       TokenPeriod{seconds(-10), seconds(0)}, AuthorizationStateRefreshRequired},
      {"refresh token ended a second ago", true, true, std::nullopt,
       TokenPeriod{seconds(-10), seconds(-1)}, AuthorizationStateSignInRequired},
      {"refresh token not yet valid", true, true, std::nullopt,
       TokenPeriod{seconds(1), seconds(3600)}, AuthorizationStateSignInRequired},
      {"refresh token without dates", true, true, std::nullopt,
       TokenPeriod{std::nullopt, std::nullopt}, AuthorizationStateRefreshRequired},
  };
  for (const RecordCase& c : cases) {
    SCOPED_TRACE(c.name);
    record_.deleteAll();
    fill(c);
    EXPECT_EQ(CredentialValidity::authorizationState(record_, kNow), c.expected);
  }
}

}  // namespace
}  // namespace velmor
