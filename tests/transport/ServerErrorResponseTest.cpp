#include "velmor/ServerErrorResponse.h"

#include <gtest/gtest.h>

namespace velmor {
namespace {

TEST(ServerErrorResponseTest, ReadsAllFiveKeys) {
  ServerErrorResponse response(Dictionary{{"error", "invalid_grant"},
                                          {"error_description", "bad"},
                                          {"error_uri", "https://example.com/e"},
                                          {"x_error_reason", "account_lockout"},
                                          {"x_error_reason_detail", "60"}});
  EXPECT_EQ(response.error(), "invalid_grant");
  EXPECT_EQ(response.errorDescription(), "bad");
  EXPECT_EQ(response.errorUri(), "https://example.com/e");
  EXPECT_EQ(response.errorReason(), "account_lockout");
  EXPECT_EQ(response.errorReasonDetail(), "60");
}

TEST(ServerErrorResponseTest, MissingKeysAndOtherKindsAreAbsentNumbersAreText) {
  ServerErrorResponse response(Dictionary{{"error_description", ""},
                                          {"x_error_reason_detail", 5400},
                                          {"error_uri", 1.5},
                                          {"x_error_reason", nullptr}});
  EXPECT_EQ(response.error(), std::nullopt);
  EXPECT_EQ(response.errorDescription(), "");
  EXPECT_EQ(response.errorReasonDetail(), "5400");
  EXPECT_EQ(response.errorUri(), "1.5");
  EXPECT_EQ(response.errorReason(), std::nullopt);
  EXPECT_EQ(ServerErrorResponse(Dictionary{{"error", Array{Value("x")}}}).error(), std::nullopt);
}

}  // namespace
}  // namespace velmor
