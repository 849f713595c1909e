// An absolute URL, as the library's server base, request and redirect
// addresses are given.
#ifndef VELMOR_URL_H_
#define VELMOR_URL_H_

#include <optional>
#include <string>
#include <string_view>

#include "velmor/Export.h"

namespace velmor {

// An immutable, parsed absolute URL. Made only through `withString`, which
// answers nothing for text that is not a URL.
class VELMOR_EXPORT Url {
 public:
  // Parses an absolute URL ("https://host/path?query"), or an opaque one
  // such as "urn:example:client". Nothing for empty text, text with spaces
  // or control characters, or text without a scheme.
  static std::optional<Url> withString(std::string_view text);
  // Resolves `relative` against `base` as a browser would: a base path that
  // does not end in "/" loses its last segment ("https://h/a/b" with "c" is
  // "https://h/a/c"); an absolute `relative` stands on its own. The base's
  // fragment is dropped first ("https://h/app/#/a/b" with "c" is
  // "https://h/app/c"), so only `relative` can bring one.
  static std::optional<Url> withString(std::string_view relative, const Url& base);

  // The URL as given, or as resolved against its base.
  const std::string& absoluteString() const { return absolute_; }
  const std::string& scheme() const { return scheme_; }
  // Absent for URLs without an authority part.
  const std::optional<std::string>& host() const { return host_; }
  const std::optional<std::string>& port() const { return port_; }
  // Percent-encoded, as it appears in the URL; empty when there is none.
  const std::string& path() const { return path_; }
  // Percent-encoded text after "?", absent when there is no "?".
  const std::optional<std::string>& query() const { return query_; }
  const std::optional<std::string>& fragment() const { return fragment_; }

  friend bool operator==(const Url& a, const Url& b) { return a.absolute_ == b.absolute_; }

 private:
  Url() = default;

  std::string absolute_;
  std::string scheme_;
  std::optional<std::string> host_;
  std::optional<std::string> port_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace velmor

#endif  // VELMOR_URL_H_
