// Signs the user out: forgets the tokens, then revokes them at the server.
#ifndef VELMOR_OPERATIONS_REVOKE_OPERATION_H_
#define VELMOR_OPERATIONS_REVOKE_OPERATION_H_

#include <functional>

#include "operations/ServiceOperation.h"
#include "velmor/Error.h"

namespace velmor {

// Builds the RevokeTransaction request while the tokens are still stored,
// then deletes both tokens and their four validity dates from the record
// before sending as "RevokeTokensByClientAndUser", so the local sign-out
// holds whatever the server answers. The record's lock is held from
// reading the tokens to deleting them, so the tokens revoked are the ones
// forgotten, even beside a refresh in another thread or process. The completion gets the transport
// or server error, nullptr on success.
class RevokeOperation final : public ServiceOperation {
 public:
  using Completion = std::function<void(ErrorRef error)>;

  void setSignOutCompletionBlock(Completion completion) { completion_ = std::move(completion); }

  void perform() override;
  bool completeWithError(const ErrorRef& error) override;

 private:
  Completion completion_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_REVOKE_OPERATION_H_
