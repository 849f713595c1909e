// The pages the loopback redirect listener answers the browser with.
#ifndef VELMOR_CLIENT_REDIRECT_RESULT_PAGE_H_
#define VELMOR_CLIENT_REDIRECT_RESULT_PAGE_H_

#include <string>
#include <string_view>

namespace velmor {

// Small self-contained HTML pages: inline style only, no script, no
// resource to fetch, light and dark colours. The heading is an <h1>, the
// sentence under it has the id "message"; every text is HTML-escaped.
// Stateless and thread-safe.
class RedirectResultPage final {
 public:
  RedirectResultPage() = delete;

  // "Signed in", with a green mark.
  static std::string success(std::string_view message);
  // `heading` ("Sign-in failed", "Not found", ...) with a red mark.
  static std::string failure(std::string_view heading, std::string_view message);

  static std::string escape(std::string_view text);
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_REDIRECT_RESULT_PAGE_H_
