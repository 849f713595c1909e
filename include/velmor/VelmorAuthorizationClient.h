// The object an application talks to: registration, sign-in, tokens, request
// headers and sign-out for one authorization server.
#ifndef VELMOR_VELMOR_AUTHORIZATION_CLIENT_H_
#define VELMOR_VELMOR_AUTHORIZATION_CLIENT_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velmor/Data.h"
#include "velmor/Error.h"
#include "velmor/Export.h"
#include "velmor/HttpClient.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/OperationQueue.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// Process-wide settings for tests and demonstrations, shared by every client
// in the process and all zero at start. They may be read and written from
// any thread; each access is atomic. The client's accessors of the same
// names read and write these.
//
// Seconds every exchange waits before it is sent, to imitate a slow network.
extern VELMOR_EXPORT std::atomic<std::uint64_t> __simulatedNetworkDelayInterval;
// When non-zero, the lifetime in seconds of every new access token, whatever
// the server granted.
extern VELMOR_EXPORT std::atomic<std::uint64_t> __accessTokenExpirationOverride;
// The same for every new refresh token.
extern VELMOR_EXPORT std::atomic<std::uint64_t> __refreshTokenExpirationOverride;
// When set, every refresh first sends the client context, changed or not.
extern VELMOR_EXPORT std::atomic<bool> __alwaysSendClientContext;

// Where a client stands; computed afresh from the stored record and the
// clock on every call, never stored.
enum AuthorizationState : std::int64_t {
  // No client id and secret: call activate first.
  AuthorizationStateActivationRequired = 1,
  // Registered, but no valid token: sign in.
  AuthorizationStateSignInRequired = 2,
  // A valid access token is held.
  AuthorizationStateAuthorized = 3,
  // Only the refresh token is valid: refresh (checkAuthorization does).
  AuthorizationStateRefreshRequired = 4,
};

class VelmorAuthorizationClient;

// Told when the user's sign-in has lapsed. Called on the library's timer
// thread, or on the thread that calls applicationDidBecomeActive() when that
// fires an overdue timer (see VelmorAuthorizationClient); the default does
// nothing.
class VELMOR_EXPORT VelmorAuthorizationClientDelegate {
 public:
  virtual ~VelmorAuthorizationClientDelegate() = default;
  virtual void velmorAuthorizationClientDidSignOut(VelmorAuthorizationClient& client);
};

// One client serves one authorization server base URL, one application token,
// one encryption key and one identity slot. Everything that must survive a
// restart (client id and secret, user name, tokens and their validity) lives
// in one record encrypted with the application's key in the user's secret
// store (SecretStore::defaultStore()); a new client object with the same
// server host, token, key and slot finds it again.
//
// Every exchange with the server runs on the client's private serial queue.
// The synchronous forms add their exchange and block the calling thread until
// the queue has drained. Called from a task running on that queue (a
// completion delivered by a queue whose post function runs tasks at once),
// a synchronous form that would wait throws InternalInconsistencyException
// saying so, instead of waiting for ever. The asynchronous forms return at
// once and later run the completion as a task on the queue the caller names —
// only when both a queue and a completion are given; otherwise the result is
// dropped (the stored record is still updated).
//
// One identity (one server host, application token and slot, under one key)
// may be used by any number of clients, threads and processes at once:
// - Every change of the stored record holds the identity's lock
//   (SecretStore::lockItem: a lock file in the user's runtime directory, or
//   beside the file store's items; among threads only for the memory store)
//   from its read to its write, so no write of another is lost. Key changes,
//   deleteAllData, sign-out and the handling of refusals go through it too.
// - One refresh at a time per identity: a refresh (explicit, or started by a
//   check) takes the lock before it reads the refresh token and keeps it
//   until the answer is stored. Holding it, it reads the record again: when
//   another client, thread or process stored a new refresh token since the
//   refresh began (for a check: since the reading that called for it) and
//   the access token is valid, the refresh succeeds with those tokens
//   without sending anything, and reports an empty scope list. A refresh
//   that names scopes always sends; one client refreshing twice in a row
//   sends twice. So a server that rotates refresh tokens never sees a spent
//   one from this library, and no race signs the user out.
// - An "invalid_grant" answer to a refresh throws the tokens away only while
//   the record still holds the refresh token that was sent; when newer
//   tokens were stored meanwhile, the refresh takes them and succeeds.
// - Waits for the lock are bounded (75 seconds by default, longer than one
//   exchange may take). A refresh that cannot have the lock in time fails
//   with the keychain error 100060 ("Operation timed out.") in "lockItem"
//   and sends nothing; a record write that cannot have it is not made and
//   is logged at the error level, except that deleteAllData and sign-out
//   still forget what they forget.
// - authorizationState(), hasUsername(), username(), the validity dates and
//   checkAuthorization answer from one reading of the record, so what one
//   call reports always belongs together.
//
// An exception that escapes an exchange on the private queue (from a logger
// delegate, say) ends that exchange with client error 0 ("Unknown error",
// the exception described under "Exception") handed to its completion, so
// no caller waits for an answer that never comes.
//
// Activation, password sign-in and code exchange refuse to start while the
// private queue holds any exchange: client error 1 ("Invalid operation"),
// and nothing is sent. Refresh and the checks wait their turn instead.
// Sign-out cancels everything queued; cancelled exchanges never report, so a
// synchronous call waiting behind them returns an empty result with no error.
// A completion can arrive while its exchange still counts as queued (the
// exchange ends just after handing its result over), so an activation or
// sign-in started from that completion may be refused as busy.
//
// After every sign-in, code exchange and refresh the client arms a one-shot
// timer for the moment its refresh token stops being valid. The timer fires
// on the library's single timer thread; there, if no valid token is left,
// the delegate is told the user is signed out. Call
// applicationDidBecomeActive() when the application wakes (for example after
// the machine slept) so that a moment that passed meanwhile is acted on at
// once.
//
// Failures of exchanges and storage are returned as errors (the location or
// the completion's argument), never thrown: "NSURLErrorDomain" errors for
// transport failures, VelmorAuthorizationError for everything else.
// Programming errors (a missing required argument, a blank user name, a scope
// with whitespace) throw InvalidArgumentException or RangeException on the
// calling thread before anything is queued.
//
// Every public member writes one line through the shared logger, except
// simulatedNetworkDelayInterval() and applicationDidBecomeActive().
// The encryption key, passwords, authorization codes and the redirect URLs
// received appear in clear only when level 5 (sensitive) is loggable, and
// are starred ("***", "**...**") otherwise. The key is starred on purpose,
// although it is a mere argument of construction and changeEncryptionKey():
// with a diagnostic log and the stored record, anyone could read the client
// secret and the tokens. Arguments are turned into text only for a line
// that is written, so with logging off no copy of the key is made. The
// application token is logged at level 3 like any argument. In these lines a
// queue shows as "<OperationQueue: 0x…>", a completion as
// "<__NSMallocBlock__>", anything absent as "(null)", and a null error
// location as "0x0" (or "0x0x0" in the sign-in lines' "0x%p").
//
// The destructor first stops the timer — a timer action running on another
// thread is waited for, and none starts afterwards — then waits for the
// exchanges already queued (what a running timer action queued included),
// which no longer re-arm it. Completions already handed to the caller's
// queue may still run; they never touch the client. Do not destroy a client
// from a task running on its own queue.
class VELMOR_EXPORT VelmorAuthorizationClient final {
 public:
  using Scopes = std::vector<std::string>;
  using Date = std::chrono::system_clock::time_point;
  using Queue = std::shared_ptr<OperationQueue>;
  using ActivateCompletion = std::function<void(ErrorRef error)>;
  using SignInCompletion = std::function<void(std::optional<std::string> username,
                                              std::optional<Scopes> scopes, ErrorRef error)>;
  using RefreshCompletion = std::function<void(std::optional<Scopes> scopes, ErrorRef error)>;
  using CheckCompletion = std::function<void(AuthorizationState state,
                                             std::optional<Dictionary> headers, ErrorRef error)>;
  using SignOutCompletion = std::function<void(ErrorRef error)>;

  // Slot 0. Throws InvalidArgumentException for a missing URL or token and
  // RangeException for a blank token. A URL whose scheme is not https is
  // reported to the error handler (client error 2) and accepted.
  VelmorAuthorizationClient(std::optional<Url> authorizationServerBaseUrl,
                            std::optional<std::string> appToken, std::optional<Data> encryptionKey);
  // Slots keep several identities apart for the same server and token; a
  // slot of 2^63 or more throws RangeException.
  VelmorAuthorizationClient(std::optional<Url> authorizationServerBaseUrl,
                            std::optional<std::string> appToken, std::optional<Data> encryptionKey,
                            std::uint64_t authorizedIdentitySlot);
  ~VelmorAuthorizationClient();

  VelmorAuthorizationClient(const VelmorAuthorizationClient&) = delete;
  VelmorAuthorizationClient& operator=(const VelmorAuthorizationClient&) = delete;

  // A fresh key for a new installation. The application keeps it (the
  // library does not) and passes it to every later construction.
  static Data generateEncryptionKey();

  // Not owned; must outlive the client or be reset to nullptr first.
  VelmorAuthorizationClientDelegate* delegate() const;
  void setDelegate(VelmorAuthorizationClientDelegate* delegate);

  // Re-encrypts the stored record under `encryptionKey`.
  void changeEncryptionKey(std::optional<Data> encryptionKey);
  // Deletes the stored record: the client must activate again.
  void deleteAllData();

  AuthorizationState authorizationState();
  // The stored user name of the last sign-in.
  bool hasUsername();
  std::optional<std::string> username();
  // When the stored access and refresh tokens stop being valid, to the
  // second; nothing when no such token is stored. The tokens themselves stay
  // inside the library.
  std::optional<Date> accessTokenValidEndDateTime();
  std::optional<Date> refreshTokenValidEndDateTime();
  // A field for the application's own use; the client never reads it.
  void setUsername(std::optional<std::string> username);

  // The process-wide settings above. The three setters throw RangeException
  // for values of 2^63 or more.
  std::uint64_t simulatedNetworkDelayInterval() const;
  void setSimulatedNetworkDelayInterval(std::uint64_t seconds);
  std::uint64_t accessTokenExpirationOverride() const;
  void setAccessTokenExpirationOverride(std::uint64_t seconds);
  std::uint64_t refreshTokenExpirationOverride() const;
  void setRefreshTokenExpirationOverride(std::uint64_t seconds);
  bool alwaysSendClientContext() const;
  void setAlwaysSendClientContext(bool always);

  // Length bounds (1 and 256, in UTF-16 units after trimming whitespace);
  // the output locations must not be null.
  static void usernameMinLength(std::uint64_t* minLength, std::uint64_t* maxLength);
  static void passwordMinLength(std::uint64_t* minLength, std::uint64_t* maxLength);
  static bool isUsernameValid(const std::optional<std::string>& username);
  static bool isPasswordValid(const std::optional<std::string>& password);
  // Characters an application may want to refuse in user names; the library
  // itself does not.
  static std::u16string internalUsernameExcludedCharacterSet();

  // Fires the expiry timer at once when its moment has passed.
  void applicationDidBecomeActive();

  // Registers this installation with the server.
  bool activate(ErrorRef* error);
  void activateAsync(Queue queue, ActivateCompletion completion);

  // Signs in with the client's own credentials; the stored user name is
  // cleared on success. Returns the granted scopes (absent on failure).
  std::optional<Scopes> signIn(ErrorRef* error);
  void signInAsync(Queue queue, SignInCompletion completion);
  // Signs a user in. The user name is trimmed and must not be blank; the
  // password must be given (it may be empty). Scopes must not contain
  // whitespace.
  std::optional<Scopes> signInWithUsername(std::optional<std::string> username,
                                           std::optional<std::string> password, ErrorRef* error);
  void signInAsyncWithUsername(std::optional<std::string> username,
                               std::optional<std::string> password, Queue queue,
                               SignInCompletion completion);
  std::optional<Scopes> signInWithUsername(std::optional<std::string> username,
                                           std::optional<std::string> password,
                                           std::optional<Scopes> scopes, ErrorRef* error);
  void signInAsyncWithUsername(std::optional<std::string> username,
                               std::optional<std::string> password, std::optional<Scopes> scopes,
                               Queue queue, SignInCompletion completion);
  std::optional<Scopes> signInWithUsername(std::optional<std::string> username,
                                           std::optional<std::string> password,
                                           std::optional<Scopes> scopes,
                                           std::optional<std::string> realmId,
                                           std::optional<std::string> namespaceId, ErrorRef* error);
  void signInAsyncWithUsername(std::optional<std::string> username,
                               std::optional<std::string> password, std::optional<Scopes> scopes,
                               std::optional<std::string> realmId,
                               std::optional<std::string> namespaceId, Queue queue,
                               SignInCompletion completion);

  // Exchanges the refresh token for a new access token; waits behind queued
  // work instead of refusing. Without scopes, takes the tokens another
  // client, thread or process stored meanwhile instead of sending, and then
  // returns an empty scope list (see the class comment).
  std::optional<Scopes> refreshAccessToken(ErrorRef* error);
  void refreshAccessTokenAsync(Queue queue, RefreshCompletion completion);
  std::optional<Scopes> refreshAccessTokenWithScopes(std::optional<Scopes> scopes, ErrorRef* error);
  void refreshAccessTokenAsyncWithScopes(std::optional<Scopes> scopes, Queue queue,
                                         RefreshCompletion completion);
  // The expiry timer's action: tells the delegate when the state is
  // AuthorizationStateSignInRequired.
  void refreshTokenExpired();

  // The state, refreshing first when only the refresh token is valid. The
  // headers are filled in states 3 and 4 (even when the refresh failed) and
  // left alone otherwise.
  AuthorizationState checkAuthorization(std::optional<Dictionary>* headers, ErrorRef* error);
  void checkAuthorizationAsync(Queue queue, CheckCompletion completion);
  // {"Authorization": "Bearer <access token>"}, built from the record as it
  // stands ("Bearer (null)" without a token).
  Dictionary webRequestAuthorizationHeaders();
  // Whether a resource server's answer refused the token, and what it means.
  bool hasAuthorizationFailureResponse(const std::shared_ptr<HttpUrlResponse>& response);
  ErrorRef handleAuthorizationFailureResponse(const std::shared_ptr<HttpUrlResponse>& response);

  // Cancels queued work, forgets the tokens and revokes them at the server.
  // The tokens are gone even when the server cannot be reached.
  bool signOut(ErrorRef* error);
  void signOutAsync(Queue queue, SignOutCompletion completion);

  // Whether web sign-in uses a proof key (PKCE, RFC 7636, method S256).
  // When on, every sign-in request ends with "code_challenge" and
  // "code_challenge_method=S256" for a fresh random code verifier, and the
  // code exchange of its redirect ends with "code_verifier", so that a code
  // caught on its way back to the application is worthless to whoever
  // caught it. The verifier lives only with the current web sign-in, in
  // memory; log lines show it only when level 5 (sensitive) is loggable.
  // Off by default, and then every request is as it has always been. Read
  // when a sign-in request is built; any thread.
  bool usesPkce() const;
  void setUsesPkce(bool uses);

  // The request for the server's sign-in page, for the application's browser
  // view; nothing, with client error 1, before activation. Replaces any
  // earlier web sign-in in progress. LoopbackRedirectListener catches the
  // redirect for applications without a browser view of their own.
  std::optional<HttpRequest> createWebSignInRequestWithBaseUrl(
      std::optional<Url> baseUrl, std::optional<Url> redirectUrl, std::optional<Scopes> scopes,
      std::optional<Dictionary> extraParameters, ErrorRef* error);
  // Completes a web sign-in from the URL the browser was redirected to.
  // Client error 4 when no request was built. `error` must not be null: it
  // is how a failed redirect is told apart from one cancelled by sign-out.
  // A null `error` is tolerated (nothing is written, nothing crashes), but
  // the failure is then lost.
  std::optional<Scopes> signInWithWebAuthorizationResponse(std::optional<Url> responseUrl,
                                                           ErrorRef* error);
  // `queue` must be given.
  void signInAsyncWithWebAuthorizationResponse(std::optional<Url> responseUrl, Queue queue,
                                               SignInCompletion completion);
  // Exchanges an authorization code obtained by other means; the stored user
  // name is cleared on success.
  std::optional<Scopes> signInWithAuthorizationCode(std::optional<std::string> authorizationCode,
                                                    std::optional<Url> redirectUrl,
                                                    ErrorRef* error);
  void signInAsyncWithAuthorizationCode(std::optional<std::string> authorizationCode,
                                        std::optional<Url> redirectUrl, Queue queue,
                                        SignInCompletion completion);
  // The same for a code whose sign-in request carried a proof-key challenge
  // made elsewhere: the exchange presents `codeVerifier`, which must not be
  // blank. Shown in log lines like the code.
  std::optional<Scopes> signInWithAuthorizationCode(std::optional<std::string> authorizationCode,
                                                    std::optional<Url> redirectUrl,
                                                    std::optional<std::string> codeVerifier,
                                                    ErrorRef* error);
  void signInAsyncWithAuthorizationCode(std::optional<std::string> authorizationCode,
                                        std::optional<Url> redirectUrl,
                                        std::optional<std::string> codeVerifier, Queue queue,
                                        SignInCompletion completion);

 private:
  struct VELMOR_NO_EXPORT Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmor

#endif  // VELMOR_VELMOR_AUTHORIZATION_CLIENT_H_
