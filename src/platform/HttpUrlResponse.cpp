#include "velmor/HttpUrlResponse.h"

#include <algorithm>
#include <utility>

#include "support/Text.h"

namespace velmor {

namespace {

struct StatusPhrase {
  std::int64_t code;
  const char* phrase;
};

// Sorted by code for a binary search.
constexpr StatusPhrase kStatusPhrases[] = {
    {100, "continue"},
    {101, "switching protocols"},
    {200, "no error"},
    {201, "created"},
    {202, "accepted"},
    {203, "non-authoritative information"},
    {204, "no content"},
    {205, "reset content"},
    {206, "partial content"},
    {300, "multiple choices"},
    {301, "moved permanently"},
    {302, "found"},
    {303, "see other"},
    {304, "not modified"},
    {305, "use proxy"},
    {307, "temporarily redirected"},
    {308, "permanently redirected"},
    {400, "bad request"},
    {401, "unauthorized"},
    {402, "payment required"},
    {403, "forbidden"},
    {404, "not found"},
    {405, "method not allowed"},
    {406, "unacceptable"},
    {407, "proxy authentication required"},
    {408, "request timed out"},
    {409, "conflict"},
    {410, "no longer exists"},
    {411, "length required"},
    {412, "precondition failed"},
    {413, "request too large"},
    {414, "requested URL too long"},
    {415, "unsupported media type"},
    {416, "requested range not satisfiable"},
    {417, "expectation failed"},
    {422, "unprocessable entity"},
    {428, "precondition required"},
    {429, "too many requests"},
    {431, "request header fields too large"},
    {500, "internal server error"},
    {501, "unimplemented"},
    {502, "bad gateway"},
    {503, "service unavailable"},
    {504, "gateway timed out"},
    {505, "unsupported version"},
    {511, "network authentication required"},
};

// Field names as the platform hands them out: servers (and HTTP/2) may send
// "content-type", while the library looks fields up as "Content-Type".
std::string canonicalHeaderName(std::string_view name) {
  static constexpr std::string_view kIrregular[] = {"WWW-Authenticate", "ETag", "Content-MD5", "TE",
                                                    "DNT"};
  for (std::string_view irregular : kIrregular) {
    if (text::equalsIgnoringCase(irregular, name)) return std::string(irregular);
  }
  std::string canonical = text::toLowerAscii(name);
  bool startOfWord = true;
  for (char& c : canonical) {
    if (startOfWord && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    startOfWord = c == '-';
  }
  return canonical;
}

}  // namespace

HttpUrlResponse::HttpUrlResponse(Url url, std::int64_t statusCode, const HeaderFields& headerFields)
    : url_(std::move(url)), statusCode_(statusCode), receivedFields_(headerFields) {
  for (const auto& field : headerFields) {
    auto same = std::find_if(headerFields_.begin(), headerFields_.end(), [&](const auto& kept) {
      return text::equalsIgnoringCase(kept.first, field.first);
    });
    if (same == headerFields_.end()) {
      headerFields_.emplace_back(canonicalHeaderName(field.first), field.second);
    } else {
      same->second += ", " + field.second;
    }
  }
}

Dictionary HttpUrlResponse::allHeaderFields() const {
  Dictionary fields;
  for (const auto& [name, value] : headerFields_) fields.set(name, value);
  return fields;
}

std::optional<std::string> HttpUrlResponse::valueForHTTPHeaderField(std::string_view name) const {
  for (const auto& [fieldName, value] : headerFields_) {
    if (text::equalsIgnoringCase(fieldName, name)) return value;
  }
  return std::nullopt;
}

std::vector<std::string> HttpUrlResponse::valuesForHTTPHeaderField(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [fieldName, value] : receivedFields_) {
    if (text::equalsIgnoringCase(fieldName, name)) values.push_back(value);
  }
  return values;
}

std::string HttpUrlResponse::localizedStringForStatusCode(std::int64_t statusCode) {
  auto it = std::lower_bound(
      std::begin(kStatusPhrases), std::end(kStatusPhrases), statusCode,
      [](const StatusPhrase& entry, std::int64_t code) { return entry.code < code; });
  if (it != std::end(kStatusPhrases) && it->code == statusCode) return it->phrase;
  switch (statusCode / 100) {
    case 1:
      return "informational";
    case 2:
      return "success";
    case 3:
      return "redirected";
    case 4:
      return "client error";
    default:
      return "server error";
  }
}

}  // namespace velmor
