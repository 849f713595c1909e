#include "ClientSession.h"

#include <stdlib.h>

#include <ctime>
#include <utility>

#include "KeyFile.h"
#include "OptionNames.h"
#include "ToolError.h"
#include "devserver/ServiceSettings.h"
#include "velmor/Exception.h"

namespace velmor::tool {

namespace {

std::optional<std::string> fromOptionOrEnvironment(const Invocation& invocation, const char* option,
                                                   const char* variable) {
  if (std::optional<std::string> value = invocation.value(option)) return value;
  const char* environment = ::getenv(variable);
  if (environment != nullptr && environment[0] != '\0') return std::string(environment);
  return std::nullopt;
}

std::string secondsLeft(ClientSession::Date end) {
  const auto left =
      std::chrono::duration_cast<std::chrono::seconds>(end - std::chrono::system_clock::now());
  if (left.count() <= 0) return "expired";
  return std::to_string(left.count()) + " s left";
}

void reportDate(OutputPrinter& out, nlohmann::json& member, const char* label,
                const std::optional<ClientSession::Date>& date) {
  if (!date) {
    member = nullptr;
    out.line(std::string(label) + ": none");
    return;
  }
  member = ClientSession::utcText(*date);
  out.line(std::string(label) + ": " + ClientSession::utcText(*date) + " (" + secondsLeft(*date) +
           ")");
}

}  // namespace

std::unique_ptr<ClientSession> ClientSession::open(const Invocation& invocation, OutputPrinter& out,
                                                   int* status) {
  const std::optional<std::string> server =
      fromOptionOrEnvironment(invocation, option::kServer, "VELMOR_SERVER");
  if (!server) {
    *status = out.usage("no server: give --server URL or set VELMOR_SERVER", invocation.command());
    return nullptr;
  }
  std::optional<Url> serverUrl = Url::withString(*server);
  if (!serverUrl || !serverUrl->host()) {
    *status = out.usage("the server '" + *server + "' is not an absolute URL");
    return nullptr;
  }
  std::uint64_t slot = 0;
  if (std::optional<std::string> text = invocation.value(option::kSlot)) {
    std::optional<std::uint64_t> parsed = parseUnsigned(*text);
    if (!parsed || *parsed > static_cast<std::uint64_t>(INT64_MAX)) {
      *status = out.usage("--slot takes a number from 0 to 2^63-1, not '" + *text + "'");
      return nullptr;
    }
    slot = *parsed;
  }
  const std::string keyPath =
      invocation.value(option::kKeyFile).value_or(KeyFile::configPath("velmor-auth/key"));
  std::string problem;
  std::optional<Data> key =
      KeyFile::loadOrCreate(keyPath, &VelmorAuthorizationClient::generateEncryptionKey, &problem);
  if (!key) {
    *status = out.fail(toolError(kToolErrorKeyFile, problem));
    return nullptr;
  }
  std::string appToken = fromOptionOrEnvironment(invocation, option::kAppToken, "VELMOR_APP_TOKEN")
                             .value_or(devserver::ServiceSettings::kDefaultAppToken);
  return std::unique_ptr<ClientSession>(
      new ClientSession(std::move(*serverUrl), std::move(appToken), std::move(*key), slot));
}

ClientSession::ClientSession(Url serverUrl, std::string appToken, Data key, std::uint64_t slot)
    : serverUrl_(std::move(serverUrl)),
      client_(std::make_unique<VelmorAuthorizationClient>(*serverUrl_, std::move(appToken),
                                                          std::move(key), slot)) {}

ClientSession::~ClientSession() = default;

void ClientSession::reportState(OutputPrinter& out, bool withLine) {
  const AuthorizationState state = client_->authorizationState();
  out.set("state", static_cast<std::int64_t>(state));
  out.set("stateName", stateName(state));
  if (!withLine) return;
  out.line("State: " + std::to_string(static_cast<std::int64_t>(state)) + " (" + stateName(state) +
           ")");
}

void ClientSession::reportValidity(OutputPrinter& out) {
  nlohmann::json validUntil = nlohmann::json::object();
  reportDate(out, validUntil["accessToken"], "Access token valid until",
             client_->accessTokenValidEndDateTime());
  reportDate(out, validUntil["refreshToken"], "Refresh token valid until",
             client_->refreshTokenValidEndDateTime());
  out.set("validUntil", validUntil);
}

std::string ClientSession::stateName(AuthorizationState state) {
  switch (state) {
    case AuthorizationStateActivationRequired:
      return "activationRequired";
    case AuthorizationStateSignInRequired:
      return "signInRequired";
    case AuthorizationStateAuthorized:
      return "authorized";
    case AuthorizationStateRefreshRequired:
      return "refreshRequired";
  }
  return "unknown";
}

std::string ClientSession::utcText(Date date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace velmor::tool
