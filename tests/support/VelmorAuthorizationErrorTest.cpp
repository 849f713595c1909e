#include "velmor/VelmorAuthorizationError.h"

#include <gtest/gtest.h>

#include <memory>

#include "velmor/Localization.h"

namespace velmor {
namespace {

std::shared_ptr<HttpUrlResponse> httpResponse(std::int64_t status) {
  return std::make_shared<HttpUrlResponse>(*Url::withString("https://auth.example.com/oauth2"),
                                           status,
                                           HttpUrlResponse::HeaderFields{{"Retry-After", "120"}});
}

VelmorAuthorizationError serverError(std::int64_t code, const Dictionary& body) {
  return VelmorAuthorizationError(std::make_shared<ServerErrorResponse>(body), code,
                                  Dictionary{{"error", "invalid_grant"}});
}

TEST(VelmorAuthorizationErrorTest, LockoutPhraseDropsMinutesUnderAnHour) {
  const std::pair<const char*, const char*> cases[] = {
      {"5400", "1 hour and 30 minutes"},
      {"7200", "2 hours"},
      {"1800", "1 minute"},
      {"0", "1 minute"},
      {"", "1 minute"},
      {"abc", "1 minute"},
      {"-60", "1 minute"},
      {"3659", "1 hour"},
      {"3660", "1 hour and 1 minute"},
      {"3720", "1 hour and 2 minutes"},
      {"7260", "2 hours and 1 minute"},
      {"7320", "2 hours and 2 minutes"},
      {"180000", "50 hours"},
  };
  for (const auto& [detail, phrase] : cases) {
    SCOPED_TRACE(detail);
    auto error = VelmorAuthorizationError::accountLockoutError(
        serverError(4, {{"x_error_reason_detail", detail}}));
    EXPECT_EQ(error->description(),
              std::string("This account has been temporarily locked out. Please try again in ") +
                  phrase + ".");
  }
}

TEST(VelmorAuthorizationErrorTest, SignInErrorsKeepOnlyDomainCodeAndUserInfo) {
  VelmorAuthorizationError source = serverError(4, {{"x_error_reason_detail", "60"}});
  source.setHttpUrlResponse(httpResponse(400));
  auto invalid = VelmorAuthorizationError::invalidSignInError(source);
  for (const auto& error : {VelmorAuthorizationError::accountLockoutError(source), invalid}) {
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
      {NetworkCommunicationErrorDomain, 0, "Unknown network error"},
      {NetworkCommunicationErrorDomain, 1, std::nullopt},
      {NetworkCommunicationErrorDomain, 2, "Missing 'Content-Type'"},
      {NetworkCommunicationErrorDomain, 3, "Unexpected 'Content-Type'"},
      {NetworkCommunicationErrorDomain, 4, "Unexpected 'Content-Length'"},
      {NetworkCommunicationErrorDomain, 5,
       "Response data length did not match advertised content length"},
      {NetworkCommunicationErrorDomain, 6, "Unexpected response content'"},
      {"CCCrypt.kCCDecrypt", 1, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.domain) + " " + std::to_string(c.code));
    auto error = VelmorAuthorizationError::errorWithDomain(c.domain, c.code, Dictionary{});
    EXPECT_EQ(error->description(), c.text);
    EXPECT_EQ(error->localizedDescription(), c.text);
  }
}

TEST(VelmorAuthorizationErrorTest, FixedTextsAreTranslatedDescriptionTextsAreNot) {
  Localization::setTable({{"Invalid operation", "Opération non valide"},
                          {"Unexpected response content'", "Contenu inattendu"}});
  EXPECT_EQ(VelmorAuthorizationError(AuthorizationClientErrorDomain, 1, std::nullopt).description(),
            "Opération non valide");
  EXPECT_EQ(VelmorAuthorizationError(NetworkCommunicationErrorDomain, 6, std::nullopt)
                .localizedDescription(),
            "Contenu inattendu");
  VelmorAuthorizationError own(AuthorizationClientErrorDomain, 1, "Invalid operation",
                               Dictionary{});
  own.setServerErrorResponse(std::make_shared<ServerErrorResponse>());
  EXPECT_EQ(own.description(), "Invalid operation");
  Localization::setTable({});
}

TEST(VelmorAuthorizationErrorTest, ServerErrorResponseTextAppendsOnlyNonEmptyDetails) {
  const std::pair<Dictionary, const char*> cases[] = {
      {{{"error", "invalid_grant"},
        {"error_description", "bad"},
        {"x_error_reason", "account_lockout"},
        {"x_error_reason_detail", "60"}},
       "Server error: 'invalid_grant', Description: 'bad', Error reason: 'account_lockout', "
       "Error reason detail: '60'"},
      {{{"error", "invalid_client"}, {"error_description", ""}, {"x_error_reason_detail", "7"}},
       "Server error: 'invalid_client', Error reason detail: '7'"},
      {{{"error_description", "no code"}}, "Server error: '(null)', Description: 'no code'"},
  };
  for (const auto& [body, text] : cases) {
    SCOPED_TRACE(text);
    VelmorAuthorizationError error(httpResponse(400), std::make_shared<ServerErrorResponse>(body),
                                   4);
    EXPECT_EQ(error.description(), text);
  }
}

TEST(VelmorAuthorizationErrorTest, HttpResponseAndKeychainErrors) {
  VelmorAuthorizationError http(httpResponse(503));
  EXPECT_EQ(http.domain(), AuthorizationServerErrorDomain);
  EXPECT_EQ(http.code(), 503);
  EXPECT_EQ(http.userInfo(), (Dictionary{{"Retry-After", "120"}}));
  EXPECT_EQ(http.description(), "Server error status code: 503 'service unavailable'");

  VelmorAuthorizationError keychain("SecKeychainFindGenericPassword", -25300);
  EXPECT_EQ(keychain.domain(), "com.velmor.authorization.client.general");
  EXPECT_EQ(keychain.code(), -25300);
  EXPECT_EQ(keychain.description(),
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
  EXPECT_EQ(full.description(), "Server error: 'access_denied'");

  VelmorAuthorizationError bare("Something_Else", std::nullopt, "", "");
  EXPECT_EQ(bare.code(), -1);
  EXPECT_EQ(bare.userInfo(), Dictionary{});
}

TEST(VelmorAuthorizationErrorTest, AccountLockoutNeedsInvalidGrantReasonAndDetail) {
  struct Case {
    std::int64_t code;
    Dictionary body;
    bool lockout;
  };
  const Case cases[] = {
      {4, {{"x_error_reason", "account_lockout"}, {"x_error_reason_detail", "60"}}, true},
      {4, {{"x_error_reason", "ACCOUNT_Lockout"}, {"x_error_reason_detail", ""}}, true},
      {4, {{"x_error_reason_detail", "60"}}, true},  // an absent reason counts as equal
      {4, {{"x_error_reason", "account_lockout"}}, false},
      {4, {{"x_error_reason", "password_expired"}, {"x_error_reason_detail", "60"}}, false},
      {3, {{"x_error_reason", "account_lockout"}, {"x_error_reason_detail", "60"}}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Value(c.body).description());
    EXPECT_EQ(serverError(c.code, c.body).isAccountLockoutError(), c.lockout);
  }
  VelmorAuthorizationError withoutBody(AuthorizationServerErrorDomain, 4, std::nullopt);
  withoutBody.setAuthorizationServerError(4);
  EXPECT_TRUE(withoutBody.isInvalidGrantError());
  EXPECT_FALSE(withoutBody.isAccountLockoutError());
}

}  // namespace
}  // namespace velmor
