#include "velmor/CurlHttpClient.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/socket.h>

#include <cstdio>
#include <filesystem>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"
#include "testing/FakeSystemIdentity.h"
#include "testing/RawTestServer.h"
#include "testing/RefusingPort.h"
#include "testing/ScopedEnvironmentVariables.h"
#include "testing/ScopedSystemIdentity.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestAuthorizationServer.h"

namespace velmor {
namespace {

using test::RawTestServer;
using test::ScopedEnvironmentVariables;
using test::ScriptedResponse;
using test::TestAuthorizationServer;

Data bytes(std::string_view text) { return Data(text.begin(), text.end()); }

HttpRequest requestFor(const std::string& url, std::string method = "GET",
                       HttpUrlResponse::HeaderFields headers = {}, std::string_view body = {}) {
  HttpRequest request(*Url::withString(url));
  request.method = std::move(method);
  request.headerFields = std::move(headers);
  request.body = bytes(body);
  return request;
}

CurlHttpClientOptions trusting(const std::string& caFile) {
  CurlHttpClientOptions options;
  options.extraCaFile = caFile;
  return options;
}

// A 64-character label is longer than DNS allows, so the resolver refuses
// the name without sending a query anywhere.
const std::string kUnresolvableHost = std::string(64, 'a') + ".invalid";

class CurlHttpClientTest : public ::testing::Test {
 protected:
  // Loopback only: no proxy the environment may name gets to see these.
  ScopedEnvironmentVariables noProxy_{{"no_proxy", "*"}};
  TestAuthorizationServer server_;
  // After the server, so it goes first and closes its kept connections.
  CurlHttpClient client_{trusting(server_.caFile())};
};

TEST_F(CurlHttpClientTest, SendsMethodFieldsAndBodyAsGiven) {
  RawTestServer raw;
  raw.enqueue({"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"});
  // Above libcurl's threshold for "Expect: 100-continue".
  const std::string body = "grant_type=password&username=u&password=" + std::string(2000, 'p');
  HttpResult result =
      client_.send(requestFor(raw.url("/oauth2/v1/tokens/bearer?x=1%202"), "POST",
                              {{"Content-Type", "application/x-www-form-urlencoded;charset=UTF-8"},
                               {"Authorization", "Basic YTpi"},
                               {"velmor_tid", ""},
                               {"Cache-Control", "no-cache, no-store"}},
                              body));
  ASSERT_EQ(result.error, nullptr);
  const std::string expected =
      "POST /oauth2/v1/tokens/bearer?x=1%202 HTTP/1.1\r\n"
      "Host: 127.0.0.1:" +
      std::to_string(raw.port()) +
      "\r\n"
      "Accept: */*\r\n"
      "Content-Type: application/x-www-form-urlencoded;charset=UTF-8\r\n"
      "Authorization: Basic YTpi\r\n"
      "velmor_tid:\r\n"
      "Cache-Control: no-cache, no-store\r\n"
      "Content-Length: 2040\r\n"
      "\r\n" +
      body;
  EXPECT_EQ(raw.requests(), std::vector<std::string>{expected});
}

TEST_F(CurlHttpClientTest, FramesEachMethodsBody) {
  struct Case {
    const char* method;
    const char* body;
    const char* expectedHead;
  };
  const Case cases[] = {
      {"GET", "", "GET /r HTTP/1.1\r\nHost: H\r\nAccept: */*\r\n\r\n"},
      {"DELETE", "", "DELETE /r HTTP/1.1\r\nHost: H\r\nAccept: */*\r\n\r\n"},
      {"POST", "",
       "POST /r HTTP/1.1\r\nHost: H\r\nAccept: */*\r\nContent-Length: 0\r\n"
       "Content-Type: application/x-www-form-urlencoded\r\n\r\n"},
      {"PUT", "a=1",
       "PUT /r HTTP/1.1\r\nHost: H\r\nAccept: */*\r\nContent-Length: 3\r\n"
       "Content-Type: application/x-www-form-urlencoded\r\n\r\na=1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.method);
    RawTestServer raw;
    raw.enqueue({"HTTP/1.1 204 No Content\r\n\r\n"});
    HttpResult result = client_.send(requestFor(raw.url("/r"), c.method, {}, c.body));
    ASSERT_EQ(result.error, nullptr);
    std::string expected = c.expectedHead;
    expected.replace(expected.find("Host: H"), 7, "Host: 127.0.0.1:" + std::to_string(raw.port()));
    EXPECT_EQ(raw.requests(), std::vector<std::string>{expected});
  }
}

TEST_F(CurlHttpClientTest, HandsBackStatusUrlFieldsAndBody) {
  ScriptedResponse scripted;
  scripted.status = 401;
  scripted.headers = {{"Content-Type", "application/json;charset=UTF-8"},
                      {"WWW-Authenticate", "Bearer realm=\"a\""},
                      {"www-authenticate", "Bearer error=\"invalid_token\""}};
  scripted.body = "{\"error\":\"invalid_token\"}";
  server_.enqueue(scripted);
  const std::string url = server_.url("/api/resource?q=1");

  HttpResult result = client_.send(requestFor(url));

  ASSERT_EQ(result.error, nullptr);
  ASSERT_NE(result.response, nullptr);
  EXPECT_EQ(result.response->statusCode(), 401);
  EXPECT_EQ(result.response->url().absoluteString(), url);
  EXPECT_EQ(result.response->valueForHTTPHeaderField("content-type"),
            "application/json;charset=UTF-8");
  EXPECT_EQ(result.response->valueForHTTPHeaderField("WWW-AUTHENTICATE"),
            "Bearer realm=\"a\", Bearer error=\"invalid_token\"");
  EXPECT_EQ(result.response->valuesForHTTPHeaderField("WWW-Authenticate"),
            (std::vector<std::string>{"Bearer realm=\"a\"", "Bearer error=\"invalid_token\""}));
  EXPECT_EQ(result.response->valueForHTTPHeaderField("Content-Length"), "25");
  EXPECT_EQ(result.body, bytes(scripted.body));
}

TEST_F(CurlHttpClientTest, HandsBackRedirectsWithoutFollowingThem) {
  ScriptedResponse redirect;
  redirect.status = 302;
  redirect.headers = {{"Location", "/elsewhere"}};
  server_.enqueue(redirect);

  HttpResult result = client_.send(requestFor(server_.url("/start")));

  ASSERT_EQ(result.error, nullptr);
  EXPECT_EQ(result.response->statusCode(), 302);
  EXPECT_EQ(result.response->valueForHTTPHeaderField("Location"), "/elsewhere");
  EXPECT_EQ(result.response->valueForHTTPHeaderField("Content-Type"), std::nullopt);
  EXPECT_EQ(result.body, Data());
  ASSERT_EQ(server_.requests().size(), 1u);
}

TEST_F(CurlHttpClientTest, ConsecutiveRequestsShareOneConnectionButNoCookies) {
  server_.answer(
      "/a", ScriptedResponse{200, {{"Set-Cookie", "session=1; Path=/"}}, "one", std::nullopt, {}});
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(client_.send(requestFor(server_.url(i == 1 ? "/missing" : "/a"))).error, nullptr);
  }
  std::vector<test::RecordedRequest> requests = server_.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[1].remotePort, requests[0].remotePort);
  EXPECT_EQ(requests[2].remotePort, requests[0].remotePort);
  EXPECT_EQ(requests[1].header("Cookie"), std::nullopt);
  EXPECT_EQ(requests[2].header("Cookie"), std::nullopt);
}

TEST_F(CurlHttpClientTest, SendsFromSeveralThreadsAtOnce) {
  server_.answer("/t", ScriptedResponse{200, {}, "ok", std::nullopt, {}});
  constexpr int kThreads = 4;
  constexpr int kRequestsEach = 5;
  std::vector<int> successes(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRequestsEach; ++i) {
        HttpResult result = client_.send(requestFor(server_.url("/t"), "POST", {}, "x"));
        if (!result.error && result.body == bytes("ok")) ++successes[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(successes, std::vector<int>(kThreads, kRequestsEach));
  EXPECT_EQ(server_.requests().size(), static_cast<std::size_t>(kThreads * kRequestsEach));
}

TEST_F(CurlHttpClientTest, BoundsTheBodyAtTheLimit) {
  CurlHttpClientOptions options = trusting(server_.caFile());
  options.maxBodyBytes = 16;
  CurlHttpClient bounded(options);
  server_.enqueue(ScriptedResponse{200, {}, std::string(16, 'b'), std::nullopt, {}});
  HttpResult result = bounded.send(requestFor(server_.url("/")));
  ASSERT_EQ(result.error, nullptr);
  EXPECT_EQ(result.body, bytes(std::string(16, 'b')));
}

TEST_F(CurlHttpClientTest, DeliversTheDeclaredLengthOfALongerBody) {
  RawTestServer raw;
  raw.enqueue({"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcdef", false});
  HttpResult result = client_.send(requestFor(raw.url("/")));
  ASSERT_EQ(result.error, nullptr);
  EXPECT_EQ(result.body, bytes("abc"));
}

TEST_F(CurlHttpClientTest, TakesTheProxyFromTheEnvironment) {
  TestAuthorizationServer proxy(TestAuthorizationServer::Options{false});
  CurlHttpClient client;
  ScopedEnvironmentVariables viaProxy{{"no_proxy", nullptr}, {"http_proxy", proxy.url("").c_str()}};
  // The name is only handed to the proxy, never resolved here.
  HttpResult result = client.send(requestFor("http://proxied.invalid/path?q=1"));
  ASSERT_EQ(result.error, nullptr);
  EXPECT_EQ(result.response->statusCode(), 404);
  std::vector<test::RecordedRequest> requests = proxy.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].target, "http://proxied.invalid/path?q=1");
  EXPECT_EQ(requests[0].header("Host"), "proxied.invalid");
}

// Copies the PEM certificate in `caFile` into `directory` under its subject
// hash, the name OpenSSL looks a certificate up by.
void placeBySubjectHash(const std::string& caFile, const std::string& directory) {
  std::FILE* file = std::fopen(caFile.c_str(), "r");
  ASSERT_NE(file, nullptr);
  X509* certificate = PEM_read_X509(file, nullptr, nullptr, nullptr);
  std::fclose(file);
  ASSERT_NE(certificate, nullptr);
  char name[16];
  std::snprintf(name, sizeof name, "%08lx.0", X509_subject_name_hash(certificate));
  X509_free(certificate);
  std::filesystem::create_directories(directory);
  std::filesystem::copy_file(caFile, directory + "/" + name);
}

TEST_F(CurlHttpClientTest, TrustsTheCertificatesTheEnvironmentNames) {
  test::TemporaryDirectory directory;
  const std::string hashed = directory.pathOf("certs");
  placeBySubjectHash(server_.caFile(), hashed);
  const struct {
    const char* what;
    std::optional<std::string> file, directories;
    bool trusted;
  } cases[] = {
      {"nothing named", std::nullopt, std::nullopt, false},
      {"SSL_CERT_FILE", server_.caFile(), std::nullopt, true},
      {"SSL_CERT_DIR, second in its list", std::nullopt, directory.pathOf("none") + ":" + hashed,
       true},
      {"empty values", "", "", false},
      {"an unreadable file adds nothing", directory.pathOf("none.pem"), std::nullopt, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::FakeSystemIdentity identity;
    identity.setEnvironmentVariable("SSL_CERT_FILE", c.file);
    identity.setEnvironmentVariable("SSL_CERT_DIR", c.directories);
    test::ScopedSystemIdentity scope(identity);
    CurlHttpClient client;
    const HttpResult result = client.send(requestFor(server_.url("/")));
    if (c.trusted) {
      ASSERT_NE(result.response, nullptr) << result.error->code();
      EXPECT_EQ(result.response->statusCode(), 404);
    } else {
      ASSERT_NE(result.error, nullptr);
      EXPECT_EQ(result.error->code(), -1202);
    }
  }

  // The option's CA is trusted beside the environment's.
  TestAuthorizationServer other;
  test::FakeSystemIdentity identity;
  identity.setEnvironmentVariable("SSL_CERT_FILE", server_.caFile());
  test::ScopedSystemIdentity scope(identity);
  CurlHttpClient client(trusting(other.caFile()));
  EXPECT_NE(client.send(requestFor(server_.url("/"))).response, nullptr);
  EXPECT_NE(client.send(requestFor(other.url("/"))).response, nullptr);
}

TEST_F(CurlHttpClientTest, RefusesFieldsThatWouldBreakTheRequest) {
  const std::string url = server_.url("/");
  const HttpRequest cases[] = {
      requestFor(url, "GET /other"),
      requestFor(url, ""),
      requestFor(url, "GET", {{"X-A", "1\r\nX-Injected: 2"}}),
      requestFor(url, "GET", {{"X A", "1"}}),
      requestFor(url, "GET", {{"", "1"}}),
      requestFor(url, "GET", {{"X-A", std::string("a\0b", 3)}}),
  };
  for (const HttpRequest& request : cases) {
    SCOPED_TRACE(request.method + " " +
                 (request.headerFields.empty() ? "" : request.headerFields[0].first));
    HttpResult result = client_.send(request);
    ASSERT_NE(result.error, nullptr);
    EXPECT_EQ(result.error->domain(), "NSURLErrorDomain");
    EXPECT_EQ(result.error->code(), -1);
    EXPECT_EQ(result.error->localizedDescription(),
              "The request has a method or header field that cannot be sent.");
    EXPECT_EQ(result.response, nullptr);
  }
  EXPECT_TRUE(server_.requests().empty());
}

struct FailureCase {
  std::string label;
  std::string url;
  CurlHttpClientOptions options;
  std::int64_t code;
  std::string description;
};

void expectFailure(const FailureCase& c) {
  SCOPED_TRACE(c.label);
  CurlHttpClient client(c.options);
  HttpResult result = client.send(requestFor(c.url));
  EXPECT_EQ(result.response, nullptr);
  ASSERT_NE(result.error, nullptr);
  EXPECT_EQ(result.error->domain(), "NSURLErrorDomain");
  EXPECT_EQ(result.error->code(), c.code);
  ASSERT_TRUE(result.error->userInfo());
  const Dictionary& info = *result.error->userInfo();
  EXPECT_EQ(info.size(), 3u);
  EXPECT_EQ(info.findString("NSErrorFailingURLKey") ? *info.findString("NSErrorFailingURLKey") : "",
            c.url);
  EXPECT_EQ(info.findString("NSErrorFailingURLStringKey")
                ? *info.findString("NSErrorFailingURLStringKey")
                : "",
            c.url);
  EXPECT_EQ(result.error->localizedDescription(), c.description);
}

std::string pretending(const char* start) {
  return std::string(start) +
         " You might be connecting to a server that is pretending to be “127.0.0.1” which could "
         "put your confidential information at risk.";
}

TEST_F(CurlHttpClientTest, TurnsTransportFailuresIntoUrlErrors) {
  test::RefusingPort refusing;
  TestAuthorizationServer expired({true, TestAuthorizationServer::Certificate::kExpired});
  TestAuthorizationServer otherHost({true, TestAuthorizationServer::Certificate::kOtherHost});
  RawTestServer raw;
  raw.enqueue({""});
  raw.enqueue(
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
       "8\r\n01234567\r\n9\r\n012345678\r\n0\r\n\r\n"});
  server_.answer("/slow", ScriptedResponse{200, {}, "late", std::nullopt, std::chrono::seconds(2)});
  server_.answer("/cut", ScriptedResponse{200, {}, "0123456789", 100, {}});
  server_.answer("/big", ScriptedResponse{200, {}, std::string(17, 'b'), std::nullopt, {}});

  const CurlHttpClientOptions trusted = trusting(server_.caFile());
  CurlHttpClientOptions quick = trusted;
  quick.timeout = std::chrono::milliseconds(300);
  CurlHttpClientOptions small = trusted;
  small.maxBodyBytes = 16;
  CurlHttpClientOptions missingCa = trusted;
  missingCa.extraCaFile = "/nonexistent/ca.pem";
  const std::string lost = "The network connection was lost.";
  const std::string tooLarge = "The response body exceeds the maximum size of 16 bytes.";

  const FailureCase cases[] = {
      {"refused", "https://127.0.0.1:" + std::to_string(refusing.port()) + "/", trusted, -1004,
       "Could not connect to the server."},
      {"unknown host", "https://" + kUnresolvableHost + "/", trusted, -1003,
       "A server with the specified hostname could not be found."},
      {"untrusted",
       server_.url("/"),
       {},
       -1202,
       pretending("The certificate for this server is invalid.")},
      {"other host", otherHost.url("/"), trusting(otherHost.caFile()), -1202,
       pretending("The certificate for this server is invalid.")},
      {"expired", expired.url("/"), trusting(expired.caFile()), -1201,
       pretending("The certificate for this server has expired.")},
      {"unreadable extra CA", server_.url("/"), missingCa, -1200,
       "An SSL error has occurred and a secure connection to the server cannot be made."},
      {"timed out", server_.url("/slow"), quick, -1001, "The request timed out."},
      {"dropped mid-body", server_.url("/cut"), trusted, -1005, lost},
      {"closed without answer", raw.url("/"), trusted, -1005, lost},
      {"declared body too large", server_.url("/big"), small, -1103, tooLarge},
      {"chunked body too large", raw.url("/"), small, -1103, tooLarge},
      {"unsupported scheme", "ftp://127.0.0.1:1/", trusted, -1002, "unsupported URL"},
  };
  for (const FailureCase& c : cases) expectFailure(c);
}

TEST(HttpClient, DefaultsToOneCurlClientUntilReplaced) {
  std::shared_ptr<HttpClient> automatic = HttpClient::defaultClient();
  EXPECT_NE(dynamic_cast<CurlHttpClient*>(automatic.get()), nullptr);
  EXPECT_EQ(HttpClient::defaultClient(), automatic);

  auto replacement = std::make_shared<HttpClientWrapper>(automatic);
  HttpClient::setDefault(replacement);
  EXPECT_EQ(HttpClient::defaultClient(), replacement);

  HttpClient::setDefault(nullptr);
  std::shared_ptr<HttpClient> fresh = HttpClient::defaultClient();
  EXPECT_NE(dynamic_cast<CurlHttpClient*>(fresh.get()), nullptr);
  EXPECT_NE(fresh, automatic);
}

}  // namespace
}  // namespace velmor
