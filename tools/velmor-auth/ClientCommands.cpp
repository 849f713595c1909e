#include "ClientCommands.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ClientSession.h"
#include "OptionNames.h"
#include "ResourceCall.h"
#include "SecretStoreReport.h"
#include "TerminalInput.h"
#include "ToolError.h"
#include "WebSignInFlow.h"
#include "velmor/BrowserLauncher.h"

namespace velmor::tool {

namespace {

using Scopes = VelmorAuthorizationClient::Scopes;

std::optional<Scopes> scopesOf(const Invocation& invocation) {
  std::vector<std::string> scopes = invocation.values(option::kScope);
  if (scopes.empty()) return std::nullopt;
  return scopes;
}

// The library refuses blank user names and codes by throwing; the tool says
// which option was blank first.
bool isBlank(const std::string& text) {
  return text.find_first_not_of(" \t\r\n\v\f") == std::string::npos;
}

std::string joined(const Scopes& scopes) {
  std::string text;
  for (const std::string& scope : scopes) text += (text.empty() ? "" : " ") + scope;
  return text;
}

// The session for a command that reads or writes the credential record; none,
// after saying why, when the secret store cannot be used now (a locked
// keyring would otherwise read as "activation required" and swallow every
// write).
std::unique_ptr<ClientSession> openWithStore(CommandContext& context, int* status) {
  std::unique_ptr<ClientSession> session =
      ClientSession::open(context.invocation, context.out, status);
  if (session) *status = SecretStoreReport::requireUsable(context.out);
  return *status == kExitSuccess ? std::move(session) : nullptr;
}

bool holdsTokens(ClientSession& session) {
  const AuthorizationState state = session.client().authorizationState();
  return state == AuthorizationStateAuthorized || state == AuthorizationStateRefreshRequired;
}

// What every sign-in form reports: who, what was granted, where it stands.
int reportSignIn(ClientSession& session, OutputPrinter& out, const std::optional<Scopes>& scopes,
                 const ErrorRef& error) {
  if (error) {
    session.reportState(out);
    return out.fail(error);
  }
  const int kept = SecretStoreReport::requireKept(
      out, session.client().accessTokenValidEndDateTime().has_value(), "The tokens");
  if (kept != kExitSuccess) {
    session.reportState(out);
    return kept;
  }
  const std::optional<std::string> username = session.client().username();
  out.set("username", username ? nlohmann::json(*username) : nlohmann::json(nullptr));
  out.set("scopes", scopes.value_or(Scopes()));
  out.line(username ? "Signed in as " + *username + "." : "Signed in without a user name.");
  out.line("Scopes: " + joined(scopes.value_or(Scopes())));
  session.reportState(out);
  session.reportValidity(out);
  return kExitSuccess;
}

int notAuthorized(ClientSession& session, OutputPrinter& out) {
  const AuthorizationState state = session.client().authorizationState();
  return out.fail(
      toolError(kToolErrorNotAuthorized, "Not signed in: the state is " +
                                             std::to_string(static_cast<std::int64_t>(state)) +
                                             " (" + ClientSession::stateName(state) + ")"));
}

std::optional<std::string> readPassword(CommandContext& context, const std::string& username) {
  if (context.invocation.has(option::kPasswordStdin)) return TerminalInput::readLine(context.in);
  return TerminalInput::readHidden("Password for " + username + ": ");
}

// Opens the sign-in page in the browser, or prints its URL, and says what
// happens next.
void showSignInPage(const WebSignInFlow::Page& page, bool noBrowser, bool paste,
                    const std::function<void(const std::string&)>& notice) {
  if (noBrowser) {
    notice(page.signInUrl);
  } else if (ErrorRef error; !BrowserLauncher::openUrl(*Url::withString(page.signInUrl), &error)) {
    notice("Could not start a browser (" + OutputPrinter::describe(*error).value_or("") +
           "); open this URL:");
    notice(page.signInUrl);
  } else {
    notice(paste ? "Continue in the browser; waiting for it to come back."
                 : "Continue in the browser; waiting for it to come back (a browser on "
                   "another machine cannot: use --paste).");
  }
  if (paste) {
    notice(
        "If the browser runs on another machine, sign in there, then paste here the whole "
        "address it ends up at (its page will not load); it starts with " +
        page.redirectUrl + "?");
  }
}

}  // namespace

int runActivate(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  ErrorRef error;
  if (!session->client().activate(&error)) {
    session->reportState(context.out);
    return context.out.fail(error);
  }
  const int kept = SecretStoreReport::requireKept(
      context.out, session->client().authorizationState() != AuthorizationStateActivationRequired,
      "The registration");
  if (kept != kExitSuccess) {
    session->reportState(context.out);
    return kept;
  }
  context.out.line("Activated: this installation is registered with " +
                   session->serverUrl().absoluteString());
  session->reportState(context.out);
  return kExitSuccess;
}

int runSignIn(CommandContext& context) {
  const Invocation& invocation = context.invocation;
  OutputPrinter& out = context.out;
  const std::optional<std::string> username = invocation.value(option::kUsername);
  if (!username) {
    for (const char* name :
         {option::kPasswordStdin, option::kScope, option::kRealm, option::kNamespace}) {
      if (invocation.has(name))
        return out.usage(std::string(name) + " needs --username", "sign-in");
    }
  } else if (isBlank(*username)) {
    return out.usage("--username must not be blank", "sign-in");
  }
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  ErrorRef error;
  std::optional<Scopes> granted;
  if (!username) {
    granted = session->client().signIn(&error);
  } else {
    const std::optional<std::string> password = readPassword(context, *username);
    if (!password) {
      return out.usage(invocation.has(option::kPasswordStdin)
                           ? "no password on standard input"
                           : "no terminal to ask for the password; use --password-stdin",
                       "sign-in");
    }
    granted = session->client().signInWithUsername(*username, *password, scopesOf(invocation),
                                                   invocation.value(option::kRealm),
                                                   invocation.value(option::kNamespace), &error);
  }
  return reportSignIn(*session, out, granted, error);
}

int runRefresh(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  ErrorRef error;
  const std::optional<Scopes> granted =
      session->client().refreshAccessTokenWithScopes(scopesOf(context.invocation), &error);
  if (error) {
    session->reportState(context.out);
    return context.out.fail(error);
  }
  context.out.set("scopes", granted.value_or(Scopes()));
  context.out.line("Refreshed. Scopes: " + joined(granted.value_or(Scopes())));
  session->reportState(context.out);
  session->reportValidity(context.out);
  return kExitSuccess;
}

int runStatus(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session =
      ClientSession::open(context.invocation, context.out, &status);
  if (!session) return status;
  session->reportState(context.out);
  const std::optional<std::string> username = session->client().username();
  context.out.set("username", username ? nlohmann::json(*username) : nlohmann::json(nullptr));
  context.out.line("User: " + username.value_or("none"));
  session->reportValidity(context.out);
  // Reads only: a store that cannot be used is shown, not refused.
  SecretStoreReport::describe(context.out);
  return kExitSuccess;
}

int runHeaders(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  std::optional<Dictionary> headers;
  ErrorRef error;
  session->client().checkAuthorization(&headers, &error);
  session->reportState(context.out, false);
  if (error) return context.out.fail(error);
  if (!headers) return notAuthorized(*session, context.out);
  nlohmann::json fields = nlohmann::json::object();
  for (const auto& [name, value] : *headers) {
    const std::string text = value.stringValue() ? *value.stringValue() : value.description();
    fields[name] = text;
    context.out.line(name + ": " + text);
  }
  context.out.set("headers", fields);
  return kExitSuccess;
}

int runCall(CommandContext& context) {
  const std::string& target = context.invocation.arguments().front();
  const std::optional<Url> url = Url::withString(target);
  if (!url) return context.out.usage("'" + target + "' is not an absolute URL", "call");
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  std::optional<Dictionary> headers;
  ErrorRef error;
  session->client().checkAuthorization(&headers, &error);
  if (error) return context.out.fail(error);
  if (!headers) return notAuthorized(*session, context.out);

  const ResourceCall::Result result = ResourceCall::get(session->client(), *url, *headers);
  if (result.response) {
    context.out.set("httpStatus", result.response->statusCode());
    context.out.set("body", result.body);
  }
  // After the call: a refused token is forgotten, which changes the state.
  session->reportState(context.out, false);
  if (result.error) return context.out.fail(result.error);
  const std::string& body = result.body;
  context.out.line(!body.empty() && body.back() == '\n' ? body.substr(0, body.size() - 1) : body);
  return kExitSuccess;
}

int runSignOut(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  ErrorRef error;
  const bool revoked = session->client().signOut(&error);
  // The tokens are gone here even when the server could not be told, unless
  // the store refused to remove them.
  const int removed =
      SecretStoreReport::requireKept(context.out, !holdsTokens(*session), "The sign-out");
  if (revoked && removed == kExitSuccess) context.out.line("Signed out.");
  session->reportState(context.out);
  if (removed != kExitSuccess) return removed;
  return revoked ? kExitSuccess : context.out.fail(error);
}

int runDelete(CommandContext& context) {
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  session->client().deleteAllData();
  const int deleted = SecretStoreReport::requireKept(
      context.out, session->client().authorizationState() == AuthorizationStateActivationRequired,
      "The deletion");
  if (deleted == kExitSuccess) {
    context.out.line("Deleted the stored client credentials, user name and tokens.");
  }
  session->reportState(context.out);
  return deleted;
}

int runWebSignIn(CommandContext& context) {
  const Invocation& invocation = context.invocation;
  OutputPrinter& out = context.out;
  std::chrono::seconds timeout(300);
  if (const std::optional<std::string> text = invocation.value(option::kTimeout)) {
    const std::optional<std::uint64_t> seconds = parseUnsigned(*text);
    if (!seconds || *seconds == 0 || *seconds > 86400) {
      return out.usage("--timeout takes 1 to 86400 seconds, not '" + *text + "'", "web-sign-in");
    }
    timeout = std::chrono::seconds(*seconds);
  }
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  const std::string signInText =
      invocation.value(option::kSignInUrl).value_or(session->serverUrl().absoluteString());
  std::optional<Url> signInUrl = invocation.has(option::kSignInUrl)
                                     ? Url::withString(signInText)
                                     : Url::withString("oauth2/v1/authorize", session->serverUrl());
  if (!signInUrl) return out.usage("'" + signInText + "' is not an absolute URL", "web-sign-in");

  session->client().setUsesPkce(!invocation.has(option::kNoPkce));
  WebSignInFlow flow(session->client(), *signInUrl, scopesOf(invocation), timeout);
  const bool paste = invocation.has(option::kPaste);
  // Notices come from two threads: the opener's and the paste reader's.
  std::mutex noticeMutex;
  auto notice = [&out, &noticeMutex](const std::string& text) {
    std::lock_guard<std::mutex> lock(noticeMutex);
    out.notice(text);
  };
  if (paste) {
    flow.acceptPastedRedirect(::fileno(context.in), [&notice](const std::string&) {
      notice("That is not the address to paste; it starts with the redirect URL shown above.");
    });
  }
  const bool noBrowser = invocation.has(option::kNoBrowser);
  const WebSignInFlow::Outcome outcome = flow.run(
      [&](const WebSignInFlow::Page& page) { showSignInPage(page, noBrowser, paste, notice); });
  return reportSignIn(*session, out, outcome.scopes, outcome.error);
}

int runCodeExchange(CommandContext& context) {
  const Invocation& invocation = context.invocation;
  const std::optional<std::string> code = invocation.value(option::kCode);
  const std::optional<std::string> redirect = invocation.value(option::kRedirectUrl);
  const std::optional<std::string> verifier = invocation.value(option::kCodeVerifier);
  if (!code || isBlank(*code)) {
    return context.out.usage("--code is required", "code-exchange");
  }
  if (!redirect) return context.out.usage("--redirect-url is required", "code-exchange");
  if (verifier && isBlank(*verifier)) {
    return context.out.usage("--code-verifier must not be blank", "code-exchange");
  }
  const std::optional<Url> redirectUrl = Url::withString(*redirect);
  if (!redirectUrl) {
    return context.out.usage("'" + *redirect + "' is not an absolute URL", "code-exchange");
  }
  int status = kExitSuccess;
  std::unique_ptr<ClientSession> session = openWithStore(context, &status);
  if (!session) return status;
  ErrorRef error;
  const std::optional<Scopes> granted =
      verifier
          ? session->client().signInWithAuthorizationCode(*code, *redirectUrl, *verifier, &error)
          : session->client().signInWithAuthorizationCode(*code, *redirectUrl, &error);
  return reportSignIn(*session, context.out, granted, error);
}

}  // namespace velmor::tool
