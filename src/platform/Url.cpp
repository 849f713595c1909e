#include "velmor/Url.h"

#include <curl/curl.h>

#include <memory>

namespace velmor {

namespace {

struct CurlUrlDeleter {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrlHandle = std::unique_ptr<CURLU, CurlUrlDeleter>;

struct CurlTextDeleter {
  void operator()(char* text) const { curl_free(text); }
};

// Accepts any scheme: redirect addresses of desktop applications use their own.
constexpr unsigned int kParseFlags = CURLU_NON_SUPPORT_SCHEME;

bool isSchemeStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isSchemeChar(char c) {
  return isSchemeStart(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

// Length of the scheme before ":", or 0 when the text does not start with one.
std::size_t schemeLength(std::string_view text) {
  if (text.empty() || !isSchemeStart(text[0])) return 0;
  std::size_t i = 1;
  while (i < text.size() && isSchemeChar(text[i])) ++i;
  return i < text.size() && text[i] == ':' ? i : 0;
}

// URLs are ASCII without spaces or control characters; anything else must be
// percent-encoded by whoever made the text.
bool hasOnlyUrlCharacters(std::string_view text) {
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte >= 0x7F) return false;
  }
  return true;
}

std::optional<std::string> part(CURLU* handle, CURLUPart which) {
  char* raw = nullptr;
  if (curl_url_get(handle, which, &raw, 0) != CURLUE_OK || raw == nullptr) return std::nullopt;
  std::unique_ptr<char, CurlTextDeleter> owned(raw);
  return std::string(raw);
}

CurlUrlHandle parseHierarchical(std::string_view text) {
  CurlUrlHandle handle(curl_url());
  if (!handle) return nullptr;
  std::string copy(text);
  if (curl_url_set(handle.get(), CURLUPART_URL, copy.c_str(), kParseFlags) != CURLUE_OK) {
    return nullptr;
  }
  return handle;
}

}  // namespace

std::optional<Url> Url::withString(std::string_view text) {
  if (!hasOnlyUrlCharacters(text)) return std::nullopt;
  std::size_t schemeEnd = schemeLength(text);
  if (schemeEnd == 0) return std::nullopt;

  Url url;
  url.absolute_ = std::string(text);
  url.scheme_ = std::string(text.substr(0, schemeEnd));
  std::string_view rest = text.substr(schemeEnd + 1);

  if (rest.substr(0, 2) == "//") {
    CurlUrlHandle handle = parseHierarchical(text);
    if (!handle) return std::nullopt;
    url.host_ = part(handle.get(), CURLUPART_HOST);
    url.port_ = part(handle.get(), CURLUPART_PORT);
    url.fragment_ = part(handle.get(), CURLUPART_FRAGMENT);
    url.query_ = part(handle.get(), CURLUPART_QUERY);
    // curl answers "/" for an empty path; keep what the text says.
    std::string_view afterAuthority = rest.substr(2);
    std::size_t pathStart = afterAuthority.find_first_of("/?#");
    bool hasPath = pathStart != std::string_view::npos && afterAuthority[pathStart] == '/';
    url.path_ = hasPath ? part(handle.get(), CURLUPART_PATH).value_or("") : "";
    // curl drops an empty query ("?"); the text still has one.
    if (!url.query_ && text.find('?') != std::string_view::npos &&
        text.find('?') < text.find('#')) {
      url.query_ = "";
    }
    return url;
  }

  // An opaque URL ("mailto:x", "urn:a:b"): path, then query and fragment.
  std::size_t fragmentStart = rest.find('#');
  if (fragmentStart != std::string_view::npos) {
    url.fragment_ = std::string(rest.substr(fragmentStart + 1));
    rest = rest.substr(0, fragmentStart);
  }
  std::size_t queryStart = rest.find('?');
  if (queryStart != std::string_view::npos) {
    url.query_ = std::string(rest.substr(queryStart + 1));
    rest = rest.substr(0, queryStart);
  }
  url.path_ = std::string(rest);
  return url;
}

std::optional<Url> Url::withString(std::string_view relative, const Url& base) {
  if (!hasOnlyUrlCharacters(relative)) return std::nullopt;
  if (schemeLength(relative) != 0) return withString(relative);
  // The base's fragment names a place within its page (a hash-routed
  // "#/a/b" as often as not): it must neither lend its slashes to the path
  // nor swallow the query that follows, and it is never part of the result.
  const std::string& baseText = base.absoluteString();
  if (relative.empty()) return withString(std::string_view(baseText).substr(0, baseText.find('#')));
  CurlUrlHandle handle = parseHierarchical(baseText);
  if (!handle) return std::nullopt;
  if (curl_url_set(handle.get(), CURLUPART_FRAGMENT, nullptr, 0) != CURLUE_OK) return std::nullopt;
  std::string copy(relative);
  if (curl_url_set(handle.get(), CURLUPART_URL, copy.c_str(), kParseFlags) != CURLUE_OK) {
    return std::nullopt;
  }
  std::optional<std::string> resolved = part(handle.get(), CURLUPART_URL);
  if (!resolved) return std::nullopt;
  return withString(*resolved);
}

}  // namespace velmor
