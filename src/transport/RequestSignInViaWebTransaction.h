// Builds the request for the authorization server's sign-in page and reads
// the redirect the browser is sent back with (the authorization-code flow).
#ifndef VELMOR_TRANSPORT_REQUEST_SIGN_IN_VIA_WEB_TRANSACTION_H_
#define VELMOR_TRANSPORT_REQUEST_SIGN_IN_VIA_WEB_TRANSACTION_H_

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "storage/SecureData.h"
#include "velmor/Error.h"
#include "velmor/HttpClient.h"
#include "velmor/Url.h"
#include "velmor/Value.h"

namespace velmor {

// Sends nothing itself: the application loads the request in its browser
// view and hands back the URL it was redirected to. The same object must
// build the request and read its redirect, because the redirect has to echo
// the state value generated here.
//
// The sign-in URL is the base URL with its query replaced by the base's own
// query (when non-empty) followed by "response_type=code&client_id=<id>&
// redirect_uri=<redirect URL>", "&scope=<scopes>" when scopes are set,
// "&state=<state>" and "&<key>=<value>" for each extra parameter in key
// order; every value but the state is escaped with HttpUtility. Without a
// client id the parameter reads "client_id=(null)". With the proof key on,
// "&code_challenge=<challenge>&code_challenge_method=S256" ends the query.
//
// Holds the credential record shared with the client; reads its client id
// and deletes the whole record when the redirect says the server does not
// know the client. Failures are returned, never thrown (the random source
// aside, which throws GenericException). One thread at a time.
class RequestSignInViaWebTransaction final {
 public:
  using Scopes = std::vector<std::string>;

  explicit RequestSignInViaWebTransaction(std::shared_ptr<SecureData> secureData);

  const std::shared_ptr<SecureData>& secureData() const { return secureData_; }
  // The scopes to ask for; when set, an empty list still sends "scope=".
  const std::optional<Scopes>& scopes() const { return scopes_; }
  void setScopes(std::optional<Scopes> scopes) { scopes_ = std::move(scopes); }
  // Further query parameters for the sign-in page. Texts go as they are;
  // other values as their description.
  const std::optional<Dictionary>& extraParameters() const { return extraParameters_; }
  void setExtraParameters(std::optional<Dictionary> parameters) {
    extraParameters_ = std::move(parameters);
  }
  // Whether requests carry a proof-key challenge (RFC 7636, S256); off
  // unless set.
  bool usesPkce() const { return usesPkce_; }
  void setUsesPkce(bool uses) { usesPkce_ = uses; }
  // The code verifier behind the last request's challenge, for the code
  // exchange that completes it; absent when the request carried none. A
  // secret: it lives here only and is never stored.
  const std::optional<std::string>& codeVerifier() const { return codeVerifier_; }
  // The state of the last request built: 32 lower-case hex digits (a fresh
  // version-4 UUID without its hyphens). Absent before the first request.
  const std::optional<std::string>& lastGeneratedState() const { return lastGeneratedState_; }
  void setLastGeneratedState(std::optional<std::string> state) {
    lastGeneratedState_ = std::move(state);
  }

  // A GET of the sign-in URL with "Cache-Control: no-cache, no-store" and a
  // fresh "velmor_tid" (a lower-case hyphenated UUID); the loader's own
  // rules (no cache, its timeout) apply, and the browser view adds its own
  // headers. Nothing when the URL cannot be resolved against `baseUrl`
  // (an opaque base such as "urn:x"); a new state (and verifier) is stored
  // either way.
  std::optional<HttpRequest> generateRequest(const Url& baseUrl, const Url& redirectUrl);

  // Reads the redirect's query. On success returns nullptr and sets the
  // code, the redirect URL without its query and the "x_username" value.
  // Out-parameters may be nullptr; those not reached stay untouched.
  // - "error" present: a server-domain error from the redirect's "error",
  //   "error_description", "error_uri" and "state"; "invalid_client" and
  //   "unauthorized_client" also delete the whole credential record. No
  //   out-parameter is set.
  // - otherwise the redirect URL is set, then the code (possibly absent);
  //   an absent or empty "code", "state" or "x_username" gives client-domain
  //   code 3 with {"Missing response value": <name>}, checked in that order;
  //   a state other than the last generated one (ignoring case) gives
  //   client-domain code 1 without user information. Before any request
  //   was built, any state passes.
  ErrorRef handleResponse(const Url& responseUrl, std::optional<std::string>* authorizationCode,
                          std::optional<Url>* redirectUrl, std::optional<std::string>* username);

 private:
  std::string signInQuery(const Url& baseUrl, const Url& redirectUrl,
                          const std::string& state) const;

  std::shared_ptr<SecureData> secureData_;
  std::optional<Scopes> scopes_;
  std::optional<Dictionary> extraParameters_;
  std::optional<std::string> lastGeneratedState_;
  bool usesPkce_ = false;
  std::optional<std::string> codeVerifier_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_REQUEST_SIGN_IN_VIA_WEB_TRANSACTION_H_
