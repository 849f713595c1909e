#include "velmor/VelmorAuthorizationClient.h"

#include <chrono>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

#include "client/ClientLogText.h"
#include "client/RefreshTokenExpiryTimer.h"
#include "client/SignInLogLine.h"
#include "operations/ActivateClientOperation.h"
#include "operations/RefreshAccessTokenOperation.h"
#include "operations/RequestAccessTokenFromAuthCodeOperation.h"
#include "operations/RequestAccessTokenOperation.h"
#include "operations/RevokeOperation.h"
#include "platform/CurrentException.h"
#include "platform/Uuid.h"
#include "platform/VAErrorHandler.h"
#include "storage/CredentialValidity.h"
#include "storage/CryptoUtility.h"
#include "storage/SecureData.h"
#include "support/Format.h"
#include "support/LogSecret.h"
#include "support/ParamValidator.h"
#include "support/Text.h"
#include "transport/ApplicationHttpTransaction.h"
#include "transport/RequestSignInViaWebTransaction.h"
#include "velmor/Exception.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

using Scopes = VelmorAuthorizationClient::Scopes;
using Queue = VelmorAuthorizationClient::Queue;

constexpr std::uint64_t kMinimumCredentialLength = 1;
constexpr std::uint64_t kMaximumCredentialLength = 256;
constexpr char16_t kUsernameExcludedCharacters[] = u"()<>,;:\"[]{}'";

VelmorAuthorizationLogger& logger() { return VelmorAuthorizationLogger::sharedLogger(); }

// One argument of an entry line, made only for a line that is written:
// LogArguments as they are, secrets as LogSecret shows them, objects by
// their ClientLogText, texts as they are.
template <typename T>
LogArgument logArgument(const T& value, bool secretsInClear) {
  if constexpr (std::is_same_v<T, LogArgument>) {
    return value;
  } else if constexpr (std::is_same_v<T, LogSecret>) {
    return LogArgument::object(value.text(secretsInClear));
  } else if constexpr (requires { ClientLogText::of(value); }) {
    return LogArgument::object(ClientLogText::of(value));
  } else {
    return LogArgument::object(value);
  }
}

// A member's entry line through logMethod, at the info level.
template <typename... Args>
void logCall(std::string_view displayName, const Args&... arguments) {
  if (!logger().isLoggable(VelmorAuthorizationLogger::kLevelInfo)) return;
  [[maybe_unused]] const bool secretsInClear = LogSecret::shownInClear();
  logger().logMethod(displayName, {logArgument(arguments, secretsInClear)...});
}

template <typename... Args>
void logInfo(std::string_view format, const Args&... arguments) {
  if (!logger().isLoggable(VelmorAuthorizationLogger::kLevelInfo)) return;
  logger().log(stringWithFormat(format, arguments...), VelmorAuthorizationLogger::kLevelInfo);
}

LogArgument location(const void* pointer) { return LogArgument::pointerTo("^@", pointer); }

ErrorRef clientError(std::int64_t code) {
  return VelmorAuthorizationError::errorWithDomain(AuthorizationClientErrorDomain, code,
                                                   std::nullopt);
}

void store(ErrorRef* location, ErrorRef error) {
  if (location != nullptr) *location = std::move(error);
}

// Hands an outcome to the application: a task on the caller's queue that
// calls `report` with the completion. Only a caller who gave both a queue and
// a completion hears back; otherwise the outcome is dropped.
template <typename Completion, typename Report>
void deliverWhenRun(const Queue& queue, const Completion& completion, Report report) {
  if (!queue || !completion) return;
  queue->addOperationWithBlock([completion, report] { report(completion); });
}

// The same for results known now.
template <typename Completion, typename... Results>
void deliver(const Queue& queue, const Completion& completion, Results... results) {
  deliverWhenRun(queue, completion,
                 [results...](const Completion& complete) { complete(results...); });
}

// What a synchronous exchange hands back: the completion fills it on the
// private queue while the caller waits for the queue to drain. A cancelled
// exchange never completes and leaves it empty.
struct SyncOutcome {
  std::optional<Scopes> scopes;
  ErrorRef error;

  std::optional<Scopes> returned(ErrorRef* location) {
    store(location, error);
    return std::move(scopes);
  }
};

Dictionary authorizationHeaders(const CredentialRecord& record) {
  return Dictionary{{"Authorization", stringWithFormat("Bearer %@", record.accessToken())}};
}

// A synchronous call waits for the private queue to drain; from a task of
// that queue it would wait for itself.
constexpr char kCalledOnOwnQueue[] =
    "%@ was called on the client's own queue, where it would wait for ever for the task it was "
    "called from; call it from another thread, or use its asynchronous form there";
constexpr char kSynchronousSignIn[] = "A synchronous sign-in";

// A value read as signed must not be negative: 2^63 and above are refused.
void checkSeconds(std::uint64_t seconds, std::string_view name) {
  ParamValidator::checkIsGreaterThan(static_cast<std::int64_t>(seconds), -1, name);
}

void validateScopes(const std::optional<Scopes>& scopes) {
  if (!scopes) return;
  for (std::size_t i = 0; i < scopes->size(); ++i) {
    ParamValidator::checkIsNotNilOrContainWhitespace(
        (*scopes)[i], stringWithFormat("scope item at index %ld", static_cast<std::int64_t>(i)));
  }
}

void checkCredentials(const std::optional<std::string>& username,
                      const std::optional<std::string>& password) {
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(username, "username");
  ParamValidator::checkIsNotNil(password, "password");
}

using Bounds = void (*)(std::uint64_t*, std::uint64_t*);

bool hasValidLength(const std::optional<std::string>& text, Bounds bounds) {
  if (!text) return false;
  std::uint64_t minLength = 0;
  std::uint64_t maxLength = 0;
  bounds(&minLength, &maxLength);
  const std::uint64_t length = text::utf16Length(text::trimWhitespaceAndNewlines(*text));
  return length >= minLength && length <= maxLength;
}

}  // namespace

void VelmorAuthorizationClientDelegate::velmorAuthorizationClientDidSignOut(
    VelmorAuthorizationClient& client) {
  (void)client;
}

// The client's state. Everything an operation or a timer action touches
// lives here and outlives them: the destructor drains the private queue and
// stops the timer before this goes.
struct VelmorAuthorizationClient::Impl {
  Impl(VelmorAuthorizationClient& owner, Url baseUrl, const std::string& appToken,
       std::optional<Data> encryptionKey, std::uint64_t slot)
      : authorizationServerBaseUrl(std::move(baseUrl)),
        secureData(std::make_shared<SecureData>(authorizationServerBaseUrl.host().value_or(""),
                                                appToken, std::move(encryptionKey),
                                                static_cast<std::int64_t>(slot))),
        operationQueue(std::make_shared<OperationQueue>()),
        refreshTokenExpirationTimer([&owner] { owner.refreshTokenExpired(); }) {
    operationQueue->setMaxConcurrentOperationCount(1);
    // Only a diagnostic: the client stays usable over plain HTTP, which local
    // development servers need.
    if (!text::equalsIgnoringCase(authorizationServerBaseUrl.scheme(), "https")) {
      VAErrorHandler::handleError(*clientError(kClientErrorInsecureUrl));
    }
  }

  AuthorizationState state() {
    return CredentialValidity::authorizationState(secureData->snapshot());
  }

  bool isBusy() const { return operationQueue->operationCount() != 0; }

  void configure(ServiceOperation& operation) const {
    operation.setAuthorizationServerBaseUrl(authorizationServerBaseUrl);
    operation.setSecureData(secureData);
    operation.setSimulatedNetworkDelayInterval(__simulatedNetworkDelayInterval.load());
  }

  void configureTokenRequest(RequestAccessTokenOperation& operation) const {
    configure(operation);
    operation.setAccessTokenExpirationOverride(__accessTokenExpirationOverride.load());
    operation.setRefreshTokenExpirationOverride(__refreshTokenExpirationOverride.load());
  }

  void runAndWait(std::shared_ptr<Operation> operation, std::string_view caller) {
    if (operationQueue->isCurrentQueue()) {
      throw InternalInconsistencyException(stringWithFormat(kCalledOnOwnQueue, caller));
    }
    operationQueue->addOperation(std::move(operation));
    operationQueue->waitUntilAllOperationsAreFinished();
  }

  // Runs on the queue's worker thread after every sign-in, code exchange and
  // refresh, failed ones included, so the timer follows what the record now
  // holds.
  void rearmExpiryTimer() {
    const std::optional<SecureData::Date> end = secureData->refreshTokenValidEndDateTime();
    double seconds = 0;
    if (end) {
      seconds = std::chrono::duration<double>(*end - std::chrono::system_clock::now()).count();
    }
    refreshTokenExpirationTimer.rearm(seconds);
  }

  // The busy refusals of activation, sign-in and code exchange. The
  // asynchronous form reports only to a caller who gave both a queue and a
  // completion.
  bool refusedAsBusy(ErrorRef* error) {
    if (!isBusy()) return false;
    store(error, clientError(kClientErrorInvalidOperation));
    return true;
  }

  template <typename Completion, typename... Results>
  bool refusedAsBusy(const Queue& queue, const Completion& completion, Results... results) {
    if (!isBusy()) return false;
    deliver(queue, completion, results..., clientError(kClientErrorInvalidOperation));
    return true;
  }

  std::shared_ptr<RequestAccessTokenOperation> passwordOperation(
      const std::optional<std::string>& username, std::optional<std::string> password,
      std::optional<Scopes> scopes, std::optional<std::string> realmId,
      std::optional<std::string> namespaceId) const {
    auto operation = std::make_shared<RequestAccessTokenOperation>();
    configureTokenRequest(*operation);
    if (username) operation->setUsername(text::trimWhitespaceAndNewlines(*username));
    operation->setPassword(std::move(password));
    operation->setScopes(std::move(scopes));
    operation->setRealmId(std::move(realmId));
    operation->setNamespaceId(std::move(namespaceId));
    return operation;
  }

  std::shared_ptr<RequestAccessTokenOperation> codeOperation(
      std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl,
      std::optional<std::string> username, std::optional<std::string> codeVerifier) const {
    auto operation = std::make_shared<RequestAccessTokenFromAuthCodeOperation>();
    configureTokenRequest(*operation);
    operation->setAuthorizationCode(authorizationCode.value_or(""));
    operation->setRedirectUrl(std::move(redirectUrl));
    operation->setUsername(std::move(username));
    operation->setCodeVerifier(std::move(codeVerifier));
    return operation;
  }

  std::optional<Scopes> runSignIn(const std::shared_ptr<RequestAccessTokenOperation>& operation,
                                  ErrorRef* error) {
    SyncOutcome outcome;
    operation->setSignInCompletionBlock(
        [this, &outcome](std::optional<std::string>, std::optional<Scopes> scopes, ErrorRef e) {
          outcome = {std::move(scopes), std::move(e)};
          rearmExpiryTimer();
        });
    runAndWait(operation, kSynchronousSignIn);
    return outcome.returned(error);
  }

  void startSignIn(const std::shared_ptr<RequestAccessTokenOperation>& operation, Queue queue,
                   SignInCompletion completion) {
    operation->setSignInCompletionBlock(
        [this, queue, completion](std::optional<std::string> username, std::optional<Scopes> scopes,
                                  ErrorRef error) {
          deliver(queue, completion, username, scopes, error);
          rearmExpiryTimer();
        });
    operationQueue->addOperation(operation);
  }

  std::optional<Scopes> signInSync(const std::optional<std::string>& username,
                                   std::optional<std::string> password,
                                   std::optional<Scopes> scopes, std::optional<std::string> realmId,
                                   std::optional<std::string> namespaceId, ErrorRef* error) {
    validateScopes(scopes);
    if (refusedAsBusy(error)) return std::nullopt;
    return runSignIn(passwordOperation(username, std::move(password), std::move(scopes),
                                       std::move(realmId), std::move(namespaceId)),
                     error);
  }

  void signInAsync(const std::optional<std::string>& username, std::optional<std::string> password,
                   std::optional<Scopes> scopes, std::optional<std::string> realmId,
                   std::optional<std::string> namespaceId, Queue queue,
                   SignInCompletion completion) {
    validateScopes(scopes);
    if (refusedAsBusy(queue, completion, std::optional<std::string>(), std::optional<Scopes>())) {
      return;
    }
    startSignIn(passwordOperation(username, std::move(password), std::move(scopes),
                                  std::move(realmId), std::move(namespaceId)),
                std::move(queue), std::move(completion));
  }

  // Code exchange: no scope validation and no trimming; the user name comes
  // from the redirect (absent for a code obtained otherwise) and replaces
  // the stored one on success. The verifier answers the sign-in request's
  // proof-key challenge, when it carried one.
  std::optional<Scopes> codeSignInSync(std::optional<std::string> authorizationCode,
                                       std::optional<Url> redirectUrl,
                                       std::optional<std::string> username,
                                       std::optional<std::string> codeVerifier, ErrorRef* error) {
    if (refusedAsBusy(error)) return std::nullopt;
    return runSignIn(codeOperation(std::move(authorizationCode), std::move(redirectUrl),
                                   std::move(username), std::move(codeVerifier)),
                     error);
  }

  void codeSignInAsync(std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl,
                       std::optional<std::string> username, std::optional<std::string> codeVerifier,
                       Queue queue, SignInCompletion completion) {
    if (refusedAsBusy(queue, completion, std::optional<std::string>(), std::optional<Scopes>())) {
      return;
    }
    startSignIn(codeOperation(std::move(authorizationCode), std::move(redirectUrl),
                              std::move(username), std::move(codeVerifier)),
                std::move(queue), std::move(completion));
  }

  // Refresh waits its turn behind queued work instead of refusing, and is
  // the only exchange that sends the client context unasked. A refresh for
  // the scopes already granted takes the tokens a sibling stored since it
  // left the queue (or, for a check, since the reading that called for it)
  // instead of sending (RefreshAccessTokenOperation); one that names scopes
  // always sends, as what a sibling was granted is not known.
  std::shared_ptr<RefreshAccessTokenOperation> refreshOperation(
      std::optional<Scopes> scopes, const std::optional<CredentialRecord>& decidedOn) const {
    auto operation = std::make_shared<RefreshAccessTokenOperation>();
    configureTokenRequest(*operation);
    if (!scopes) {
      operation->setAdoptsSiblingTokens(true);
      if (decidedOn) operation->setRefreshTokenAtCallStart(decidedOn->refreshToken());
    }
    operation->setScopes(std::move(scopes));
    operation->setAlwaysSendClientContext(__alwaysSendClientContext.load());
    return operation;
  }

  std::optional<Scopes> refreshSync(
      std::optional<Scopes> scopes, ErrorRef* error, std::string_view caller,
      const std::optional<CredentialRecord>& decidedOn = std::nullopt) {
    validateScopes(scopes);
    auto operation = refreshOperation(std::move(scopes), decidedOn);
    SyncOutcome outcome;
    operation->setRefreshAccessTokenCompletionBlock(
        [this, &outcome](std::optional<Scopes> granted, ErrorRef e) {
          outcome = {std::move(granted), std::move(e)};
          rearmExpiryTimer();
        });
    runAndWait(operation, caller);
    return outcome.returned(error);
  }

  void refreshAsync(std::optional<Scopes> scopes, Queue queue, RefreshCompletion completion,
                    const std::optional<CredentialRecord>& decidedOn = std::nullopt) {
    validateScopes(scopes);
    auto operation = refreshOperation(std::move(scopes), decidedOn);
    operation->setRefreshAccessTokenCompletionBlock(
        [this, queue, completion](std::optional<Scopes> granted, ErrorRef error) {
          deliver(queue, completion, granted, error);
          rearmExpiryTimer();
        });
    operationQueue->addOperation(operation);
  }

  // On the private queue, behind everything queued before it. The tasks it
  // posts read the record, never the client, so they may run after the
  // client is gone.
  void checkAuthorizationOnQueue(const Queue& queue, const CheckCompletion& completion) {
    const CredentialRecord atStart = secureData->snapshot();
    const AuthorizationState state = CredentialValidity::authorizationState(atStart);
    const std::shared_ptr<SecureData> record = secureData;
    if (state != AuthorizationStateRefreshRequired) {
      deliverWhenRun(queue, completion, [record, state](const CheckCompletion& complete) {
        if (state == AuthorizationStateAuthorized) {
          complete(state, authorizationHeaders(record->snapshot()), nullptr);
        } else {
          complete(state, std::nullopt, nullptr);
        }
      });
      return;
    }
    refreshAsync(
        std::nullopt, queue,
        [record, queue, completion](std::optional<Scopes>, ErrorRef error) {
          deliverWhenRun(queue, completion, [record, error](const CheckCompletion& complete) {
            const CredentialRecord now = record->snapshot();
            // A successful refresh reports 3 as such, not a recomputed state.
            if (!error) {
              complete(AuthorizationStateAuthorized, authorizationHeaders(now), nullptr);
            } else {
              complete(CredentialValidity::authorizationState(now), std::nullopt, error);
            }
          });
        },
        atStart);
  }

  // The check's task on the private queue: an exception that escapes it
  // still reaches the caller, as the check's error.
  void checkAuthorizationTask(const Queue& queue, const CheckCompletion& completion) {
    try {
      checkAuthorizationOnQueue(queue, completion);
    } catch (...) {
      const ErrorRef error = VelmorAuthorizationError::errorWithDomain(
          AuthorizationClientErrorDomain, kClientErrorUnknown,
          Dictionary{{"Exception", currentExceptionDescription()}});
      deliver(queue, completion, state(), std::optional<Dictionary>(), error);
    }
  }

  std::shared_ptr<RevokeOperation> revokeOperation() const {
    auto operation = std::make_shared<RevokeOperation>();
    configure(*operation);
    return operation;
  }

  std::atomic<VelmorAuthorizationClientDelegate*> delegate{nullptr};
  std::atomic<bool> usesPkce{false};
  // The application's own field; the client never reads it.
  std::optional<std::string> applicationUsername;
  const Url authorizationServerBaseUrl;
  const std::shared_ptr<SecureData> secureData;
  const std::shared_ptr<OperationQueue> operationQueue;
  RefreshTokenExpiryTimer refreshTokenExpirationTimer;
  // The web sign-in whose redirect is awaited; the caller's thread only.
  std::shared_ptr<RequestSignInViaWebTransaction> currentRequestSignInViaWebTransaction;
};

VelmorAuthorizationClient::VelmorAuthorizationClient(std::optional<Url> authorizationServerBaseUrl,
                                                     std::optional<std::string> appToken,
                                                     std::optional<Data> encryptionKey) {
  logCall("-[VelmorAuthorizationClient initWithAuthorizationServerBaseUrl:appToken:encryptionKey:]",
          authorizationServerBaseUrl, appToken,
          LogSecret(LogSecret::Kind::kEncryptionKey, encryptionKey));
  ParamValidator::checkIsNotNil(authorizationServerBaseUrl, "serverBaseUrl");
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(appToken, "token");
  impl_ = std::make_unique<Impl>(*this, std::move(*authorizationServerBaseUrl), *appToken,
                                 std::move(encryptionKey), 0);
}

VelmorAuthorizationClient::VelmorAuthorizationClient(std::optional<Url> authorizationServerBaseUrl,
                                                     std::optional<std::string> appToken,
                                                     std::optional<Data> encryptionKey,
                                                     std::uint64_t authorizedIdentitySlot) {
  logCall(
      "-[VelmorAuthorizationClient "
      "initWithAuthorizationServerBaseUrl:appToken:encryptionKey:authorizedIdentitySlot:]",
      authorizationServerBaseUrl, appToken,
      LogSecret(LogSecret::Kind::kEncryptionKey, encryptionKey),
      LogArgument::unsignedInteger(authorizedIdentitySlot));
  ParamValidator::checkIsNotNil(authorizationServerBaseUrl, "serverBaseUrl");
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(appToken, "token");
  checkSeconds(authorizedIdentitySlot, "authorizedIdentitySlot");
  impl_ = std::make_unique<Impl>(*this, std::move(*authorizationServerBaseUrl), *appToken,
                                 std::move(encryptionKey), authorizedIdentitySlot);
}

VelmorAuthorizationClient::~VelmorAuthorizationClient() {
  // The timer stops first: an action firing during the drain could let the
  // delegate queue work that would run on a client half destroyed. The
  // completions drained afterwards no longer re-arm it.
  impl_->refreshTokenExpirationTimer.stop();
  impl_->operationQueue->waitUntilAllOperationsAreFinished();
}

Data VelmorAuthorizationClient::generateEncryptionKey() {
  logInfo("%s", "+[VelmorAuthorizationClient generateEncryptionKey]");
  const Data salt = CryptoUtility::randomSalt();
  std::uint32_t actualRoundCount = 0;
  // The password is random and thrown away: only the key matters, and the
  // application keeps it.
  return CryptoUtility::generateAesKeyForPassword(Uuid::randomLowercaseString(), salt, 0,
                                                  &actualRoundCount);
}

VelmorAuthorizationClientDelegate* VelmorAuthorizationClient::delegate() const {
  logCall("-[VelmorAuthorizationClient delegate]");
  return impl_->delegate.load();
}

void VelmorAuthorizationClient::setDelegate(VelmorAuthorizationClientDelegate* delegate) {
  logCall("-[VelmorAuthorizationClient setDelegate:]", delegate);
  impl_->delegate.store(delegate);
}

void VelmorAuthorizationClient::changeEncryptionKey(std::optional<Data> encryptionKey) {
  logCall("-[VelmorAuthorizationClient changeEncryptionKey:]",
          LogSecret(LogSecret::Kind::kEncryptionKey, encryptionKey));
  impl_->secureData->changeAesEncryptionKey(std::move(encryptionKey));
}

void VelmorAuthorizationClient::deleteAllData() {
  logCall("-[VelmorAuthorizationClient deleteAllData]");
  impl_->secureData->deleteAll();
}

AuthorizationState VelmorAuthorizationClient::authorizationState() {
  logCall("-[VelmorAuthorizationClient authorizationState]");
  return impl_->state();
}

bool VelmorAuthorizationClient::hasUsername() {
  logCall("-[VelmorAuthorizationClient hasUsername]");
  return impl_->secureData->username().has_value();
}

std::optional<std::string> VelmorAuthorizationClient::username() {
  logCall("-[VelmorAuthorizationClient username]");
  return impl_->secureData->username();
}

std::optional<VelmorAuthorizationClient::Date>
VelmorAuthorizationClient::accessTokenValidEndDateTime() {
  logCall("-[VelmorAuthorizationClient accessTokenValidEndDateTime]");
  const CredentialRecord record = impl_->secureData->snapshot();
  return record.accessToken() ? record.accessTokenValidEndDateTime() : std::nullopt;
}

std::optional<VelmorAuthorizationClient::Date>
VelmorAuthorizationClient::refreshTokenValidEndDateTime() {
  logCall("-[VelmorAuthorizationClient refreshTokenValidEndDateTime]");
  const CredentialRecord record = impl_->secureData->snapshot();
  return record.refreshToken() ? record.refreshTokenValidEndDateTime() : std::nullopt;
}

void VelmorAuthorizationClient::setUsername(std::optional<std::string> username) {
  logCall("-[VelmorAuthorizationClient setUsername:]", username);
  impl_->applicationUsername = std::move(username);
}

// Read on every exchange, so it alone stays out of the log.
std::uint64_t VelmorAuthorizationClient::simulatedNetworkDelayInterval() const {
  return __simulatedNetworkDelayInterval.load();
}

void VelmorAuthorizationClient::setSimulatedNetworkDelayInterval(std::uint64_t seconds) {
  logCall("-[VelmorAuthorizationClient setSimulatedNetworkDelayInterval:]",
          LogArgument::unsignedInteger(seconds));
  checkSeconds(seconds, "simulatedNetworkDelayInterval");
  __simulatedNetworkDelayInterval.store(seconds);
}

std::uint64_t VelmorAuthorizationClient::accessTokenExpirationOverride() const {
  logCall("-[VelmorAuthorizationClient accessTokenExpirationOverride]");
  return __accessTokenExpirationOverride.load();
}

void VelmorAuthorizationClient::setAccessTokenExpirationOverride(std::uint64_t seconds) {
  logCall("-[VelmorAuthorizationClient setAccessTokenExpirationOverride:]",
          LogArgument::unsignedInteger(seconds));
  checkSeconds(seconds, "accessTokenExpirationOverride");
  __accessTokenExpirationOverride.store(seconds);
}

std::uint64_t VelmorAuthorizationClient::refreshTokenExpirationOverride() const {
  logCall("-[VelmorAuthorizationClient refreshTokenExpirationOverride]");
  return __refreshTokenExpirationOverride.load();
}

void VelmorAuthorizationClient::setRefreshTokenExpirationOverride(std::uint64_t seconds) {
  logCall("-[VelmorAuthorizationClient setRefreshTokenExpirationOverride:]",
          LogArgument::unsignedInteger(seconds));
  checkSeconds(seconds, "refreshTokenExpirationOverride");
  __refreshTokenExpirationOverride.store(seconds);
}

bool VelmorAuthorizationClient::alwaysSendClientContext() const {
  logCall("-[VelmorAuthorizationClient alwaysSendClientContext]");
  return __alwaysSendClientContext.load();
}

void VelmorAuthorizationClient::setAlwaysSendClientContext(bool always) {
  logCall("-[VelmorAuthorizationClient setAlwaysSendClientContext:]",
          LogArgument::yesNo(always ? 1 : 0));
  __alwaysSendClientContext.store(always);
}

void VelmorAuthorizationClient::usernameMinLength(std::uint64_t* minLength,
                                                  std::uint64_t* maxLength) {
  logCall("+[VelmorAuthorizationClient usernameMinLength:maxLength:]",
          LogArgument::pointerTo("^Q", minLength), LogArgument::pointerTo("^Q", maxLength));
  ParamValidator::checkIsNotNilPointer(minLength, "minLength");
  ParamValidator::checkIsNotNilPointer(maxLength, "maxLength");
  *minLength = kMinimumCredentialLength;
  *maxLength = kMaximumCredentialLength;
}

void VelmorAuthorizationClient::passwordMinLength(std::uint64_t* minLength,
                                                  std::uint64_t* maxLength) {
  logCall("+[VelmorAuthorizationClient passwordMinLength:maxLength:]",
          LogArgument::pointerTo("^Q", minLength), LogArgument::pointerTo("^Q", maxLength));
  ParamValidator::checkIsNotNilPointer(minLength, "minLength");
  ParamValidator::checkIsNotNilPointer(maxLength, "maxLength");
  *minLength = kMinimumCredentialLength;
  *maxLength = kMaximumCredentialLength;
}

bool VelmorAuthorizationClient::isUsernameValid(const std::optional<std::string>& username) {
  logCall("+[VelmorAuthorizationClient isUsernameValid:]", username);
  return hasValidLength(username, &VelmorAuthorizationClient::usernameMinLength);
}

bool VelmorAuthorizationClient::isPasswordValid(const std::optional<std::string>& password) {
  // A password is a secret like any other: starred below the sensitive level.
  logCall("+[VelmorAuthorizationClient isPasswordValid:]",
          LogSecret(LogSecret::Kind::kPassword, password));
  return hasValidLength(password, &VelmorAuthorizationClient::passwordMinLength);
}

std::u16string VelmorAuthorizationClient::internalUsernameExcludedCharacterSet() {
  logCall("+[VelmorAuthorizationClient internalUsernameExcludedCharacterSet]");
  return kUsernameExcludedCharacters;
}

// Called by the host often (on every wake), so it writes no line.
void VelmorAuthorizationClient::applicationDidBecomeActive() {
  impl_->refreshTokenExpirationTimer.applicationDidBecomeActive();
}

bool VelmorAuthorizationClient::activate(ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient activate:]", location(error));
  if (impl_->refusedAsBusy(error)) return false;
  auto operation = std::make_shared<ActivateClientOperation>();
  impl_->configure(*operation);
  ErrorRef outcome;
  operation->setActivateCompletionBlock([&outcome](ErrorRef e) { outcome = std::move(e); });
  impl_->runAndWait(operation, "-[VelmorAuthorizationClient activate:]");
  store(error, outcome);
  return !outcome;
}

void VelmorAuthorizationClient::activateAsync(Queue queue, ActivateCompletion completion) {
  logCall("-[VelmorAuthorizationClient activateAsync:completion:]", queue, completion);
  if (impl_->refusedAsBusy(queue, completion)) return;
  auto operation = std::make_shared<ActivateClientOperation>();
  impl_->configure(*operation);
  operation->setActivateCompletionBlock(
      [queue, completion](ErrorRef error) { deliver(queue, completion, error); });
  impl_->operationQueue->addOperation(operation);
}

std::optional<Scopes> VelmorAuthorizationClient::signIn(ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient signIn:]", location(error));
  return impl_->signInSync(std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
                           error);
}

void VelmorAuthorizationClient::signInAsync(Queue queue, SignInCompletion completion) {
  logCall("-[VelmorAuthorizationClient signInAsync:completion:]", queue, completion);
  impl_->signInAsync(std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
                     std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithUsername(
    std::optional<std::string> username, std::optional<std::string> password, ErrorRef* error) {
  const SignInLogLine line;
  line.write("%s username: '%@' password: '%@' error: '0x%p'",
             "-[VelmorAuthorizationClient signInWithUsername:password:error:]", username,
             LogSecret(LogSecret::Kind::kPassword, password), static_cast<const void*>(error));
  checkCredentials(username, password);
  return impl_->signInSync(username, std::move(password), std::nullopt, std::nullopt, std::nullopt,
                           error);
}

void VelmorAuthorizationClient::signInAsyncWithUsername(std::optional<std::string> username,
                                                        std::optional<std::string> password,
                                                        Queue queue, SignInCompletion completion) {
  const SignInLogLine line;
  line.write("%s username: '%@' password: '%@' queue: '%@' completion: '%@'",
             "-[VelmorAuthorizationClient signInAsyncWithUsername:password:queue:completion:]",
             username, LogSecret(LogSecret::Kind::kPassword, password), queue, completion);
  checkCredentials(username, password);
  impl_->signInAsync(username, std::move(password), std::nullopt, std::nullopt, std::nullopt,
                     std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithUsername(
    std::optional<std::string> username, std::optional<std::string> password,
    std::optional<Scopes> scopes, ErrorRef* error) {
  const SignInLogLine line;
  line.write("%s username: '%@' password: '%@' scopes: '%@' error: '0x%p'",
             "-[VelmorAuthorizationClient signInWithUsername:password:scopes:error:]", username,
             LogSecret(LogSecret::Kind::kPassword, password), scopes,
             static_cast<const void*>(error));
  checkCredentials(username, password);
  return impl_->signInSync(username, std::move(password), std::move(scopes), std::nullopt,
                           std::nullopt, error);
}

void VelmorAuthorizationClient::signInAsyncWithUsername(std::optional<std::string> username,
                                                        std::optional<std::string> password,
                                                        std::optional<Scopes> scopes, Queue queue,
                                                        SignInCompletion completion) {
  const SignInLogLine line;
  line.write(
      "%s username: '%@' password: '%@' scopes: '%@' queue: '%@' completion: '%@'",
      "-[VelmorAuthorizationClient signInAsyncWithUsername:password:scopes:queue:completion:]",
      username, LogSecret(LogSecret::Kind::kPassword, password), scopes, queue, completion);
  checkCredentials(username, password);
  impl_->signInAsync(username, std::move(password), std::move(scopes), std::nullopt, std::nullopt,
                     std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithUsername(
    std::optional<std::string> username, std::optional<std::string> password,
    std::optional<Scopes> scopes, std::optional<std::string> realmId,
    std::optional<std::string> namespaceId, ErrorRef* error) {
  const SignInLogLine line;
  line.write(
      "%s username: '%@' password: '%@' scopes: '%@' realmId: '%@' namespaceId: '%@' error: "
      "'0x%p'",
      "-[VelmorAuthorizationClient signInWithUsername:password:scopes:realmId:namespaceId:error:]",
      username, LogSecret(LogSecret::Kind::kPassword, password), scopes, realmId, namespaceId,
      static_cast<const void*>(error));
  checkCredentials(username, password);
  return impl_->signInSync(username, std::move(password), std::move(scopes), std::move(realmId),
                           std::move(namespaceId), error);
}

void VelmorAuthorizationClient::signInAsyncWithUsername(std::optional<std::string> username,
                                                        std::optional<std::string> password,
                                                        std::optional<Scopes> scopes,
                                                        std::optional<std::string> realmId,
                                                        std::optional<std::string> namespaceId,
                                                        Queue queue, SignInCompletion completion) {
  const SignInLogLine line;
  line.write(
      "%s username: '%@' password: '%@' scopes: '%@' realmId: '%@' namespaceId: '%@' queue: "
      "'%@' completion: '%@'",
      "-[VelmorAuthorizationClient "
      "signInAsyncWithUsername:password:scopes:realmId:namespaceId:queue:completion:]",
      username, LogSecret(LogSecret::Kind::kPassword, password), scopes, realmId, namespaceId,
      queue, completion);
  checkCredentials(username, password);
  impl_->signInAsync(username, std::move(password), std::move(scopes), std::move(realmId),
                     std::move(namespaceId), std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::refreshAccessToken(ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient refreshAccessToken:]", location(error));
  return impl_->refreshSync(std::nullopt, error,
                            "-[VelmorAuthorizationClient refreshAccessToken:]");
}

void VelmorAuthorizationClient::refreshAccessTokenAsync(Queue queue, RefreshCompletion completion) {
  logCall("-[VelmorAuthorizationClient refreshAccessTokenAsync:completion:]", queue, completion);
  impl_->refreshAsync(std::nullopt, std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::refreshAccessTokenWithScopes(
    std::optional<Scopes> scopes, ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient refreshAccessTokenWithScopes:error:]", scopes,
          location(error));
  return impl_->refreshSync(std::move(scopes), error,
                            "-[VelmorAuthorizationClient refreshAccessTokenWithScopes:error:]");
}

void VelmorAuthorizationClient::refreshAccessTokenAsyncWithScopes(std::optional<Scopes> scopes,
                                                                  Queue queue,
                                                                  RefreshCompletion completion) {
  logCall("-[VelmorAuthorizationClient refreshAccessTokenAsyncWithScopes:queue:completion:]",
          scopes, queue, completion);
  impl_->refreshAsync(std::move(scopes), std::move(queue), std::move(completion));
}

void VelmorAuthorizationClient::refreshTokenExpired() {
  logInfo("%s", "-[VelmorAuthorizationClient refreshTokenExpired:]");
  // A client that still holds a valid access token is not signed out, even
  // though its refresh token lapsed.
  if (impl_->state() != AuthorizationStateSignInRequired) return;
  if (VelmorAuthorizationClientDelegate* target = impl_->delegate.load()) {
    target->velmorAuthorizationClientDidSignOut(*this);
  }
}

AuthorizationState VelmorAuthorizationClient::checkAuthorization(std::optional<Dictionary>* headers,
                                                                 ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient checkAuthorization:error:]", location(headers),
          location(error));
  // One reading answers the call, so the state and the headers agree even
  // while another thread or process rewrites the record.
  const CredentialRecord record = impl_->secureData->snapshot();
  const AuthorizationState state = CredentialValidity::authorizationState(record);
  switch (state) {
    case AuthorizationStateRefreshRequired: {
      ErrorRef refreshError;
      impl_->refreshSync(std::nullopt, &refreshError,
                         "-[VelmorAuthorizationClient checkAuthorization:error:]", record);
      const CredentialRecord refreshed = impl_->secureData->snapshot();
      // Filled even when the refresh failed, as callers have always found it.
      if (headers != nullptr) *headers = authorizationHeaders(refreshed);
      store(error, refreshError);
      return CredentialValidity::authorizationState(refreshed);
    }
    case AuthorizationStateAuthorized:
      if (headers != nullptr) *headers = authorizationHeaders(record);
      store(error, nullptr);
      return AuthorizationStateAuthorized;
    default:
      store(error, nullptr);
      return state;
  }
}

void VelmorAuthorizationClient::checkAuthorizationAsync(Queue queue, CheckCompletion completion) {
  logCall("-[VelmorAuthorizationClient checkAuthorizationAsync:completion:]", queue, completion);
  Impl* impl = impl_.get();
  impl_->operationQueue->addOperationWithBlock(
      [impl, queue, completion] { impl->checkAuthorizationTask(queue, completion); });
}

Dictionary VelmorAuthorizationClient::webRequestAuthorizationHeaders() {
  logCall("-[VelmorAuthorizationClient webRequestAuthorizationHeaders]");
  return authorizationHeaders(impl_->secureData->snapshot());
}

bool VelmorAuthorizationClient::hasAuthorizationFailureResponse(
    const std::shared_ptr<HttpUrlResponse>& response) {
  logCall("-[VelmorAuthorizationClient hasAuthorizationFailureResponse:]", response);
  if (logger().isLoggable(VelmorAuthorizationLogger::kLevelInfo)) {
    logInfo("%@", response ? FormatArg(response->allHeaderFields()) : FormatArg(nullptr));
  }
  return ApplicationHttpTransaction::hasAuthorizationFailureResponse(response);
}

ErrorRef VelmorAuthorizationClient::handleAuthorizationFailureResponse(
    const std::shared_ptr<HttpUrlResponse>& response) {
  logCall("-[VelmorAuthorizationClient handleAuthorizationFailureResponse:]", response);
  ApplicationHttpTransaction transaction(impl_->secureData);
  return transaction.handleAuthorizationFailureResponse(response);
}

bool VelmorAuthorizationClient::signOut(ErrorRef* error) {
  logCall("-[VelmorAuthorizationClient signOut:]", location(error));
  impl_->operationQueue->cancelAllOperations();
  if (impl_->state() == AuthorizationStateSignInRequired) {
    store(error, nullptr);
    return true;
  }
  // State 1 revokes too: whatever tokens a half-registered record holds go.
  auto operation = impl_->revokeOperation();
  ErrorRef outcome;
  operation->setSignOutCompletionBlock([&outcome](ErrorRef e) { outcome = std::move(e); });
  impl_->runAndWait(operation, "-[VelmorAuthorizationClient signOut:]");
  store(error, outcome);
  return !outcome;
}

void VelmorAuthorizationClient::signOutAsync(Queue queue, SignOutCompletion completion) {
  logCall("-[VelmorAuthorizationClient signOutAsync:completion:]", queue, completion);
  impl_->operationQueue->cancelAllOperations();
  if (impl_->state() == AuthorizationStateSignInRequired) {
    deliver(queue, completion, ErrorRef());
    return;
  }
  auto operation = impl_->revokeOperation();
  operation->setSignOutCompletionBlock(
      [queue, completion](ErrorRef error) { deliver(queue, completion, error); });
  impl_->operationQueue->addOperation(operation);
}

bool VelmorAuthorizationClient::usesPkce() const {
  logCall("-[VelmorAuthorizationClient usesPkce]");
  return impl_->usesPkce.load();
}

void VelmorAuthorizationClient::setUsesPkce(bool uses) {
  logCall("-[VelmorAuthorizationClient setUsesPkce:]", LogArgument::yesNo(uses ? 1 : 0));
  impl_->usesPkce.store(uses);
}

std::optional<HttpRequest> VelmorAuthorizationClient::createWebSignInRequestWithBaseUrl(
    std::optional<Url> baseUrl, std::optional<Url> redirectUrl, std::optional<Scopes> scopes,
    std::optional<Dictionary> extraParameters, ErrorRef* error) {
  logCall(
      "-[VelmorAuthorizationClient "
      "createWebSignInRequestWithBaseUrl:redirectUrl:scopes:extraParameters:error:]",
      baseUrl, redirectUrl, scopes, extraParameters, location(error));
  ParamValidator::checkIsNotNil(baseUrl, "baseUrl");
  ParamValidator::checkIsNotNil(redirectUrl, "redirectUrl");
  if (impl_->state() == AuthorizationStateActivationRequired) {
    store(error, clientError(kClientErrorInvalidOperation));
    return std::nullopt;
  }
  auto transaction = std::make_shared<RequestSignInViaWebTransaction>(impl_->secureData);
  transaction->setUsesPkce(impl_->usesPkce.load());
  transaction->setScopes(std::move(scopes));
  transaction->setExtraParameters(std::move(extraParameters));
  std::optional<HttpRequest> request = transaction->generateRequest(*baseUrl, *redirectUrl);
  impl_->currentRequestSignInViaWebTransaction = std::move(transaction);
  return request;
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithWebAuthorizationResponse(
    std::optional<Url> responseUrl, ErrorRef* error) {
  const SignInLogLine line;
  line.write("%s responseUrl: '%@' error: '0x%p'",
             "-[VelmorAuthorizationClient signInWithWebAuthorizationResponse:error:]",
             LogSecret(LogSecret::Kind::kRedirectUrl, responseUrl),
             static_cast<const void*>(error));
  ParamValidator::checkIsNotNil(responseUrl, "responseUrl");
  const std::shared_ptr<RequestSignInViaWebTransaction> transaction =
      impl_->currentRequestSignInViaWebTransaction;
  if (!transaction) {
    store(error, clientError(kClientErrorNoWebSignInRequest));
    return std::nullopt;
  }
  std::optional<std::string> code;
  std::optional<Url> redirectUrl;
  std::optional<std::string> username;
  ErrorRef failure = transaction->handleResponse(*responseUrl, &code, &redirectUrl, &username);
  // The location is mandatory here; a null one is tolerated, not written.
  store(error, failure);
  if (failure) return std::nullopt;
  std::optional<std::string> codeVerifier = transaction->codeVerifier();
  impl_->currentRequestSignInViaWebTransaction.reset();
  return impl_->codeSignInSync(std::move(code), std::move(redirectUrl), std::move(username),
                               std::move(codeVerifier), error);
}

void VelmorAuthorizationClient::signInAsyncWithWebAuthorizationResponse(
    std::optional<Url> responseUrl, Queue queue, SignInCompletion completion) {
  const SignInLogLine line;
  line.write(
      "%s responseUrl: '%@' queue: '%@'",
      "-[VelmorAuthorizationClient signInAsyncWithWebAuthorizationResponse:queue:completion:]",
      LogSecret(LogSecret::Kind::kRedirectUrl, responseUrl), queue);
  ParamValidator::checkIsNotNil(responseUrl, "responseUrl");
  ParamValidator::checkIsNotNil(queue, "queue");
  // Kept as current even on success, unlike the synchronous form: only the
  // next request replaces it.
  const std::shared_ptr<RequestSignInViaWebTransaction> transaction =
      impl_->currentRequestSignInViaWebTransaction;
  ErrorRef failure;
  std::optional<std::string> code;
  std::optional<Url> redirectUrl;
  std::optional<std::string> username;
  if (!transaction) {
    failure = clientError(kClientErrorNoWebSignInRequest);
  } else {
    failure = transaction->handleResponse(*responseUrl, &code, &redirectUrl, &username);
  }
  if (failure) {
    deliver(queue, completion, std::optional<std::string>(), std::optional<Scopes>(), failure);
    return;
  }
  impl_->codeSignInAsync(std::move(code), std::move(redirectUrl), std::move(username),
                         transaction->codeVerifier(), std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithAuthorizationCode(
    std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl, ErrorRef* error) {
  const SignInLogLine line;
  line.write("%s authorizationCode: '%@' redirectUrl: '%@' error: '0x%p'",
             "-[VelmorAuthorizationClient signInWithAuthorizationCode:redirectUrl:error:]",
             LogSecret(LogSecret::Kind::kAuthorizationCode, authorizationCode), redirectUrl,
             static_cast<const void*>(error));
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(authorizationCode, "authorizationCode");
  ParamValidator::checkIsNotNil(redirectUrl, "redirectUrl");
  return impl_->codeSignInSync(std::move(authorizationCode), std::move(redirectUrl), std::nullopt,
                               std::nullopt, error);
}

void VelmorAuthorizationClient::signInAsyncWithAuthorizationCode(
    std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl, Queue queue,
    SignInCompletion completion) {
  const SignInLogLine line;
  line.write(
      "%s authorizationCode: '%@' redirectUrl: '%@' queue: '%@'",
      "-[VelmorAuthorizationClient signInAsyncWithAuthorizationCode:redirectUrl:queue:completion:]",
      LogSecret(LogSecret::Kind::kAuthorizationCode, authorizationCode), redirectUrl, queue);
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(authorizationCode, "authorizationCode");
  ParamValidator::checkIsNotNil(redirectUrl, "redirectUrl");
  ParamValidator::checkIsNotNil(queue, "queue");
  impl_->codeSignInAsync(std::move(authorizationCode), std::move(redirectUrl), std::nullopt,
                         std::nullopt, std::move(queue), std::move(completion));
}

std::optional<Scopes> VelmorAuthorizationClient::signInWithAuthorizationCode(
    std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl,
    std::optional<std::string> codeVerifier, ErrorRef* error) {
  const SignInLogLine line;
  line.write(
      "%s authorizationCode: '%@' redirectUrl: '%@' codeVerifier: '%@' error: '0x%p'",
      "-[VelmorAuthorizationClient signInWithAuthorizationCode:redirectUrl:codeVerifier:error:]",
      LogSecret(LogSecret::Kind::kAuthorizationCode, authorizationCode), redirectUrl,
      LogSecret(LogSecret::Kind::kCodeVerifier, codeVerifier), static_cast<const void*>(error));
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(authorizationCode, "authorizationCode");
  ParamValidator::checkIsNotNil(redirectUrl, "redirectUrl");
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(codeVerifier, "codeVerifier");
  return impl_->codeSignInSync(std::move(authorizationCode), std::move(redirectUrl), std::nullopt,
                               std::move(codeVerifier), error);
}

void VelmorAuthorizationClient::signInAsyncWithAuthorizationCode(
    std::optional<std::string> authorizationCode, std::optional<Url> redirectUrl,
    std::optional<std::string> codeVerifier, Queue queue, SignInCompletion completion) {
  const SignInLogLine line;
  line.write("%s authorizationCode: '%@' redirectUrl: '%@' codeVerifier: '%@' queue: '%@'",
             "-[VelmorAuthorizationClient "
             "signInAsyncWithAuthorizationCode:redirectUrl:codeVerifier:queue:completion:]",
             LogSecret(LogSecret::Kind::kAuthorizationCode, authorizationCode), redirectUrl,
             LogSecret(LogSecret::Kind::kCodeVerifier, codeVerifier), queue);
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(authorizationCode, "authorizationCode");
  ParamValidator::checkIsNotNil(redirectUrl, "redirectUrl");
  ParamValidator::checkIsNotNilOrWhitespaceOnlyString(codeVerifier, "codeVerifier");
  ParamValidator::checkIsNotNil(queue, "queue");
  impl_->codeSignInAsync(std::move(authorizationCode), std::move(redirectUrl), std::nullopt,
                         std::move(codeVerifier), std::move(queue), std::move(completion));
}

}  // namespace velmor
