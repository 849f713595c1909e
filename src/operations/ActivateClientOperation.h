// Registers the client with the authorization server.
#ifndef VELMOR_OPERATIONS_ACTIVATE_CLIENT_OPERATION_H_
#define VELMOR_OPERATIONS_ACTIVATE_CLIENT_OPERATION_H_

#include <functional>

#include "operations/ServiceOperation.h"
#include "velmor/Error.h"

namespace velmor {

// Runs ActivateClientTransaction as "ActivateClient"; the transaction stores
// the client id and secret. The completion gets nullptr on success.
class ActivateClientOperation final : public ServiceOperation {
 public:
  using Completion = std::function<void(ErrorRef error)>;

  void setActivateCompletionBlock(Completion completion) { completion_ = std::move(completion); }

  void perform() override;
  bool completeWithError(const ErrorRef& error) override;

 private:
  Completion completion_;
};

}  // namespace velmor

#endif  // VELMOR_OPERATIONS_ACTIVATE_CLIENT_OPERATION_H_
