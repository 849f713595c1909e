// Records what an operation hands its completion, whichever operation it is.
#ifndef VELMOR_TESTS_OPERATIONS_OPERATION_PROBE_H_
#define VELMOR_TESTS_OPERATIONS_OPERATION_PROBE_H_

#include <optional>
#include <string>
#include <vector>

#include "operations/ActivateClientOperation.h"
#include "operations/RefreshAccessTokenOperation.h"
#include "operations/RequestAccessTokenOperation.h"
#include "operations/RevokeOperation.h"
#include "velmor/Error.h"

namespace velmor::test {

struct OperationProbe {
  using Scopes = std::vector<std::string>;

  int calls = 0;
  std::optional<std::string> username;
  std::optional<Scopes> scopes;
  ErrorRef error;

  void watch(ActivateClientOperation& operation) {
    operation.setActivateCompletionBlock([this](ErrorRef e) { record(std::move(e)); });
  }
  void watch(RevokeOperation& operation) {
    operation.setSignOutCompletionBlock([this](ErrorRef e) { record(std::move(e)); });
  }
  // The password and the authorization-code sign-in.
  void watch(RequestAccessTokenOperation& operation) {
    operation.setSignInCompletionBlock([this](auto u, auto s, ErrorRef e) {
      username = std::move(u);
      scopes = std::move(s);
      record(std::move(e));
    });
  }
  void watch(RefreshAccessTokenOperation& operation) {
    operation.setRefreshAccessTokenCompletionBlock([this](auto s, ErrorRef e) {
      scopes = std::move(s);
      record(std::move(e));
    });
  }

  // "none", or the domain and code: "NSURLErrorDomain -1004".
  std::string outcome() const {
    return error ? error->domain() + " " + std::to_string(error->code()) : "none";
  }

 private:
  void record(ErrorRef e) {
    ++calls;
    error = std::move(e);
  }
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_OPERATIONS_OPERATION_PROBE_H_
