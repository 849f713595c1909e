#include "transport/HttpTransaction.h"

#include <utility>

#include "json/xSBJsonParser.h"
#include "support/AuthorizationServerErrorParser.h"
#include "support/Format.h"
#include "support/Text.h"
#include "velmor/Base64.h"
#include "velmor/Exception.h"
#include "velmor/ServerErrorResponse.h"
#include "velmor/VelmorAuthorizationError.h"

namespace velmor {
namespace {

constexpr char kAbstractMethod[] = "This method, %@, must be overridden in a subclass";
constexpr char kContentTypeHeader[] = "Content-Type";
constexpr char kContentLengthHeader[] = "Content-Length";
constexpr char kParseErrorDetailKey[] = "Parse error detail";

ErrorRef networkError(std::int64_t code, std::optional<Dictionary> userInfo) {
  return VelmorAuthorizationError::errorWithDomain(NetworkCommunicationErrorDomain, code,
                                                   std::move(userInfo));
}

std::optional<std::string> headerValue(const Dictionary& headers, std::string_view name) {
  const std::string* value = headers.findString(name);
  if (value == nullptr) return std::nullopt;
  return *value;
}

std::string toUpperAscii(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

}  // namespace

HttpTransaction::HttpTransaction(std::shared_ptr<SecureData> secureData)
    : secureData_(std::move(secureData)) {}

Data HttpTransaction::generateRequest(const Url&, std::optional<Url>*, Dictionary*, std::string*) {
  throw InternalInconsistencyException(
      stringWithFormat(kAbstractMethod, "generateRequest:completeUrl:headers:verb:"));
}

ErrorRef HttpTransaction::handleResponse(const std::shared_ptr<HttpUrlResponse>&,
                                         const std::optional<Data>&) {
  throw InternalInconsistencyException(
      stringWithFormat(kAbstractMethod, "handleResponse:content:"));
}

bool HttpTransaction::isContentTypeJsonUtf8(const std::optional<std::string>& contentType) const {
  if (!contentType) return false;
  const std::string upper = toUpperAscii(*contentType);
  if (!upper.starts_with("APPLICATION/JSON")) return false;
  // Without a charset JSON is UTF-8; with one, any mention of UTF-8 will do.
  if (upper.find("CHARSET") == std::string::npos) return true;
  return upper.find("UTF-8") != std::string::npos;
}

ErrorRef HttpTransaction::validateResponseContentTypeIsJsonUtf8(const Dictionary& headers) const {
  const std::optional<std::string> contentType = headerValue(headers, kContentTypeHeader);
  if (!contentType) return networkError(kNetworkErrorMissingContentType, headers);
  if (!isContentTypeJsonUtf8(contentType))
    return networkError(kNetworkErrorUnexpectedContentType, headers);
  return nullptr;
}

ErrorRef HttpTransaction::validateResponseContent(const Dictionary& headers,
                                                  const std::optional<Data>& content) const {
  std::optional<std::int64_t> declaredLength;
  const std::optional<std::string> lengthText = headerValue(headers, kContentLengthHeader);
  if (lengthText && !lengthText->empty()) {
    declaredLength = text::integerValue(*lengthText);
    // A declared empty body is refused even when the body is indeed empty.
    if (*declaredLength == 0) return networkError(kNetworkErrorUnexpectedContentLength, headers);
  }
  if (content && !content->empty()) {
    const auto actualLength = static_cast<std::int64_t>(content->size());
    if (!declaredLength || *declaredLength == actualLength) return nullptr;
    return networkError(kNetworkErrorContentLengthMismatch, headers);
  }
  return networkError(kNetworkErrorUnexpectedContent, headers);
}

std::optional<Value> HttpTransaction::parseJsonData(const std::optional<Data>& content,
                                                    ErrorRef* error) const {
  xSBJsonParser parser;
  std::optional<Value> parsed =
      content ? parser.objectWithData(*content) : parser.objectWithData(nullptr, 0);
  if (!parsed && error != nullptr) {
    Dictionary detail;
    if (parser.error()) detail.set(kParseErrorDetailKey, *parser.error());
    *error = networkError(kNetworkErrorUnexpectedContent, std::move(detail));
  }
  return parsed;
}

ErrorRef HttpTransaction::parseAndHandleResponseContent(const std::optional<Data>& content) {
  ErrorRef parseError;
  const std::optional<Value> parsed = parseJsonData(content, &parseError);
  if (!parsed) return parseError;
  // Every error answer is an object; anything else reads as one without keys.
  const Dictionary* object = parsed->dictionaryValue();
  const Dictionary body = object != nullptr ? *object : Dictionary();

  auto serverErrorResponse = std::make_shared<ServerErrorResponse>(body);
  const std::int64_t code = AuthorizationServerErrorParser::parse(serverErrorResponse->error());
  discardCredentialsRejectedBy(code);
  return std::make_shared<VelmorAuthorizationError>(std::move(serverErrorResponse), code, body);
}

ErrorRef HttpTransaction::handleResponseError(const std::shared_ptr<HttpUrlResponse>& response,
                                              const std::optional<Data>& content) {
  const Dictionary headers = response ? response->allHeaderFields() : Dictionary();
  if (isContentTypeJsonUtf8(headerValue(headers, kContentTypeHeader))) {
    if (ErrorRef error = validateResponseContent(headers, content)) return error;
    return parseAndHandleResponseContent(content);
  }
  return std::make_shared<VelmorAuthorizationError>(response);
}

ErrorRef HttpTransaction::handleAuthenticateResponseError(const std::optional<Data>& content) {
  return parseAndHandleResponseContent(content);
}

std::string HttpTransaction::clientBasicAuthorizationHeader() const {
  // The credentials go in as the server issued them: the server expects
  // them unencoded, unlike the usual form-encoded Basic credentials.
  const std::string credentials =
      stringWithFormat("%@:%@", secureData_->clientId(), secureData_->clientSecret());
  const Data bytes(credentials.begin(), credentials.end());
  return stringWithFormat("Basic %@", Base64::encodeBase64WithData(bytes));
}

Data HttpTransaction::formRequest(const Url& baseUrl, std::string_view path,
                                  Dictionary requestHeaders, std::string_view requestVerb,
                                  std::string_view form, std::optional<Url>* completeUrl,
                                  Dictionary* headers, std::string* verb) {
  if (completeUrl != nullptr) *completeUrl = Url::withString(path, baseUrl);
  if (headers != nullptr) *headers = std::move(requestHeaders);
  if (verb != nullptr) *verb = requestVerb;
  return Data(form.begin(), form.end());
}

std::optional<Dictionary> HttpTransaction::readJsonContent(const HttpUrlResponse& response,
                                                           const std::optional<Data>& content,
                                                           ErrorRef* error) const {
  const Dictionary headers = response.allHeaderFields();
  ErrorRef failure = validateResponseContentTypeIsJsonUtf8(headers);
  if (!failure) failure = validateResponseContent(headers, content);
  std::optional<Value> parsed;
  if (!failure) parsed = parseJsonData(content, &failure);
  if (failure) {
    if (error != nullptr) *error = std::move(failure);
    return std::nullopt;
  }
  const Dictionary* object = parsed->dictionaryValue();
  return object != nullptr ? *object : Dictionary();
}

void HttpTransaction::discardRejectedGrant() {
  // The grant is gone but the client registration still stands.
  secureData_->deleteTokenEntries();
}

void HttpTransaction::discardCredentialsRejectedBy(std::int64_t authorizationServerError) {
  switch (authorizationServerError) {
    case kServerErrorInvalidClient:
    case kServerErrorUnauthorizedClient:
      // An unknown client: its registration is worthless, and so is all else.
      secureData_->deleteAll();
      break;
    case kServerErrorInvalidGrant:
      discardRejectedGrant();
      break;
    default:
      break;
  }
}

}  // namespace velmor
