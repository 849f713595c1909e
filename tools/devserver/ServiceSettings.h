// What the development server is configured with: who may register, who may
// sign in, and how long everything lasts.
#ifndef VELMOR_TOOLS_DEVSERVER_SERVICE_SETTINGS_H_
#define VELMOR_TOOLS_DEVSERVER_SERVICE_SETTINGS_H_

#include <chrono>
#include <string>
#include <vector>

namespace velmor::devserver {

struct UserAccount {
  std::string username;
  std::string password;
};

struct ServiceSettings {
  // The application token that registration accepts unless told otherwise.
  static constexpr char kDefaultAppToken[] = "velmor-dev-app";

  // Registration answers only these application tokens.
  std::vector<std::string> appTokens = {kDefaultAppToken};
  // Password and browser sign-in check against this table.
  std::vector<UserAccount> users = {{"alice", "wonderland"}, {"bob", "builder"}};
  // Scopes a grant may carry; a request without scopes gets all of them.
  std::vector<std::string> scopes = {"profile", "email"};
  // What GET /api/v1/me demands of the access token.
  std::string protectedResourceScope = "profile";
  // Named in every challenge the server sends.
  std::string realm = "velmor-dev";

  std::chrono::seconds accessTokenLifetime{3600};
  std::chrono::seconds refreshTokenLifetime{14 * 24 * 3600};
  std::chrono::seconds authorizationCodeLifetime{600};
  // How long a spent refresh token is honoured again; 0 (strict) revokes
  // the sign-in at its first reuse.
  std::chrono::seconds refreshTokenReuseGrace{0};

  // Browser sign-in requests without a proof-key challenge (PKCE, S256)
  // are refused with "invalid_request".
  bool requirePkce = false;

  // Wrong passwords in a row that lock an account; 0 never locks.
  int maxFailedSignIns = 3;
  std::chrono::seconds lockoutDuration{900};
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_SERVICE_SETTINGS_H_
