#include "velmor/VelmorAuthorizationError.h"

#include <gtest/gtest.h>

#include <memory>

#include "velmor/Localization.h"

namespace velmor {
namespace {

std::shared_ptr<ServerErrorResponse> serverResponse(const Dictionary& body) {
  return std::make_shared<ServerErrorResponse>(body);
}

std::shared_ptr<HttpUrlResponse> httpResponse(std::int64_t status) {
  return std::make_shared<HttpUrlResponse>(*Url::withString("https://auth.example.com/oauth2"),
                                           status,
                                           HttpUrlResponse::HeaderFields{{"Retry-After", "120"}});
}

VelmorAuthorizationError invalidGrantWithDetail(std::optional<std::string> detail) {
  auto response = std::make_shared<ServerErrorResponse>();
  response->setError("invalid_grant");
  response->setErrorReason("account_lockout");
  response->setErrorReasonDetail(std::move(detail));
  return VelmorAuthorizationError(response, 4, Dictionary{{"error", "invalid_grant"}});
}

TEST(VelmorAuthorizationErrorTest, LockoutPhraseKeepsHoursAndDropsMinutesUnderAnHour) {
  struct Case {
    std::optional<std::string> detail;
    const char* phrase;
  };
  const Case cases[] = {
      {"5400", "1 hour and 30 minutes"},
      {"7200", "2 hours"},
      {"1800", "1 minute"},
      {"0", "1 minute"},
      {"", "1 minute"},
      {"abc", "1 minute"},
      {"-60", "1 minute"},
      {std::nullopt, "1 minute"},
      {"3600", "1 hour"},
      {"3659", "1 hour"},
      {"3660", "1 hour and 1 minute"},
      {"3720", "1 hour and 2 minutes"},
      {"7260", "2 hours and 1 minute"},
      {"7320", "2 hours and 2 minutes"},
      {"180000", "50 hours"},
      {" 5400s", "1 hour and 30 minutes"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.detail.value_or("(absent)"));
    auto error = VelmorAuthorizationError::accountLockoutError(invalidGrantWithDetail(c.detail));
    EXPECT_EQ(error->description(),
              std::string("This account has been temporarily locked out. Please try again in ") +
                  c.phrase + ".");
  }
}

TEST(VelmorAuthorizationErrorTest, SignInErrorsKeepOnlyDomainCodeAndUserInfo) {
  VelmorAuthorizationError source = invalidGrantWithDetail("60");
  source.setHttpUrlResponse(httpResponse(400));

  auto lockout = VelmorAuthorizationError::accountLockoutError(source);
  auto invalid = VelmorAuthorizationError::invalidSignInError(source);
  for (const auto& error : {lockout, invalid}) {
    EXPECT_EQ(error->domain(), AuthorizationServerErrorDomain);
    EXPECT_EQ(error->code(), 4);
    EXPECT_EQ(error->userInfo(), (Dictionary{{"error", "invalid_grant"}}));
    EXPECT_EQ(error->serverErrorResponse(), nullptr);
    EXPECT_EQ(error->httpUrlResponse(), nullptr);
    EXPECT_EQ(error->authorizationServerError(), 0);
  }
  EXPECT_EQ(invalid->localizedDescription(),
            "Your User ID or password was entered incorrectly. Please try again.");
}

TEST(VelmorAuthorizationErrorTest, FixedTextsOfClientAndNetworkCodes) {
  struct Case {
    const char* domain;
    std::int64_t code;
    std::optional<std::string> text;
  };
  const Case cases[] = {
      {AuthorizationClientErrorDomain, 0, "Unknown error"},
      {AuthorizationClientErrorDomain, 1, "Invalid operation"},
      {AuthorizationClientErrorDomain, 2, "Insecure URL provided as parameter"},
      {AuthorizationClientErrorDomain, 3, "Missing response value"},
      {AuthorizationClientErrorDomain, 4, std::nullopt},
      {AuthorizationClientErrorDomain, 5, std::nullopt},
      {NetworkCommunicationErrorDomain, 0, "Unknown network error"},
      {NetworkCommunicationErrorDomain, 1, std::nullopt},
      {NetworkCommunicationErrorDomain, 2, "Missing 'Content-Type'"},
      {NetworkCommunicationErrorDomain, 3, "Unexpected 'Content-Type'"},
      {NetworkCommunicationErrorDomain, 4, "Unexpected 'Content-Length'"},
      {NetworkCommunicationErrorDomain, 5,
       "Response data length did not match advertised content length"},
      {NetworkCommunicationErrorDomain, 6, "Unexpected response content'"},
      {AuthorizationServerErrorDomain, 1, std::nullopt},
      {"CCCrypt.kCCDecrypt", -4304, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.domain) + " " + std::to_string(c.code));
    auto error = VelmorAuthorizationError::errorWithDomain(c.domain, c.code, Dictionary{});
    EXPECT_EQ(error->description(), c.text);
    EXPECT_EQ(error->localizedDescription(), c.text);
  }
}

TEST(VelmorAuthorizationErrorTest, FixedTextsGoThroughTheLocalizationTable) {
  Localization::setTable({{"Invalid operation", "Opération non valide"},
                          {"Unexpected response content'", "Contenu de réponse inattendu"}});
  EXPECT_EQ(VelmorAuthorizationError(AuthorizationClientErrorDomain, 1, std::nullopt).description(),
            "Opération non valide");
  EXPECT_EQ(VelmorAuthorizationError(NetworkCommunicationErrorDomain, 6, std::nullopt)
                .localizedDescription(),
            "Contenu de réponse inattendu");
  EXPECT_EQ(VelmorAuthorizationError(AuthorizationClientErrorDomain, 3, std::nullopt).description(),
            "Missing response value");
  // A description text is the caller's own and is not translated.
  EXPECT_EQ(
      VelmorAuthorizationError(AuthorizationClientErrorDomain, 1, "Invalid operation", std::nullopt)
          .description(),
      "Invalid operation");
  Localization::setTable({});
}

TEST(VelmorAuthorizationErrorTest, DescriptionTextWinsOverEverything) {
  VelmorAuthorizationError error(NetworkCommunicationErrorDomain, 6, "Own text", std::nullopt);
  error.setServerErrorResponse(serverResponse({{"error", "invalid_grant"}}));
  EXPECT_EQ(error.description(), "Own text");
}

TEST(VelmorAuthorizationErrorTest, ServerErrorResponseTextAppendsOnlyNonEmptyDetails) {
  struct Case {
    Dictionary body;
    const char* text;
  };
  const Case cases[] = {
      {{{"error", "invalid_grant"},
        {"error_description", "bad"},
        {"x_error_reason", "account_lockout"},
        {"x_error_reason_detail", "60"}},
       "Server error: 'invalid_grant', Description: 'bad', Error reason: 'account_lockout', "
       "Error reason detail: '60'"},
      {{{"error", "invalid_client"}, {"error_description", ""}, {"x_error_reason_detail", "7"}},
       "Server error: 'invalid_client', Error reason detail: '7'"},
      {{{"error_description", "no code"}, {"error_uri", "https://e"}},
       "Server error: '(null)', Description: 'no code'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    VelmorAuthorizationError error(httpResponse(400), serverResponse(c.body), 4);
    EXPECT_EQ(error.description(), c.text);
  }
}

TEST(VelmorAuthorizationErrorTest, NonJsonResponseDescribesItsStatus) {
  VelmorAuthorizationError error(httpResponse(503));
  EXPECT_EQ(error.domain(), AuthorizationServerErrorDomain);
  EXPECT_EQ(error.code(), 503);
  EXPECT_EQ(error.userInfo(), (Dictionary{{"Retry-After", "120"}}));
  EXPECT_EQ(error.description(), "Server error status code: 503 'service unavailable'");
  // An unknown code in a known domain falls through to the server details.
  VelmorAuthorizationError clientError(AuthorizationClientErrorDomain, 4, std::nullopt);
  clientError.setHttpUrlResponse(httpResponse(404));
  EXPECT_EQ(clientError.description(), "Server error status code: 404 'not found'");
}

TEST(VelmorAuthorizationErrorTest, KeychainErrorNamesStatusMessageAndCall) {
  VelmorAuthorizationError error("SecKeychainFindGenericPassword", -25300);
  EXPECT_EQ(error.domain(), "com.velmor.authorization.client.general");
  EXPECT_EQ(error.code(), -25300);
  EXPECT_EQ(error.userInfo(), std::nullopt);
  EXPECT_EQ(error.description(),
            "Keychain error: -25300, 'The specified item could not be found in the keychain.' in "
            "SecKeychainFindGenericPassword");
}

TEST(VelmorAuthorizationErrorTest, WebSignInRedirectLeavesOutEmptyValues) {
  VelmorAuthorizationError full("access_denied", "User said no", "https://app/cb?error=x", "s1");
  EXPECT_EQ(full.domain(), AuthorizationServerErrorDomain);
  EXPECT_EQ(full.code(), 1);
  EXPECT_EQ(full.authorizationServerError(), 1);
  EXPECT_EQ(full.userInfo(), (Dictionary{{"errorUrl", "https://app/cb?error=x"}, {"state", "s1"}}));
  EXPECT_EQ(full.serverErrorDescription(), "User said no");
  // The redirect's description stays out of the text.
  EXPECT_EQ(full.description(), "Server error: 'access_denied'");

  VelmorAuthorizationError bare("Something_Else", std::nullopt, "", "");
  EXPECT_EQ(bare.code(), -1);
  EXPECT_EQ(bare.userInfo(), Dictionary{});
  EXPECT_EQ(bare.description(), "Server error: 'Something_Else'");

  VelmorAuthorizationError nothing(std::nullopt, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(nothing.description(), std::nullopt);
}

TEST(VelmorAuthorizationErrorTest, AccountLockoutNeedsInvalidGrantReasonAndDetail) {
  struct Case {
    const char* name;
    std::int64_t code;
    Dictionary body;
    bool lockout;
  };
  const Case cases[] = {
      {"lockout",
       4,
       {{"x_error_reason", "account_lockout"}, {"x_error_reason_detail", "60"}},
       true},
      {"reason in capitals",
       4,
       {{"x_error_reason", "ACCOUNT_Lockout"}, {"x_error_reason_detail", ""}},
       true},
      {"absent reason counts as equal", 4, {{"x_error_reason_detail", "60"}}, true},
      {"no detail", 4, {{"x_error_reason", "account_lockout"}}, false},
      {"other reason",
       4,
       {{"x_error_reason", "password_expired"}, {"x_error_reason_detail", "60"}},
       false},
      {"not invalid_grant",
       3,
       {{"x_error_reason", "account_lockout"}, {"x_error_reason_detail", "60"}},
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    VelmorAuthorizationError error(serverResponse(c.body), c.code, std::nullopt);
    EXPECT_EQ(error.isInvalidGrantError(), c.code == 4);
    EXPECT_EQ(error.isAccountLockoutError(), c.lockout);
  }
  VelmorAuthorizationError withoutBody(AuthorizationServerErrorDomain, 4, std::nullopt);
  withoutBody.setAuthorizationServerError(4);
  EXPECT_TRUE(withoutBody.isInvalidGrantError());
  EXPECT_FALSE(withoutBody.isAccountLockoutError());
}

}  // namespace
}  // namespace velmor
