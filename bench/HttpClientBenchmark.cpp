// What an exchange with the authorization server costs through our HTTP
// client, beside bare libcurl doing the same against the same loopback HTTPS
// server in the same run:
// - keep-alive: a token-request-sized POST on a kept connection;
// - new connection: the same POST on a warm client when the server closes
//   every connection (TCP and TLS handshake, no CA reading);
// - first request: a fresh client's first POST (CA bundle read, handshake).
// Bare libcurl reads one PEM file holding the system bundle and the test CA,
// the same certificates our client loads from two files.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "BareCurlPost.h"
#include "TimeKeepingReporter.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"
#include "velmor/CurlHttpClient.h"

namespace velmor {
namespace {

constexpr const char* kTokenPath = "/oauth2/v1/tokens/bearer";

// As a password sign-in sends them.
const std::vector<std::pair<std::string, std::string>> kFields = {
    {"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"},
    {"Authorization", "Basic " + std::string(96, 'Q')},
    {"User-Agent", "com.velmor.Authorization/1.1.4; UnitTest/?; Linux/6.1"},
    {"Accept-Language", "en-US"},
    {"Cache-Control", "no-cache, no-store"},
    {"velmor_tid", "0b6c2a8e-5a53-4c7e-9d0c-3f1e2d4c5b6a"},
};

std::string formBody() {
  std::string body = "grant_type=password&username=benchmark.user%40example.com&password=";
  body += std::string(24, 'p') + "&scope=";
  while (body.size() < 300) body += "openid%20";
  return body;
}

const std::string kBody = formBody();

const std::string kTokenResponse =
    R"({"access_token":")" + std::string(64, 'a') + R"(","token_type":"Bearer",)" +
    R"("expires_in":3600,"refresh_token":")" + std::string(64, 'r') + R"(","scope":"openid"})";

// The CA bundle libcurl was built to use, which our client loads too.
std::string systemBundle() {
  CURL* probe = curl_easy_init();
  char* path = nullptr;
  curl_easy_getinfo(probe, CURLINFO_CAINFO, &path);
  std::string bundle = path ? path : "";
  curl_easy_cleanup(probe);
  return bundle;
}

// The loopback server and the files the clients trust, for the whole run.
struct Setup {
  Setup() {
    test::ScriptedResponse token;
    token.headers = {{"Content-Type", "application/json;charset=UTF-8"}};
    token.body = kTokenResponse;
    server.answer(kTokenPath, token);
    std::ifstream system(systemBundle());
    std::ifstream extra(server.caFile());
    std::ostringstream both;
    both << system.rdbuf() << extra.rdbuf();
    combinedBundle = directory.writeFile("bundle.pem", both.str());
  }

  test::TemporaryDirectory directory;
  test::TestAuthorizationServer server;
  std::string combinedBundle;
};

Setup& setup() {
  static Setup instance;
  return instance;
}

HttpRequest tokenRequest(bool closeConnection) {
  HttpRequest request(*Url::withString(setup().server.url(kTokenPath)));
  request.method = "POST";
  request.headerFields = kFields;
  if (closeConnection) request.headerFields.emplace_back("Connection", "close");
  request.body.assign(kBody.begin(), kBody.end());
  return request;
}

CurlHttpClientOptions clientOptions() {
  CurlHttpClientOptions options;
  options.extraCaFile = setup().server.caFile();
  return options;
}

void checkOurs(benchmark::State& state, const HttpResult& result) {
  if (result.error || !result.response || result.response->statusCode() != 200) {
    state.SkipWithError("our client failed");
  }
}

void oursOnKeptClient(benchmark::State& state, bool closeConnection) {
  CurlHttpClient client(clientOptions());
  const HttpRequest request = tokenRequest(closeConnection);
  checkOurs(state, client.send(request));  // connects and loads the trust store
  for (auto _ : state) {
    HttpResult result = client.send(request);
    checkOurs(state, result);
    benchmark::DoNotOptimize(result);
  }
}

void oursFirstRequest(benchmark::State& state) {
  const HttpRequest request = tokenRequest(false);
  for (auto _ : state) {
    CurlHttpClient client(clientOptions());
    HttpResult result = client.send(request);
    checkOurs(state, result);
    benchmark::DoNotOptimize(result);
  }
}

// Bare libcurl posting the same fields and body as ours.
BareCurlPost bareCurl(bool closeConnection) {
  std::vector<std::string> fields;
  for (const auto& [name, value] : kFields) fields.push_back(name + ": " + value);
  if (closeConnection) fields.push_back("Connection: close");
  return BareCurlPost(setup().server.url(kTokenPath), setup().combinedBundle, fields, kBody,
                      kTokenResponse);
}

void bareOnKeptHandle(benchmark::State& state, bool closeConnection) {
  BareCurlPost curl = bareCurl(closeConnection);
  if (!curl.post()) state.SkipWithError("bare libcurl failed");
  for (auto _ : state) {
    if (!curl.post()) state.SkipWithError("bare libcurl failed");
  }
}

void bareFirstRequest(benchmark::State& state) {
  for (auto _ : state) {
    BareCurlPost curl = bareCurl(false);
    if (!curl.post()) state.SkipWithError("bare libcurl failed");
  }
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  using velmor::setup;
  setup();
  // Loopback timings swing with whatever else the machine runs: compare
  // medians of several runs (with --benchmark_enable_random_interleaving,
  // taken in turns). Real time includes the server's work on the same
  // machine; CPU time is this process's alone.
  bool repetitionsGiven = false;
  for (int i = 1; i < argc; ++i) {
    repetitionsGiven |= std::string_view(argv[i]).starts_with("--benchmark_repetitions");
  }
  const auto add = [&](const char* name, auto run, auto... args) {
    benchmark::internal::Benchmark* added = benchmark::RegisterBenchmark(name, run, args...);
    return repetitionsGiven ? added : added->Repetitions(3);
  };
  add("keep-alive/velmor", velmor::oursOnKeptClient, false)->Unit(benchmark::kMicrosecond);
  add("keep-alive/libcurl", velmor::bareOnKeptHandle, false)->Unit(benchmark::kMicrosecond);
  add("new-connection/velmor", velmor::oursOnKeptClient, true)->Unit(benchmark::kMicrosecond);
  add("new-connection/libcurl", velmor::bareOnKeptHandle, true)->Unit(benchmark::kMicrosecond);
  add("first-request/velmor", velmor::oursFirstRequest)->Unit(benchmark::kMillisecond);
  add("first-request/libcurl", velmor::bareFirstRequest)->Unit(benchmark::kMillisecond);

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  for (const char* name : {"keep-alive", "new-connection", "first-request"}) {
    auto ours = reporter.time(std::string(name) + "/velmor");
    auto bare = reporter.time(std::string(name) + "/libcurl");
    if (!ours || !bare) continue;
    std::printf("ratio %-15s velmor / libcurl: real %.2f, CPU %.2f\n", name,
                ours->real / bare->real, ours->cpu / bare->cpu);
  }
  return 0;
}
