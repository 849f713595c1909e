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
class RefreshAccessTokenOperation final : public RequestAccessTokenOperation {
 public:
  using RefreshCompletion = std::function<void(std::optional<Scopes> scopes, ErrorRef error)>;

  bool alwaysSendClientContext() const { return alwaysSendClientContext_; }
  void setAlwaysSendClientContext(bool always) { alwaysSendClientContext_ = always; }

  void setRefreshAccessTokenCompletionBlock(RefreshCompletion completion) {
    refreshCompletion_ = std::move(completion);
  }

  void main() override;

  // Sends the client context when needed; never fails the refresh.
  void updateClientContextIfNeeded();

 private:
  bool alwaysSendClientContext_ = false;
  RefreshCompletion refreshCompletion_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REFRESH_ACCESS_TOKEN_OPERATION_H_
