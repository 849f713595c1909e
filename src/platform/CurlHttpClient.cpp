#include "velmor/CurlHttpClient.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/CurlEasyHandle.h"
#include "platform/CurlErrorCode.h"
#include "platform/CurlGlobal.h"
#include "platform/CurlHeaderList.h"
#include "platform/CurlShareHandle.h"
#include "platform/TrustStore.h"
#include "platform/UrlLoadingError.h"
#include "support/Text.h"

namespace velmor {

namespace {

// Idle handles kept for the next requests. Senders beyond this many at once
// make handles of their own and drop them afterwards.
constexpr std::size_t kMaxIdleHandles = 4;

// The response body as it arrives, bounded so that a hostile or broken
// server cannot make the process grow without limit.
struct ResponseBody {
  Data bytes;
  std::size_t limit = 0;
  bool exceeded = false;
};

std::size_t appendToBody(char* data, std::size_t size, std::size_t count, void* context) {
  auto* body = static_cast<ResponseBody*>(context);
  const std::size_t length = size * count;
  if (length > body->limit - body->bytes.size()) {
    body->exceeded = true;
    return 0;  // anything but `length` makes libcurl abort the transfer
  }
  try {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
    body->bytes.insert(body->bytes.end(), bytes, bytes + length);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return length;
}

// Collects the first failure of a run of curl_easy_setopt calls.
class OptionSetter final {
 public:
  explicit OptionSetter(CURL* handle) : handle_(handle) {}

  template <typename T>
  OptionSetter& operator()(CURLoption option, T value) {
    if (result_ == CURLE_OK) result_ = curl_easy_setopt(handle_, option, value);
    return *this;
  }

  CURLcode result() const { return result_; }

 private:
  CURL* handle_;
  CURLcode result_ = CURLE_OK;
};

bool isTokenCharacter(char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

// A line break or NUL in a value would end the field early and let the rest
// pass as further fields or a second request.
bool isFieldValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool isWellFormed(const HttpRequest& request) {
  return isToken(request.method) &&
         std::all_of(
             request.headerFields.begin(), request.headerFields.end(),
             [](const auto& field) { return isToken(field.first) && isFieldValue(field.second); });
}

// libcurl reads "Name:" with nothing after the colon as "do not send Name";
// "Name;" is its way to send a field with an empty value.
std::string headerLine(const std::string& name, const std::string& value) {
  if (value.find_first_not_of(" \t") == std::string::npos) return name + ";";
  return name + ": " + value;
}

bool hasField(const HttpRequest& request, std::string_view name) {
  return std::any_of(
      request.headerFields.begin(), request.headerFields.end(),
      [&](const auto& field) { return text::equalsIgnoringCase(field.first, name); });
}

CURLcode fillHeaderList(const HttpRequest& request, CurlHeaderList& list) {
  for (const auto& [name, value] : request.headerFields) {
    if (!list.append(headerLine(name, value))) return CURLE_OUT_OF_MEMORY;
  }
  // libcurl would announce larger bodies with "Expect: 100-continue" and wait
  // for the server's go-ahead, a round trip our servers do not need.
  if (!hasField(request, "Expect") && !list.append("Expect:")) return CURLE_OUT_OF_MEMORY;
  return CURLE_OK;
}

void setMethodAndBody(OptionSetter& set, const HttpRequest& request) {
  const std::string& method = request.method;
  if (method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
    return;
  }
  if (request.body.empty() && method != "POST" && method != "PUT" && method != "PATCH") {
    set(CURLOPT_HTTPGET, 1L);
  } else {
    // Never null: libcurl would then read the body from its read callback.
    const char* bytes =
        request.body.empty() ? "" : reinterpret_cast<const char*>(request.body.data());
    set(CURLOPT_POSTFIELDS, bytes);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  }
  if (method != "GET" && method != "POST") set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

long timeoutMilliseconds(std::chrono::milliseconds timeout) {
  if (timeout.count() <= 0) return 0;  // libcurl's "no limit"
  return static_cast<long>(
      std::min<std::chrono::milliseconds::rep>(timeout.count(), std::numeric_limits<long>::max()));
}

curl_off_t declaredSizeLimit(std::size_t maxBodyBytes) {
  return static_cast<curl_off_t>(
      std::min<std::uintmax_t>(maxBodyBytes, std::numeric_limits<curl_off_t>::max()));
}

// The final response's fields in the order received; interim (1xx) and
// proxy CONNECT responses and trailers are left out.
HttpUrlResponse::HeaderFields responseHeaderFields(CURL* handle) {
  HttpUrlResponse::HeaderFields fields;
  curl_header* field = nullptr;
  while ((field = curl_easy_nextheader(handle, CURLH_HEADER, -1, field)) != nullptr) {
    fields.emplace_back(field->name, field->value);
  }
  return fields;
}

}  // namespace

class CurlHttpClient::Impl {
 public:
  explicit Impl(CurlHttpClientOptions options);

  HttpResult send(const HttpRequest& request);

 private:
  std::optional<CurlEasyHandle> takeHandle();
  void keepHandle(CurlEasyHandle handle);
  HttpResult exchange(CURL* handle, const HttpRequest& request);
  CURLcode configure(CURL* handle, const HttpRequest& request, const CurlHeaderList& headers,
                     ResponseBody& body);
  HttpResult failure(CURLcode code, long verifyResult, const Url& url, Data partialBody) const;

  static CURLcode onSslContext(CURL* handle, void* sslContext, void* impl);
  CURLcode installTrustStore(SSL_CTX* context);

  const CurlHttpClientOptions options_;
  std::optional<std::string> systemBundle_;
  const EnvironmentCertificates environmentCertificates_ =
      EnvironmentCertificates::fromEnvironment();
  // Declared before the idle handles: they must go first, detaching from it.
  std::optional<CurlShareHandle> share_;

  std::mutex trustMutex_;
  std::optional<TrustStore> trust_;  // guarded by trustMutex_

  std::mutex idleMutex_;
  std::vector<CurlEasyHandle> idle_;  // guarded by idleMutex_; the last is the newest
};

CurlHttpClient::Impl::Impl(CurlHttpClientOptions options)
    : options_(std::move(options)), share_(CurlShareHandle::create()) {
  std::optional<CurlEasyHandle> first = CurlEasyHandle::create();
  if (!first) return;
  char* bundle = nullptr;
  if (curl_easy_getinfo(first->get(), CURLINFO_CAINFO, &bundle) == CURLE_OK && bundle != nullptr) {
    systemBundle_ = bundle;
  }
  idle_.push_back(std::move(*first));
}

HttpResult CurlHttpClient::Impl::send(const HttpRequest& request) {
  if (!share_) return failure(CURLE_FAILED_INIT, 0, request.url, {});
  if (!isWellFormed(request)) return {nullptr, std::nullopt, malformedRequestError(request.url)};
  std::optional<CurlEasyHandle> handle = takeHandle();
  if (!handle) return failure(CURLE_OUT_OF_MEMORY, 0, request.url, {});
  HttpResult result = exchange(handle->get(), request);
  keepHandle(std::move(*handle));
  return result;
}

// The newest idle handle most likely still holds a live connection to the
// server the caller spoke to last.
std::optional<CurlEasyHandle> CurlHttpClient::Impl::takeHandle() {
  {
    std::lock_guard<std::mutex> lock(idleMutex_);
    if (!idle_.empty()) {
      CurlEasyHandle handle = std::move(idle_.back());
      idle_.pop_back();
      return handle;
    }
  }
  return CurlEasyHandle::create();
}

void CurlHttpClient::Impl::keepHandle(CurlEasyHandle handle) {
  std::lock_guard<std::mutex> lock(idleMutex_);
  if (idle_.size() < kMaxIdleHandles) idle_.push_back(std::move(handle));
}

HttpResult CurlHttpClient::Impl::exchange(CURL* handle, const HttpRequest& request) {
  CurlHeaderList headers;
  ResponseBody body;
  body.limit = options_.maxBodyBytes;
  CURLcode code = fillHeaderList(request, headers);
  if (code == CURLE_OK) code = configure(handle, request, headers, body);
  if (code == CURLE_OK) code = curl_easy_perform(handle);
  if (body.exceeded) code = CURLE_FILESIZE_EXCEEDED;
  if (code != CURLE_OK) {
    long verifyResult = 0;
    curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verifyResult);
    return failure(code, verifyResult, request.url, std::move(body.bytes));
  }
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  // Redirects are not followed, so the response's URL is the request's.
  auto response =
      std::make_shared<HttpUrlResponse>(request.url, status, responseHeaderFields(handle));
  return {std::move(response), std::move(body.bytes), nullptr};
}

CURLcode CurlHttpClient::Impl::configure(CURL* handle, const HttpRequest& request,
                                         const CurlHeaderList& headers, ResponseBody& body) {
  // A reset handle keeps its live connections and caches but forgets the
  // previous request's method, body and fields.
  curl_easy_reset(handle);
  OptionSetter set(handle);
  set(CURLOPT_SHARE, share_->get());
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_URL, request.url.absoluteString().c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  // The library's server exchanges never expect a redirect; a 3xx is handed
  // back as it came.
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_TIMEOUT_MS, timeoutMilliseconds(options_.timeout));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  // No CA file or directory for libcurl to load per connection: every
  // connection gets the client's one loaded store instead.
  set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
  set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  set(CURLOPT_SSL_CTX_FUNCTION, &Impl::onSslContext);
  set(CURLOPT_SSL_CTX_DATA, this);
  set(CURLOPT_WRITEFUNCTION, &appendToBody);
  set(CURLOPT_WRITEDATA, &body);
  // Refuses a body whose declared length is already too large; the write
  // callback bounds bodies of unknown length.
  if (options_.maxBodyBytes > 0) {
    set(CURLOPT_MAXFILESIZE_LARGE, declaredSizeLimit(options_.maxBodyBytes));
  }
  setMethodAndBody(set, request);
  set(CURLOPT_HTTPHEADER, headers.get());
  return set.result();
}

CURLcode CurlHttpClient::Impl::onSslContext(CURL*, void* sslContext, void* impl) {
  return static_cast<Impl*>(impl)->installTrustStore(static_cast<SSL_CTX*>(sslContext));
}

// Loads the store at the first TLS connection, so that a client that never
// speaks HTTPS never reads the bundle; later connections only take a
// reference.
CURLcode CurlHttpClient::Impl::installTrustStore(SSL_CTX* context) {
  std::lock_guard<std::mutex> lock(trustMutex_);
  if (!trust_) {
    trust_ = TrustStore::load(systemBundle_, environmentCertificates_, options_.extraCaFile);
  }
  if (!trust_) return CURLE_SSL_CACERT_BADFILE;
  SSL_CTX_set1_cert_store(context, trust_->get());
  return CURLE_OK;
}

HttpResult CurlHttpClient::Impl::failure(CURLcode code, long verifyResult, const Url& url,
                                         Data partialBody) const {
  HttpResult result;
  result.error = urlLoadingError(urlErrorCode(code, verifyResult), url, options_.maxBodyBytes);
  if (!partialBody.empty()) result.body = std::move(partialBody);
  return result;
}

CurlHttpClient::CurlHttpClient(CurlHttpClientOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

CurlHttpClient::~CurlHttpClient() = default;

HttpResult CurlHttpClient::send(const HttpRequest& request) { return impl_->send(request); }

}  // namespace velmor
