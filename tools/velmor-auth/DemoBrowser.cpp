#include "DemoBrowser.h"

#include <regex>

#include "devserver/FormCodec.h"
#include "velmor/HttpClient.h"

namespace velmor::tool {

namespace {

std::string decodeEntities(const std::string& text) {
  static const std::pair<const char*, const char*> kEntities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
  std::string decoded = text;
  for (const auto& [entity, character] : kEntities) {
    for (std::size_t at = decoded.find(entity); at != std::string::npos;
         at = decoded.find(entity, at + 1)) {
      decoded.replace(at, std::char_traits<char>::length(entity), character);
    }
  }
  return decoded;
}

std::string textOf(const HttpResult& result) {
  return result.body ? std::string(result.body->begin(), result.body->end()) : std::string();
}

}  // namespace

Dictionary DemoBrowser::hiddenFields(const std::string& html) {
  static const std::regex kHidden(R"re(<input type="hidden" name="([^"]*)" value="([^"]*)">)re");
  Dictionary fields;
  for (auto match = std::sregex_iterator(html.begin(), html.end(), kHidden);
       match != std::sregex_iterator(); ++match) {
    fields.set(decodeEntities((*match)[1]), decodeEntities((*match)[2]));
  }
  return fields;
}

void DemoBrowser::signIn(const std::string& signInUrl) {
  const std::shared_ptr<HttpClient> http = HttpClient::defaultClient();
  const std::optional<Url> url = Url::withString(signInUrl);
  if (!url) {
    report_ = "the sign-in URL is not a URL";
    return;
  }
  const HttpResult page = http->send(HttpRequest(*url));
  if (!page.response || page.response->statusCode() != 200) {
    report_ = "the sign-in page did not load";
    return;
  }
  std::vector<devserver::FormFields::Field> form;
  for (const auto& [name, value] : hiddenFields(textOf(page))) {
    form.emplace_back(name, value.stringValue() ? *value.stringValue() : "");
  }
  form.insert(form.end(),
              {{"username", username_}, {"password", password_}, {"action", "sign-in"}});
  const std::string body = devserver::FormCodec::encodeFields(devserver::FormFields(form));

  HttpRequest submit(*url);
  submit.method = "POST";
  submit.headerFields = {{"Content-Type", "application/x-www-form-urlencoded"}};
  submit.body = Data(body.begin(), body.end());
  const HttpResult posted = http->send(submit);
  const std::optional<std::string> location =
      posted.response ? posted.response->valueForHTTPHeaderField("Location") : std::nullopt;
  const std::optional<Url> redirect = location ? Url::withString(*location) : std::nullopt;
  if (!redirect) {
    report_ = "the form was not accepted";
    return;
  }
  const HttpResult landed = http->send(HttpRequest(*redirect));
  report_ = "form posted, redirected to " + redirect->host().value_or("?") + ":" +
            redirect->port().value_or("?") +
            (landed.response ? "" : " (the redirect listener did not answer)");
}

}  // namespace velmor::tool
