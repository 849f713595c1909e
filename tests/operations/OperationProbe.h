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

namespace velmor::test {

struct OperationProbe {
  using Scopes = std::vector<std::string>;

  int calls = 0;
  std::optional<std::string> username;
  std::optional<Scopes> scopes;
  ErrorRef error;

  void watch(ActivateClientOperation& operation) {
    operation.setActivateCompletionBlock([this](ErrorRef e) { record(nullptr, nullptr, e); });
  }
  void watch(RevokeOperation& operation) {
    operation.setSignOutCompletionBlock([this](ErrorRef e) { record(nullptr, nullptr, e); });
  }
  // The password and the authorization-code sign-in.
  void watch(RequestAccessTokenOperation& operation) {
    operation.setSignInCompletionBlock([this](auto u, auto s, ErrorRef e) { record(&u, &s, e); });
  }
  void watch(RefreshAccessTokenOperation& operation) {
    operation.setRefreshAccessTokenCompletionBlock(
        [this](auto s, ErrorRef e) { record(nullptr, &s, e); });
  }

  // "none", or the domain and code: "NSURLErrorDomain -1004".
  std::string outcome() const {
    return error ? error->domain() + " " + std::to_string(error->code()) : "none";
  }

 private:
  void record(std::optional<std::string>* u, std::optional<Scopes>* s, ErrorRef e) {
    ++calls;
    if (u != nullptr) username = *u;
    if (s != nullptr) scopes = *s;
    error = std::move(e);
  }
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_OPERATIONS_OPERATION_PROBE_H_
