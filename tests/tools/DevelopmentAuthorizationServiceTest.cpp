#include "devserver/DevelopmentAuthorizationService.h"

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "devserver/FormCodec.h"
#include "tools/ManualClock.h"
#include "velmor/Base64.h"

namespace velmor::devserver {
namespace {

using Json = nlohmann::json;
using std::chrono::seconds;

constexpr char kForm[] = "application/x-www-form-urlencoded;charset=UTF-8";
constexpr char kRedirect[] = "http://127.0.0.1:4711/callback";

// RFC 7636, appendix B.
constexpr char kVerifier[] = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
constexpr char kChallenge[] = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";

class DevelopmentAuthorizationServiceTest : public ::testing::Test {
 protected:
  explicit DevelopmentAuthorizationServiceTest(ServiceSettings settings = {})
      : service_(std::move(settings), clock_) {
    const ServiceReply registered = post(DevelopmentAuthorizationService::kClientsPath,
                                         "x_app_token=velmor-dev-app&x_client_context=ctx", "");
    const Json body = Json::parse(registered.body);
    clientId_ = body.at("client_id");
    clientSecret_ = body.at("client_secret");
    basic_ = "Basic " + *Base64::encodeBase64WithString(clientId_ + ":" + clientSecret_);
  }

  ServiceReply send(std::string method, std::string path, std::string query, std::string body,
                    std::string authorization, std::string contentType = kForm) {
    return service_.handle(ServiceRequest{std::move(method), std::move(path), std::move(query),
                                          std::move(authorization), std::move(contentType),
                                          std::move(body)});
  }
  ServiceReply post(const char* path, std::string body, std::string authorization) {
    return send("POST", path, "", std::move(body), std::move(authorization));
  }
  ServiceReply token(std::string body) {
    return post(DevelopmentAuthorizationService::kTokenPath, std::move(body), basic_);
  }
  Json tokenJson(std::string body) {
    const ServiceReply reply = token(std::move(body));
    EXPECT_EQ(reply.status, 200) << reply.body;
    return Json::parse(reply.body);
  }
  ServiceReply me(std::string authorization) {
    return send("GET", DevelopmentAuthorizationService::kProtectedResourcePath, "", "",
                std::move(authorization), "");
  }
  std::string signInQuery(const std::string& extra = "") {
    return "response_type=code&client_id=" + clientId_ +
           "&redirect_uri=" + FormCodec::encode(kRedirect) + "&scope=profile&state=st4te" + extra;
  }

  std::shared_ptr<test::ManualClock> clock_ = std::make_shared<test::ManualClock>();
  DevelopmentAuthorizationService service_;
  std::string clientId_;
  std::string clientSecret_;
  std::string basic_;
};

TEST_F(DevelopmentAuthorizationServiceTest, RegistrationIssuesFreshCredentialsForKnownApps) {
  const ServiceReply reply = post(DevelopmentAuthorizationService::kClientsPath,
                                  "x_app_token=velmor-dev-app&x_client_context=", "");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.header("Content-Type"), "application/json;charset=UTF-8");
  EXPECT_EQ(reply.header("Cache-Control"), "no-store");
  const Json body = Json::parse(reply.body);
  EXPECT_EQ(body.size(), 2u);
  EXPECT_NE(body.at("client_id"), clientId_);
  EXPECT_NE(body.at("client_secret"), clientSecret_);
  EXPECT_GE(body.at("client_secret").get<std::string>().size(), 40u);
}

TEST_F(DevelopmentAuthorizationServiceTest, RegistrationRefusals) {
  const struct {
    const char* body;
    const char* contentType;
    const char* description;
  } cases[] = {
      {"x_app_token=someone-else", kForm, "The application token is not known"},
      {"x_client_context=ctx", kForm, "The parameter x_app_token is missing"},
      {"x_app_token=velmor-dev-app&x_app_token=velmor-dev-app", kForm,
       "The form is malformed or repeats a parameter"},
      {"x_app_token=velmor-dev-app", "application/json",
       "The body must be application/x-www-form-urlencoded"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    const ServiceReply reply =
        send("POST", DevelopmentAuthorizationService::kClientsPath, "", c.body, "", c.contentType);
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(Json::parse(reply.body),
              (Json{{"error", "invalid_request"}, {"error_description", c.description}}));
  }
}

TEST_F(DevelopmentAuthorizationServiceTest, ClientContextUpdateNeedsTheClientsCredentials) {
  const ServiceReply updated = send("PUT", DevelopmentAuthorizationService::kClientsPath, "",
                                    "x_client_context=new", basic_);
  EXPECT_EQ(updated.status, 204);
  EXPECT_EQ(updated.body, "");

  const std::string wrong =
      "Basic " + *Base64::encodeBase64WithString(clientId_ + ":" + clientSecret_ + "x");
  const ServiceReply refused =
      send("PUT", DevelopmentAuthorizationService::kClientsPath, "", "x_client_context=new", wrong);
  EXPECT_EQ(refused.status, 401);
  EXPECT_EQ(refused.header("WWW-Authenticate"), "Basic realm=\"velmor-dev\"");
  EXPECT_EQ(Json::parse(refused.body).at("error"), "invalid_client");
}

TEST_F(DevelopmentAuthorizationServiceTest, TokenEndpointRefusals) {
  const std::string noColon = "Basic " + *Base64::encodeBase64WithString(clientId_);
  const struct {
    const char* name;
    std::string authorization;
    std::string body;
    int status;
    const char* error;
  } cases[] = {
      {"no client credentials", "", "grant_type=client_credentials", 401, "invalid_client"},
      {"Bearer instead of Basic", "Bearer x", "grant_type=client_credentials", 401,
       "invalid_client"},
      {"not Base64", "Basic %%%%", "grant_type=client_credentials", 401, "invalid_client"},
      {"no colon", noColon, "grant_type=client_credentials", 401, "invalid_client"},
      {"no grant type", basic_, "scope=profile", 400, "invalid_request"},
      {"unknown grant type", basic_, "grant_type=implicit", 400, "unsupported_grant_type"},
      {"password without user", basic_, "grant_type=password&password=x", 400, "invalid_request"},
      {"password missing", basic_, "grant_type=password&username=alice", 400, "invalid_request"},
      {"wrong password", basic_, "grant_type=password&username=alice&password=x", 400,
       "invalid_grant"},
      {"unknown user", basic_, "grant_type=password&username=carol&password=x", 400,
       "invalid_grant"},
      {"unknown scope", basic_,
       "grant_type=password&username=alice&password=wonderland&scope=admin", 400, "invalid_scope"},
      {"repeated parameter", basic_, "grant_type=password&grant_type=client_credentials", 400,
       "invalid_request"},
      {"no refresh token", basic_, "grant_type=refresh_token", 400, "invalid_request"},
      {"unknown refresh token", basic_, "grant_type=refresh_token&refresh_token=x", 400,
       "invalid_grant"},
      {"code without redirect", basic_, "grant_type=authorization_code&code=x", 400,
       "invalid_request"},
      {"unknown code", basic_,
       "grant_type=authorization_code&code=x&redirect_uri=http%3A%2F%2F127.0.0.1%2Fcb", 400,
       "invalid_grant"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const ServiceReply reply =
        post(DevelopmentAuthorizationService::kTokenPath, c.body, c.authorization);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.header("Content-Type"), "application/json;charset=UTF-8");
    const Json body = Json::parse(reply.body);
    EXPECT_EQ(body.at("error"), c.error);
    EXPECT_FALSE(body.contains("x_error_reason"));
  }
}

TEST_F(DevelopmentAuthorizationServiceTest, PasswordGrantAnswersTheFullTokenResponse) {
  const ServiceReply reply = token("grant_type=password&username=alice&password=wonderland");
  ASSERT_EQ(reply.status, 200);
  EXPECT_EQ(reply.header("Cache-Control"), "no-store");
  EXPECT_EQ(reply.header("Pragma"), "no-cache");
  Json body = Json::parse(reply.body);
  EXPECT_FALSE(body.at("access_token").get<std::string>().empty());
  EXPECT_FALSE(body.at("refresh_token").get<std::string>().empty());
  body.erase("access_token");
  body.erase("refresh_token");
  EXPECT_EQ(body, (Json{{"token_type", "bearer"},
                        {"expires_in", 3600},
                        {"x_refresh_token_expires_in", 1209600},
                        {"scope", "profile email"}}));

  const Json narrowed =
      tokenJson("grant_type=password&username=alice&password=wonderland&scope=email+email");
  EXPECT_EQ(narrowed.at("scope"), "email");
  // The library sends an empty scope for an empty list: that is no scope.
  const Json empty = tokenJson("grant_type=password&username=alice&password=wonderland&scope=");
  EXPECT_EQ(empty.at("scope"), "profile email");
}

TEST_F(DevelopmentAuthorizationServiceTest, ClientCredentialsGrantHasNoRefreshToken) {
  const Json body = tokenJson("grant_type=client_credentials&scope=profile");
  EXPECT_FALSE(body.contains("refresh_token"));
  EXPECT_FALSE(body.contains("x_refresh_token_expires_in"));
  const ServiceReply resource = me("Bearer " + body.at("access_token").get<std::string>());
  ASSERT_EQ(resource.status, 200);
  EXPECT_EQ(Json::parse(resource.body),
            (Json{{"client_id", clientId_}, {"scope", "profile"}, {"username", nullptr}}));
}

TEST_F(DevelopmentAuthorizationServiceTest, LockoutAnswersTheReasonAndTheSecondsLeft) {
  token("grant_type=password&username=bob&password=x");
  token("grant_type=password&username=bob&password=y");
  const ServiceReply locked = token("grant_type=password&username=bob&password=z");
  EXPECT_EQ(locked.status, 400);
  EXPECT_EQ(Json::parse(locked.body),
            (Json{{"error", "invalid_grant"},
                  {"error_description",
                   "The account is locked after too many wrong passwords; try again in 900 "
                   "seconds"},
                  {"x_error_reason", "account_lockout"},
                  {"x_error_reason_detail", "900"}}));

  clock_->advance(seconds(300));
  const ServiceReply stillLocked = token("grant_type=password&username=bob&password=builder");
  EXPECT_EQ(Json::parse(stillLocked.body).at("x_error_reason_detail"), "600");

  clock_->advance(seconds(600));
  EXPECT_EQ(token("grant_type=password&username=bob&password=builder").status, 200);
}

TEST_F(DevelopmentAuthorizationServiceTest, RevocationEndsTheTokens) {
  const Json issued = tokenJson("grant_type=password&username=alice&password=wonderland");
  const std::string bearer = "Bearer " + issued.at("access_token").get<std::string>();
  EXPECT_EQ(me(bearer).status, 200);

  const ServiceReply revoked =
      post(DevelopmentAuthorizationService::kRevokePath,
           "token=" + issued.at("refresh_token").get<std::string>(), basic_);
  EXPECT_EQ(revoked.status, 200);
  EXPECT_EQ(revoked.body, "");
  EXPECT_EQ(me(bearer).status, 401);
  // Unknown tokens are answered the same way.
  EXPECT_EQ(post(DevelopmentAuthorizationService::kRevokePath, "token=unknown", basic_).status,
            200);
  EXPECT_EQ(post(DevelopmentAuthorizationService::kRevokePath, "token=unknown", "").status, 401);
}

TEST_F(DevelopmentAuthorizationServiceTest, ProtectedResourceChallenges) {
  const std::string valid =
      tokenJson("grant_type=password&username=alice&password=wonderland&x_realm_id=r1")
          .at("access_token");
  const std::string emailOnly =
      tokenJson("grant_type=password&username=alice&password=wonderland&scope=email")
          .at("access_token");
  const std::string revoked = tokenJson("grant_type=client_credentials").at("access_token");
  post(DevelopmentAuthorizationService::kRevokePath, "token=" + revoked, basic_);

  const ServiceReply granted = me("bearer " + valid);
  ASSERT_EQ(granted.status, 200);
  EXPECT_EQ(Json::parse(granted.body), (Json{{"client_id", clientId_},
                                             {"scope", "profile email"},
                                             {"username", "alice"},
                                             {"realm_id", "r1"}}));

  const struct {
    std::string authorization;
    int status;
    const char* challenge;
  } cases[] = {
      {"", 401, R"(Bearer realm="velmor-dev")"},
      {"Basic abc", 400,
       R"(Bearer realm="velmor-dev", error="invalid_request", )"
       R"(error_description="The request must carry one Bearer token")"},
      {"Bearer nonsense", 401,
       R"(Bearer realm="velmor-dev", error="invalid_token", )"
       R"(error_description="The access token is not known")"},
      {"Bearer " + revoked, 401,
       R"(Bearer realm="velmor-dev", error="invalid_token", )"
       R"(error_description="The access token was revoked")"},
      {"Bearer " + emailOnly, 403,
       R"(Bearer realm="velmor-dev", error="insufficient_scope", )"
       R"(error_description="The access token lacks the scope profile", scope="profile")"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.authorization);
    const ServiceReply reply = me(c.authorization);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.header("WWW-Authenticate"), c.challenge);
  }

  clock_->advance(seconds(3600));
  EXPECT_EQ(me("Bearer " + valid).header("WWW-Authenticate"),
            R"(Bearer realm="velmor-dev", error="invalid_token", )"
            R"(error_description="The access token expired")");
}

TEST_F(DevelopmentAuthorizationServiceTest, SignInPageShowsTheFormForAValidRequest) {
  const ServiceReply page = send("GET", DevelopmentAuthorizationService::kSignInPath,
                                 signInQuery("&extra=%3Cb%3E"), "", "", "");
  ASSERT_EQ(page.status, 200);
  EXPECT_EQ(page.header("Content-Type"), "text/html; charset=utf-8");
  EXPECT_NE(page.body.find(R"(<input type="hidden" name="redirect_uri" value=")" +
                           std::string(kRedirect) + "\">"),
            std::string::npos);
  EXPECT_NE(page.body.find(R"(<input type="hidden" name="state" value="st4te">)"),
            std::string::npos);
  EXPECT_NE(page.body.find(R"(id="password" name="password" type="password")"), std::string::npos);
  EXPECT_EQ(page.body.find("extra"), std::string::npos);
}

TEST_F(DevelopmentAuthorizationServiceTest, SignInPageRefusesWhatItCannotRedirect) {
  const struct {
    std::string query;
    const char* title;
  } cases[] = {
      {"response_type=code&client_id=unknown&redirect_uri=app%3A%2Fcb", "Unknown client"},
      {"response_type=code&client_id=" + clientId_, "Invalid redirect URL"},
      {"response_type=code&client_id=" + clientId_ + "&redirect_uri=%2Frelative",
       "Invalid redirect URL"},
      {"response_type=code&client_id=" + clientId_ + "&redirect_uri=app%3A%2Fcb%23frag",
       "Invalid redirect URL"},
      {"a=%ZZ", "Bad request"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    const ServiceReply page =
        send("GET", DevelopmentAuthorizationService::kSignInPath, c.query, "", "", "");
    EXPECT_EQ(page.status, 400);
    EXPECT_NE(page.body.find(std::string("<h1>") + c.title + "</h1>"), std::string::npos);
    EXPECT_FALSE(page.header("Location"));
  }
}

TEST_F(DevelopmentAuthorizationServiceTest, SignInPageRedirectsItsErrors) {
  const struct {
    std::string query;
    std::string location;
  } cases[] = {
      {"response_type=token&client_id=" + clientId_ + "&redirect_uri=app%3A%2Fcb%3Fa%3D1&state=s",
       "app:/cb?a=1&error=unsupported_response_type&error_description=Only%20the%20response%20type%"
       "20code%20is%20supported&state=s"},
      {"response_type=code&client_id=" + clientId_ + "&redirect_uri=app%3A%2Fcb&scope=admin",
       "app:/cb?error=invalid_scope&error_description=The%20scope%20admin%20is%20not%20known%"
       "20here"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    const ServiceReply reply =
        send("GET", DevelopmentAuthorizationService::kSignInPath, c.query, "", "", "");
    EXPECT_EQ(reply.status, 302);
    EXPECT_EQ(reply.header("Location"), c.location);
  }
}

TEST_F(DevelopmentAuthorizationServiceTest, SubmittedSignInRedirectsWithACodeForThisClient) {
  const ServiceReply reply =
      post(DevelopmentAuthorizationService::kSignInPath,
           signInQuery("&username=alice&password=wonderland&action=sign-in"), "");
  ASSERT_EQ(reply.status, 302);
  const std::string location = *reply.header("Location");
  const std::string prefix = std::string(kRedirect) + "?code=";
  ASSERT_EQ(location.rfind(prefix, 0), 0u) << location;
  const std::size_t state = location.find("&state=st4te&x_username=alice");
  ASSERT_NE(state, std::string::npos);
  EXPECT_EQ(state + std::string("&state=st4te&x_username=alice").size(), location.size());
  const std::string code = location.substr(prefix.size(), state - prefix.size());

  const std::string exchange = "grant_type=authorization_code&code=" + code +
                               "&redirect_uri=" + FormCodec::encode(kRedirect);
  const Json issued = tokenJson(exchange);
  EXPECT_EQ(issued.at("scope"), "profile");
  EXPECT_EQ(
      Json::parse(me("Bearer " + issued.at("access_token").get<std::string>()).body).at("username"),
      "alice");
  EXPECT_EQ(token(exchange).status, 400);
}

TEST_F(DevelopmentAuthorizationServiceTest, ACodeAskedForWithAChallengeNeedsTheVerifier) {
  const std::string pkce =
      std::string("&code_challenge=") + kChallenge + "&code_challenge_method=S256";
  const ServiceReply page =
      send("GET", DevelopmentAuthorizationService::kSignInPath, signInQuery(pkce), "", "", "");
  EXPECT_NE(page.body.find(std::string(R"(<input type="hidden" name="code_challenge" value=")") +
                           kChallenge + "\">"),
            std::string::npos);
  const ServiceReply reply =
      post(DevelopmentAuthorizationService::kSignInPath,
           signInQuery(pkce + "&username=alice&password=wonderland&action=sign-in"), "");
  const std::string location = reply.header("Location").value_or("");
  const std::size_t start = location.find("code=") + 5;
  const std::string exchange =
      "grant_type=authorization_code&code=" + location.substr(start, location.find('&') - start) +
      "&redirect_uri=" + FormCodec::encode(kRedirect);

  const ServiceReply refused = token(exchange);
  EXPECT_EQ(refused.status, 400);
  EXPECT_EQ(Json::parse(refused.body).at("error"), "invalid_grant");
  EXPECT_EQ(tokenJson(exchange + "&code_verifier=" + kVerifier).at("scope"), "profile");
}

class RequiredPkceTest : public DevelopmentAuthorizationServiceTest {
 protected:
  RequiredPkceTest() : DevelopmentAuthorizationServiceTest(requiringPkce()) {}

  static ServiceSettings requiringPkce() {
    ServiceSettings settings;
    settings.requirePkce = true;
    return settings;
  }
};

TEST_F(RequiredPkceTest, SignInRequestsWithoutAGoodChallengeAreRedirectedBack) {
  const std::string challenge = std::string("&code_challenge=") + kChallenge;
  const struct {
    std::string extra;
    const char* description;  // nullptr: the form is shown
  } cases[] = {
      {"", "This server requires a code challenge (PKCE, method S256)"},
      {challenge, "Only the code challenge method S256 is supported"},
      {challenge + "&code_challenge_method=plain",
       "Only the code challenge method S256 is supported"},
      {"&code_challenge_method=S256", "code_challenge_method came without a code_challenge"},
      {"&code_challenge=abc&code_challenge_method=S256",
       "The code_challenge is not the Base64url of a SHA-256 digest"},
      {challenge + "&code_challenge_method=S256", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.extra);
    const ServiceReply reply =
        send("GET", DevelopmentAuthorizationService::kSignInPath, signInQuery(c.extra), "", "", "");
    if (c.description == nullptr) {
      EXPECT_EQ(reply.status, 200);
      continue;
    }
    EXPECT_EQ(reply.status, 302);
    EXPECT_EQ(reply.header("Location"), std::string(kRedirect) +
                                            "?error=invalid_request&error_description=" +
                                            FormCodec::encode(c.description) + "&state=st4te");
  }
}

TEST_F(DevelopmentAuthorizationServiceTest, SubmittedSignInCancelsOrShowsTheFormAgain) {
  const ServiceReply cancelled =
      post(DevelopmentAuthorizationService::kSignInPath, signInQuery("&action=cancel"), "");
  EXPECT_EQ(cancelled.status, 302);
  EXPECT_EQ(cancelled.header("Location"),
            std::string(kRedirect) +
                "?error=access_denied&error_description=The%20user%20cancelled%20the%20sign-in"
                "&state=st4te");

  const ServiceReply wrong =
      post(DevelopmentAuthorizationService::kSignInPath,
           signInQuery("&username=%3Calice%3E&password=x&action=sign-in"), "");
  EXPECT_EQ(wrong.status, 200);
  EXPECT_NE(
      wrong.body.find(
          R"(<p class="message" id="message" role="alert">The user name or password is wrong.</p>)"),
      std::string::npos);
  EXPECT_NE(wrong.body.find(R"(value="&lt;alice&gt;")"), std::string::npos);
}

}  // namespace
}  // namespace velmor::devserver
