#include "Demo.h"

#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "ClientSession.h"
#include "DemoBrowser.h"
#include "ResourceCall.h"
#include "ToolError.h"
#include "WebSignInFlow.h"
#include "devserver/DevelopmentServer.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"

namespace velmor::tool {

namespace {

using Clock = std::chrono::steady_clock;
using Scopes = VelmorAuthorizationClient::Scopes;

// A private directory for the demo's certificate and client context, gone
// with the object.
class ScratchDirectory final {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor-demo-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Runs the steps and keeps the score.
class DemoScript final {
 public:
  // A step answers whether it went as it should, and a line about it.
  using Step = std::function<bool(std::string* detail)>;

  explicit DemoScript(OutputPrinter& out) : out_(out), start_(Clock::now()) {}

  void run(const std::string& name, const Step& step) {
    std::string detail;
    const Clock::time_point begin = Clock::now();
    const bool ok = step(&detail);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    ++count_;
    if (ok) ++passed_;
    steps_.push_back(
        {{"name", name}, {"ok", ok}, {"milliseconds", milliseconds}, {"detail", detail}});
    char line[160];
    std::snprintf(line, sizeof(line), "%2d  %-30s %-6s %5lld ms  ", count_, name.c_str(),
                  ok ? "ok" : "FAILED", static_cast<long long>(milliseconds));
    out_.line(line + detail);
  }

  int summarize() {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_).count();
    out_.set("steps", steps_);
    out_.set("passed", passed_);
    out_.set("failed", count_ - passed_);
    out_.set("milliseconds", milliseconds);
    out_.line("");
    out_.line(std::to_string(passed_) + " of " + std::to_string(count_) + " steps behaved as " +
              "expected in " + std::to_string(milliseconds) + " ms.");
    return passed_ == count_ ? kExitSuccess : kExitFailure;
  }

 private:
  OutputPrinter& out_;
  Clock::time_point start_;
  nlohmann::json steps_ = nlohmann::json::array();
  int count_ = 0;
  int passed_ = 0;
};

std::string describe(const ErrorRef& error) {
  if (!error) return "no error";
  return OutputPrinter::describe(*error).value_or(error->domain() + " " +
                                                  std::to_string(error->code()));
}

std::string stateText(VelmorAuthorizationClient& client) {
  const AuthorizationState state = client.authorizationState();
  return "state " + std::to_string(static_cast<std::int64_t>(state)) + " " +
         ClientSession::stateName(state);
}

std::string joined(const std::optional<Scopes>& scopes) {
  std::string text;
  for (const std::string& scope : scopes.value_or(Scopes()))
    text += (text.empty() ? "" : " ") + scope;
  return text;
}

// A token shown by its first characters only.
std::string shortened(const std::string& header) {
  return header.size() > 16 ? header.substr(0, 16) + "..." : header;
}

void addLoopbackToNoProxy() {
  const char* current = ::getenv("no_proxy");
  std::string value = current && current[0] ? std::string(current) + "," : std::string();
  ::setenv("no_proxy", (value + "127.0.0.1,localhost").c_str(), 1);
}

// The steps, on one client against one server.
class DemoSteps final {
 public:
  DemoSteps(VelmorAuthorizationClient& client, std::string baseUrl)
      : client_(client), baseUrl_(std::move(baseUrl)) {}

  void runAll(DemoScript& script) {
    script.run("activate", [this](std::string* detail) { return activate(detail); });
    script.run("password sign-in (alice)", [this](std::string* detail) { return signIn(detail); });
    script.run("status", [this](std::string* detail) { return status(detail); });
    script.run("authorization header", [this](std::string* detail) { return headers(detail); });
    script.run("call the protected resource", [this](std::string* detail) { return call(detail); });
    script.run("access token expires", [this](std::string* detail) { return expire(detail); });
    script.run("check refreshes it",
               [this](std::string* detail) { return checkRefreshes(detail); });
    script.run("wrong password (bob)",
               [this](std::string* detail) { return wrongPassword(detail); });
    script.run("lock-out (bob)", [this](std::string* detail) { return lockout(detail); });
    script.run("web sign-in (alice)", [this](std::string* detail) { return webSignIn(detail); });
    script.run("sign-out", [this](std::string* detail) { return signOut(detail); });
    script.run("status", [this](std::string* detail) { return statusAfter(detail); });
  }

 private:
  bool activate(std::string* detail) {
    ErrorRef error;
    const bool ok = client_.activate(&error);
    *detail = ok ? "registered; " + stateText(client_) : describe(error);
    return ok && client_.authorizationState() == AuthorizationStateSignInRequired;
  }

  bool signIn(std::string* detail) {
    ErrorRef error;
    const std::optional<Scopes> scopes =
        client_.signInWithUsername("alice", "wonderland", Scopes{"profile", "email"}, &error);
    *detail = error ? describe(error) : "scopes " + joined(scopes) + "; " + stateText(client_);
    return !error && client_.authorizationState() == AuthorizationStateAuthorized;
  }

  bool status(std::string* detail) {
    *detail = stateText(client_) + ", user " + client_.username().value_or("none");
    return client_.username() == "alice";
  }

  bool headers(std::string* detail) {
    std::optional<Dictionary> headers;
    ErrorRef error;
    const AuthorizationState state = client_.checkAuthorization(&headers, &error);
    const std::string* value = headers ? headers->findString("Authorization") : nullptr;
    *detail = value ? "Authorization: " + shortened(*value) : describe(error);
    return state == AuthorizationStateAuthorized && value && value->rfind("Bearer ", 0) == 0;
  }

  bool call(std::string* detail) {
    const ResourceCall::Result result =
        ResourceCall::get(client_, *Url::withString(baseUrl_ + "api/v1/me"),
                          client_.webRequestAuthorizationHeaders());
    *detail = result.error ? describe(result.error) : "200 " + result.body;
    return !result.error;
  }

  bool expire(std::string* detail) {
    // A lifetime within the client's 30-second margin counts as expired.
    client_.setAccessTokenExpirationOverride(30);
    ErrorRef error;
    client_.refreshAccessToken(&error);
    client_.setAccessTokenExpirationOverride(0);
    *detail = error ? describe(error) : "refreshed with a 30 s lifetime: " + stateText(client_);
    return !error && client_.authorizationState() == AuthorizationStateRefreshRequired;
  }

  bool checkRefreshes(std::string* detail) {
    std::optional<Dictionary> headers;
    ErrorRef error;
    const AuthorizationState state = client_.checkAuthorization(&headers, &error);
    *detail = error ? describe(error) : "checkAuthorization refreshed: " + stateText(client_);
    return !error && state == AuthorizationStateAuthorized && headers;
  }

  bool wrongPassword(std::string* detail) {
    ErrorRef error;
    client_.signInWithUsername("bob", "not-the-password", &error);
    *detail = describe(error);
    return error != nullptr;
  }

  bool lockout(std::string* detail) {
    static constexpr char kLockedOut[] = "This account has been temporarily locked out.";
    ErrorRef error;
    client_.signInWithUsername("bob", "still-wrong", &error);
    client_.signInWithUsername("bob", "wrong-again", &error);
    const bool lockedOut = describe(error).rfind(kLockedOut, 0) == 0;
    // While locked, the right password is refused too.
    client_.signInWithUsername("bob", "builder", &error);
    *detail = describe(error);
    return lockedOut && detail->rfind(kLockedOut, 0) == 0;
  }

  bool webSignIn(std::string* detail) {
    DemoBrowser browser("alice", "wonderland");
    client_.setUsesPkce(true);
    WebSignInFlow flow(client_, *Url::withString(baseUrl_ + "oauth2/v1/authorize"),
                       Scopes{"profile"}, std::chrono::seconds(30));
    const WebSignInFlow::Outcome outcome =
        flow.run([&browser](const WebSignInFlow::Page& page) { browser.signIn(page.signInUrl); });
    *detail = outcome.error ? describe(outcome.error)
                            : browser.report() + "; " + stateText(client_) + ", user " +
                                  client_.username().value_or("none");
    return !outcome.error && client_.username() == "alice" &&
           client_.authorizationState() == AuthorizationStateAuthorized;
  }

  bool signOut(std::string* detail) {
    const Dictionary oldHeaders = client_.webRequestAuthorizationHeaders();
    ErrorRef error;
    const bool ok = client_.signOut(&error);
    if (!ok) {
      *detail = describe(error);
      return false;
    }
    const ResourceCall::Result refused =
        ResourceCall::get(client_, *Url::withString(baseUrl_ + "api/v1/me"), oldHeaders);
    *detail = "revoked; the old token now gets: " + describe(refused.error);
    return refused.error && refused.response && refused.response->statusCode() == 401;
  }

  bool statusAfter(std::string* detail) {
    *detail = stateText(client_);
    return client_.authorizationState() == AuthorizationStateSignInRequired;
  }

  VelmorAuthorizationClient& client_;
  std::string baseUrl_;
};

}  // namespace

int runDemo(CommandContext& context) {
  OutputPrinter& out = context.out;
  out.line("Velmor Authorization " + VelmorAuthorizationLibraryVersion::version() + " demo");
  ScratchDirectory scratch;
  if (scratch.path().empty())
    return out.fail(toolError(kToolErrorServer, "no temporary directory"));
  // The client context file goes to the scratch directory, not the user's.
  ::setenv("XDG_DATA_HOME", scratch.path().c_str(), 1);
  addLoopbackToNoProxy();

  devserver::DevelopmentServerOptions options;
  options.certificateDirectory = scratch.path() + "/certificates";
  // A lock long enough to show the library's hours-and-minutes text.
  options.settings.lockoutDuration = std::chrono::seconds(5400);
  options.settings.requirePkce = true;
  std::string problem;
  std::unique_ptr<devserver::DevelopmentServer> server =
      devserver::DevelopmentServer::start(options, &problem);
  if (!server) return out.fail(toolError(kToolErrorServer, problem));
  out.set("baseUrl", server->baseUrl());
  out.line("Development server: " + server->baseUrl() + " (users alice/wonderland, bob/builder)");
  out.line("");

  SecretStore::setDefault(std::make_shared<MemorySecretStore>());
  CurlHttpClientOptions httpOptions;
  httpOptions.extraCaFile = server->certificateFiles()->caCertificate;
  HttpClient::setDefault(std::make_shared<CurlHttpClient>(httpOptions));

  DemoScript script(out);
  {
    VelmorAuthorizationClient client(Url::withString(server->baseUrl()),
                                     std::string(devserver::ServiceSettings::kDefaultAppToken),
                                     VelmorAuthorizationClient::generateEncryptionKey());
    DemoSteps(client, server->baseUrl()).runAll(script);
  }
  // Kept connections close with the HTTP client, so the server stops at once.
  HttpClient::setDefault(nullptr);
  server.reset();
  return script.summarize();
}

}  // namespace velmor::tool
