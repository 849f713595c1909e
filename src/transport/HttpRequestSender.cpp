#include "transport/HttpRequestSender.h"
#include "platform/Uuid.h"

#include <chrono>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/SystemIdentity.h"
#include "support/Format.h"
#include "support/Text.h"
#include "transport/HttpUserAgent.h"
#include "transport/HttpUtility.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {
namespace {

constexpr char kRequestLog[] =
    "Sending '%@' request:\r\nURL: '%@'\r\nVerb: '%@'\r\nHeaders: %@\r\nContent: '%@'\r\n";
constexpr char kRedactedRequestLog[] =
    "Sending '%@' request:\r\nURL: '%@'\r\nVerb: '%@'\r\nHeaders: %@\r\nContent (Redacted): "
    "'%@'\r\n";
constexpr char kResponseLog[] =
    "Received '%@' response:\r\nError: '%@'\r\nURL: '%@'\r\nStatus code: %@\r\nHeaders: "
    "'%@'\r\nContent: '%@'\r\n";
constexpr char kRedactedResponseLog[] =
    "Received '%@' response:\r\nError: '%@'\r\nURL: '%@'\r\nStatus code: %@\r\nHeaders: "
    "'%@'\r\nContent (Redacted): '%@'\r\n";

constexpr char kAuthorizationHeader[] = "Authorization";
constexpr char kRedactedAuthorizationHeader[] = "Authorization (Redacted)";
constexpr std::string_view kRedactedAuthorizationPrefix = "Basic ";
constexpr char kFailingUrlKey[] = "NSErrorFailingURLKey";
constexpr char kDefaultLanguage[] = "en-US";

void sleepForSeconds(std::uint64_t seconds) {
  if (seconds > 0) std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

// The first of the variables that POSIX consults for message texts.
std::string acceptLanguage() {
  SystemIdentity& identity = SystemIdentity::defaultIdentity();
  std::optional<std::string> locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    locale = identity.environmentVariable(name);
    if (locale && !locale->empty()) break;
  }
  if (!locale) return kDefaultLanguage;
  std::string language = locale->substr(0, locale->find_first_of(".@"));
  if (language.empty() || language == "C" || language == "POSIX") return kDefaultLanguage;
  for (char& c : language) {
    if (c == '_') c = '-';
  }
  return language;
}

std::string headerText(const Value& value) {
  const std::string* text = value.stringValue();
  return text != nullptr ? *text : value.description();
}

// Header names match ignoring case, as HTTP has it; the last setting wins.
void setHeader(HttpUrlResponse::HeaderFields& fields, std::string name, std::string value) {
  std::erase_if(fields,
                [&](const auto& field) { return text::equalsIgnoringCase(field.first, name); });
  fields.emplace_back(std::move(name), std::move(value));
}

Dictionary dictionaryOf(const HttpUrlResponse::HeaderFields& fields) {
  Dictionary dictionary;
  for (const auto& [name, value] : fields) dictionary.set(name, value);
  return dictionary;
}

std::string stars(const std::optional<std::string>& text) {
  return std::string(text ? text::utf16Length(*text) : 0, '*');
}

std::optional<std::string> failingUrlOf(const ErrorRef& error) {
  if (!error || !error->userInfo()) return std::nullopt;
  const Value* url = error->userInfo()->find(kFailingUrlKey);
  if (url == nullptr) return std::nullopt;
  return headerText(*url);
}

}  // namespace

HttpRequestSender::HttpRequestSender(std::shared_ptr<HttpClient> client, SleepFunction sleep)
    : client_(client ? std::move(client) : HttpClient::defaultClient()),
      sleep_(sleep ? std::move(sleep) : SleepFunction(sleepForSeconds)) {}

std::optional<Data> HttpRequestSender::send(const std::string& requestName, const Url& url,
                                            const std::string& verb, const Dictionary& headers,
                                            const Data& body,
                                            std::shared_ptr<HttpUrlResponse>* response,
                                            ErrorRef* error) {
  sleep_(simulatedNetworkDelayInterval_);

  HttpRequest request(url);
  for (const auto& [name, value] : headers)
    request.headerFields.emplace_back(name, headerText(value));
  setHeader(request.headerFields, "User-Agent", HttpUserAgent::text());
  setHeader(request.headerFields, "Accept-Language", acceptLanguage());
  setHeader(request.headerFields, "Cache-Control", "no-cache, no-store");
  setHeader(request.headerFields, "velmor_tid", Uuid::randomLowercaseString());
  request.method = verb;
  request.body = body;

  // The fields hold the client credentials: copied only for a line that is written.
  if (VelmorAuthorizationLogger::sharedLogger().isLoggable(VelmorAuthorizationLogger::kLevelInfo)) {
    logRequest(requestName, url, verb, dictionaryOf(request.headerFields), body);
  }
  HttpResult result = client_->send(request);
  logResponse(requestName, result.error, result.response, result.body);

  if (response != nullptr) *response = std::move(result.response);
  if (error != nullptr) *error = std::move(result.error);
  return std::move(result.body);
}

void HttpRequestSender::logRequest(const std::string& requestName, const Url& url,
                                   const std::string& verb, const Dictionary& headers,
                                   const Data& content) {
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  // The body holds passwords and tokens: no copy of it unless a line is written.
  if (!logger.isLoggable(VelmorAuthorizationLogger::kLevelInfo)) return;
  const std::optional<std::string> text = HttpUtility::stringFromUtf8Data(content);
  if (logger.isLoggable(VelmorAuthorizationLogger::kLevelSensitive)) {
    logger.log(stringWithFormat(kRequestLog, requestName, url, verb, headers, text),
               VelmorAuthorizationLogger::kLevelSensitive);
  } else {
    logger.log(stringWithFormat(kRedactedRequestLog, requestName, url, verb,
                                redactAuthorizationHeader(headers), stars(text)),
               VelmorAuthorizationLogger::kLevelInfo);
  }
}

void HttpRequestSender::logResponse(const std::string& requestName, const ErrorRef& error,
                                    const std::shared_ptr<HttpUrlResponse>& httpUrlResponse,
                                    const std::optional<Data>& content) {
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  if (!logger.isLoggable(VelmorAuthorizationLogger::kLevelInfo)) return;
  std::optional<std::string> url = failingUrlOf(error);
  std::optional<std::string> statusCode;
  std::optional<std::string> headers;
  if (httpUrlResponse) {
    if (!url) url = httpUrlResponse->url().absoluteString();
    statusCode = std::to_string(httpUrlResponse->statusCode());
    headers = Value(httpUrlResponse->allHeaderFields()).description();
  }
  const std::optional<std::string> text = HttpUtility::stringFromUtf8Data(content);
  if (logger.isLoggable(VelmorAuthorizationLogger::kLevelSensitive)) {
    logger.log(stringWithFormat(kResponseLog, requestName, error, url, statusCode, headers, text),
               VelmorAuthorizationLogger::kLevelSensitive);
  } else {
    logger.log(stringWithFormat(kRedactedResponseLog, requestName, error, url, statusCode, headers,
                                stars(text)),
               VelmorAuthorizationLogger::kLevelInfo);
  }
}

Dictionary HttpRequestSender::redactAuthorizationHeader(const Dictionary& headers) {
  const Value* authorization = headers.find(kAuthorizationHeader);
  if (authorization == nullptr) return headers;
  const std::size_t length = text::utf16Length(headerText(*authorization));
  // Always "Basic ", also for a Bearer header: the log shows only that a
  // credential went out and how long it was, in one shape for all.
  std::string redacted(kRedactedAuthorizationPrefix.substr(0, length));
  redacted.append(length - redacted.size(), '*');
  Dictionary copy = headers;
  copy.erase(kAuthorizationHeader);
  copy.set(kRedactedAuthorizationHeader, std::move(redacted));
  return copy;
}

}  // namespace velmor
