// The HTML of the development server's browser sign-in.
#ifndef VELMOR_TOOLS_DEVSERVER_SIGN_IN_PAGE_H_
#define VELMOR_TOOLS_DEVSERVER_SIGN_IN_PAGE_H_

#include <string>
#include <string_view>

#include "devserver/FormFields.h"

namespace velmor::devserver {

// Pages are plain HTML without scripts, styled inline for light and dark
// screens, so that any browser and any test driver can fill them in: the form has the fields
// "username" and "password" (ids the same), and two submit buttons named "action" with the values
// "sign-in" (id "sign-in") and "cancel" (id "cancel"). The request's own parameters travel as
// hidden fields. Every text put into a page is HTML-escaped.
class SignInPage final {
 public:
  SignInPage() = delete;

  // The form for a sign-in request, with `message` (if any) shown above it
  // in an element with id "message", and `username` filled in again.
  static std::string form(const FormFields& requestParameters, std::string_view username,
                          std::string_view message);
  // A page that explains why there is nothing to sign in to.
  static std::string problem(std::string_view title, std::string_view detail);
  static std::string escape(std::string_view text);
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_SIGN_IN_PAGE_H_
