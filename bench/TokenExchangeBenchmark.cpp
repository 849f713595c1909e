// What one password-grant token exchange costs, beside bare libcurl sending
// the same bytes to the same loopback HTTPS server in the same run:
// - library work: build the request, decorate and log it (level 0), judge
//   the answer, parse it and write the credential record to a memory secret
//   store, over a client that answers at once (no network);
// - following request: the whole exchange on a client whose connection and
//   trust store are kept, against a bare keep-alive POST on a reused handle;
// - first request: the whole exchange on a fresh client (trust store loaded,
//   handshake made) against a fresh bare handle.
// The figures are checked against the library's targets at the end.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BareCurlPost.h"
#include "TimeKeepingReporter.h"
#include "storage/SecureData.h"
#include "testing/ScopedSecretStore.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "transport/HttpRequestSender.h"
#include "transport/RequestAccessTokenTransaction.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

constexpr const char* kTokenPath = "/oauth2/v1/tokens/bearer";
constexpr const char* kJsonType = "application/json;charset=UTF-8";

// A JWT-sized access token, as authorization servers issue them.
const std::string kTokenResponse =
    R"({"access_token":")" + std::string(900, 'a') + R"(","token_type":"Bearer",)" +
    R"("expires_in":3600,"refresh_token":")" + std::string(64, 'r') +
    R"(","x_refresh_token_expires_in":8726400,"scope":"openid profile email offline_access"})";

Data fixedKey() {
  Data key(32);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(0x40 + i);
  return key;
}

std::string systemBundle() {
  CURL* probe = curl_easy_init();
  char* path = nullptr;
  curl_easy_getinfo(probe, CURLINFO_CAINFO, &path);
  std::string bundle = path ? path : "";
  curl_easy_cleanup(probe);
  return bundle;
}

// Answers every request at once with the token response.
class CannedHttpClient final : public HttpClient {
 public:
  HttpResult send(const HttpRequest& request) override {
    HttpResult result;
    result.response = std::make_shared<HttpUrlResponse>(
        request.url, 200,
        HttpUrlResponse::HeaderFields{{"Content-Type", kJsonType},
                                      {"Content-Length", std::to_string(kTokenResponse.size())}});
    result.body = Data(kTokenResponse.begin(), kTokenResponse.end());
    return result;
  }
};

// The loopback server, the trusted files and the credential record for the
// whole run.
struct Setup {
  Setup() {
    test::ScriptedResponse token;
    token.headers = {{"Content-Type", kJsonType}};
    token.body = kTokenResponse;
    server.answer(kTokenPath, token);
    std::ifstream system(systemBundle());
    std::ifstream extra(server.caFile());
    std::ostringstream both;
    both << system.rdbuf() << extra.rdbuf();
    combinedBundle = directory.writeFile("bundle.pem", both.str());
    record->setClientId("3MVG9lKcPoNINVBJSoQsNCD.HHDdbugPsNXwwyFbgb47KWa_PTv");
    record->setClientSecret("5678471853609579508");
    VelmorAuthorizationLogger::sharedLogger().setLogLevel(0);
  }

  test::TemporaryDirectory directory;
  test::TestAuthorizationServer server;
  std::string combinedBundle;
  test::ScopedSecretStore store{std::make_shared<MemorySecretStore>()};
  std::shared_ptr<SecureData> record =
      std::make_shared<SecureData>("127.0.0.1", "benchmark-app-token", fixedKey(), 0);
};

Setup& setup() {
  static Setup instance;
  return instance;
}

std::unique_ptr<RequestAccessTokenTransaction> passwordGrant() {
  auto transaction = std::make_unique<RequestAccessTokenTransaction>(setup().record);
  transaction->setUsername("benchmark.user@example.com");
  transaction->setPassword("correct horse battery staple");
  transaction->setScopes(
      RequestAccessTokenTransaction::Scopes{"openid", "profile", "email", "offline_access"});
  return transaction;
}

// One exchange as the client makes it; false when it did not succeed.
bool exchange(HttpRequestSender& sender, const Url& base) {
  std::unique_ptr<RequestAccessTokenTransaction> transaction = passwordGrant();
  std::optional<Url> url;
  Dictionary headers;
  std::string verb;
  const Data body = transaction->generateRequest(base, &url, &headers, &verb);
  std::shared_ptr<HttpUrlResponse> response;
  ErrorRef error;
  const std::optional<Data> content =
      sender.send("RequestAccessToken", *url, verb, headers, body, &response, &error);
  return !error && !transaction->handleResponse(response, content);
}

Url serverBase() { return *Url::withString(setup().server.url("/")); }

CurlHttpClientOptions clientOptions() {
  CurlHttpClientOptions options;
  options.extraCaFile = setup().server.caFile();
  return options;
}

void libraryWork(benchmark::State& state) {
  HttpRequestSender sender(std::make_shared<CannedHttpClient>());
  const Url base = serverBase();
  for (auto _ : state) {
    if (!exchange(sender, base)) state.SkipWithError("exchange failed");
  }
}

void followingRequest(benchmark::State& state) {
  HttpRequestSender sender(std::make_shared<CurlHttpClient>(clientOptions()));
  const Url base = serverBase();
  if (!exchange(sender, base)) state.SkipWithError("exchange failed");  // connects
  for (auto _ : state) {
    if (!exchange(sender, base)) state.SkipWithError("exchange failed");
  }
}

void firstRequest(benchmark::State& state) {
  const Url base = serverBase();
  for (auto _ : state) {
    HttpRequestSender sender(std::make_shared<CurlHttpClient>(clientOptions()));
    if (!exchange(sender, base)) state.SkipWithError("exchange failed");
  }
}

// The header fields and body the library sends, so that bare libcurl puts
// the same bytes on the wire.
struct WireRequest {
  std::vector<std::string> fields;
  std::string body;
};

WireRequest wireRequest() {
  // Records what the sender hands its client.
  class Capture final : public HttpClient {
   public:
    HttpResult send(const HttpRequest& request) override {
      for (const auto& [name, value] : request.headerFields) {
        captured.fields.push_back(name + ": " + value);
      }
      captured.body.assign(request.body.begin(), request.body.end());
      return CannedHttpClient().send(request);
    }
    WireRequest captured;
  };
  auto capture = std::make_shared<Capture>();
  HttpRequestSender sender(capture);
  exchange(sender, serverBase());
  return capture->captured;
}

// Bare libcurl posting exactly the fields and body our sender produced.
BareCurlPost bareCurl(const WireRequest& request) {
  return BareCurlPost(setup().server.url(kTokenPath), setup().combinedBundle, request.fields,
                      request.body, kTokenResponse);
}

void bareFollowingRequest(benchmark::State& state) {
  BareCurlPost curl = bareCurl(wireRequest());
  if (!curl.post()) state.SkipWithError("bare libcurl failed");
  for (auto _ : state) {
    if (!curl.post()) state.SkipWithError("bare libcurl failed");
  }
}

void bareFirstRequest(benchmark::State& state) {
  const WireRequest request = wireRequest();
  for (auto _ : state) {
    BareCurlPost curl = bareCurl(request);
    if (!curl.post()) state.SkipWithError("bare libcurl failed");
  }
}

// Prints one target's check on real and CPU time; true when both meet it.
bool check(const char* what, double realValue, double realLimit, double cpuValue, double cpuLimit,
           const char* unit) {
  const bool met = realValue <= realLimit && cpuValue <= cpuLimit;
  std::printf("%-34s real %9.1f %s (limit %9.1f), CPU %9.1f %s (limit %9.1f): %s\n", what,
              realValue, unit, realLimit, cpuValue, unit, cpuLimit, met ? "met" : "MISSED");
  return met;
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  using velmor::setup;
  setup();
  // Loopback timings swing with whatever else the machine runs: the checks
  // use medians of several runs. Real time includes the server's work on
  // the same machine; CPU time is this process's alone.
  bool repetitionsGiven = false;
  for (int i = 1; i < argc; ++i) {
    repetitionsGiven |= std::string_view(argv[i]).starts_with("--benchmark_repetitions");
  }
  const auto add = [&](const char* name, auto run) {
    benchmark::internal::Benchmark* added = benchmark::RegisterBenchmark(name, run);
    added->Unit(benchmark::kMicrosecond);
    return repetitionsGiven ? added : added->Repetitions(5);
  };
  add("library-work/velmor", velmor::libraryWork);
  add("following-request/velmor", velmor::followingRequest);
  add("following-request/libcurl", velmor::bareFollowingRequest);
  add("first-request/velmor", velmor::firstRequest);
  add("first-request/libcurl", velmor::bareFirstRequest);

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const auto work = reporter.time("library-work/velmor");
  const auto following = reporter.time("following-request/velmor");
  const auto bareFollowing = reporter.time("following-request/libcurl");
  const auto first = reporter.time("first-request/velmor");
  const auto bareFirst = reporter.time("first-request/libcurl");
  bool met = true;
  if (work) {
    met &= velmor::check("library work per exchange", work->real, 350, work->cpu, 350, "us");
  }
  if (work && following && bareFollowing) {
    std::printf("following request velmor / libcurl: real %.2f, CPU %.2f\n",
                following->real / bareFollowing->real, following->cpu / bareFollowing->cpu);
    met &= velmor::check("following request (bare + work + 20)", following->real,
                         bareFollowing->real + work->real + 20, following->cpu,
                         bareFollowing->cpu + work->cpu + 20, "us");
  }
  if (first && bareFirst) {
    std::printf("first request velmor / libcurl: real %.2f, CPU %.2f\n",
                first->real / bareFirst->real, first->cpu / bareFirst->cpu);
    met &= velmor::check("first request (1.2 x bare)", first->real, 1.2 * bareFirst->real,
                         first->cpu, 1.2 * bareFirst->cpu, "us");
  }
  std::printf("targets: %s\n", met ? "all met" : "NOT all met");
  return 0;
}
