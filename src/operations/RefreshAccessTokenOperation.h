// Exchanges the stored refresh token for new tokens, after sending the
// client context when it changed.
#ifndef VELMOR_OPERATIONS_REFRESH_ACCESS_TOKEN_OPERATION_H_
#define VELMOR_OPERATIONS_REFRESH_ACCESS_TOKEN_OPERATION_H_

#include <functional>
#include <optional>

#include "operations/RequestAccessTokenOperation.h"
#include "velmor/Error.h"

namespace velmor {

// First sends the client context as "UpdateClientContext" when it changed
// since last saved (or always, with `alwaysSendClientContext`); failures of
// that step are only logged. Then runs RefreshAccessTokenTransaction as
// "CreateBearerTokenFromRefreshToken" with `scopes` and the lifetime
// overrides. The record's user name is left alone. The completion gets the
// granted scopes (absent when no answer was judged) and the error.
//
// One refresh at a time per identity, across threads and processes: the
// operation takes the record's lock before it reads the refresh token and
// keeps it until the answer is stored (a lock that cannot be had in time is
// the completion's error, and nothing is sent). Holding the lock it reads
// the record again; when it may adopt and the record now holds another
// refresh token than at its starting point, beside a valid access token, a
// sibling (another client, thread or process) refreshed meanwhile: the
// operation adopts those tokens, sends nothing and completes with an empty
// scope list and no error. The same happens when the server answers
// "invalid_grant" while the record holds another refresh token than the
// one sent (see RefreshAccessTokenTransaction).
class RefreshAccessTokenOperation final : public RequestAccessTokenOperation {
 public:
  using RefreshCompletion = std::function<void(std::optional<Scopes> scopes, ErrorRef error)>;

  bool alwaysSendClientContext() const { return alwaysSendClientContext_; }
  void setAlwaysSendClientContext(bool always) { alwaysSendClientContext_ = always; }

  // Lets the operation adopt tokens stored since it began; without this or
  // the next it always sends.
  void setAdoptsSiblingTokens(bool adopts) { adoptsSiblingTokens_ = adopts; }
  // The same, from an earlier starting point: the refresh token (absent for
  // none) of the reading on which the caller decided to refresh.
  void setRefreshTokenAtCallStart(std::optional<std::string> refreshToken) {
    adoptsSiblingTokens_ = true;
    refreshTokenAtCallStart_ = std::move(refreshToken);
  }

  void setRefreshAccessTokenCompletionBlock(RefreshCompletion completion) {
    refreshCompletion_ = std::move(completion);
  }

  // Sends the client context when needed; never fails the refresh.
  void updateClientContextIfNeeded();

 protected:
  void perform() override;
  bool completeWithError(const ErrorRef& error) override;

 private:
  bool siblingRefreshedMeanwhile();
  void refreshUnderLock(SecretStoreLock& lock);

  bool alwaysSendClientContext_ = false;
  bool adoptsSiblingTokens_ = false;
  std::optional<std::optional<std::string>> refreshTokenAtCallStart_;
  RefreshCompletion refreshCompletion_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REFRESH_ACCESS_TOKEN_OPERATION_H_
