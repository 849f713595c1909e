// An application built against the installed library alone: it activates a
// client and signs a user in against a running development server, and
// checks on the way what crosses the library's boundary in a shared build
// (exceptions, errors and their dynamic types, a delegate the library calls
// back, the tokens' validity end times).
//
// usage: velmor-consumer BASE_URL CA_FILE
#include <velmor/CurlHttpClient.h>
#include <velmor/Exception.h>
#include <velmor/HttpClient.h>
#include <velmor/MemorySecretStore.h>
#include <velmor/SecretStore.h>
#include <velmor/VelmorAuthorizationClient.h>
#include <velmor/VelmorAuthorizationError.h>
#include <velmor/VelmorAuthorizationLibraryVersion.h>
#include <velmor/VelmorAuthorizationLogger.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

namespace {

constexpr char kAppToken[] = "velmor-dev-app";

int failures = 0;

void check(bool holds, const std::string& what, const velmor::ErrorRef& error = nullptr) {
  std::printf("%s %s", holds ? "ok  " : "FAIL", what.c_str());
  if (!holds && error) std::printf(" (%s)", error->localizedDescription().value_or("").c_str());
  std::printf("\n");
  if (!holds) ++failures;
}

class CountingLoggerDelegate final : public velmor::VelmorAuthorizationLoggerDelegate {
 public:
  void velmorAuthorizationLoggerLog(velmor::VelmorAuthorizationLogger&, const std::string&,
                                    std::int64_t) override {
    ++lines;
  }
  std::atomic<int> lines{0};
};

bool throwsRangeException() {
  try {
    velmor::VelmorAuthorizationClient client(
        velmor::Url::withString("https://127.0.0.1/"), std::string("  "),
        velmor::VelmorAuthorizationClient::generateEncryptionKey());
  } catch (const velmor::RangeException& exception) {
    return exception.name() == "NSRangeException";
  } catch (...) {
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s BASE_URL CA_FILE\n", argv[0]);
    return 2;
  }
  using velmor::VelmorAuthorizationClient;
  std::printf("velmor %s against %s\n",
              velmor::VelmorAuthorizationLibraryVersion::version().c_str(), argv[1]);

  CountingLoggerDelegate logLines;
  velmor::VelmorAuthorizationLogger& logger = velmor::VelmorAuthorizationLogger::sharedLogger();
  logger.setDelegate(&logLines);
  logger.setLogLevel(velmor::VelmorAuthorizationLogger::kLevelInfo);

  velmor::SecretStore::setDefault(std::make_shared<velmor::MemorySecretStore>());
  velmor::CurlHttpClientOptions httpOptions;
  httpOptions.extraCaFile = argv[2];
  velmor::HttpClient::setDefault(std::make_shared<velmor::CurlHttpClient>(httpOptions));

  check(throwsRangeException(), "a blank application token throws RangeException");

  VelmorAuthorizationClient client(velmor::Url::withString(argv[1]), std::string(kAppToken),
                                   VelmorAuthorizationClient::generateEncryptionKey());
  velmor::ErrorRef error;
  check(client.authorizationState() == velmor::AuthorizationStateActivationRequired,
        "a new client needs activation");
  check(client.activate(&error), "activate", error);
  check(client.authorizationState() == velmor::AuthorizationStateSignInRequired,
        "an activated client needs a sign-in");

  error = nullptr;
  client.signInWithUsername("alice", "not her password", &error);
  const auto refusal = std::dynamic_pointer_cast<velmor::VelmorAuthorizationError>(error);
  check(refusal && refusal->domain() == velmor::AuthorizationServerErrorDomain &&
            refusal->code() == velmor::kServerErrorInvalidGrant &&
            refusal->description() ==
                "Your User ID or password was entered incorrectly. Please try again.",
        "a wrong password is refused with the library's text", error);

  error = nullptr;
  const std::optional<VelmorAuthorizationClient::Scopes> granted = client.signInWithUsername(
      "alice", "wonderland", VelmorAuthorizationClient::Scopes{"profile"}, &error);
  check(granted == VelmorAuthorizationClient::Scopes{"profile"}, "password sign-in", error);
  check(client.authorizationState() == velmor::AuthorizationStateAuthorized &&
            client.username() == "alice",
        "alice is authorized");
  const auto accessEnd = client.accessTokenValidEndDateTime();
  const auto refreshEnd = client.refreshTokenValidEndDateTime();
  check(accessEnd && refreshEnd && *accessEnd > std::chrono::system_clock::now() &&
            *refreshEnd > *accessEnd,
        "the tokens are valid for a while, the refresh token longer");

  std::optional<velmor::Dictionary> headers;
  error = nullptr;
  const bool authorized =
      client.checkAuthorization(&headers, &error) == velmor::AuthorizationStateAuthorized;
  const std::string* bearer = headers ? headers->findString("Authorization") : nullptr;
  check(authorized && bearer && bearer->rfind("Bearer ", 0) == 0 && bearer->size() > 7,
        "the authorization check hands out a Bearer header", error);

  error = nullptr;
  check(client.signOut(&error) &&
            client.authorizationState() == velmor::AuthorizationStateSignInRequired,
        "sign-out", error);
  check(logLines.lines > 0, "the logger delegate heard from the library");

  logger.setDelegate(nullptr);
  velmor::HttpClient::setDefault(nullptr);
  std::printf("%s\n", failures == 0 ? "consumer passed" : "consumer FAILED");
  return failures == 0 ? 0 : 1;
}
