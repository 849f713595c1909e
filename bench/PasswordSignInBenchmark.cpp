// A whole password sign-in through the client, as an application makes it:
// argument checks and the call's log line, the private queue, the request
// built, decorated and sent over a kept loopback HTTPS connection, the
// answer judged and parsed, and the seven record writes (tokens, their
// times, the user name) on the memory secret store. Beside it, in the same
// run, bare libcurl posts the same bytes to the same server over a kept
// handle; the program prints the ratio.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "BareCurlPost.h"
#include "TimeKeepingReporter.h"
#include "storage/SecureData.h"
#include "testing/ScopedSecretStore.h"
#include "testing/TestAuthorizationServer.h"
#include "transport/HttpUserAgent.h"
#include "velmor/Base64.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/HttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationClient.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

constexpr char kTokenPath[] = "/oauth2/v1/tokens/bearer";
constexpr char kJsonType[] = "application/json;charset=UTF-8";
constexpr char kAppToken[] = "benchmark-app-token";
constexpr char kClientId[] = "3MVG9lKcPoNINVBJSoQsNCD.HHDdbugPsNXwwyFbgb47KWa_PTv";
constexpr char kClientSecret[] = "5678471853609579508";
constexpr char kUsername[] = "benchmark.user@example.com";
constexpr char kPassword[] = "correct-horse-battery-staple";

// A JWT-sized access token, as authorization servers issue them.
const std::string kTokenResponse =
    R"({"access_token":")" + std::string(900, 'a') + R"(","token_type":"Bearer",)" +
    R"("expires_in":3600,"refresh_token":")" + std::string(64, 'r') +
    R"(","x_refresh_token_expires_in":8726400,"scope":"openid profile"})";

Data fixedKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
  return key;
}

// The server, the store and a registered client for the whole run.
struct Setup {
  Setup() {
    test::ScriptedResponse token;
    token.headers = {{"Content-Type", kJsonType}};
    token.body = kTokenResponse;
    server.answer(kTokenPath, token);
    CurlHttpClientOptions options;
    options.extraCaFile = server.caFile();
    HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
    SecureData record("127.0.0.1", kAppToken, fixedKey(), 0);
    record.setClientId(kClientId);
    record.setClientSecret(kClientSecret);
    VelmorAuthorizationLogger::sharedLogger().setLogLevel(0);
    client = std::make_unique<VelmorAuthorizationClient>(Url::withString(server.url("/")),
                                                         kAppToken, fixedKey());
  }
  ~Setup() {
    client.reset();
    HttpClient::setDefault(nullptr);
  }

  test::TestAuthorizationServer server;
  test::ScopedSecretStore store{std::make_shared<MemorySecretStore>()};
  std::unique_ptr<VelmorAuthorizationClient> client;
};

Setup& setup() {
  static Setup instance;
  return instance;
}

void signInThroughClient(benchmark::State& state) {
  VelmorAuthorizationClient& client = *setup().client;
  for (auto _ : state) {
    ErrorRef error;
    if (!client.signInWithUsername(kUsername, kPassword, &error)) {
      state.SkipWithError("the sign-in failed");
      break;
    }
  }
}

// The request the client sends, field for field, from a kept handle.
void barePost(benchmark::State& state) {
  const std::string credentials = std::string(kClientId) + ":" + kClientSecret;
  const std::vector<std::string> fields = {
      "Authorization: Basic " +
          *Base64::encodeBase64WithData(Data(credentials.begin(), credentials.end())),
      "Content-Type: application/x-www-form-urlencoded;charset=UTF-8",
      "User-Agent: " + HttpUserAgent::text(),
      "Accept-Language: en-US",
      "Cache-Control: no-cache, no-store",
      "velmor_tid: 6f1c2a4e-0b7d-4c8e-9a3f-5d2e1b0c9a87",
  };
  BareCurlPost post(setup().server.url(kTokenPath), setup().server.caFile(), fields,
                    std::string("grant_type=password&username=benchmark.user%40example.com") +
                        "&password=" + kPassword,
                    kTokenResponse);
  for (auto _ : state) {
    if (!post.post()) {
      state.SkipWithError("the bare POST failed");
      break;
    }
  }
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("PasswordSignIn/client", velmor::signInThroughClient)
      ->Unit(benchmark::kMicrosecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("PasswordSignIn/bareCurlPost", velmor::barePost)
      ->Unit(benchmark::kMicrosecond)
      ->UseRealTime();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const auto ours = reporter.time("PasswordSignIn/client");
  const auto bare = reporter.time("PasswordSignIn/bareCurlPost");
  if (ours && bare && bare->real > 0) {
    std::printf("ratio PasswordSignIn: client %.0f us, bare libcurl POST %.0f us, %.2fx\n",
                ours->real, bare->real, ours->real / bare->real);
  }
  return 0;
}
