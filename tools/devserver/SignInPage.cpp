#include "devserver/SignInPage.h"

namespace velmor::devserver {

namespace {

// Only these parameters of the request are carried through the form.
constexpr std::string_view kCarried[] = {
    "response_type", "client_id",      "redirect_uri",         "scope",
    "state",         "code_challenge", "code_challenge_method"};

std::string page(std::string_view title, const std::string& content) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  html += SignInPage::escape(title);
  html +=
      "</title>\n<style>body{font-family:sans-serif;max-width:24em;margin:4em auto}"
      "label,input,button{display:block;margin:.4em 0}input{width:100%}"
      ".message{color:#a00}</style>\n</head>\n<body>\n";
  html += content;
  html += "</body>\n</html>\n";
  return html;
}

}  // namespace

std::string SignInPage::form(const FormFields& requestParameters, std::string_view username,
                             std::string_view message) {
  std::string content = "<h1>Sign in</h1>\n";
  content += "<p>Velmor development authorization server</p>\n";
  if (!message.empty()) {
    content += "<p class=\"message\" id=\"message\">" + escape(message) + "</p>\n";
  }
  content += "<form method=\"post\">\n";
  for (std::string_view name : kCarried) {
    if (const std::string* value = requestParameters.find(name)) {
      content += "<input type=\"hidden\" name=\"" + escape(name) + "\" value=\"" + escape(*value) +
                 "\">\n";
    }
  }
  content +=
      "<label for=\"username\">User name</label>\n"
      "<input id=\"username\" name=\"username\" autocomplete=\"username\" value=\"" +
      escape(username) +
      "\">\n"
      "<label for=\"password\">Password</label>\n"
      "<input id=\"password\" name=\"password\" type=\"password\" "
      "autocomplete=\"current-password\">\n"
      "<button type=\"submit\" id=\"sign-in\" name=\"action\" value=\"sign-in\">Sign in</button>\n"
      "<button type=\"submit\" id=\"cancel\" name=\"action\" value=\"cancel\">Cancel</button>\n"
      "</form>\n";
  return page("Sign in", content);
}

std::string SignInPage::problem(std::string_view title, std::string_view detail) {
  return page(title,
              "<h1>" + escape(title) + "</h1>\n<p id=\"message\">" + escape(detail) + "</p>\n");
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
