#include "support/AuthorizationServerErrorParser.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace velmor {
namespace {

TEST(AuthorizationServerErrorParserTest, CodeIsThePositionInTheTable) {
  const char* const texts[] = {
      "access_denied",       "insufficient_scope",     "invalid_client",
      "invalid_grant",       "invalid_request",        "invalid_scope",
      "invalid_token",       "server_error",           "temporarily_unavailable",
      "unauthorized_client", "unsupported_grant_type", "unauthorized_response_type",
  };
  for (std::int64_t code = 1; const char* text : texts) {
    SCOPED_TRACE(text);
    EXPECT_EQ(AuthorizationServerErrorParser::parse(std::string(text)), code++);
  }
  const std::optional<std::string> others[] = {std::nullopt, "", "Invalid_Grant", "invalid_grant ",
                                               "unsupported_response_type"};
  for (const auto& other : others) {
    SCOPED_TRACE(other.value_or("(absent)"));
    EXPECT_EQ(AuthorizationServerErrorParser::parse(other), -1);
  }
}

}  // namespace
}  // namespace velmor
