#include "transport/AuthorizationServerErrorParser.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace velmor {
namespace {

TEST(AuthorizationServerErrorParserTest, MapsEachOAuthErrorToItsPosition) {
  const char* const texts[] = {
      "access_denied",       "insufficient_scope",     "invalid_client",
      "invalid_grant",       "invalid_request",        "invalid_scope",
      "invalid_token",       "server_error",           "temporarily_unavailable",
      "unauthorized_client", "unsupported_grant_type", "unauthorized_response_type",
  };
  std::int64_t expected = 1;
  for (const char* text : texts) {
    SCOPED_TRACE(text);
    EXPECT_EQ(AuthorizationServerErrorParser::parse(std::string(text)), expected++);
  }
}

TEST(AuthorizationServerErrorParserTest, AnythingElseIsMinusOne) {
  const std::optional<std::string> others[] = {
      std::nullopt,
      std::string(),
      std::string("Invalid_Grant"),
      std::string("invalid_grant "),
      std::string("unsupported_response_type"),
      std::string("invalid_grant\0", 14),
  };
  for (const auto& other : others) {
    SCOPED_TRACE(other.value_or("(absent)"));
    EXPECT_EQ(AuthorizationServerErrorParser::parse(other), -1);
  }
}

}  // namespace
}  // namespace velmor
