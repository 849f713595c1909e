#include "velmor/HttpUrlResponse.h"

#include <gtest/gtest.h>

namespace velmor {
namespace {

HttpUrlResponse responseWith(const HttpUrlResponse::HeaderFields& fields) {
  return HttpUrlResponse(*Url::withString("https://h/x"), 401, fields);
}

TEST(HttpUrlResponse, LooksUpHeaderFieldsIgnoringCase) {
  HttpUrlResponse response = responseWith({{"Content-Type", "application/json"},
                                           {"WWW-Authenticate", "Bearer a"},
                                           {"www-authenticate", "Bearer b"}});
  EXPECT_EQ(response.statusCode(), 401);
  EXPECT_EQ(response.valueForHTTPHeaderField("content-type"), "application/json");
  EXPECT_EQ(response.valueForHTTPHeaderField("WWW-AUTHENTICATE"), "Bearer a, Bearer b");
  EXPECT_EQ(response.valuesForHTTPHeaderField("WWW-AUTHENTICATE"),
            (std::vector<std::string>{"Bearer a", "Bearer b"}));
  EXPECT_EQ(response.valuesForHTTPHeaderField("Content-Type"),
            std::vector<std::string>{"application/json"});
  EXPECT_TRUE(response.valuesForHTTPHeaderField("Content-Length").empty());
  EXPECT_EQ(response.valueForHTTPHeaderField("Content-Length"), std::nullopt);
  Dictionary fields = response.allHeaderFields();
  EXPECT_EQ(fields.size(), 2u);
  ASSERT_NE(fields.findString("WWW-Authenticate"), nullptr);
}

TEST(HttpUrlResponse, SpellsFieldNamesCanonically) {
  HttpUrlResponse response = responseWith({{"content-type", "a"},
                                           {"www-authenticate", "b"},
                                           {"X-REQUEST-ID", "c"},
                                           {"etag", "d"},
                                           {"content-length", "1"}});
  std::vector<std::string> names;
  for (const auto& entry : response.allHeaderFields()) names.push_back(entry.first);
  EXPECT_EQ(names, (std::vector<std::string>{"Content-Length", "Content-Type", "ETag",
                                             "WWW-Authenticate", "X-Request-Id"}));
}

TEST(HttpUrlResponse, PhrasesStatusCodes) {
  struct Case {
    std::int64_t code;
    const char* phrase;
  };
  const Case cases[] = {{200, "no error"},
                        {404, "not found"},
                        {401, "unauthorized"},
                        {503, "service unavailable"},
                        {500, "internal server error"},
                        {299, "success"},
                        {399, "redirected"},
                        {499, "client error"},
                        {599, "server error"},
                        {42, "server error"},
                        {-1, "server error"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_EQ(HttpUrlResponse::localizedStringForStatusCode(c.code), c.phrase);
  }
}

}  // namespace
}  // namespace velmor
