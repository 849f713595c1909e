#include "ServeCommand.h"

#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "KeyFile.h"
#include "OptionNames.h"
#include "ToolError.h"
#include "devserver/DevelopmentServer.h"

namespace velmor::tool {

namespace {

constexpr char kCommand[] = "serve";

// A whole number of seconds from 1 to ten years, or a usage error.
bool readSeconds(const Invocation& invocation, const char* name, std::chrono::seconds* seconds,
                 OutputPrinter& out, int* status) {
  const std::optional<std::string> text = invocation.value(name);
  if (!text) return true;
  const std::optional<std::uint64_t> value = parseUnsigned(*text);
  if (!value || *value == 0 || *value > 3650ULL * 86400) {
    *status =
        out.usage(std::string(name) + " takes a number of seconds, not '" + *text + "'", kCommand);
    return false;
  }
  *seconds = std::chrono::seconds(*value);
  return true;
}

// The server's options from the command line, or a usage error in `status`.
std::optional<devserver::DevelopmentServerOptions> serverOptions(const Invocation& invocation,
                                                                 OutputPrinter& out, int* status) {
  devserver::DevelopmentServerOptions options;
  options.port = 8443;
  if (const std::optional<std::string> text = invocation.value(option::kPort)) {
    const std::optional<std::uint64_t> port = parseUnsigned(*text);
    if (!port || *port > 65535) {
      *status = out.usage("--port takes 0 to 65535, not '" + *text + "'", kCommand);
      return std::nullopt;
    }
    options.port = static_cast<int>(*port);
  }
  options.tls = !invocation.has(option::kHttp);
  options.certificateDirectory =
      invocation.value(option::kDir).value_or(KeyFile::configPath("velmor-auth/devserver"));
  if (options.tls && options.certificateDirectory.empty()) {
    *status = out.usage("no directory for the certificates; give --dir", kCommand);
    return std::nullopt;
  }
  devserver::ServiceSettings& settings = options.settings;
  settings.requirePkce = invocation.has(option::kRequirePkce);
  const std::vector<std::string> users = invocation.values(option::kUser);
  if (!users.empty()) settings.users.clear();
  for (const std::string& user : users) {
    const std::size_t colon = user.find(':');
    if (colon == std::string::npos || colon == 0) {
      *status = out.usage("--user takes NAME:PASSWORD, not '" + user + "'", kCommand);
      return std::nullopt;
    }
    settings.users.push_back({user.substr(0, colon), user.substr(colon + 1)});
  }
  if (!readSeconds(invocation, option::kAccessTokenLifetime, &settings.accessTokenLifetime, out,
                   status) ||
      !readSeconds(invocation, option::kRefreshTokenLifetime, &settings.refreshTokenLifetime, out,
                   status) ||
      !readSeconds(invocation, option::kLockoutSeconds, &settings.lockoutDuration, out, status) ||
      !readSeconds(invocation, option::kRefreshTokenGrace, &settings.refreshTokenReuseGrace, out,
                   status)) {
    return std::nullopt;
  }
  if (const std::optional<std::string> text = invocation.value(option::kMaxFailedSignIns)) {
    const std::optional<std::uint64_t> count = parseUnsigned(*text);
    if (!count || *count > 1000) {
      *status = out.usage("--max-failed-sign-ins takes 0 to 1000, not '" + *text + "'", kCommand);
      return std::nullopt;
    }
    settings.maxFailedSignIns = static_cast<int>(*count);
  }
  std::optional<std::string> appToken = invocation.value(option::kAppToken);
  if (!appToken && ::getenv("VELMOR_APP_TOKEN") != nullptr) appToken = ::getenv("VELMOR_APP_TOKEN");
  if (appToken && !appToken->empty() && *appToken != settings.appTokens.front()) {
    settings.appTokens.push_back(*appToken);
  }
  options.requestLog = [](const std::string& method, const std::string& path, int code) {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    std::fprintf(stderr, "velmor-auth serve: %s %s %d\n", method.c_str(), path.c_str(), code);
    std::fflush(stderr);
  };
  return options;
}

void announce(const devserver::DevelopmentServer& server,
              const devserver::DevelopmentServerOptions& options, OutputPrinter& out) {
  const auto& files = server.certificateFiles();
  nlohmann::json users = nlohmann::json::array();
  std::string userText;
  for (const devserver::UserAccount& user : options.settings.users) {
    users.push_back(user.username);
    userText += (userText.empty() ? "" : ", ") + user.username + "/" + user.password;
  }
  out.set("baseUrl", server.baseUrl());
  out.set("caFile", files ? nlohmann::json(files->caCertificate) : nlohmann::json(nullptr));
  out.set("appTokens", options.settings.appTokens);
  out.set("users", users);
  out.set("requirePkce", options.settings.requirePkce);
  out.line("Velmor development authorization server");
  out.line("Base URL:          " + server.baseUrl());
  out.line("CA file:           " + (files ? files->caCertificate : std::string("none (HTTP)")));
  std::string tokens;
  for (const std::string& token : options.settings.appTokens) {
    tokens += (tokens.empty() ? "" : ", ") + token;
  }
  out.line("Application token: " + tokens);
  out.line("Users:             " + userText);
  out.line(std::string("PKCE (S256):       ") +
           (options.settings.requirePkce ? "required" : "optional"));
  out.line("Try: velmor-auth --server " + server.baseUrl() +
           (files ? " --ca-file " + files->caCertificate : std::string()) + " activate");
  if (files)
    out.line("  (or export VELMOR_CA_FILE=" + files->caCertificate + " once for the shell)");
  out.line("Press Ctrl-C to stop.");
  out.finish(kExitSuccess);
}

}  // namespace

int runServe(CommandContext& context) {
  int status = kExitSuccess;
  std::optional<devserver::DevelopmentServerOptions> options =
      serverOptions(context.invocation, context.out, &status);
  if (!options) return status;

  // Blocked before the server's threads start, so that they inherit the
  // mask and the signals wait for sigwait below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  std::string problem;
  std::unique_ptr<devserver::DevelopmentServer> server =
      devserver::DevelopmentServer::start(*options, &problem);
  if (!server) return context.out.fail(toolError(kToolErrorServer, problem));
  announce(*server, *options, context.out);

  int received = 0;
  sigwait(&stopSignals, &received);
  server->stop();
  std::fprintf(stderr, "velmor-auth serve: stopped\n");
  return kExitSuccess;
}

}  // namespace velmor::tool
