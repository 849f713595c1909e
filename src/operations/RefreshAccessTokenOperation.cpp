#include "operations/RefreshAccessTokenOperation.h"

#include <chrono>

#include "storage/AuthorizationClientContext.h"
#include "storage/CredentialValidity.h"
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

void RefreshAccessTokenOperation::perform() {
  // What this client's own earlier exchanges stored is the starting point;
  // only what others store from here on is adopted.
  if (adoptsSiblingTokens_ && !refreshTokenAtCallStart_) {
    refreshTokenAtCallStart_ = secureData()->snapshot().refreshToken();
  }
  updateClientContextIfNeeded();
  if (isCancelled()) return;
  SecretStoreLock lock;
  if (ErrorRef error = secureData()->lockRecord(&lock)) {
    complete(refreshCompletion_, std::nullopt, error);
    return;
  }
  if (isCancelled()) return;
  if (siblingRefreshedMeanwhile()) {
    lock.unlock();
    complete(refreshCompletion_, Scopes(), nullptr);
    return;
  }
  refreshUnderLock(lock);
}

void RefreshAccessTokenOperation::refreshUnderLock(SecretStoreLock& lock) {
  RefreshAccessTokenTransaction transaction(secureData());
  transaction.setScopes(scopes());
  applyExpirationOverrides(transaction);
  const std::optional<Outcome> outcome = exchange(transaction, kRefreshRequestName);
  // The answer is stored: siblings may go on while the completion runs.
  lock.unlock();
  if (!outcome) return;
  if (!outcome->judged) {
    complete(refreshCompletion_, std::nullopt, outcome->error);
  } else if (transaction.wasSuperseded()) {
    complete(refreshCompletion_, Scopes(), nullptr);
  } else {
    complete(refreshCompletion_, transaction.scopes(), outcome->error);
  }
}

bool RefreshAccessTokenOperation::siblingRefreshedMeanwhile() {
  if (!adoptsSiblingTokens_) return false;
  const CredentialRecord stored = secureData()->snapshot();
  return stored.refreshToken() != *refreshTokenAtCallStart_ &&
         CredentialValidity::hasValidAccessToken(stored, std::chrono::system_clock::now());
}

bool RefreshAccessTokenOperation::completeWithError(const ErrorRef& error) {
  if (!refreshCompletion_) return false;
  refreshCompletion_(std::nullopt, error);
  return true;
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
