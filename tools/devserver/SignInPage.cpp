#include "devserver/SignInPage.h"

#include <algorithm>
#include <vector>

namespace velmor::devserver {

namespace {

// Only these parameters of the request are carried through the form.
constexpr std::string_view kCarried[] = {
    "response_type", "client_id",      "redirect_uri",         "scope",
    "state",         "code_challenge", "code_challenge_method"};

// One stylesheet for every page: a centred card, readable type, large
// targets, a visible focus ring, light and dark colours. No script and
// nothing to fetch.
constexpr char kStyle[] =
    ":root{color-scheme:light dark;--bg:#f4f5f7;--card:#fff;--text:#1d2330;--muted:#5b6475;"
    "--line:#c9ced8;--accent:#2f5bd3;--accent-text:#fff;--error:#b42318;--error-bg:#fdecea}"
    "@media(prefers-color-scheme:dark){:root{--bg:#14171c;--card:#1f232b;--text:#e8eaef;"
    "--muted:#a3aab8;--line:#3a404c;--accent:#6d93f5;--accent-text:#0d1117;--error:#ff9b8f;"
    "--error-bg:#3a1d1a}}"
    "*{box-sizing:border-box}"
    "body{margin:0;min-height:100vh;display:flex;align-items:center;justify-content:center;"
    "background:var(--bg);color:var(--text);"
    "font:16px/1.5 system-ui,-apple-system,'Segoe UI',Roboto,sans-serif}"
    "main{background:var(--card);width:100%;max-width:24rem;margin:1rem;padding:2rem 2.25rem;"
    "border-radius:12px;box-shadow:0 4px 24px rgba(0,0,0,.12)}"
    ".brand{margin:0 0 1.25rem;font-size:.8rem;font-weight:600;letter-spacing:.08em;"
    "text-transform:uppercase;color:var(--accent)}"
    "h1{font-size:1.5rem;margin:0 0 .25rem}"
    ".lead{margin:0 0 1.5rem;color:var(--muted)}"
    ".message{margin:0 0 1.25rem;padding:.75rem 1rem;border-radius:8px;"
    "background:var(--error-bg);color:var(--error)}"
    "label{display:block;margin:0 0 .35rem;font-weight:600;font-size:.95rem}"
    "input{display:block;width:100%;margin:0 0 1.1rem;padding:.65rem .8rem;font:inherit;"
    "color:inherit;background:transparent;border:1px solid var(--line);border-radius:8px}"
    "input:focus,button:focus-visible{outline:3px solid var(--accent);outline-offset:1px}"
    ".actions{display:flex;flex-direction:row-reverse;gap:.75rem;margin-top:.5rem}"
    "button{flex:1;padding:.7rem 1rem;font:inherit;font-weight:600;border-radius:8px;"
    "cursor:pointer;border:1px solid var(--accent)}"
    "#sign-in{background:var(--accent);color:var(--accent-text)}"
    "#cancel{background:transparent;color:var(--accent)}"
    ".detail{margin:0;color:var(--muted)}"
    "footer{margin-top:1.5rem;font-size:.8rem;color:var(--muted);text-align:center}";

std::string page(std::string_view title, const std::string& content) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  html += SignInPage::escape(title);
  html += " \u2013 Velmor</title>\n<style>";
  html += kStyle;
  html += "</style>\n</head>\n<body>\n<main>\n<p class=\"brand\">Velmor</p>\n";
  html += content;
  html += "<footer>Development authorization server</footer>\n</main>\n</body>\n</html>\n";
  return html;
}

// "profile and email" for the lead sentence; nothing when none are named.
std::string scopeList(const FormFields& requestParameters) {
  const std::string* scope = requestParameters.find("scope");
  std::string list;
  std::size_t start = 0;
  std::vector<std::string> names;
  while (scope != nullptr && start < scope->size()) {
    const std::size_t end = std::min(scope->find(' ', start), scope->size());
    if (end > start) names.push_back(scope->substr(start, end - start));
    start = end + 1;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) list += i + 1 == names.size() ? " and " : ", ";
    list += names[i];
  }
  return list;
}

}  // namespace

std::string SignInPage::form(const FormFields& requestParameters, std::string_view username,
                             std::string_view message) {
  std::string content = "<h1>Sign in</h1>\n";
  const std::string scopes = scopeList(requestParameters);
  content += "<p class=\"lead\">Signing in gives the application access to " +
             (scopes.empty() ? std::string("your account") : "your " + escape(scopes)) + ".</p>\n";
  if (!message.empty()) {
    content += "<p class=\"message\" id=\"message\" role=\"alert\">" + escape(message) + "</p>\n";
  }
  content += "<form method=\"post\">\n";
  for (std::string_view name : kCarried) {
    if (const std::string* value = requestParameters.find(name)) {
      content += "<input type=\"hidden\" name=\"" + escape(name) + "\" value=\"" + escape(*value) +
                 "\">\n";
    }
  }
  // The cursor waits where the user goes on: the password once a name is
  // filled in again.
  const char* focusName = username.empty() ? " autofocus" : "";
  const char* focusPassword = username.empty() ? "" : " autofocus";
  content += std::string("<label for=\"username\">User name</label>\n") +
             "<input id=\"username\" name=\"username\" autocomplete=\"username\" required" +
             focusName + " value=\"" + escape(username) +
             "\">\n"
             "<label for=\"password\">Password</label>\n"
             "<input id=\"password\" name=\"password\" type=\"password\" "
             "autocomplete=\"current-password\"" +
             focusPassword + ">\n";
  content +=
      // Sign in comes first, so that the Enter key signs in; the row is
      // reversed to show it on the right.
      "<div class=\"actions\">\n"
      "<button type=\"submit\" id=\"sign-in\" name=\"action\" value=\"sign-in\">Sign in</button>\n"
      "<button type=\"submit\" id=\"cancel\" name=\"action\" value=\"cancel\" "
      "formnovalidate>Cancel</button>\n"
      "</div>\n"
      "</form>\n";
  return page("Sign in", content);
}

std::string SignInPage::problem(std::string_view title, std::string_view detail) {
  return page(title, "<h1>" + escape(title) + "</h1>\n<p class=\"detail\" id=\"message\">" +
                         escape(detail) + "</p>\n");
}

std::string SignInPage::escape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace velmor::devserver
