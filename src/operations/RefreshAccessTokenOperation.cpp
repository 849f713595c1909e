#include "operations/RefreshAccessTokenOperation.h"

#include "storage/AuthorizationClientContext.h"
#include "support/Format.h"
#include "transport/RefreshAccessTokenTransaction.h"
#include "transport/UpdateClientContextTransaction.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

constexpr char kRefreshRequestName[] = "CreateBearerTokenFromRefreshToken";
constexpr char kUpdateRequestName[] = "UpdateClientContext";
constexpr char kRetrieveFailedLog[] = "Error retrieving client context. Detail: '%@'";
constexpr char kUpdateFailedLog[] = "Error updating client context. Details: '%@'";

void logError(const char* format, const ErrorRef& error) {
  VelmorAuthorizationLogger::sharedLogger().log(stringWithFormat(format, error->description()),
                                                VelmorAuthorizationLogger::kLevelError);
}

}  // namespace

void RefreshAccessTokenOperation::main() {
  updateClientContextIfNeeded();
  if (isCancelled()) return;

  RefreshAccessTokenTransaction transaction(secureData());
  transaction.setScopes(scopes());
  applyExpirationOverrides(transaction);
  const std::optional<Outcome> outcome = exchange(transaction, kRefreshRequestName);
  if (!outcome) return;
  if (!refreshCompletion_) return;
  if (!outcome->judged) {
    refreshCompletion_(std::nullopt, outcome->error);
    return;
  }
  refreshCompletion_(transaction.scopes(), outcome->error);
}

void RefreshAccessTokenOperation::updateClientContextIfNeeded() {
  bool changed = false;
  ErrorRef error;
  std::string context = AuthorizationClientContext::generateAndSaveIfNeeded(&changed, &error);
  if (!changed && !alwaysSendClientContext_) return;
  if (error) {
    logError(kRetrieveFailedLog, error);
    return;
  }

  UpdateClientContextTransaction transaction(secureData());
  transaction.setAuthorizationClientContext(std::move(context));
  // Only logged: the refresh that follows must not depend on this update.
  const Reply reply = transmit(prepare(transaction), kUpdateRequestName);
  const ErrorRef failure = reply.transportError
                               ? reply.transportError
                               : transaction.handleResponse(reply.response, reply.content);
  if (failure) logError(kUpdateFailedLog, failure);
}

}  // namespace velmor
