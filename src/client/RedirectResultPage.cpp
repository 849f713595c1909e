#include "client/RedirectResultPage.h"

namespace velmor {
namespace {

constexpr char kStyle[] =
    ":root{color-scheme:light dark;--bg:#f4f5f7;--card:#fff;--text:#1d2330;--muted:#5b6475}"
    "@media(prefers-color-scheme:dark){:root{--bg:#14171c;--card:#1f232b;--text:#e8eaef;"
    "--muted:#a3aab8}}"
    "body{margin:0;min-height:100vh;display:flex;align-items:center;justify-content:center;"
    "background:var(--bg);color:var(--text);"
    "font:16px/1.5 system-ui,-apple-system,'Segoe UI',Roboto,sans-serif}"
    "main{background:var(--card);max-width:26rem;margin:1rem;padding:2rem 2.25rem;"
    "border-radius:12px;box-shadow:0 4px 24px rgba(0,0,0,.12);text-align:center}"
    ".mark{width:3rem;height:3rem;margin:0 auto 1rem;border-radius:50%;color:#fff;"
    "font-size:1.6rem;line-height:3rem;font-weight:700}"
    ".ok{background:#1f9d55}.failed{background:#d64545}"
    "h1{font-size:1.35rem;margin:0 0 .5rem}p{margin:0;color:var(--muted)}";

std::string page(std::string_view heading, std::string_view message, bool succeeded) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  html += RedirectResultPage::escape(heading);
  html += "</title>\n<style>";
  html += kStyle;
  html += "</style>\n</head>\n<body>\n<main>\n<div class=\"mark ";
  html += succeeded ? "ok\">&#10003;" : "failed\">&#33;";
  html += "</div>\n<h1>";
  html += RedirectResultPage::escape(heading);
  html += "</h1>\n<p id=\"message\">";
  html += RedirectResultPage::escape(message);
  html += "</p>\n</main>\n</body>\n</html>\n";
  return html;
}

}  // namespace

std::string RedirectResultPage::success(std::string_view message) {
  return page("Signed in", message, true);
}

std::string RedirectResultPage::failure(std::string_view heading, std::string_view message) {
  return page(heading, message, false);
}

std::string RedirectResultPage::escape(std::string_view text) {
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

}  // namespace velmor
