// Signs in with a user name and password, or with the client's own
// credentials when no user name is given.
#ifndef VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_OPERATION_H_
#define VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_OPERATION_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "operations/ServiceOperation.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "velmor/Error.h"

namespace velmor {

// Runs RequestAccessTokenTransaction as "RequestAccessToken". A rejected
// grant becomes the lock-out error (when the server says the account is
// locked) or the wrong-credentials error; on success the user name is
// stored in the record. The completion gets the operation's user name (also
// when the server refused), the scopes the transaction holds after judging
// the answer and the error (nullptr on success); a transport failure that
// ends the exchange gives it only the error, user name and scopes absent.
class RequestAccessTokenOperation : public ServiceOperation {
 public:
  using Scopes = std::vector<std::string>;
  using SignInCompletion = std::function<void(std::optional<std::string> username,
                                              std::optional<Scopes> scopes, ErrorRef error)>;

  const std::optional<std::string>& username() const { return username_; }
  void setUsername(std::optional<std::string> username) { username_ = std::move(username); }
  const std::optional<std::string>& password() const { return password_; }
  void setPassword(std::optional<std::string> password) { password_ = std::move(password); }
  const std::optional<Scopes>& scopes() const { return scopes_; }
  void setScopes(std::optional<Scopes> scopes) { scopes_ = std::move(scopes); }
  const std::optional<std::string>& realmId() const { return realmId_; }
  void setRealmId(std::optional<std::string> realmId) { realmId_ = std::move(realmId); }
  const std::optional<std::string>& namespaceId() const { return namespaceId_; }
  void setNamespaceId(std::optional<std::string> namespaceId) {
    namespaceId_ = std::move(namespaceId);
  }
  // Token lifetimes in seconds that replace the server's; 0 keeps the server's.
  std::uint64_t accessTokenExpirationOverride() const { return accessTokenExpirationOverride_; }
  void setAccessTokenExpirationOverride(std::uint64_t seconds) {
    accessTokenExpirationOverride_ = seconds;
  }
  std::uint64_t refreshTokenExpirationOverride() const { return refreshTokenExpirationOverride_; }
  void setRefreshTokenExpirationOverride(std::uint64_t seconds) {
    refreshTokenExpirationOverride_ = seconds;
  }

  const SignInCompletion& signInCompletionBlock() const { return signInCompletion_; }
  void setSignInCompletionBlock(SignInCompletion completion) {
    signInCompletion_ = std::move(completion);
  }

 protected:
  void perform() override;
  bool completeWithError(const ErrorRef& error) override;

  // Copies the two lifetime overrides into `transaction` before its answer
  // is judged.
  void applyExpirationOverrides(RequestAccessTokenTransaction& transaction) const;

 private:
  std::optional<std::string> username_;
  std::optional<std::string> password_;
  std::optional<Scopes> scopes_;
  std::optional<std::string> realmId_;
  std::optional<std::string> namespaceId_;
  std::uint64_t accessTokenExpirationOverride_ = 0;
  std::uint64_t refreshTokenExpirationOverride_ = 0;
  SignInCompletion signInCompletion_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REQUEST_ACCESS_TOKEN_OPERATION_H_
